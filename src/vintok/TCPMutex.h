// Locks for the statics of the process, named by a number.
#ifndef VINTOK_TCPMUTEX_H
#define VINTOK_TCPMUTEX_H

#include "vintok/Export.h"

#include <atomic>

namespace vintok {

class TCPMutexBase;
struct SourcePlace;

// All objects with the same id mean the same lock, so a function that needs one declares
// `static TCPMutex mutex(id);` and any number of functions share it. Ids are 0 to 12:
//
//   0 users of the locks        5 clock offsets        10 control process
//   1 descriptor table          6 (unused)             11 dispatch table
//   2 (unused)                  7 start-up count       12 dispatch loop
//   3 secure transport          8, 9 cannot be locked
//   4 own address
//
// A lock is a flag that is tested under a mutex of the system; the mutex is held for that instant
// only, so a long critical section on one id blocks nobody on another. Locks are not recursive:
// `lock` by the holder logs "Deadlock", fails and stops every id that shares the mutex, since the
// program is broken. Nesting is 1 outside 3 and 11 outside 12, and nothing else.
//
// The operations return 0, or -1 after logging why; they set no `TCPError`.
class VINTOK_API TCPMutex {
public:
    // Never fails; an id that cannot be locked shows with the first `lock`.
    explicit TCPMutex(int id);
    ~TCPMutex();
    TCPMutex(const TCPMutex &) = delete;
    TCPMutex &operator=(const TCPMutex &) = delete;

    // Waits without limit. A waiter is woken by `unlock`, and looks every 10 milliseconds besides.
    int lock();
    // Never waits; -1 when anybody holds the lock, the caller included.
    int trylock();
    // -1 when the calling thread does not hold the lock, which then stays as it is.
    int unlock();

    // Every mutex of the system, whatever the ids: all locks stand still between the two. Nothing
    // in the library needs that.
    static void lockAll();
    static void unlockAll();

private:
    static std::atomic<TCPMutexBase *> _instance;

    void countIn(const SourcePlace &place);

    int m_id;
    std::atomic<bool> m_isCounted{false}; // among the users of the base
};

} // namespace vintok

#endif
