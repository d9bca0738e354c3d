// Internal. What the connections with buffers of one thread's loop have in common: who they are,
// which can be read, which have something to send, and the waiting for room in which all of them go
// on taking in what arrives.
//
// So two ends that write at once never wait for each other. While somebody waits no callback runs.
#ifndef VINTOK_STREAMLOOP_H
#define VINTOK_STREAMLOOP_H

#include "platform/Wait.h"
#include "vintok/Deadlines.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace vintok {

class RelayRun;
class StreamBuffer;
struct Span;

class StreamLoop : public std::enable_shared_from_this<StreamLoop> {
public:
    using BufferPtr = std::shared_ptr<StreamBuffer>;

    // The one that this thread's dispatch loop has; where there is no such loop, a new one.
    static std::shared_ptr<StreamLoop> ofThisThread();
    // Makes this one the thread's, and takes that back.
    void enter();
    void leave();

    void add(const BufferPtr &buffer);
    void remove(int descriptor);
    // Null for a descriptor without buffers, or of another loop.
    BufferPtr find(int descriptor) const;
    // Queues the span for a member that a relay goes to. Who cannot be given it has failed.
    void relay(int descriptor, const Span &span) const;
    // The member's buffers, whichever loop they belong to; null when it has none.
    BufferPtr member(int descriptor) const;
    static void relay(StreamBuffer &buffer, const Span &span);

    // ---- For a pass of the dispatch loop ----

    // Sends what is queued, as far as it goes without waiting; waits where more is queued than a
    // connection may have, for as long as `limit.running` allows.
    void deliver(const platform::WaitLimit &limit = {});
    // Puts in `ready` those of `watched` that can be read now, takes out of `watched` those that
    // need not be waited for, and puts in `writers` all that have something to send.
    void sort(platform::DescriptorSet &watched, platform::DescriptorSet &ready,
              platform::DescriptorSet &writers) const;
    // Sends what is queued for those that have room.
    void flush(const platform::DescriptorSet &writers);

    // How long a wait of the loop may last that would last so long.
    std::int32_t waitLimit(std::int32_t milliseconds) const {
        return m_deadlines.within(reviewLimit(milliseconds));
    }
    Deadlines &deadlines() { return m_deadlines; }

    // Nothing more is read from `source` while somebody who is limited has more than `most` waiting
    // and moves along.
    void holdUp(int source, std::size_t most);
    // The same until `mayGoOn` says so. `letGoOn` ends that for all with this `data`.
    using Question = bool (*)(void *data);
    void holdUp(int source, Question mayGoOn, void *data);
    void letGoOn(const void *data);

    // Has `function` called once, when the descriptor, which nobody else waits for, can be read or
    // written to, or has ended or failed: for a connect, or a handshake. One for each descriptor.
    void await(int descriptor, platform::Await what, Deadlines::Function function, void *data);
    void forget(int descriptor);
    bool isAwaiting() const { return !m_awaited.empty(); }
    // Adds them to those that are waited for.
    void addAwaited(platform::DescriptorSet &readers, platform::DescriptorSet &writers) const;
    // Takes them out of `readers` and calls those that can go on. `isOver` ends the round.
    template <class IsOver>
    void callAwaited(platform::DescriptorSet &readers, const platform::DescriptorSet &writers,
                     IsOver isOver);

    // Has `goOn` called in each turn of the loop in which `mayGoOn` says so, until it is removed:
    // for who has more to send than may wait at a time. One for each `data`.
    void addSender(Question mayGoOn, Deadlines::Function goOn, void *data);
    void removeSender(const void *data);

    // A descriptor that was found readable in this pass, and is not registered any more, is found
    // unhandled, and the loop rests over it. Not over one that was let go by a guard.
    void letGoOf(int descriptor) { m_letGo.push_back(descriptor); }
    bool hasLetGoOf(int descriptor) const;
    void beginPass() { m_letGo.clear(); }

    // ---- For writers ----

    // Waits until the descriptor can be written to, or has failed.
    void awaitRoom(int descriptor);
    // Waits until none of those that are limited has more than `most` waiting and moves along.
    void awaitBelow(const std::vector<BufferPtr> &buffers, std::size_t most);
    // Waits until each of them has sent all that is queued, or has failed. Who is limited is not
    // waited for.
    void awaitFlushed(const std::vector<BufferPtr> &buffers);

    // Runs that are open are closed before anything else is written, and before the loop waits.
    void opened(RelayRun *run) { m_openRuns.push_back(run); }
    void closed(RelayRun *run);
    void closeRuns();

private:
    class Wait;
    struct HeldUp {
        int source;
        std::size_t most;
        Question mayGoOn; // null: by `most`
        void *data;
    };
    struct Awaited {
        int descriptor;
        platform::Await what;
        Deadlines::Function function;
        void *data;
        std::uint64_t number; // no other ever has the same
    };
    struct Sender {
        Question mayGoOn;
        Deadlines::Function goOn;
        void *data;
    };
    std::int32_t reviewLimit(std::int32_t milliseconds) const;
    void askSenders();
    void reviewLimited();
    bool holdsBack(std::size_t most) const;
    void resumeHeldUp();
    // The first behind that descriptor; null when there is none.
    BufferPtr nextWithOutput(int after) const;
    template <class Visit>
    void forEachWithOutput(Visit visit) const;

    mutable std::mutex m_lock;
    std::vector<BufferPtr> m_buffers; // in ascending order of descriptors
    std::vector<RelayRun *> m_openRuns;
    Deadlines m_deadlines;
    Deadlines::Clock::time_point m_nextReview = Deadlines::Clock::time_point::max();
    std::vector<HeldUp> m_heldUp;
    std::vector<Sender> m_senders;
    std::vector<int> m_letGo;
    std::vector<Awaited> m_awaited;
    std::uint64_t m_awaits = 0;
};

template <class IsOver>
void StreamLoop::callAwaited(platform::DescriptorSet &readers,
                             const platform::DescriptorSet &writers, IsOver isOver) {
    std::vector<Awaited> ready;
    for (const Awaited &awaited : m_awaited)
        if (awaited.what == platform::Await::readable ? readers.erase(awaited.descriptor)
                                                      : writers.contains(awaited.descriptor))
            ready.push_back(awaited);
    for (const Awaited &awaited : ready) {
        // One that was called may have done away with others.
        if (std::erase_if(m_awaited,
                          [&](const Awaited &now) { return now.number == awaited.number; }) == 0)
            continue;
        awaited.function(awaited.descriptor, awaited.data);
        if (isOver())
            return;
    }
}

} // namespace vintok

#endif
