// Threads as the named locks and the log need them.
#ifndef VINTOK_PLATFORM_THREAD_H
#define VINTOK_PLATFORM_THREAD_H

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
    // Waits without limit.
    bool acquire();
    // False when the calling thread does not own it.
    bool release();

private:
    void *m_handle;
};

// Never 0. Unique among the running threads of the system.
std::uint64_t currentThreadId();
std::uint32_t currentProcessId();
void sleepMilliseconds(std::uint32_t milliseconds);

// The number of the last failed call of this header on this thread.
std::uint32_t lastThreadError();

} // namespace vintok::platform

#endif
