#include "vintok/TCPSelect.h"

#include "platform/Thread.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMutex.h"
#include "vintok/TCPSelectBase.h"
#include "vintok/TCPStream.h"

#include <new>

namespace vintok {

// One `run` under way on this thread. Its object may be destroyed from within.
struct TCPSelect::Loop {
    explicit Loop(TCPSelect &running) : select(&running), outer(innermost()) { innermost() = this; }
    ~Loop() { innermost() = outer; }
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    static Loop *&innermost() {
        thread_local Loop *loop = nullptr;
        return loop;
    }

    TCPSelect *select; // null once it is gone
    Loop *outer;
};

namespace {

constexpr std::uint32_t noMemoryPause = 10; // milliseconds

struct ThreadRecord {
    TCPSelectBase *_selectBase = nullptr;
    int _count = 0; // of TCPSelect objects
};

ThreadRecord &threadRecord() {
    thread_local ThreadRecord record;
    return record;
}

// What a pass gives, and 0 for one that has found no memory: what it leaves is found readable by
// the next. It may have been the last of the object that was asked for it.
template <class Pass>
int withMemory(Pass pass) {
    try {
        return pass();
    } catch (const std::bad_alloc &) {
        VINTOK_LOG(SEVERITY_ERROR, "TCPSelect a pass has found no memory");
        platform::sleepMilliseconds(noMemoryPause);
        return 0;
    }
}

// Holds the lock of the dispatch tables.
class TableLock {
public:
    TableLock() : m_held(mutex().lock() == 0) {
        if (!m_held)
            VINTOK_LOG(SEVERITY_ERROR, "Cannot lock select base");
    }

    ~TableLock() {
        if (m_held && mutex().unlock() != 0)
            VINTOK_LOG(SEVERITY_ERROR, "Cannot unlock select base");
    }

    TableLock(const TableLock &) = delete;
    TableLock &operator=(const TableLock &) = delete;

    bool held() const { return m_held; }

private:
    static TCPMutex &mutex() {
        static TCPMutex lock(LOCK_SELECT_BASE);
        return lock;
    }

    bool m_held;
};

} // namespace

TCPSelectBase **TCPSelect::mf_selectBase() {
    return &threadRecord()._selectBase;
}

int *TCPSelect::mf_count() {
    return &threadRecord()._count;
}

TCPSelect::TCPSelect() : m_running(false), m_base(nullptr) {
    const TableLock lock;
    if (!lock.held())
        return;
    TCPSelectBase *&base = *mf_selectBase();
    try {
        if (base == nullptr)
            base = new TCPSelectBase;
        m_base = base;
        ++*mf_count();
    } catch (const std::exception &) {
        VINTOK_LOG(SEVERITY_ERROR, "Cannot allocate select base class");
    }
}

// What a copy takes away is the count of its original: see the header.
TCPSelect::~TCPSelect() {
    for (Loop *loop = Loop::innermost(); loop != nullptr; loop = loop->outer)
        if (loop->select == this)
            loop->select = nullptr;
    if (m_base == nullptr)
        return;
    const TableLock lock;
    if (!lock.held() || --*mf_count() != 0)
        return;
    TCPSelectBase *&base = *mf_selectBase();
    if (base != nullptr)
        base->release();
    base = nullptr;
}

TCPSelect::TCPSelect(const TCPSelect &other) : m_running(other.running()), m_base(other.m_base) {}

TCPSelect &TCPSelect::operator=(const TCPSelect &other) {
    if (this != &other) {
        m_running = other.running();
        m_base = other.m_base;
    }
    return *this;
}

bool TCPSelect::addSocketCallback(int descriptor, TCPSelectCallback function, void *data,
                                  bool /*flag*/, bool secure) {
    if (function == nullptr || descriptor < 0)
        return false;
    if (!addDescriptor(descriptor, secure, false, false, false))
        return false;
    const TableLock lock;
    return lock.held() && m_base != nullptr && m_base->addCallback(descriptor, function, data);
}

bool TCPSelect::addReadableCallback(int descriptor, TCPSelectCallback function, void *data) {
    if (function == nullptr || descriptor < 0)
        return false;
    const TableLock lock;
    return lock.held() && m_base != nullptr && m_base->addReadable(descriptor, function, data);
}

bool TCPSelect::removeCallback(int descriptor, TCPSelectCallback function, void *data) {
    const TableLock lock;
    return lock.held() && m_base != nullptr && m_base->removeCallback(descriptor, function, data);
}

void TCPSelect::run() {
    m_running = true;
    const Loop loop(*this);
    while (loop.select != nullptr && m_running)
        if (m_base == nullptr || m_base->isIdle())
            m_running = false;
        else
            withMemory([&] { return m_base->pollDescriptors(false, &m_running); });
}

bool TCPSelect::setWakeCallback(WakeCallback function, void *data) {
    const TableLock lock;
    return lock.held() && m_base != nullptr && m_base->setWakeCallback(function, data);
}

void TCPSelect::wake() const {
    if (m_base != nullptr)
        m_base->wake();
}

std::vector<TCPSelect::Watched> TCPSelect::watched() const {
    return m_base != nullptr ? m_base->watched() : std::vector<Watched>();
}

int TCPSelect::nestedDescriptor() const {
    return m_base != nullptr ? m_base->nestedDescriptor() : -1;
}

std::int32_t TCPSelect::timeout() const {
    return m_base != nullptr ? m_base->timeout() : -1;
}

int TCPSelect::numDescriptors() const {
    return m_base != nullptr ? m_base->numDescriptors() : 0;
}

int TCPSelect::pollDescriptors(bool immediate) {
    return m_base != nullptr
               ? withMemory([&] { return m_base->pollDescriptors(immediate, nullptr); })
               : -1;
}

int TCPSelect::pollOneDescriptor(int descriptor, bool immediate) {
    return m_base != nullptr
               ? withMemory([&] { return m_base->pollOneDescriptor(descriptor, immediate); })
               : -1;
}

bool TCPSelect::signalSafe() const {
    return m_base != nullptr && m_base->signalSafe();
}

} // namespace vintok
