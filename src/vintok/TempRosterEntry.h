// An outgoing call that has no roster entry yet: whom we call, by which road, and how it is going.
// The base is the address of the called party.
#ifndef VINTOK_TEMPROSTERENTRY_H
#define VINTOK_TEMPROSTERENTRY_H

#include "vintok/Export.h"
#include "vintok/TCPAddress.h"

#include <cstdint>
#include <string>

namespace vintok {

class VINTOK_API TempRosterEntry final : public TCPAddress {
public:
    // Resolves the proxy, where one is named, and otherwise the party; a proxied party is for the
    // proxy to find. `connectAddress` shows whether that worked. Blocks.
    TempRosterEntry(const std::string &remoteName, const std::string &proxyName);

    // Everything but the last tunnel reply.
    TempRosterEntry(const TempRosterEntry &other);

    // Everything but the last tunnel reply and the proxy's name, which stay as they were.
    TempRosterEntry &operator=(const TempRosterEntry &other);

    // Where to open the socket to: the proxy if one is named, otherwise the party.
    const TCPAddress &connectAddress() const;

    const std::string &remoteName() const; // as the caller gave it
    const std::string &proxyName() const;  // empty: no proxy

    // Network byte order, as `TCPAddress::port`.
    std::uint16_t proxyPort() const;
    void setProxyPort(std::uint16_t port);
    std::uint16_t proxyHostByteOrderPort() const;
    void setProxyHostByteOrderPort(std::uint16_t port);

    // As `TCPAddress::ipString`.
    bool proxyIPString(std::string &text) const;

    // What the call gives to a proxy or server that asks, and the meeting there; empty: none.
    const std::string &authentication() const;
    void setAuthentication(const std::string &authentication);
    const std::string &meetingID() const;
    void setMeetingID(const std::string &identifier);

    // The connection on which this attempt runs, not owned; -1 when there is none.
    int associatedDescriptor() const;
    void setAssociatedDescriptor(int descriptor);

private:
    friend class ConferenceParticipant;

    // Resolves nothing: `address` is where to open the socket to.
    TempRosterEntry(const std::string &remoteName, const std::string &proxyName,
                    const TCPAddress &address);

    std::string m_tunnelResponse; // the last HTTP reply on the tunnel
    int m_tunnelStatus = 0;       // and its status code
    int m_callOutcome = 1;        // how the attempt is to end when it hangs up
    std::uint32_t m_authenticationRetries = 0;
    TCPAddress m_proxyAddress;
    std::string m_remoteName;
    std::string m_proxyName;
    std::string m_authentication;
    std::string m_meetingID;
    TCPAddress m_lostParty; // who had answered on the connection that was lost
    int m_associatedDescriptor = -1;
    bool m_isStarted = false; // by `startCall`
    bool m_isLost = false;    // its connection has died
    bool m_isCrossed = false; // the called party has called as well
};

} // namespace vintok

#endif
