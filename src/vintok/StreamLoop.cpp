// A wait for room takes in what arrives, whoever sends it. From the connection that is waited for
// it takes everything, since its peer may be waiting for just that. The others may have more than
// a share only when nothing moves otherwise, as when somebody in a ring of programs waits for
// somebody else in it: a sender who is faster than a receiver is to be held up, and not to be kept
// in memory.
#include "vintok/StreamLoop.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Thread.h"
#include "vintok/RelayRun.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <limits>
#include <new>

namespace vintok {

namespace {

constexpr std::size_t usualBound = std::size_t{1} << 20; // see `bound`
constexpr std::size_t share = std::size_t{1} << 18;      // taken in of each during a wait
constexpr std::int32_t standstill = 100;                 // milliseconds
constexpr std::uint32_t pause = 10;                      // milliseconds

thread_local StreamLoop *t_loop = nullptr;

// What may be queued before a pass waits for room. Who is limited never has it waited for.
std::size_t bound(const StreamBuffer &buffer) {
    return std::max(usualBound, buffer.unsentLimit());
}

bool isBelow(const StreamLoop::BufferPtr &buffer, int descriptor) {
    return buffer->descriptor() < descriptor;
}

} // namespace

// One wait for room, turn by turn.
class StreamLoop::Wait {
public:
    explicit Wait(StreamLoop &loop) : m_loop(loop) {}

    // Waits until something can be done, and does it. True when the descriptor can be written to.
    bool turn(const platform::DescriptorSet &targets, const std::atomic<bool> *running = nullptr) {
        platform::DescriptorSet readers;
        platform::DescriptorSet writers = targets;
        const bool heldBack = choose(targets, readers, writers);
        const platform::WaitLimit limit = {
            m_loop.reviewLimit(heldBack ? standstill : platform::WaitLimit::forever), running};
        const int count = platform::waitReady(readers, writers, limit);
        if (count == 0 && heldBack)
            m_share *= 2;
        else if (count < 0 && platform::socketError() != socketErrors::interrupted)
            platform::sleepMilliseconds(pause);
        for (const int descriptor : readers)
            if (const BufferPtr buffer = m_loop.find(descriptor))
                buffer->fill();
        // A secure transport may wait inside its sending: one such wait within another would go as
        // deep as there are members.
        for (const int descriptor : writers) {
            const BufferPtr buffer = m_loop.find(descriptor);
            if (buffer != nullptr && !buffer->waitsToSend())
                buffer->flush();
        }
        if (m_loop.reviewLimit(1) == 0)
            m_loop.reviewLimited();
        return std::any_of(targets.begin(), targets.end(),
                           [&writers](int descriptor) { return writers.contains(descriptor); });
    }

private:
    // Whether somebody has had more than a share and is not asked.
    bool choose(const platform::DescriptorSet &targets, platform::DescriptorSet &readers,
                platform::DescriptorSet &writers) const {
        bool heldBack = false;
        const std::lock_guard guard(m_loop.m_lock);
        for (const BufferPtr &buffer : m_loop.m_buffers) {
            const int descriptor = buffer->descriptor();
            if (buffer->queued() != 0)
                writers.insert(descriptor);
            if (!buffer->wantsMore())
                continue;
            if (buffer->held() < m_share || targets.contains(descriptor))
                readers.insert(descriptor);
            else
                heldBack = true;
        }
        return heldBack;
    }

