// A pass first dispatches the secure descriptors whose transport holds plaintext, which no wait can
// see; if there was none it waits, and dispatches what can be read in ascending order. A dispatch
// calls copies of the records, so a callback may remove any of them.
//
// Readiness belongs to a registration. `m_workSet` holds what a wait found and nobody has been
// called for, whichever pass it was: a dispatch takes its descriptor out, a new registration takes
// its number out, and a pass within a callback fills the set anew and empties it. So nobody is
// called to read what somebody else has read, or what an earlier owner of the number was to read.
//
// Two things could make the loop spin, and it pauses over them instead: a readable descriptor that
// nobody handles (none registered, or dead and still registered after another pass), and plaintext
// that nobody takes.
#include "vintok/TCPSelectBase.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Thread.h"
#include "vintok/Log.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPMutex.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace vintok {

namespace {

constexpr std::uint32_t pause = 250; // milliseconds

bool someAreSecure() {
    const Globals *globals = startedGlobals();
    return globals != nullptr && globals->m_secure != 0;
}

// Bytes of plaintext that a secure descriptor can be read for at once; 0 for others. Connections
// with buffers have their own way to tell.
std::int64_t bufferedBytes(int descriptor) {
    const DescriptorState state(descriptor);
    return state.known && state.secure && state.buffer == nullptr ? secureBytesPending(descriptor)
                                                                  : 0;
}

// Readable for ever, since its peer or its socket has gone.
bool isDead(int descriptor) {
    const DescriptorState state(descriptor);
    int size = 0;
    return state.closed || (!state.known && !platform::receiveBuffer(descriptor, size));
}

bool isBelow(const TCPSelect::Watched &one, const TCPSelect::Watched &other) {
    return one.descriptor < other.descriptor;
}

} // namespace

// Marks a table walk or a dispatch.
class TCPSelectBase::Busy {
public:
    explicit Busy(TCPSelectBase &base) : m_base(base) {
        static TCPMutex mutex(LOCK_SIGNAL_SAFE);
        m_raised = change(mutex, 1);
    }

    ~Busy() {
        static TCPMutex mutex(LOCK_SIGNAL_SAFE);
        if (m_raised)
            change(mutex, -1);
    }

    Busy(const Busy &) = delete;
    Busy &operator=(const Busy &) = delete;

private:
    bool change(TCPMutex &mutex, int by) {
        if (mutex.lock() != 0)
            return false;
        m_base._signalSafe += by;
        mutex.unlock();
        return true;
    }

    TCPSelectBase &m_base;
    bool m_raised = false;
};

class TCPSelectBase::Pass {
public:
    explicit Pass(TCPSelectBase &base) : m_base(base) { ++m_base.m_passes; }

    ~Pass() {
        if (--m_base.m_passes == 0 && m_base.m_released)
            delete &m_base;
    }

    Pass(const Pass &) = delete;
    Pass &operator=(const Pass &) = delete;

private:
    TCPSelectBase &m_base;
};

std::atomic<bool> TCPSelectBase::s_checkDebug{true};
std::atomic<bool> TCPSelectBase::s_selectDebug{false};

TCPSelectBase::TCPSelectBase() : m_loop(std::make_shared<StreamLoop>()) {
    m_loop->enter();
    if (!s_checkDebug.exchange(false))
        return;
    const char *debug = std::getenv("TCP_SELECT_DEBUG");
    if (debug != nullptr && std::strcmp(debug, "True") == 0)
        s_selectDebug = true;
}

TCPSelectBase::~TCPSelectBase() {
    m_loop->leave();
}

void TCPSelectBase::release() {
    if (m_passes == 0) {
        delete this;
        return;
    }
    m_loop->leave();
    m_table.clear();
    m_others.clear();
    m_workSet.clear();
    m_released = true;
}

// ---- Registrations ----

bool TCPSelectBase::addCallback(int descriptor, TCPSelectCallback function, void *data) {
    const Busy busy(*this);
    const bool isNew = !m_table.contains(descriptor);
    if (!m_table.add(descriptor, function, data))
        return false;
    if (isNew)
        m_workSet.erase(descriptor);
    m_nestIsOld = true;
    return true;
}

bool TCPSelectBase::addReadable(int descriptor, TCPSelectCallback function, void *data) {
    const bool isNew = !m_table.contains(descriptor);
    if (!addCallback(descriptor, function, data))
        return false;
    if (isNew)
        m_others.insert(descriptor);
    return true;
}

