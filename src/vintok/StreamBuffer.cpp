// Input. What arrives is received behind what is held, into a chunk. Frames are shown where they
// lie, so a chunk stays as long as somebody shows or sends a part of it; what is held of the next
// frame is then copied out. A large frame grows in a chunk of its own as its bytes come: its claim
// costs nothing.
//
// Output. Spans wait in a queue and leave in order, many in one call of the system. Over a secure
// transport they leave as few records as they fit into, and there the transport waits where it can
// do nothing else, or there are no limits.
#include "vintok/StreamBuffer.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Wait.h"
#include "vintok/FrameLayout.h"
#include "vintok/RawBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace vintok {

namespace {

constexpr std::size_t lengthSize = 4;
constexpr std::size_t smallChunk = 256; // holds the frames before a join
constexpr std::size_t spansAtOnce = 64;
constexpr std::size_t secureAtOnce = std::size_t{64} * 1024;

using layout::frameLength;

} // namespace

std::shared_ptr<StreamBuffer> StreamBuffer::make(int descriptor, bool secure) {
    const std::shared_ptr<StreamLoop> loop = StreamLoop::ofThisThread();
    auto buffer = std::make_shared<StreamBuffer>(descriptor, secure, loop);
    loop->add(buffer);
    return buffer;
}

StreamBuffer::StreamBuffer(int descriptor, bool secure, std::shared_ptr<StreamLoop> loop)
    : m_descriptor(descriptor), m_loop(std::move(loop)), m_secure(secure), m_hasMore(secure) {}

StreamBuffer::~StreamBuffer() = default;

void StreamBuffer::readAhead() {
    m_readsAhead = true;
}

void StreamBuffer::setLimits(std::size_t longestFrame, std::size_t unsent) {
    const std::lock_guard guard(m_input);
    m_longest = longestFrame;
    m_unsent = unsent;
    assess();
}

bool StreamBuffer::setSecure(bool secure) {
    m_secure = secure;
    m_hasMore = secure; // the transport may have taken in what came behind its handshake
    if (m_held == 0 && m_queued == 0)
        return true;
    giveUp(socketErrors::connectionReset);
    return false;
}

void StreamBuffer::detach() {
    m_detached = true;
    m_loop->remove(m_descriptor);
}

// ---- Input ----

// What the frame at the front still needs before it can be read.
std::size_t StreamBuffer::missing() const {
    const std::size_t have = m_end - m_begin;
    if (have < smallestFrame)
        return smallestFrame - have;
    const std::size_t length = frameLength(m_chunk->data() + m_begin);
    return length > have ? length - have : 0;
}

bool StreamBuffer::wantsMore() const {
    return !m_ended && !m_failed && !m_detached && (m_readsAhead || !m_ready);
}

bool StreamBuffer::fill() {
    const std::lock_guard guard(m_input);
    if (!wantsMore())
        return false;
    const std::size_t wanted =
        m_readsAhead ? Chunk::readSize : std::min(missing(), Chunk::readSize);
    if (!hasRoom(wanted)) {
        m_noMemory = true;
        assess();
        return true;
    }
    unsigned char *const place = m_chunk->data() + m_end;
    m_hasMore = false;
    const bool came = took(m_secure ? receiveSecure(place, wanted) : receive(place, wanted));
    if (m_begin == m_end)
        discard();
    assess();
    return came;
}

bool StreamBuffer::took(std::int64_t count) {
    if (count < 0)
        return false;
    m_end += static_cast<std::size_t>(count);
    passOver();
    return true;
}

void StreamBuffer::passOver() {
    const std::size_t count = std::min(m_skip, m_end - m_begin);
    m_begin += count;
    m_skip -= count;
}

// -1 when there is nothing now; 0 with the end.
std::int64_t StreamBuffer::receive(unsigned char *bytes, std::size_t length) {
    const std::int64_t count = platform::receiveNow(m_descriptor, bytes, length);
    if (count > 0)
        return count;
    const int error = count == 0 ? 0 : platform::socketError();
    if (error == socketErrors::wouldBlock || error == socketErrors::interrupted)
        return -1;
    m_error = error;
    m_ended = true;
    return 0;
}

std::int64_t StreamBuffer::receiveSecure(unsigned char *bytes, std::size_t length) {
    std::size_t pending = 0;
    bool known = sf_secureBytesPending(m_descriptor, pending);
    if (known && pending == 0 && platform::endArrived(m_descriptor)) {
        // Something may have come between the count and the look at the end.
        known = sf_secureBytesPending(m_descriptor, pending) && pending != 0;
    }
    if (!known) {
        m_ended = true;
        return 0;
    }
    if (pending == 0)
        return -1;
    const std::int64_t count = sf_secureRecv(m_descriptor, bytes, std::min(length, pending));
    if (count <= 0) {
        m_ended = true;
        return 0;
    }
    m_hasMore = static_cast<std::size_t>(count) < pending || m_readsAhead;
    return count;
}

