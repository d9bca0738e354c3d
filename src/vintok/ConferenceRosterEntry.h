// What a participant knows of one party, itself included: who it is, the connection to it, its
// state, and the meeting that it belongs to.
#ifndef VINTOK_CONFERENCEROSTERENTRY_H
#define VINTOK_CONFERENCEROSTERENTRY_H

#include "vintok/Export.h"
#include "vintok/RosterBase.h"

#include <cstdint>
#include <string>

namespace vintok {

class VINTOK_API ConferenceRosterEntry final : public RosterBase {
public:
    // What is not given is empty; there is no connection, no state and no meeting.
    explicit ConferenceRosterEntry(int descriptor = -1);
    explicit ConferenceRosterEntry(const RosterBase &party);
    explicit ConferenceRosterEntry(const TCPAddress &address);
    explicit ConferenceRosterEntry(const UserInfo &user);

    // Everything but the bad reads, which start at 0.
    ConferenceRosterEntry(const ConferenceRosterEntry &other);

    // Narrower than the copy: `doBroadcast`, `enabled`, the bad reads and what the party was told
    // are about this end's connection and stay as they were.
    ConferenceRosterEntry &operator=(const ConferenceRosterEntry &other);

    // Replace that part alone.
    ConferenceRosterEntry &operator=(const RosterBase &party);
    ConferenceRosterEntry &operator=(const TCPAddress &address);
    ConferenceRosterEntry &operator=(const UserInfo &user);

    // ---- Known at this end only ----

    // -1: there is no connection. The entry does not own it.
    int descriptor() const;
    void setDescriptor(int descriptor);

    // What a call to the party went by; empty: it was called directly.
    const std::string &proxyName() const;
    bool setProxyName(const std::string &name); // false, changing nothing, without memory

    // Whether the party has joined and takes part in broadcasts.
    bool doBroadcast() const;
    void setDoBroadcast(bool value);

    // A party that is not enabled gets no broadcast.
    bool enabled() const;
    void setEnabled(bool value);

    // Reads that failed: those since the last good one, and all of them.
    void setBadRead(bool bad);
    std::uint32_t numBadReads() const;
    std::uint32_t totalBadReads() const;
    // For the application's keep-alives, in a unit of its own.
    std::uint64_t getBadReadKeepAliveTime() const;
    void setBadReadKeepAliveTime(std::uint64_t time);

    // ---- The meeting: false, changing nothing, without memory ----

    const std::string &meetingName() const;
    bool setMeetingName(const std::string &name);
    const std::string &meetingID() const;
    bool setMeetingID(const std::string &identifier);

    // ---- State: one bit for each, in the order of the bits ----

    // The setters change this record alone: they tell nobody.

    // The party is in a meeting.
    bool isMeeting() const;
    void setMeeting(bool value);
    // The meeting's star has its centre there.
    bool isHost() const;
    void setHost(bool value);
    // One party of a meeting leads it: at first the host.
    bool isLeader() const;
    void setLeader(bool value);
    // Relays and has no user: callbacks about it are suppressed.
    bool isServer() const;
    void setServer(bool value);
    // Has asked to join and waits for the answer.
    bool isJoinPending() const;
    void setJoinPending(bool value);
    // Known from the roster only, without a connection of its own.
    bool isShadow() const;
    void setShadow(bool value);
    // Has asked to lead and waits.
    bool isLeadPending() const;
    void setLeadPending(bool value);
    // The join has seen to a secure connection, because a party prefers or requires one; at the
    // called party alone where it was secure before. Not set for one that a transport has made
    // secure unasked: `descriptorState` of the descriptor tells that of each connection. A shadow's
    // is what the host says of its own connection.
    bool isSecure() const;
    void setSecure(bool value);
    // The party says that it has a secure transport.
    bool isSecureAble() const;
    void setSecureAble(bool value);
    // The party says that a connection without one is no good to it.
    bool isSecureRequired() const;
    void setSecureRequired(bool value);
    // This call was placed through a tunnel.
    bool isProxy() const;
    void setProxy(bool value);
    // An HTTP proxy's reply is awaited.
    bool isProxyPending() const;
    void setProxyPending(bool value);
    // Tells the other end, in a join, that the connection is proxied.
    bool isProxyConnection() const;
    void setProxyConnection(bool value);
    // A multiplexer's reply is awaited.
    bool isMUXPending() const;
    void setMUXPending(bool value);
    // The multiplexer carries the traffic encrypted, and a join encrypts nothing itself.
    bool isMUXEncrypt() const;
    void setMUXEncrypt(bool value);
    // The party takes a secure connection where it can have one.
    bool isSecurePreferred() const;
    void setSecurePreferred(bool value);
    // A multiplexer has sent this call elsewhere.
    bool isMUXRedirected() const;
    void setMUXRedirected(bool value);
    // The party demands FIPS-grade security.
    bool isFIPSSecureRequired() const;
    void setFIPSSecureRequired(bool value);
    // The party's addresses are to be hidden from others.
    bool isHidingIPsRequired() const;
    void setHidingIPsRequired(bool value);
    // Takes secure connections only.
    bool isSSLOnly() const;
    void setSSLOnly(bool value);

    // The lines of `RosterBase`, the IP hidden if the party demands it, then state, meeting and
    // proxy.
    std::string toString() const;

    // ---- Wire form: `RosterBase`, state 4, meeting name, meeting identifier ----

    // As on `UserInfo`. What is known at this end only survives a `read`, a failed one too.
    std::uint64_t size() const;
    std::uint64_t write(unsigned char *buffer, std::uint64_t length) const;
    std::uint64_t read(const unsigned char *buffer, std::uint64_t length);

private:
    friend class ConferenceParticipant;

    bool mf_state(std::uint32_t mask) const;
    void mf_setState(std::uint32_t mask, bool value);

    int m_descriptor = -1;
    std::uint32_t m_state = 0;
    std::string m_meetingName;
    std::string m_meetingID;
    std::string m_proxyName;
    bool m_doBroadcast = false;
    bool m_enabled = true;
    bool m_toldHost = false; // a hello to this party said that this end hosts
    bool m_refused = false;  // a message of this party, and the log has told it
    std::uint32_t m_echoesAwaited = 0;
    std::uint32_t m_numBadReads = 0;
    std::uint32_t m_totalBadReads = 0;
    std::uint64_t m_badReadKeepAliveTime = 0;
};

} // namespace vintok

#endif
