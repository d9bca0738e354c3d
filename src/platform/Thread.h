// Threads as the named locks and the log need them.
#ifndef VINTOK_PLATFORM_THREAD_H
#define VINTOK_PLATFORM_THREAD_H

#include <atomic>
#include <cstdint>

namespace vintok::platform {

// A recursive lock of this process.
class RecursiveLock {
public:
    RecursiveLock();
    ~RecursiveLock();
    RecursiveLock(const RecursiveLock &) = delete;
    RecursiveLock &operator=(const RecursiveLock &) = delete;

    // False when the system could not make the lock; the other operations then fail.
    bool valid() const { return m_handle != nullptr; }
    // Waits without limit. Abandoned: owned now, but the thread that owned it ended in the middle
    // of something.
    enum class Wait { acquired, abandoned, timedOut, failed };
    Wait acquire();
    // False when the calling thread does not own it.
    bool release();
    // The end, which the destructor is otherwise. False when the system refuses it; the lock is
    // then as it was.
    bool close();

private:
    void *m_handle;
};

// A pointer of each thread's own, null at first. When a thread ends, the system hands its pointer
// to `destroy`, unless it is null. What a thread keeps in variables of the language instead is
// destroyed too late where those are emulated: its memory is gone by then.
class ThreadSlot {
public:
    explicit ThreadSlot(void (*destroy)(void *));

    // Null when nothing was set, or when the system had no slot to give.
    void *get() const;
    // False when the system cannot keep it; the caller keeps it then.
    bool set(void *value) const;

    // Destroys the calling thread's pointer and gives the slot back, which then holds nothing any
    // more. Before the code of `destroy` goes.
    void release();

private:
    void (*m_destroy)(void *);
    bool m_valid;
    std::uint32_t m_key = 0;
};

// Waits while `word` is `value`: until `wakeOne` for the same word, or for so many milliseconds, or
// until the system ends the wait for reasons of its own. False when the time ran out. Neither of
// the two touches the last error of the thread, and a word has nothing to make or to destroy.
bool waitWhile(const std::atomic<std::uint32_t> &word, std::uint32_t value,
               std::uint32_t milliseconds);
void wakeOne(const std::atomic<std::uint32_t> &word);

// Never 0. Unique among the running threads of the system.
std::uint64_t currentThreadId();
std::uint32_t currentProcessId();
void sleepMilliseconds(std::uint32_t milliseconds);

// The number of the last failed call of this header on this thread.
std::uint32_t lastThreadError();

} // namespace vintok::platform

#endif