// Sees to room for `count` bytes behind those that are held.
bool StreamBuffer::hasRoom(std::size_t count) {
    const std::size_t have = m_end - m_begin;
    if (m_chunk != nullptr && m_chunk->size() - m_end >= count)
        return true;
    if (m_chunk != nullptr && m_chunk.use_count() == 1 && m_chunk->size() - have >= count &&
        m_begin >= have) {
        std::memcpy(m_chunk->data(), m_chunk->data() + m_begin, have);
        m_begin = 0;
        m_end = have;
        return true;
    }
    if (!m_readsAhead && have + count <= Chunk::readSize)
        return moveTo(std::max(have + count, smallChunk));
    return moveTo(have + count <= Chunk::usualSize ? Chunk::usualSize
                                                   : std::max(have + count, 2 * have));
}

bool StreamBuffer::moveTo(std::size_t size) {
    const std::size_t have = m_end - m_begin;
    if (m_chunk != nullptr && m_chunk.use_count() == 1 && m_begin == 0 && have > Chunk::readSize)
        return m_chunk->grow(size);
    std::shared_ptr<Chunk> chunk = Chunk::make(size);
    if (chunk == nullptr)
        return false;
    if (have != 0)
        std::memcpy(chunk->data(), m_chunk->data() + m_begin, have);
    m_chunk = std::move(chunk);
    m_begin = 0;
    m_end = have;
    return true;
}

// Forgets all that is held.
void StreamBuffer::discard() {
    m_chunk.reset();
    m_begin = m_end = 0;
}

void StreamBuffer::drop(std::size_t count) {
    m_begin += count;
    assess();
}

// Says anew what there is to be read.
void StreamBuffer::assess() {
    const std::size_t have = m_end - m_begin;
    m_held.store(have, std::memory_order_release);
    bool whole = false;
    if (have >= lengthSize) {
        const std::size_t length = frameLength(m_chunk->data() + m_begin);
        whole = length < smallestFrame || length <= have || isTooLong(length);
    }
    m_ready.store(whole || m_ended || m_failed || m_noMemory, std::memory_order_release);
}

StreamBuffer::Taken StreamBuffer::take(RawBuffer &frame) {
    if (m_failed)
        return Taken::ended;
    if (m_run.length == 0) {
        const Taken result = takeRun();
        if (result != Taken::frame)
            return result;
    }
    const std::size_t length = frameLength(m_run.bytes);
    frame.share(m_run.owner, m_run.owner->data() + (m_run.bytes - m_run.owner->data()), length);
    m_run.bytes += length;
    m_run.length -= length;
    m_shown.store(m_run.length, std::memory_order_relaxed);
    return Taken::frame;
}

// Gives the reader all whole frames that are there.
StreamBuffer::Taken StreamBuffer::takeRun() {
    letGoOfRun();
    const std::lock_guard guard(m_input);
    std::size_t end = m_begin;
    std::size_t length = smallestFrame; // of the frame that ends the run
    for (; m_end - end >= lengthSize; end += length) {
        length = frameLength(m_chunk->data() + end);
        if (length < smallestFrame || length > m_end - end || isTooLong(length))
            break;
    }
    if (end != m_begin) {
        m_run = {m_chunk, m_chunk->data() + m_begin, end - m_begin};
        m_shown = m_run.length;
        drop(m_run.length);
        return Taken::frame;
    }
    if (m_noMemory || length < smallestFrame)
        return refuse(m_noMemory ? Taken::noMemory : Taken::corrupt);
    if (isTooLong(length)) {
        m_skip = length;
        return refuse(Taken::tooLong);
    }
    return m_ended ? Taken::ended : Taken::nothing;
}

StreamBuffer::Taken StreamBuffer::refuse(Taken why) {
    m_noMemory = false;
    if (why == Taken::tooLong)
        passOver();
    else
        discard();
    assess();
    return why;
}

// The reader is through with the bytes.
void StreamBuffer::letGoOfRun() {
    if (m_run.length == 0)
        m_run.owner.reset();
}

std::size_t StreamBuffer::read(unsigned char *bytes, std::size_t length) {
    const std::size_t count = peek(bytes, length);
    const std::size_t shown = std::min(count, m_run.length);
    m_run.bytes += shown;
    m_run.length -= shown;
    m_shown = m_run.length;
    const std::lock_guard guard(m_input);
    drop(count - shown);
    return count;
}