bool TCPSelectBase::removeCallback(int descriptor, TCPSelectCallback function, void *data) {
    const Busy busy(*this);
    const bool removed = m_table.remove(descriptor, function, data);
    if (!m_table.contains(descriptor))
        m_others.erase(descriptor);
    m_nestIsOld = true;
    return removed;
}

// ---- From other threads ----

bool TCPSelectBase::setWakeCallback(TCPSelect::WakeCallback function, void *data) {
    const int descriptor = m_waker.descriptor();
    if (function == nullptr)
        return descriptor == -1 || removeCallback(descriptor, mf_awake, this);
    if (descriptor == -1 && !m_waker.open())
        return refuse(TCP_ERROR_SYSTEM_ERROR, "setWakeCallback: no descriptor");
    m_wakeCB = function;
    m_wakeData = data;
    return m_table.contains(m_waker.descriptor()) ||
           addReadable(m_waker.descriptor(), mf_awake, this);
}

void TCPSelectBase::mf_awake(int, void *base, bool) {
    auto *const self = static_cast<TCPSelectBase *>(base);
    self->m_waker.clear();
    self->m_wakeCB(self->m_wakeData);
}

// ---- Inside another loop ----

std::vector<TCPSelect::Watched> TCPSelectBase::watched() const {
    platform::DescriptorSet readers = m_table.readSet();
    platform::DescriptorSet ready;
    platform::DescriptorSet writers;
    m_loop->sort(readers, ready, writers);
    m_loop->addAwaited(readers, writers);
    std::vector<TCPSelect::Watched> result;
    for (const int descriptor : readers)
        result.push_back({descriptor, true, writers.contains(descriptor)});
    for (const int descriptor : writers)
        if (!readers.contains(descriptor))
            result.push_back({descriptor, false, true});
    std::sort(result.begin(), result.end(), isBelow);
    return result;
}

std::int32_t TCPSelectBase::timeout() const {
    platform::DescriptorSet readers = m_table.readSet();
    platform::DescriptorSet ready;
    platform::DescriptorSet writers;
    m_loop->sort(readers, ready, writers);
    const bool holdsText =
        someAreSecure() && std::any_of(m_table.readSet().begin(), m_table.readSet().end(),
                                       [](int each) { return bufferedBytes(each) > 0; });
    return ready.size() != 0 || holdsText ? 0 : m_loop->waitLimit(platform::WaitLimit::forever);
}

// What is closed has left the nest by itself, so after a change everything is put there again.
int TCPSelectBase::nestedDescriptor() {
    if (m_nest == nullptr)
        m_nest = std::make_unique<platform::Poller>();
    const std::vector<TCPSelect::Watched> now = watched();
    for (const TCPSelect::Watched &before : m_nested)
        if (!std::binary_search(now.begin(), now.end(), before, isBelow))
            m_nest->watch(before.descriptor, false, false, nullptr);
    for (const TCPSelect::Watched &each : now) {
        const auto before = std::lower_bound(m_nested.begin(), m_nested.end(), each, isBelow);
        const bool isKnown = before != m_nested.end() && before->descriptor == each.descriptor &&
                             before->reading == each.reading && before->writing == each.writing;
        if (!isKnown || m_nestIsOld || !m_table.contains(each.descriptor))
            m_nest->watch(each.descriptor, each.reading, each.writing, nullptr);
    }
    m_nested = now;
    m_nestIsOld = false;
    return m_nest->descriptor();
}

// ---- Passes ----

bool TCPSelectBase::isIdle() const {
    return m_table.count() == 0 && !m_loop->isAwaiting();
}

int TCPSelectBase::pollDescriptors(bool immediate, const std::atomic<bool> *running) {
    if (isIdle())
        return -1;
    const Pass pass(*this);
    m_loop->beginPass();
    const platform::WaitLimit limit = {immediate ? 0 : platform::WaitLimit::forever, running};
    m_loop->deliver(limit);
    const int result = mf_pass(immediate, running);
    // What has come while the loop was away has come in time.
    if (!m_released)
        mf_runDeadlines();
    if (!m_released)
        m_loop->deliver(limit);
    return result;
}

