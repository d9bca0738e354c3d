// A host's standing offer at a multiplexer: callers of the meeting get to this host by way of it,
// with no call from outside.
#ifndef VINTOK_APP_TUNNELOFFER_H
#define VINTOK_APP_TUNNELOFFER_H

#include "Report.h"
#include "TunnelOptions.h"

#include <memory>

namespace app {

struct OfferState;

class TunnelOffer {
public:
    TunnelOffer();
    ~TunnelOffer(); // as `end`
    TunnelOffer(const TunnelOffer &) = delete;
    TunnelOffer &operator=(const TunnelOffer &) = delete;

    // Starts the thread that offers, for the host that listens on this port of the machine. False
    // when there is none to be had.
    bool start(const TunnelOptions &tunnel, unsigned short port);

    // On the host's own thread: once a second, and after each pass of its loop.
    void tick();
    void tell(Report &report);

    // Ends the offer and the connections of those who came by way of it, after what the host has
    // said to them has gone out; waits a few seconds at most.
    void end();

private:
    std::shared_ptr<OfferState> m_state; // shared with the threads, which may outlive this object
};

} // namespace app

#endif