std::size_t StreamBuffer::peek(unsigned char *bytes, std::size_t length) const {
    const std::size_t shown = std::min(length, m_run.length);
    if (shown != 0)
        std::memcpy(bytes, m_run.bytes, shown);
    const std::lock_guard guard(m_input);
    const std::size_t count = std::min(length - shown, m_end - m_begin);
    if (count != 0)
        std::memcpy(bytes + shown, m_chunk->data() + m_begin, count);
    return shown + count;
}

void StreamBuffer::settle() {
    letGoOfRun();
    const std::lock_guard guard(m_input);
    const std::size_t have = m_end - m_begin;
    if (have == 0)
        discard();
    else if (!m_ready && m_chunk->size() > 2 * have + smallChunk)
        moveTo(have); // without memory it stays where it is
}

// ---- Output ----

void StreamBuffer::setOutputLimits(const OutputLimits &limits) {
    const std::lock_guard guard(m_output);
    m_limits = limits;
    m_hard = limits.hard;
    m_unsent = limits.hard;
    m_behind.begin(Clock::now());
    m_still.begin(Clock::now());
    m_movesAlong = true;
}

bool StreamBuffer::queue(const Span &span) {
    std::unique_lock lock(m_output);
    if (m_failed || m_detached)
        return false;
    if (m_hard != 0 && !hasRoomFor(span.length) && !makesRoomFor(span.length, lock))
        return false;
    if (m_first != m_queue.size()) {
        Span &last = m_queue.back();
        if (span.owner != nullptr && last.owner == span.owner &&
            last.bytes + last.length == span.bytes) {
            last.length += span.length;
            m_appended += span.length;
            m_queued += span.length;
            return true;
        }
    }
    try {
        m_queue.push_back(span);
    } catch (const std::bad_alloc &) {
        return false;
    }
    m_appended += span.length;
    m_queued += span.length;
    return true;
}

// Notes when somebody falls behind.
bool StreamBuffer::hasRoomFor(std::size_t length) {
    if (m_queued > m_limits.soft)
        return m_queued + length <= m_limits.hard;
    if (m_queued + length > m_limits.soft)
        m_behind.begin(Clock::now());
    if (m_queued == 0)
        m_still.begin(Clock::now());
    return true;
}

// Whoever can take something now is not slow.
bool StreamBuffer::makesRoomFor(std::size_t length, std::unique_lock<std::mutex> &lock) {
    lock.unlock();
    flush();
    lock.lock();
    if (m_failed || m_detached)
        return false;
    if (hasRoomFor(length))
        return true;
    lock.unlock();
    failSlow(Slow::full, socketErrors::noBuffers);
    return false;
}

void StreamBuffer::failSlow(Slow why, int error) {
    if (!m_failed) {
        m_slow = why;
        m_slowBytes = m_queued.load();
    }
    fail(error);
}

void StreamBuffer::Spell::begin(Clock::time_point now) {
    lasted = {};
    seen = now;
}

void StreamBuffer::Spell::goOn(Clock::time_point now, Clock::duration most) {
    lasted += std::min(now - seen, most);
    seen = now;
}

StreamBuffer::Clock::time_point StreamBuffer::review(Clock::time_point now) {
    constexpr Clock::duration standstill = std::chrono::seconds(1);
    std::unique_lock lock(m_output);
    if (std::exchange(m_movedTo, m_sent.load()) != m_sent)
        m_still.begin(now);
    else
        m_still.goOn(now, standstill / 4);
    m_movesAlong = m_still.lasted < standstill;
    Clock::time_point next = m_movesAlong ? now + standstill / 4 : Clock::time_point::max();
    if (m_queued <= m_limits.soft || m_limits.drops || m_failed)
        return next;
    const Clock::duration patience = m_limits.patience;
    m_behind.goOn(now, patience / 4);
    if (m_behind.lasted < patience)
        return std::min(next, now + std::min(patience / 4, patience - m_behind.lasted));
    lock.unlock();
    failSlow(Slow::behind, socketErrors::timedOut);
    return next;
}

StreamBuffer::Flushed StreamBuffer::flush() {
    std::unique_lock lock(m_output);
    if (m_failed)
        return Flushed::failed;
    if (m_queued == 0)
        return Flushed::all;
    if (m_flushing)
        return Flushed::some;
    m_flushing = true;
    while (m_queued != 0 && !m_detached) {
        const std::int64_t count = m_secure ? sendSecure(lock) : sendQueued(lock);
        if (count > 0) {
            sent(static_cast<std::size_t>(count));
            continue;
        }
        const int error = count == 0 ? socketErrors::wouldBlock : platform::socketError();
        if (error == socketErrors::interrupted)
            continue;
        m_flushing = false;
        if (error == socketErrors::wouldBlock)
            return Flushed::some;
        lock.unlock();
        fail(error);
        return Flushed::failed;
    }
    m_flushing = false;
    return m_queued == 0 ? Flushed::all : Flushed::failed;
}

