// The mutexes of the system behind the named locks.
#ifndef VINTOK_TCPMUTEXBASE_H
#define VINTOK_TCPMUTEXBASE_H

#include <cstddef>

namespace vintok {

// Made with the first `TCPMutex` and gone with the last one; a second object at the same time logs
// and does nothing. All its state is static, so an object is only the right to it. The operations
// return 0, or -1 after logging why.
class TCPMutexBase {
public:
    static constexpr std::size_t mutexCount = 7;

    TCPMutexBase();
    ~TCPMutexBase();
    TCPMutexBase(const TCPMutexBase &) = delete;
    TCPMutexBase &operator=(const TCPMutexBase &) = delete;

    // False when the mutexes could not be made or another object has them.
    bool valid() const { return s_instance == this; }

    // `number` is the index of a mutex, with `isIndex` and below `mutexCount`, or else a lock id,
    // whose mutex the lock table tells. The second `_mutexLock` of a thread fails.
    int _mutexLock(int number, bool isIndex);
    int _mutexUnlock(int number, bool isIndex);

private:
    int _mutexInit();
    int _mutexDestroy();

    static TCPMutexBase *s_instance;
};

} // namespace vintok

#endif
