// Internal. The buffers of one connection that carries frames: what has come and has not been
// read, and what is to go and has not been sent. It stands between the stream layer and the socket,
// or the secure transport.
//
// A connection with buffers counts as readable when a whole frame is there, or its end, so nobody
// waits inside a frame. Nothing here waits, but for `write` (see
// `waitsToSend`, too).
//
// What always holds: bytes leave in the order of the calls. What is queued enters whole or not at
// all. Once sending has failed nothing more is sent, and the connection counts as ended. Input and
// output each have a lock, so one thread may read while another one writes. Two never read at once:
// the frames that a reader has been given in one piece are his without a lock.
#ifndef VINTOK_STREAMBUFFER_H
#define VINTOK_STREAMBUFFER_H

#include "vintok/Chunk.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace vintok {

class RawBuffer;
class StreamLoop;

// What may wait for a peer that is slow. Who has more than `soft` bytes waiting for all of
// `patience`, or would have more than `hard`, has failed; `hard` 0: there is no limit.
struct OutputLimits {
    std::size_t soft = 0;
    std::size_t hard = 0;
    std::chrono::milliseconds patience{0};
    bool drops = false; // whoever writes takes care of what is above `soft`: only `hard` counts
};

class StreamBuffer {
public:
    using Clock = std::chrono::steady_clock;

    // Belongs to the loop of the calling thread from now on. Throws std::bad_alloc.
    static std::shared_ptr<StreamBuffer> make(int descriptor, bool secure);

    StreamBuffer(int descriptor, bool secure, std::shared_ptr<StreamLoop> loop);
    ~StreamBuffer();
    StreamBuffer(const StreamBuffer &) = delete;
    StreamBuffer &operator=(const StreamBuffer &) = delete;

    int descriptor() const { return m_descriptor; }
    StreamLoop &loop() const { return *m_loop; }

    // A connection that may still turn secure, or become a tunnel, takes no byte beyond the frame
    // that it is in: what follows may not be for it. From `readAhead` on it takes what comes.
    void readAhead();
    bool readsAhead() const { return m_readsAhead; }

    // A longer frame is passed over, and `take` tells so (0: any length). A write returns at once
    // while no more than `unsent` bytes wait to be sent: it copies them (0: it waits for its own).
    void setLimits(std::size_t longestFrame, std::size_t unsent);

    std::size_t unsentLimit() const { return m_unsent; }

    // With a limit nothing that is written is ever waited for. One message that is longer than
    // `hard` is taken from whoever is not behind.
    void setOutputLimits(const OutputLimits &limits);
    bool isLimited() const { return m_hard != 0; }

    // Of a reader who is to be held up for a while: counts as having nothing to be read.
    void hold(bool held) { m_isHeldUp = held; }
    bool isHeldUp() const { return m_isHeldUp; }

    // Told by the descriptor table. Bytes that a buffer holds at such a turn belong to neither side
    // of it: false, and the connection counts as broken.
    bool setSecure(bool secure);

    bool isSecure() const { return m_secure; }
    // Whether sending may wait: a secure transport does, unless it can do otherwise and there are
    // limits.
    bool waitsToSend() const;

    // The table has no such row any more: nothing is taken in or sent from now on.
    void detach();

    // ---- Input ----

    // Takes in what has arrived, up to a share. True when something came, the end too.
    bool fill();
    // Whether there is something to be read: a whole frame, what is no frame, or the end.
    bool ready() const { return m_ready || m_shown != 0; }
    // Whether more may have come already than `fill` has taken, where no wait would see it.
    bool hasMore() const { return m_hasMore; }
    // Whether `fill` has anything to do: not behind the end, nor beyond a frame that is exact.
    bool wantsMore() const;
    std::size_t held() const { return m_held + m_shown; }

    enum class Taken { frame, nothing, corrupt, tooLong, noMemory, ended };
    // The next frame, which `frame` then shows. `corrupt` and `noMemory` discard what has come.
    Taken take(RawBuffer &frame);

    // For those who look at the bytes themselves: `read` and `peek` give up to `length` of the
    // bytes that are held, 0 for none.
    std::size_t read(unsigned char *bytes, std::size_t length);
    std::size_t peek(unsigned char *bytes, std::size_t length) const;

    // Whether another frame is there for a reader that has taken so many bytes in this turn: the
    // rest waits for the next one, so that others have theirs.
    bool offers(std::size_t taken) const {
        return taken < Chunk::readSize && m_readsAhead && ready() && !m_detached && !m_isHeldUp;
    }

    // After the last frame of a turn: keeps what is held of the next one in memory of its size.
    void settle();

    // ---- Output ----

    // Puts the span behind what is queued. False when there is no memory or sending has failed.
    bool queue(const Span &span);
    std::size_t queued() const { return m_queued; }