void TCPSelectBase::mf_runDeadlines() {
    const Busy busy(*this);
    const std::shared_ptr<StreamLoop> loop = m_loop;
    loop->deadlines().run([this] { return m_released; });
}

void TCPSelectBase::mf_callAwaited(const platform::DescriptorSet &writers) {
    const Busy busy(*this);
    const std::shared_ptr<StreamLoop> loop = m_loop;
    loop->callAwaited(m_workSet, writers, [this] { return m_released; });
}

int TCPSelectBase::mf_pass(bool immediate, const std::atomic<bool> *running) {
    platform::DescriptorSet untouched;
    const int dispatched = mf_dispatchBuffered(untouched);
    if (dispatched > 0) {
        const bool allUntouched = static_cast<std::size_t>(dispatched) == untouched.size();
        return allUntouched ? dispatched + mf_pollBeside(untouched, immediate) : dispatched;
    }
    m_workSet = m_table.readSet();
    return mf_wait({immediate ? 0 : platform::WaitLimit::forever, running});
}

// Waits for the descriptors of `m_workSet` and dispatches what can be read. Connections with
// buffers that can be read already make it look instead of wait. What `select` gave; of connections
// with buffers those count that were dispatched.
int TCPSelectBase::mf_wait(platform::WaitLimit limit) {
    platform::DescriptorSet ready;
    platform::DescriptorSet writers;
    m_loop->sort(m_workSet, ready, writers);
    m_loop->addAwaited(m_workSet, writers);
    if (ready.size() != 0)
        limit.milliseconds = 0;
    limit.milliseconds = m_loop->waitLimit(limit.milliseconds);
    int result = 0;
    if (m_workSet.size() + writers.size() != 0 || ready.size() == 0)
        result = platform::waitReady(m_workSet, writers, limit);
    result = ready.size() != 0 ? std::max(result, 0) : result;
    m_loop->flush(writers);
    mf_callAwaited(writers);
    if (result > 0)
        result = static_cast<int>(m_workSet.size());
    for (const int descriptor : ready)
        result += m_workSet.insert(descriptor) ? 1 : 0;
    return mf_processSelectReturn(result);
}

int TCPSelectBase::pollOneDescriptor(int descriptor, bool immediate) {
    if (descriptor < 0)
        return -1;
    const Pass pass(*this);
    if (someAreSecure() && bufferedBytes(descriptor) > 0) {
        const Busy busy(*this);
        mf_callCallbacks(descriptor);
        return 1;
    }
    m_loop->deliver();
    // Not the work set, which may hold what an outer pass has still to dispatch.
    platform::DescriptorSet one;
    one.insert(descriptor);
    platform::DescriptorSet ready;
    platform::DescriptorSet writers;
    m_loop->sort(one, ready, writers);
    writers.clear();
    const int result = ready.size() != 0 ? 1 : platform::waitReadable(one, immediate);
    if (result < 1) {
        mf_processSelectReturn(result);
        return result;
    }
    if (!mf_isReadable(descriptor))
        return 0;
    if (!mf_dispatch(descriptor))
        platform::sleepMilliseconds(pause);
    return result;
}

// Returns how many were dispatched. Those that have as much plaintext afterwards as before are put
// in `untouched`.
int TCPSelectBase::mf_dispatchBuffered(platform::DescriptorSet &untouched) {
    int dispatched = 0;
    if (!someAreSecure())
        return dispatched;
    m_table.forEachIn(m_table.readSet(), [&](int descriptor) {
        const std::int64_t before = bufferedBytes(descriptor);
        const std::shared_ptr<StreamBuffer> buffer = m_loop->find(descriptor);
        if (before <= 0 || (buffer != nullptr && buffer->isHeldUp()))
            return;
        const Busy busy(*this);
        mf_callCallbacks(descriptor);
        ++dispatched;
        if (m_table.contains(descriptor) && bufferedBytes(descriptor) == before)
            untouched.insert(descriptor);
    });
    return dispatched;
}

// Plaintext that nobody takes (the beginning of a frame, say) is dispatched in every pass, but it
// must not keep the others from being waited for, nor the loop from resting.
int TCPSelectBase::mf_pollBeside(const platform::DescriptorSet &untouched, bool immediate) {
    m_workSet = m_table.readSet();
    for (const int descriptor : untouched)
        m_workSet.erase(descriptor);
    const std::int32_t limit = immediate ? 0 : static_cast<std::int32_t>(pause);
    if (m_workSet.size() == 0) {
        platform::sleepMilliseconds(static_cast<std::uint32_t>(limit));
        return 0;
    }
    return std::max(mf_wait({limit, nullptr}), 0);
}

