#include "Session.h"

#include "Readable.h"

#include <vintok/ControlNotify.h>
#include <vintok/TCPStream.h>

#include <algorithm>

namespace control {

namespace {

constexpr std::size_t mostCallers = 64;

bool saysTheSame(const vintok::RosterBase &a, const vintok::RosterBase &b) {
    return a == b && a.colorIndex() == b.colorIndex() &&
           static_cast<const vintok::UserInfo &>(a) == static_cast<const vintok::UserInfo &>(b);
}

} // namespace

Session &Session::of(vintok::ConferenceParticipant *participant) {
    return static_cast<Participant *>(participant)->session;
}

void Session::setCallbacks() {
    using Library = vintok::ConferenceParticipant;
    using Entry = vintok::ConferenceRosterEntry;
    m_participant->setSecurityCB([](Library *p, const vintok::ConfSecurityOptions &changed) {
        if (changed.hideIP)
            vintok::replyNotifyHideIP(of(p).fd(), p->isHidingIPsRequired());
    });
    m_participant->setCallPendingCB([](Library *p, const Entry &e) { of(p).callPending(e); });
    // The text has no word for it, but so the caller hears why.
    m_participant->setTurnedAwayCB([](Library *, const Entry &, const char *, void *) {});
    m_participant->setJoinCB([](Library *p, const Entry &e) { of(p).joined(e); });
    m_participant->setLeaveCB([](Library *p, const Entry &e) { of(p).left(e); });
    m_participant->setUserDataCB([](Library *p, const Entry &e) {
        of(p).observe();
        if (of(p).m_seat)
            of(p).m_seat->changed();
        of(p).changed(e);
    });
    m_participant->setLeadChangeCB([](Library *p, const Entry &e) {
        of(p).observe();
        vintok::replyNotifyLeaderChange(of(p).fd(), readable(e));
    });
    m_participant->setLeadRequestCB([](Library *p, const Entry &e) { of(p).leadAsked(e); });
    m_participant->setLeadReplyCB([](Library *p, unsigned char *answer, std::uint64_t length) {
        of(p).leadAnswered(length != 0 && *answer != 0);
    });
    m_participant->setBroadcastDataCB([](Library *p, unsigned char *data, std::uint64_t length) {
        of(p).record(data, static_cast<std::size_t>(length));
    });
    m_participant->setFileTransferCB(
        [](Library *p, const vintok::TCPAddress &neighbour, bool whole, const std::string &path) {
            vintok::replyNotifyFileTransferred(of(p).fd(), readable(neighbour), whole ? 1 : 0,
                                               readable(path));
        });
    // Who is at which host of several; the text has no word for it.
    m_participant->setMessageCB(
        [](Library *, const Entry &, vintok::TCPMessage &, void *) { return false; });
    // The side that is asked for its time gets zeros: the offsets themselves are always true.
    m_participant->setSynchTimeCB(
        [](Library *p, unsigned char *, std::uint64_t) { of(p).tellTime(); });
}

// How the own calls go. Without a redirect callback the library follows redirects by itself.
void Session::setCallCallbacks() {
    using Library = vintok::ConferenceParticipant;
    using Called = vintok::RosterBase;
    using Name = const std::string;
    m_participant->setRingingCB([](Library *p, Name &name, const Called &party) {
        vintok::replyNotifyRinging(of(p).fd(), readable(name), readable(party));
    });
    m_participant->setAcceptedCB([](Library *p, Name &name, const Called &party) {
        vintok::replyNotifyCallAccepted(of(p).fd(), readable(name), readable(party));
    });
    m_participant->setBusyCB([](Library *p, Name &name, const Called &party) {
        vintok::replyNotifyBusy(of(p).fd(), readable(name), readable(party));
    });
    m_participant->setRejectedCB([](Library *p, Name &name, const Called &party) {
        vintok::replyNotifyCallRejected(of(p).fd(), readable(name), readable(party));
    });
    m_participant->setNoAnswerCB([](Library *p, Name &name, const Called &) {
        vintok::replyNotifyCallNoAnswer(of(p).fd(), readable(name));
    });
    m_participant->setVersionCB([](Library *p, Name &name, const Called &party) {
        vintok::replyNotifyVersionNotCompatible(of(p).fd(), readable(name), readable(party));
    });
    m_participant->setProxyCB([](Library *p, Name &name, unsigned short port, Name &proxy,
                                 unsigned short proxyPort, Name &authentication,
                                 unsigned int retries, Name &meetingID) {
        vintok::replyNotifyCallAuthenticationRequired(of(p).fd(), readable(name), port,
                                                      readable(proxy), proxyPort, authentication,
                                                      retries, meetingID);
    });
    m_participant->setServerResponseCB([](Library *p, unsigned int status, Name &response) {
        vintok::replyNotifyServerResponse(of(p).fd(), status, response);
    });
}

// Tells what has changed without a callback.
void Session::observe() {
    if (m_participant->isMeeting() && !m_inMeeting) {
        m_inMeeting = true;
        vintok::replyNotifyBeginMeeting(fd(), m_participant->isHidingIPsRequired(),
                                        readable(m_participant->meetingName()));
    }
    if (m_participant->isHost() && !m_hosting)
        vintok::replyNotifyHosting(fd());
    m_hosting = m_participant->isHost();
    if (m_participant->isLeader() != m_leading) {
        m_leading = m_participant->isLeader();
        if (m_leading)
            leadAnswered(true); // a host that leads itself grants by telling everybody, and no more
        m_leading ? vintok::replyNotifyBeginLeading(fd()) : vintok::replyNotifyEndLeading(fd());
        m_stopsLeading = m_stopsLeading && m_leading;
    }
    if (!m_participant->isMeeting() && m_inMeeting) {
        m_inMeeting = false;
        m_host = -1;
        m_wantsLead = m_stopsLeading = false;
        m_parties.clear();
        m_callers.clear();
        m_self.clear();
        endRecordings();
        vintok::replyNotifyEndMeeting(fd());
    }
}

// The request that answers does not say whom, so that the application gets one caller at a time.
// Nobody tells when a caller gives up: one that calls again is in the queue already, and of too
// many the oldest that the application does not know of is turned away.
void Session::callPending(const vintok::ConferenceRosterEntry &entry) {
    const vintok::TCPAddress &caller = entry;
    if (!admits(caller))
        return;
    const auto known =
        std::find_if(m_callers.begin(), m_callers.end(),
                     [&](const vintok::RosterBase &waiting) { return waiting == caller; });
    if (known != m_callers.end()) {
        *known = entry;
        return;
    }
    if (m_callers.size() == mostCallers) {
        m_participant->rejectCall(m_callers[1]);
        m_callers.erase(m_callers.begin() + 1);
    }
    m_callers.push_back(entry);
    if (m_callers.size() == 1)
        vintok::replyNotifyCallPending(fd(), readable(entry));
}

void Session::joined(const vintok::ConferenceRosterEntry &entry) {
    observe();
    if (vintok::RosterBase *known = findParty(entry))
        *known = entry;
    else
        m_parties.push_back(entry);
    if (!m_participant->isHost() && entry.isHost() && entry.descriptor() != -1)
        m_host = entry.descriptor();
    if (m_seat)
        m_seat->joined(entry);
    vintok::replyNotifyUserJoin(fd(), readable(entry));
}

void Session::left(const vintok::ConferenceRosterEntry &entry) {
    if (const vintok::RosterBase *known = findParty(entry))
        m_parties.erase(m_parties.begin() + (known - m_parties.data()));
    if (m_seat)
        m_seat->left(entry);
    vintok::replyNotifyUserLeave(fd(), readable(entry));
}

// Every roster that a host sends out tells of everybody. The application hears of what is new.
void Session::changed(const vintok::RosterBase &entry) {
    const vintok::TCPAddress &me = m_participant->address();
    const bool isSelf = me == static_cast<const vintok::TCPAddress &>(entry);
    vintok::RosterBase *known = isSelf ? &m_self : findParty(entry);
    const vintok::RosterBase now = isSelf ? self() : entry;
    if (known == nullptr || saysTheSame(*known, now))
        return;
    *known = now;
    vintok::replyNotifyUserInMeeting(fd(), readable(now));
}

void Session::leadAsked(const vintok::ConferenceRosterEntry &entry) {
    if (m_stopsLeading) // it is the host, which was asked to take it
        m_participant->acceptLeadChange();
    else
        vintok::replyNotifyLeadRequestPending(fd(), readable(entry));
}

// A member hears the answer to its one question twice.
void Session::leadAnswered(bool granted) {
    if (!m_wantsLead)
        return;
    m_wantsLead = false;
    granted ? vintok::replyNotifyBeginLeadingGranted(fd())
            : vintok::replyNotifyBeginLeadingDenied(fd());
}

// A party that is reachable from this machine only may have no address to tell.
vintok::TCPAddress Session::ownAddress() const {
    vintok::TCPAddress address = m_participant->address();
    if (!address.isIPv4() && !address.isIPv6())
        address.setLoopbackIPv4();
    return address;
}

vintok::RosterBase Session::self() const {
    vintok::RosterBase self(ownAddress());
    self.setFirstName(m_participant->firstName());
    self.setLastName(m_participant->lastName());
    self.setTitle(m_participant->title());
    self.setEmail(m_participant->email());
    self.setPhone(m_participant->phone());
    self.setColorIndex(m_participant->colorIndex());
    return self;
}

} // namespace control