    enum class Flushed { all, some, failed };
    // Sends what can be sent now. A failure marks the descriptor closed.
    Flushed flush();

    // Sends all of it behind what is queued, and waits for room where there is none, as a socket
    // that blocks does. -1 with `socketError` after a failure. Without memory it is
    // 12; nothing has been sent then.
    std::int64_t write(const unsigned char *bytes, std::size_t length);

    // Sends what is queued and waits for room, at most so long. Whether all has gone.
    bool awaitSent(std::chrono::milliseconds limit);

    // Whether all bytes have gone that were queued when `mark` was taken.
    std::uint64_t mark() const { return m_appended; }
    bool sentUpTo(std::uint64_t mark) const { return m_sent >= mark; }
    bool failed() const { return m_failed; }
    int error() const { return m_error; } // of the failure, as `socketError` gives it; 0 for none

    // For a limited connection that has not sent everything: fails it when it has been behind for
    // too long. Returns when it is to be looked at again.
    Clock::time_point review(Clock::time_point now);
    // Whether its peer has taken something within the last second before `review`.
    bool movesAlong() const { return m_movesAlong; }
    // Whether it has failed by its limits, which of them it was, and how much waited.
    enum class Slow { no, behind, full };
    Slow slow() const { return m_slow; }
    std::size_t slowBytes() const { return m_slowBytes; }
    // Nothing more is sent or read, and the owner is to hear of it: `fail` also tells the table,
    // which tells `giveUp`.
    void fail(int error);
    void giveUp(int error);

private:
    // How long something has lasted while the loop looked. Of the time from one look to the next
    // no more than `most` counts: while the loop was away nobody was served, or could catch up.
    struct Spell {
        Clock::duration lasted{0};
        Clock::time_point seen;

        void begin(Clock::time_point now);
        void goOn(Clock::time_point now, Clock::duration most);
    };

    Taken takeRun();
    Taken refuse(Taken why);
    void letGoOfRun();
    void passOver();
    bool isTooLong(std::size_t length) const { return m_longest != 0 && length > m_longest; }
    std::size_t missing() const;
    bool hasRoom(std::size_t count);
    bool moveTo(std::size_t size);
    std::int64_t receive(unsigned char *bytes, std::size_t length);
    std::int64_t receiveSecure(unsigned char *bytes, std::size_t length);
    bool took(std::int64_t count);
    void discard();
    void drop(std::size_t count);
    void assess();
    std::int64_t sendQueued(std::unique_lock<std::mutex> &lock);
    std::int64_t sendSecure(std::unique_lock<std::mutex> &lock);
    void sent(std::size_t count);
    bool hasRoomFor(std::size_t length);
    bool makesRoomFor(std::size_t length, std::unique_lock<std::mutex> &lock);
    void failSlow(Slow why, int error);

    const int m_descriptor;
    const std::shared_ptr<StreamLoop> m_loop;
    std::atomic<bool> m_secure;
    std::atomic<bool> m_detached{false};
    std::atomic<bool> m_isHeldUp{false};

    Span m_run; // whole frames, the reader's own; they come before what is in the chunk
    std::atomic<std::size_t> m_shown{0}; // its length

    mutable std::mutex m_input; // of what follows
    std::shared_ptr<Chunk> m_chunk;
    std::size_t m_begin = 0; // what is held, in the chunk
    std::size_t m_end = 0;
    std::atomic<std::size_t> m_held{0};
    std::atomic<bool> m_readsAhead{false};
    std::atomic<bool> m_ready{false};
    std::atomic<bool> m_hasMore{false};
    std::atomic<bool> m_ended{false};
    bool m_noMemory = false;
    std::size_t m_longest = 0;
    std::size_t m_skip = 0; // still to come of a frame that is too long

    std::mutex m_output; // of what follows
    std::vector<Span> m_queue;
    std::size_t m_first = 0; // in the queue, not yet gone
    bool m_flushing = false; // somebody is at it
    std::atomic<std::size_t> m_unsent{0};
    std::atomic<std::size_t> m_queued{0};
    std::atomic<std::uint64_t> m_appended{0};
    std::atomic<std::uint64_t> m_sent{0};
    std::atomic<bool> m_failed{false};
    std::atomic<int> m_error{0};
    OutputLimits m_limits;
    std::atomic<std::size_t> m_hard{0}; // of the limits
    Spell m_behind;                     // more than `soft` has been waiting
    Spell m_still;                      // nothing has gone
    std::uint64_t m_movedTo = 0;
    std::atomic<bool> m_movesAlong{false};
    std::atomic<Slow> m_slow{Slow::no};
    std::atomic<std::size_t> m_slowBytes{0};
};

} // namespace vintok

#endif