// What `select` gave, without the connections on which no whole frame has come yet.
int TCPSelectBase::mf_processSelectReturn(int result) {
    if (result < 1) {
        const int error = platform::socketError();
        if (s_selectDebug) {
            const Busy busy(*this);
            VINTOK_LOG(SEVERITY_INFO,
                       formatText("TCPSelectBase::mf_processSelectReturn: poll returned %d, errno "
                                  "=%d '%s'\n",
                                  result, error, sysErrorString(error)));
        }
        // Whatever it is that fails, the next pass would meet it at once.
        if (result < 0 && error != socketErrors::interrupted)
            platform::sleepMilliseconds(pause);
        return result;
    }
    bool allHandled = true;
    m_table.forEachIn(m_workSet, [&](int descriptor) {
        if (mf_isReadable(descriptor)) {
            allHandled = mf_dispatch(descriptor) && allHandled;
        } else {
            m_workSet.erase(descriptor);
            --result;
        }
    });
    // One pause for all of them: a callback may have removed many, and the others wait.
    if (!allHandled)
        platform::sleepMilliseconds(pause);
    return result;
}

// Whether there is something to be read by whoever is called. A connection with buffers takes in
// what has come, and may have no whole frame yet.
bool TCPSelectBase::mf_isReadable(int descriptor) {
    const std::shared_ptr<StreamBuffer> buffer = m_loop->find(descriptor);
    if (buffer == nullptr || buffer->ready())
        return true;
    buffer->fill();
    if (!buffer->ready())
        buffer->settle();
    return buffer->ready();
}

// False when the descriptor will be found readable again and nobody will have done anything.
bool TCPSelectBase::mf_dispatch(int descriptor) {
    const std::shared_ptr<StreamBuffer> buffer = m_loop->find(descriptor);
    const std::size_t held = buffer != nullptr ? buffer->held() : 0;
    if (!mf_callCallbacks(descriptor)) {
        if (m_loop->hasLetGoOf(descriptor))
            return true;
        if (s_selectDebug)
            VINTOK_LOG(SEVERITY_WARNING,
                       formatText("TCPSelectBase::mf_callCallbacks(%d,%s)- Not handled, "
                                  "sleeping.\n",
                                  descriptor, "False"));
        return false;
    }
    if (buffer != nullptr)
        buffer->settle();
    const bool isUnread = buffer != nullptr && held != 0 && buffer->held() == held &&
                          buffer->ready() && m_table.find(descriptor) != nullptr;
    return !isUnread && !mf_isLeftDead(descriptor);
}

// False when there is no registration to call.
bool TCPSelectBase::mf_callCallbacks(int descriptor) {
    m_workSet.erase(descriptor);
    const SelectTable::Entry *const entry = m_table.find(descriptor);
    if (entry == nullptr)
        return false;
    const Busy busy(*this);
    const std::uint64_t registration = entry->registration;
    std::vector<SelectTable::CallbackRecord> records;
    try {
        records.reserve(entry->callbacks.size());
        for (const auto &record : entry->callbacks)
            records.push_back(*record);
    } catch (const std::bad_alloc &) {
        return true;
    }
    for (const SelectTable::CallbackRecord &record : records) {
        // Removed records are still called, but not once the number has a new owner.
        const SelectTable::Entry *const now = m_table.find(descriptor);
        if (m_released || (now != nullptr && now->registration != registration))
            break;
        if (record.function != nullptr)
            record.function(descriptor, record.data, false);
    }
    return true;
}

// Whether the descriptor is dead and its callbacks have left it registered, again: whoever learns
// of the end in one pass has the next one to take it out.
bool TCPSelectBase::mf_isLeftDead(int descriptor) {
    SelectTable::Entry *const entry = m_table.find(descriptor);
    if (entry == nullptr || m_others.contains(descriptor) || !isDead(descriptor))
        return false;
    if (++entry->deadPasses == 2)
        VINTOK_LOG(
            SEVERITY_WARNING,
            formatText("Descriptor %d is closed, but its callbacks stay registered", descriptor));
    return entry->deadPasses > 1;
}

} // namespace vintok