    StreamLoop &m_loop;
    std::size_t m_share = share;
};

std::shared_ptr<StreamLoop> StreamLoop::ofThisThread() {
    return t_loop != nullptr ? t_loop->shared_from_this() : std::make_shared<StreamLoop>();
}

void StreamLoop::enter() {
    t_loop = this;
}

void StreamLoop::leave() {
    if (t_loop == this)
        t_loop = nullptr;
}

// ---- Who they are ----

void StreamLoop::add(const BufferPtr &buffer) {
    const std::lock_guard guard(m_lock);
    const auto place =
        std::lower_bound(m_buffers.begin(), m_buffers.end(), buffer->descriptor(), isBelow);
    m_buffers.insert(place, buffer);
}

void StreamLoop::remove(int descriptor) {
    const std::lock_guard guard(m_lock);
    const auto place = std::lower_bound(m_buffers.begin(), m_buffers.end(), descriptor, isBelow);
    if (place != m_buffers.end() && (*place)->descriptor() == descriptor)
        m_buffers.erase(place);
}

StreamLoop::BufferPtr StreamLoop::find(int descriptor) const {
    const std::lock_guard guard(m_lock);
    const auto place = std::lower_bound(m_buffers.begin(), m_buffers.end(), descriptor, isBelow);
    const bool found = place != m_buffers.end() && (*place)->descriptor() == descriptor;
    return found ? *place : nullptr;
}

void StreamLoop::relay(int descriptor, const Span &span) const {
    if (const BufferPtr buffer = member(descriptor))
        relay(*buffer, span);
}

StreamLoop::BufferPtr StreamLoop::member(int descriptor) const {
    BufferPtr own = find(descriptor);
    return own != nullptr ? own : bufferOf(descriptor);
}

void StreamLoop::relay(StreamBuffer &buffer, const Span &span) {
    if (!buffer.queue(span))
        buffer.fail(socketErrors::noMemory);
}

StreamLoop::BufferPtr StreamLoop::nextWithOutput(int after) const {
    const std::lock_guard guard(m_lock);
    const auto place = std::find_if(
        std::lower_bound(m_buffers.begin(), m_buffers.end(), after + 1, isBelow), m_buffers.end(),
        [](const BufferPtr &buffer) { return buffer->queued() != 0; });
    return place != m_buffers.end() ? *place : nullptr;
}

// Without a list of them, which would need memory: what waits must leave without any.
template <class Visit>
void StreamLoop::forEachWithOutput(Visit visit) const {
    BufferPtr buffer;
    for (int after = -1; (buffer = nextWithOutput(after)) != nullptr;) {
        after = buffer->descriptor();
        visit(buffer);
    }
}

// ---- A pass of the dispatch loop ----

void StreamLoop::deliver(const platform::WaitLimit &limit) {
    closeRuns();
    platform::DescriptorSet full;
    bool isLimited = false;
    forEachWithOutput([&](const BufferPtr &buffer) {
        const bool isLeft = buffer->flush() == StreamBuffer::Flushed::some;
        isLimited = isLimited || (isLeft && buffer->isLimited());
        if (isLeft && !buffer->isLimited() && buffer->queued() > bound(*buffer))
            full.insert(buffer->descriptor());
    });
    m_nextReview = Deadlines::Clock::time_point::max();
    if (isLimited)
        reviewLimited();
    if (!m_heldUp.empty())
        resumeHeldUp();
    askSenders();
    Wait wait(*this);
    while (full.size() != 0 && (limit.running == nullptr || *limit.running)) {
        wait.turn(full, limit.running);
        const platform::DescriptorSet waited = full;
        for (const int descriptor : waited) {
            const BufferPtr buffer = find(descriptor);
            if (buffer == nullptr || buffer->queued() <= bound(*buffer) / 2)
                full.erase(descriptor);
        }
    }
}

void StreamLoop::sort(platform::DescriptorSet &watched, platform::DescriptorSet &ready,
                      platform::DescriptorSet &writers) const {
    const std::lock_guard guard(m_lock);
    for (const BufferPtr &buffer : m_buffers) {
        const int descriptor = buffer->descriptor();
        if (buffer->queued() != 0)
            writers.insert(descriptor);
        const bool isReady = !buffer->isHeldUp() && (buffer->ready() || buffer->hasMore());
        if ((isReady || buffer->isHeldUp() || !buffer->wantsMore()) && watched.erase(descriptor) &&
            isReady)
            ready.insert(descriptor);
    }
}

std::int32_t StreamLoop::reviewLimit(std::int32_t milliseconds) const {
    return m_nextReview == Deadlines::Clock::time_point::max()
               ? milliseconds
               : Deadlines::within(milliseconds, m_nextReview);
}

void StreamLoop::flush(const platform::DescriptorSet &writers) {
    for (const int descriptor : writers)
        if (const BufferPtr buffer = find(descriptor))
            buffer->flush();
}

// ---- Who is limited ----

void StreamLoop::reviewLimited() {
    const auto now = Deadlines::Clock::now();
    m_nextReview = Deadlines::Clock::time_point::max();
    forEachWithOutput([&](const BufferPtr &buffer) {
        if (buffer->isLimited())
            m_nextReview = std::min(m_nextReview, buffer->review(now));
    });
}

bool StreamLoop::holdsBack(std::size_t most) const {
    const std::lock_guard guard(m_lock);
    return std::any_of(m_buffers.begin(), m_buffers.end(), [most](const BufferPtr &buffer) {
        return buffer->isLimited() && buffer->queued() > most && buffer->movesAlong();
    });
}

void StreamLoop::holdUp(int source, std::size_t most) {
    const BufferPtr buffer = find(source);
    if (buffer == nullptr || buffer->isHeldUp() || !holdsBack(most))
        return;
    m_heldUp.push_back({source, most, nullptr, nullptr});
    buffer->hold(true);
}

void StreamLoop::holdUp(int source, Question mayGoOn, void *data) {
    const BufferPtr buffer = find(source);
    if (buffer == nullptr || buffer->isHeldUp())
        return;
    m_heldUp.push_back({source, 0, mayGoOn, data});
    buffer->hold(true);
}

void StreamLoop::letGoOn(const void *data) {
    for (HeldUp &heldUp : m_heldUp)
        if (heldUp.data == data)
            heldUp = {heldUp.source, std::numeric_limits<std::size_t>::max(), nullptr, nullptr};
}

void StreamLoop::resumeHeldUp() {
    std::erase_if(
        m_heldUp,
        [this](const HeldUp &heldUp) {
            const BufferPtr buffer = find(heldUp.source);
            if (buffer == nullptr)
                return true;
            if (heldUp.mayGoOn != nullptr ? !heldUp.mayGoOn(heldUp.data)
                                          : holdsBack(heldUp.most / 2))
                return false;
            buffer->hold(false);
            return true;
        });
}

void StreamLoop::awaitBelow(const std::vector<BufferPtr> &buffers, std::size_t most) {
    Wait wait(*this);
    for (;;) {
        platform::DescriptorSet waiting;
        for (const BufferPtr &buffer : buffers)
            if (buffer->isLimited() && buffer->flush() == StreamBuffer::Flushed::some &&
                buffer->queued() > most && buffer->movesAlong())
                waiting.insert(buffer->descriptor());
        if (waiting.size() == 0)
            return;
        wait.turn(waiting);
        reviewLimited();
    }
}

// ---- Who has more to send ----

void StreamLoop::addSender(Question mayGoOn, Deadlines::Function goOn, void *data) {
    removeSender(data);
    m_senders.push_back({mayGoOn, goOn, data});
    m_deadlines.set(-1, goOn, data, std::chrono::milliseconds(0));
}

void StreamLoop::removeSender(const void *data) {
    std::erase_if(
        m_senders, [=](const Sender &sender) { return sender.data == data; });
}

// Each goes on where times that have come are looked after: it may do anything there.
void StreamLoop::askSenders() {
    for (const Sender &sender : m_senders)
        if (sender.mayGoOn(sender.data))
            m_deadlines.set(-1, sender.goOn, sender.data, std::chrono::milliseconds(0));
}

bool StreamLoop::hasLetGoOf(int descriptor) const {
    return std::find(m_letGo.begin(), m_letGo.end(), descriptor) != m_letGo.end();
}

// ---- Connects and handshakes ----

void StreamLoop::await(int descriptor, platform::Await what, Deadlines::Function function,
                       void *data) {
    forget(descriptor);
    m_awaited.push_back({descriptor, what, function, data, ++m_awaits});
}

void StreamLoop::forget(int descriptor) {
    std::erase_if(
        m_awaited, [=](const Awaited &awaited) { return awaited.descriptor == descriptor; });
}

void StreamLoop::addAwaited(platform::DescriptorSet &readers,
                            platform::DescriptorSet &writers) const {
    for (const Awaited &awaited : m_awaited)
        (awaited.what == platform::Await::readable ? readers : writers).insert(awaited.descriptor);
}

// ---- Writers ----

void StreamLoop::awaitRoom(int descriptor) {
    platform::DescriptorSet target;
    target.insert(descriptor);
    Wait wait(*this);
    while (!wait.turn(target)) {
    }
}

void awaitRoom(int fd) {
    StreamLoop::ofThisThread()->awaitRoom(fd);
}

void StreamLoop::awaitFlushed(const std::vector<BufferPtr> &buffers) {
    Wait wait(*this);
    for (;;) {
        platform::DescriptorSet waiting;
        for (const BufferPtr &buffer : buffers)
            if (buffer->queued() != 0 && buffer->flush() == StreamBuffer::Flushed::some &&
                !buffer->isLimited())
                waiting.insert(buffer->descriptor());
        if (waiting.size() == 0)
            return;
        wait.turn(waiting);
    }
}

// ---- Runs ----

void StreamLoop::closed(RelayRun *run) {
    std::erase(m_openRuns, run);
}

void StreamLoop::closeRuns() {
    if (t_loop != this)
        return; // only the loop's own thread has any
    while (!m_openRuns.empty())
        m_openRuns.back()->close();
}

} // namespace vintok