std::int64_t StreamBuffer::sendQueued(std::unique_lock<std::mutex> &) {
    std::array<platform::Piece, spansAtOnce> pieces;
    const std::size_t count = std::min(pieces.size(), m_queue.size() - m_first);
    for (std::size_t i = 0; i < count; ++i)
        pieces[i] = {m_queue[m_first + i].bytes, m_queue[m_first + i].length};
    return platform::sendNow(m_descriptor, pieces.data(), count);
}

bool StreamBuffer::waitsToSend() const {
    return m_secure && (!isLimited() || backgroundTransport() == nullptr);
}

// One record for a run of spans. The transport sends all or fails, and takes in what arrives while
// it waits for room: so no lock is held. Who is limited is given what there is room for; the rest
// stays in the queue, and the next run begins with it.
std::int64_t StreamBuffer::sendSecure(std::unique_lock<std::mutex> &lock) {
    const Span &first = m_queue[m_first];
    Span run{first.owner, first.bytes, std::min(first.length, secureAtOnce)};
    if (run.length < secureAtOnce && m_queue.size() - m_first > 1) {
        if (std::shared_ptr<Chunk> gathered = Chunk::make(Chunk::usualSize)) {
            run = {gathered, gathered->data(), 0};
            for (std::size_t i = m_first; i < m_queue.size() && run.length < secureAtOnce; ++i) {
                const std::size_t part = std::min(m_queue[i].length, secureAtOnce - run.length);
                std::memcpy(gathered->data() + run.length, m_queue[i].bytes, part);
                run.length += part;
            }
        }
    }
    TCPBackgroundTransport *const background = isLimited() ? backgroundTransport() : nullptr;
    lock.unlock();
    const std::int64_t count = background != nullptr
                                   ? background->sendNow(m_descriptor, run.bytes, run.length)
                                   : sf_secureSend(m_descriptor, run.bytes, run.length);
    lock.lock();
    // Somebody may have given the connection up meanwhile, and its queue with it.
    if ((count > 0 || (count == 0 && background != nullptr)) && !m_failed)
        return count;
    platform::setSocketError(socketErrors::connectionReset);
    return -1;
}

// So many bytes from the front have gone.
void StreamBuffer::sent(std::size_t count) {
    m_sent += count;
    m_queued -= count;
    for (; count != 0; ++m_first) {
        Span &span = m_queue[m_first];
        if (count < span.length) {
            span.bytes += count;
            span.length -= count;
            break;
        }
        count -= span.length;
        span.owner.reset();
    }
    if (m_first != m_queue.size()) {
        // Somebody who is always behind never lets the queue run empty.
        if (m_first >= spansAtOnce) {
            m_queue.erase(m_queue.begin(), m_queue.begin() + static_cast<std::ptrdiff_t>(m_first));
            m_first = 0;
        }
        return;
    }
    m_queue.clear();
    m_first = 0;
    if (m_queue.capacity() > spansAtOnce)
        m_queue.shrink_to_fit();
}

void StreamBuffer::giveUp(int error) {
    const std::lock_guard guard(m_output);
    if (!m_failed.exchange(true))
        m_error = error;
    m_queue.clear();
    m_first = 0;
    m_queued = 0;
    m_ready = true;
}

void StreamBuffer::fail(int error) {
    giveUp(error);
    setClosed(m_descriptor);
}

std::int64_t StreamBuffer::write(const unsigned char *bytes, std::size_t length) {
    m_loop->closeRuns();
    const Span span = m_unsent != 0 ? copyToChunk(bytes, length) : Span{nullptr, bytes, length};
    if (span.bytes == nullptr || !queue(span)) {
        platform::setSocketError(m_failed ? m_error.load() : socketErrors::noMemory);
        return -1;
    }
    const std::uint64_t end = mark();
    const auto isThrough = [&] {
        const bool mayLie = m_hard != 0 || (m_unsent != 0 && m_queued <= m_unsent);
        return sentUpTo(end) || (mayLie && !m_failed);
    };
    while (flush() != Flushed::failed && !isThrough() && !m_detached)
        m_loop->awaitRoom(m_descriptor);
    if (isThrough())
        return static_cast<std::int64_t>(length);
    platform::setSocketError(m_error != 0 ? m_error.load() : socketErrors::connectionReset);
    return -1;
}

bool StreamBuffer::awaitSent(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (flush() == Flushed::some) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !platform::awaitSocket(m_descriptor, platform::Await::writable,
                                                        static_cast<std::int32_t>(left.count())))
            return false;
    }
    return m_queued == 0 && !m_failed;
}

} // namespace vintok
