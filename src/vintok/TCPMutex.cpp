// Two levels. Below are seven mutexes of the system, each held only for the instant of testing or
// changing a flag. Above are thirteen locks, each a flag and its holder, which `TCPMutex::lock`
// tests. So a socket call or a callback under one lock holds nothing that another lock needs.
//
// Who finds a lock held says so while it has the mutex, and then waits. `unlock`, which needs the
// same mutex to clear the flag, therefore knows of every one that waits, and wakes one. The wait
// has an end all the same, since the base may go meanwhile.
//
// A holder that locks again has broken the program: `lock` then leaves the mutex of the system
// owned and marked busy, so that this thread fails and every other one stops at any lock behind the
// mutex.
//
// Nearly all objects are function-local statics, destroyed at exit in reverse order. The base goes
// with the last of them. A function that is called later still finds no base and fails, or, when
// its own object is made only then, makes a base anew.
#include "vintok/TCPMutex.h"

#include "platform/Thread.h"
#include "vintok/Log.h"
#include "vintok/TCPMutexBase.h"

#include <array>
#include <cstdint>
#include <new>

namespace vintok {

namespace {

constexpr int usersId = 0;
constexpr std::uint32_t longestWait = 10; // milliseconds

struct LockRow {
    int mutex; // -1: cannot be locked
    const char *label;
};

constexpr std::array<LockRow, 13> lockTable = {{
    {0, "TCPMutex::_instance"},
    {1, "TCPMessage::_socketDescriptors"},
    {1, "TCPMessage::_fileDescriptors"},
    {1, "TCPMessage::_transport"},
    {1, "TCPMessage::_TCPOriginIP"},
    {2, "TCPMessage::_subtractTime && TCPMessage::_addTime"},
    {3, "TCPMessage::_lastError"},
    {2, "TCPMessage::_startUpCount"},
    {-1, "(Not assigned)"},
    {-1, "(Not assigned)"},
    {4, "ConferenceProcess::_conferenceProcess"},
    {5, "TCPSelect::_selectBase"},
    {6, "TCPSelectBase::_signalSafe"},
}};

// Without a destructor, so that it outlasts every static lock. The base owns the handle.
struct SystemMutex {
    platform::RecursiveLock *handle = nullptr;
    // The thread whose `_mutexLock` stands unmatched, or 0. Set with the mutex owned; a thread can
    // ask for itself without.
    std::atomic<std::uint64_t> busy{0};
};

std::array<SystemMutex, TCPMutexBase::mutexCount> s_mutexes;

// Each guarded by the mutex of its row.
std::array<bool, lockTable.size()> s_lockHeld;
std::array<std::uint64_t, lockTable.size()> s_lockOwner;
unsigned s_userCount = 0;

// Those who wait for one lock. Without a destructor too.
class Waiters {
public:
    // With the mutex of the row owned: what is released from here on ends the `wait`.
    std::uint32_t enter() {
        m_count++;
        return m_releases;
    }
    void wait(std::uint32_t entered) {
        platform::waitWhile(m_releases, entered, longestWait);
        m_count--;
    }
    void wakeOne() {
        if (m_count == 0)
            return;
        m_releases++;
        platform::wakeOne(m_releases);
    }

private:
    std::atomic<std::uint32_t> m_count{0};
    std::atomic<std::uint32_t> m_releases{0}; // while anybody waited
};

std::array<Waiters, lockTable.size()> s_waiters;

// The making and the end of the base, which no lock can guard that needs the base.
std::atomic_flag s_baseChanging = ATOMIC_FLAG_INIT;

class BaseChange {
public:
    BaseChange() {
        while (s_baseChanging.test_and_set(std::memory_order_acquire))
            platform::sleepMilliseconds(1);
    }
    ~BaseChange() { s_baseChanging.clear(std::memory_order_release); }
    BaseChange(const BaseChange &) = delete;
    BaseChange &operator=(const BaseChange &) = delete;
};

// Null for a number that has no mutex.
SystemMutex *mutexFor(int number, bool isIndex) {
    if (number < 0)
        return nullptr;
    auto index = static_cast<std::size_t>(number);
    if (isIndex && index < s_mutexes.size())
        return &s_mutexes[index];
    if (index >= lockTable.size() || lockTable[index].mutex < 0)
        return nullptr;
    return &s_mutexes[static_cast<std::size_t>(lockTable[index].mutex)];
}

std::string failureText(const char *what) {
    return what + formatText(" lastError = 0x%X", platform::lastThreadError());
}

// What is logged of a wait that went wrong.
struct WaitTexts {
    const char *abandoned;
    const char *timedOut;
    const char *failed; // the number follows
};

constexpr WaitTexts lockTexts = {"WAIT_ABANDONED", "WAIT_TIMEOUT", "WAIT_FAILED"};
constexpr WaitTexts unlockTexts = {"WAIT_ABANDONED in TCPMutexBase::_mutexUnlock",
                                   "WAIT_TIMEOUT in TCPMutexBase::_mutexUnlock",
                                   "WAIT_FAILED int TCPMutexBase::_mutexUnlock"};

bool acquire(SystemMutex &mutex, const WaitTexts &texts, const SourcePlace &place) {
    using Wait = platform::RecursiveLock::Wait;
    switch (mutex.handle != nullptr ? mutex.handle->acquire() : Wait::failed) {
    case Wait::acquired:
        return true;
    case Wait::abandoned:
        VINTOK_LOG_AT(place, SEVERITY_ERROR, texts.abandoned);
        return false;
    case Wait::timedOut:
        VINTOK_LOG_AT(place, SEVERITY_ERROR, texts.timedOut);
        return false;
    default:
        VINTOK_LOG_AT(place, SEVERITY_ERROR, failureText(texts.failed));
        return false;
    }
}

void release(SystemMutex &mutex, const SourcePlace &place) {
    if (!mutex.handle->release())
        VINTOK_LOG_AT(place, SEVERITY_ERROR, failureText("ReleaseMutex failed"));
}

} // namespace

// ---- TCPMutexBase ----

TCPMutexBase *TCPMutexBase::s_instance = nullptr;

TCPMutexBase::TCPMutexBase() {
    if (s_instance != nullptr)
        VINTOK_LOG(SEVERITY_ERROR, "multiple instances of base created");
    else if (_mutexInit() == 0)
        s_instance = this;
    else
        VINTOK_LOG(SEVERITY_ERROR, "Mutex init failed");
}

TCPMutexBase::~TCPMutexBase() {
    if (s_instance != this) {
        VINTOK_LOG(SEVERITY_ERROR, "multiple instance of Base");
        return;
    }
    _mutexDestroy();
    s_instance = nullptr;
}

int TCPMutexBase::_mutexInit() {
    for (SystemMutex &mutex : s_mutexes) {
        delete mutex.handle; // of a base that could make only some of them
        mutex.handle = new (std::nothrow) platform::RecursiveLock;
        if (mutex.handle == nullptr || !mutex.handle->valid()) {
            VINTOK_LOG(SEVERITY_ERROR, "Cannot Create Mutex in TCPMutexBase::_mutexInit");
            return -1;
        }
        if (mutex.handle->acquire() != platform::RecursiveLock::Wait::acquired ||
            !mutex.handle->release()) {
            VINTOK_LOG(SEVERITY_ERROR, "Cannot Release Mutex in TCPMutexBase::_mutexInit");
            return -1;
        }
        mutex.busy = 0;
    }
    s_lockHeld.fill(false);
    s_lockOwner.fill(0);
    return 0;
}

int TCPMutexBase::_mutexDestroy() {
    for (SystemMutex &mutex : s_mutexes) {
        if (!mutex.handle->close()) {
            VINTOK_LOG(SEVERITY_ERROR, "TCPMutexBase::_mutexDestroy");
            return -1;
        }
        delete mutex.handle;
        mutex.handle = nullptr;
        mutex.busy = 0;
    }
    return 0;
}

int TCPMutexBase::_mutexLock(int number, bool isIndex) {
    SystemMutex *mutex = mutexFor(number, isIndex);
    if (mutex == nullptr || !acquire(*mutex, lockTexts, VINTOK_HERE))
        return -1;
    if (mutex->busy != 0) {
        VINTOK_LOG(SEVERITY_ERROR, "Recursive call to lock");
        release(*mutex, VINTOK_HERE);
        return -1;
    }
    mutex->busy.store(platform::currentThreadId(), std::memory_order_relaxed);
    return 0;
}

int TCPMutexBase::_mutexUnlock(int number, bool isIndex) {
    SystemMutex *mutex = mutexFor(number, isIndex);
    if (mutex != nullptr && mutex->busy == platform::currentThreadId()) {
        mutex->busy.store(0, std::memory_order_relaxed); // owned: spares the wait for it
        release(*mutex, VINTOK_HERE);
        return 0;
    }
    if (mutex == nullptr || !acquire(*mutex, unlockTexts, VINTOK_HERE))
        return -1;
    int result = -1;
    if (mutex->busy != 0) { // of a thread that has ended since
        mutex->busy = 0;
        release(*mutex, VINTOK_HERE);
        result = 0;
    } else {
        VINTOK_LOG(SEVERITY_ERROR, "Unlock called without lock");
    }
    release(*mutex, VINTOK_HERE);
    return result;
}

// ---- TCPMutex ----

std::atomic<TCPMutexBase *> TCPMutex::_instance{nullptr};

TCPMutex::TCPMutex(int id) : m_id(id) {
    countIn(VINTOK_HERE);
}

void TCPMutex::countIn(const SourcePlace &place) {
    const BaseChange change;
    if (m_isCounted)
        return;
    TCPMutexBase *base = _instance;
    if (base == nullptr)
        base = new (std::nothrow) TCPMutexBase;
    if (base == nullptr || !base->valid()) {
        delete base;
        VINTOK_LOG_AT(place, SEVERITY_ERROR, "Cannot create mutex");
        return;
    }
    _instance = base;
    if (base->_mutexLock(usersId, false) != 0) {
        _instance = nullptr;
        delete base;
        VINTOK_LOG_AT(place, SEVERITY_ERROR, "Cannot aquire lock on singleton object");
        return;
    }
    s_userCount++;
    m_isCounted = true;
    if (base->_mutexUnlock(usersId, false) != 0)
        VINTOK_LOG_AT(place, SEVERITY_ERROR, "Unlock failed");
}

TCPMutex::~TCPMutex() {
    const BaseChange change;
    TCPMutexBase *base = _instance;
    if (base == nullptr || !m_isCounted)
        return;
    if (base->_mutexLock(usersId, false) != 0) {
        VINTOK_LOG(SEVERITY_ERROR, "Cannot aquire lock on singleton object");
        return;
    }
    const bool last = --s_userCount == 0;
    if (last)
        _instance = nullptr;
    if (base->_mutexUnlock(usersId, false) != 0)
        VINTOK_LOG(SEVERITY_ERROR, "Unlock failed");
    if (last)
        delete base;
}

int TCPMutex::lock() {
    if (!m_isCounted) // there was no memory when it was made
        countIn(VINTOK_HERE);
    const std::uint64_t self = platform::currentThreadId();
    for (TCPMutexBase *base = _instance; base != nullptr; base = _instance) {
        if (base->_mutexLock(m_id, false) != 0) {
            VINTOK_LOG(SEVERITY_ERROR, "Cannot acquire global lock");
            return -1;
        }
        const auto id = static_cast<std::size_t>(m_id);
        const bool won = !s_lockHeld[id];
        if (!won && s_lockOwner[id] == self) {
            // The mutex stays owned on purpose: see above.
            VINTOK_LOG(SEVERITY_ERROR, "Deadlock");
            return -1;
        }
        std::uint32_t entered = 0;
        if (won) {
            s_lockHeld[id] = true;
            s_lockOwner[id] = self;
        } else {
            entered = s_waiters[id].enter();
        }
        if (base->_mutexUnlock(m_id, false) != 0)
            VINTOK_LOG(SEVERITY_ERROR, "Unlock failed");
        if (won)
            return 0;
        s_waiters[id].wait(entered);
    }
    return -1;
}

int TCPMutex::trylock() {
    if (!m_isCounted)
        countIn(VINTOK_HERE);
    TCPMutexBase *base = _instance;
    if (base == nullptr)
        return -1;
    if (base->_mutexLock(m_id, false) != 0) {
        VINTOK_LOG(SEVERITY_ERROR, "Cannot acquire global lock");
        return -1;
    }
    const auto id = static_cast<std::size_t>(m_id);
    const bool won = !s_lockHeld[id];
    if (won) {
        s_lockHeld[id] = true;
        s_lockOwner[id] = platform::currentThreadId();
    }
    if (base->_mutexUnlock(m_id, false) != 0)
        VINTOK_LOG(SEVERITY_ERROR, "Unlock failed");
    return won ? 0 : -1;
}

int TCPMutex::unlock() {
    TCPMutexBase *base = _instance;
    if (base == nullptr)
        return -1;
    if (base->_mutexLock(m_id, false) != 0) {
        VINTOK_LOG(SEVERITY_ERROR, "Cannot acquire global lock");
        return -1;
    }
    const auto id = static_cast<std::size_t>(m_id);
    const bool mine = s_lockHeld[id] && s_lockOwner[id] == platform::currentThreadId();
    if (mine) {
        s_lockHeld[id] = false;
        s_lockOwner[id] = 0;
    }
    base->_mutexUnlock(m_id, false);
    if (mine)
        s_waiters[id].wakeOne();
    return mine ? 0 : -1;
}

void TCPMutex::lockAll() {
    if (TCPMutexBase *base = _instance)
        for (std::size_t i = 0; i < TCPMutexBase::mutexCount; i++)
            base->_mutexLock(static_cast<int>(i), true);
}

void TCPMutex::unlockAll() {
    if (TCPMutexBase *base = _instance)
        for (std::size_t i = 0; i < TCPMutexBase::mutexCount; i++)
            base->_mutexUnlock(static_cast<int>(i), true);
}

} // namespace vintok
