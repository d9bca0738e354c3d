// Internal. Messages of one sender that are to be passed on, and that lie behind each other in what
// has come from him: they go out as one span of the same bytes to everybody.
//
// The owner closes the run before anything changes about who is to get it, and when his turn of the
// loop ends. The loop closes it before anything else is written or waited for.
#ifndef VINTOK_RELAYRUN_H
#define VINTOK_RELAYRUN_H

#include "vintok/Chunk.h"

#include <memory>

namespace vintok {

class RawBuffer;
class StreamLoop;

class RelayRun {
public:
    // Queues the span for everybody who is to get what `source` has sent.
    using Spread = void (*)(void *owner, StreamLoop &loop, int source, const Span &span);

    RelayRun(Spread spread, void *owner) : m_spread(spread), m_owner(owner) {}
    ~RelayRun();
    RelayRun(const RelayRun &) = delete;
    RelayRun &operator=(const RelayRun &) = delete;

    // Adds a message that came from `source` on this thread. `frame` shows the bytes of a chunk.
    // True when a new run begins with it.
    bool add(int source, const RawBuffer &frame);
    void close();

private:
    bool continues(int source, const RawBuffer &frame) const;

    const Spread m_spread;
    void *const m_owner;
    std::shared_ptr<StreamLoop> m_loop; // null: the run is closed
    int m_source = -1;
    Span m_span;
};

} // namespace vintok

#endif
