// A call on its way through a multiplexer: what the library is asked for, what the servers' answers
// mean, and which call to place next.
#ifndef VINTOK_APP_TUNNELCALL_H
#define VINTOK_APP_TUNNELCALL_H

#include "Report.h"
#include "ServerReply.h"
#include "TunnelOptions.h"

#include <optional>
#include <string>

namespace app {

// What `placeCall` takes.
struct CallPlan {
    Target remote;
    Target proxy; // no host: none
    std::string meetingID;
    std::string authentication;
    unsigned int retries = 0;

    // What the library takes for a name: a literal of IPv6 in brackets where it stands in a
    // request alone, and bare where it is connected to.
    std::string remoteName() const;
    // To whom the connection goes.
    const Target &connectsTo() const { return proxy.host.empty() ? remote : proxy; }
};

class TunnelCall {
public:
    // Both must outlive it. The options name a multiplexer; the target may have no host. `secure`:
    // the connection is not to go on without TLS.
    TunnelCall(const TunnelOptions &tunnel, const Target &target, bool secure, Report &report);

    // The call to place now. The second one after `takeNext` has said that there is one.
    const CallPlan &plan() const { return m_plan; }
    bool takeNext();

    // Why requests for this call cannot be made; empty when they can.
    std::string fault() const;

    // What the library's callbacks tell, each inside its callback.
    void answered(unsigned int status, const std::string &reply);
    void challenged(unsigned int retries);
    void redirected(const std::string &name, unsigned short port, unsigned int retries);

    // Why the call has come to nothing, as a sentence; empty when no server on the way is the
    // reason.
    std::string failure() const;

    // The multiplexer, when it has said that the encryption ends there.
    std::string secureServer() const;

private:
    bool hasProxy() const { return !m_tunnel.proxy.host.empty(); }
    bool asksTwice() const { return !m_plan.proxy.host.empty(); }
    Target answerer() const;
    std::string role() const;
    std::string who() const;
    std::string challengeFailure() const;
    void plan(const Target &multiplexer);

    const TunnelOptions &m_tunnel;
    const Target m_target;
    const bool m_secure;
    Report &m_report;
    CallPlan m_plan;
    std::optional<CallPlan> m_next;
    int m_answers = 0; // of this call
    int m_status = 0;  // of the last answer, as the library counts it
    bool m_anyAnswer = false;
    bool m_silent = false; // the last answer has no text
    bool m_paused = false; // and its server is still there
    bool m_opened = false; // the multiplexer has let the call through
    std::string m_sentOn;  // where the host behind it sends the call
    ServerReply m_reply;
};

} // namespace app

#endif
