// The lead of a meeting: at most one party has it, and all traffic about it goes through the host.
//
// A party asks the host. The host decides when it leads itself; otherwise it passes the question on
// to the leader, whose answer comes back to the host. The host then answers the party that asked
// and tells everybody. While a question is open the entry of whoever asked is lead-pending at the
// host, and every other question is refused. When a leader goes, `_assureLeader` puts the host in
// its place, or in server mode a member.
//
// Only the host knows who leads: a member keeps the leader bit of its own entry up to date here,
// and those of the others come with the next roster.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

#include <algorithm>

namespace vintok {

// ---- Asking ----

bool ConferenceParticipant::requestStartLeading() {
    const Reason reason;
    const bool asked = _attempt("requestStartLeading", [this] {
        return Linking::decides(*this) ? Lead::hostAsksToLead(*this)
                                       : Lead::memberAsksToLead(*this);
    });
    return reason.unless(asked, TCP_ERROR_CONNECTION_RESET,
                         "requestStartLeading: the host is gone");
}

bool ConferenceParticipant::Lead::memberAsksToLead(ConferenceParticipant &owner) {
    if (owner._self.isLeader())
        return true;
    if (!owner._self.isMeeting())
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "requestStartLeading: in no meeting");
    TCPMessage message;
    if (Linking::isLinked(owner))
        return openLeadRequest(owner, message) &&
               Linking::writeToAuthority(owner, owner._self, message);
    if (owner._attendees.empty()) {
        owner._notifyLeadRequestDenied();
        owner.hangup();
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "requestStartLeading: alone in the meeting");
    }
    const ConferenceRosterEntry *host = owner._getHost();
    // True without a host to ask, deliberately: callers take false for an end of the meeting.
    if (!openLeadRequest(owner, message) || host == nullptr)
        return true;
    return message.write(host->descriptor(), nullptr);
}

bool ConferenceParticipant::Lead::hostAsksToLead(ConferenceParticipant &owner) {
    if (owner._self.isLeader() || owner._self.isLeadPending())
        return true;
    if (owner._getPendingLeader() != nullptr) {
        owner._notifyLeadRequestDenied();
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "requestStartLeading: somebody else has asked");
    }
    const ConferenceRosterEntry *leader = owner._getLeader();
    if (leader == nullptr)
        return refuse(TCP_ERROR_INVALID_ADDRESS, "requestStartLeading: nobody leads");
    TCPMessage message;
    if (openLeadRequest(owner, message) && Linking::write(owner, *leader, message))
        owner._self.setLeadPending(true);
    return true; // also when the write failed: the sweep will find the leader dead
}

// A party that asks shows itself as the leader that it wants to be.
bool ConferenceParticipant::Lead::openLeadRequest(ConferenceParticipant &owner,
                                                  TCPMessage &message) {
    owner._self.setLeader(true);
    const bool opened = openMessage(message, TCP_leadRequest, owner._self);
    owner._self.setLeader(false);
    return opened;
}

// ---- Being asked ----

void ConferenceParticipant::_handleLeadRequest(ConferenceRosterEntry *peer, unsigned char *body,
                                               std::uint64_t length) {
    if (!_isListed(peer) || body == nullptr || length == 0)
        return;
    if (Linking::decides(*this))
        Lead::hostIsAsked(*this, peer, body, length);
    else if (_self.isHost() && peer->doBroadcast())
        Linking::ask(*this, TCP_leadRequest, *peer, body, length);
    else if (_self.isLeader())
        Lead::leaderIsAsked(*this, peer, body, length);
}

void ConferenceParticipant::Lead::hostIsAsked(ConferenceParticipant &owner,
                                              ConferenceRosterEntry *peer,
                                              const unsigned char *body, std::uint64_t length) {
    if (!owner._self.isMeeting())
        return;
    const ConferenceRosterEntry *leader =
        owner._self.isLeader() ? &owner._self : owner._getLeader();
    if (owner._self.isLeadPending() || owner._getPendingLeader() != nullptr) {
        owner._writeLeadReply(*peer, 0);
        return;
    }
    ConferenceRosterEntry asking(peer->descriptor());
    if (asking.read(body, length) == 0)
        return;
    peer->setLeadPending(true);
    if (leader == &owner._self) {
        decideOnLead(owner, *peer);
        return;
    }
    // Where there is nobody to ask, the peer stays lead-pending, deliberately: all refuse until it
    // leaves or the application decides.
    const bool canAsk = leader != nullptr && leader != peer;
    if (!canAsk || !passLeadRequestOn(owner, *leader, body, length))
        owner._writeLeadReply(*peer, 0);
}

bool ConferenceParticipant::Lead::passLeadRequestOn(ConferenceParticipant &owner,
                                                    const ConferenceRosterEntry &leader,
                                                    const unsigned char *body,
                                                    std::uint64_t length) {
    TCPMessage message;
    if (!openMessage(message, TCP_leadRequest, length))
        return false;
    std::copy_n(body, length, message.messageBuffer());
    return Linking::write(owner, leader, message);
}

void ConferenceParticipant::Lead::leaderIsAsked(ConferenceParticipant &owner,
                                                ConferenceRosterEntry *peer,
                                                const unsigned char *body, std::uint64_t length) {
    ConferenceRosterEntry asking(peer->descriptor());
    if (asking.read(body, length) == 0)
        owner._writeLeadReply(*peer, 0);
    else
        decideOnLead(owner, asking);
}

void ConferenceParticipant::Lead::decideOnLead(ConferenceParticipant &owner,
                                               const ConferenceRosterEntry &asking) {
    if (owner._leadRequestCB != nullptr)
        owner._leadRequestCB(&owner, asking);
    else
        owner.acceptLeadChange();
}

bool ConferenceParticipant::acceptLeadChange() {
    const Reason reason;
    if (!Linking::decides(*this)) {
        const ConferenceRosterEntry *host = Lead::whoDecides(*this);
        if (host == nullptr)
            return refuse(TCP_ERROR_INVALID_ADDRESS, "acceptLeadChange: there is no host");
        return reason.unless(_writeLeadReply(*host, 1), TCP_ERROR_CONNECTION_RESET,
                             "acceptLeadChange: the host is gone");
    }
    return reason.unless(_attempt("acceptLeadChange", [this] { return Lead::giveLead(*this); }),
                         TCP_ERROR_CONNECTION_RESET,
                         "acceptLeadChange: it did not reach everybody");
}

bool ConferenceParticipant::Lead::giveLead(ConferenceParticipant &owner) {
    ConferenceRosterEntry *leader = owner._getPendingLeader();
    if (leader == nullptr)
        return refuse(TCP_ERROR_INVALID_ADDRESS, "acceptLeadChange: nobody waits for the lead");
    leader->setLeader(true);
    leader->setLeadPending(false);
    owner._self.setLeader(false);
    TCPMessage message;
    if (!openMessage(message, TCP_leadChangeNotify, *leader))
        return Lists::findsNoMemory("acceptLeadChange");
    leaveLeadTo(owner, leader);
    Linking::leadsNow(owner, *leader);
    const bool sent = owner._broadcastData(nullptr, message) || Linking::isLinked(owner);
    // A leader that the round has found dead has had a successor meanwhile.
    if (owner._isListed(leader))
        owner._tell(owner._leadChangeCB, *leader);
    return sent;
}

bool ConferenceParticipant::rejectLeadChange() {
    const Operation operation(*this);
    const Reason reason;
    ConferenceRosterEntry *target =
        Linking::decides(*this) ? _getPendingLeader() : Lead::whoDecides(*this);
    if (target == nullptr)
        return refuse(TCP_ERROR_INVALID_ADDRESS, "rejectLeadChange: nobody waits for the lead");
    const bool sent = _writeLeadReply(*target, 0);
    target->setLeadPending(false);
    return reason.unless(sent, TCP_ERROR_CONNECTION_RESET, "rejectLeadChange: they are gone");
}

// ---- The answer, and its announcement ----

void ConferenceParticipant::_handleLeadReply(ConferenceRosterEntry *peer, unsigned char *body,
                                             std::uint64_t length) {
    if (body == nullptr || length == 0) {
        VINTOK_LOG(SEVERITY_ERROR, "_handleLeadReply Me or buf not allocated");
        return;
    }
    const int accepted = body[0] != 0 ? 1 : 0; // as others are told it
    const bool wasHost = Linking::decides(*this);
    if (_self.isHost() && !wasHost && peer->doBroadcast()) {
        Linking::ask(*this, TCP_leadReply, *peer, body, length);
        return;
    }
    ConferenceRosterEntry *target =
        wasHost && !_self.isLeadPending() ? _getPendingLeader() : &_self;
    if (target == nullptr)
        return;
    target->setLeadPending(false);
    if (target != &_self)
        _writeLeadReply(*target, accepted);
    else if (accepted != 0)
        _notifyLeadRequestAccepted();
    else
        _notifyLeadRequestDenied();
    // Not the host's, or no longer: the callback may have hung up.
    if (!wasHost || !_self.isHost())
        return;
    // A member that asked hears the answer twice, deliberately: applications count on the pair.
    _writeLeadReply(*target, accepted);
    if (accepted == 0 || _attendees.empty())
        return;
    _self.setLeader(false);
    target->setLeader(true);
    Lead::announceLeader(*this, target);
}

void ConferenceParticipant::_handleLeadChangeNotify(ConferenceRosterEntry *peer,
                                                    unsigned char *body, std::uint64_t length) {
    if (!_isListed(peer))
        return;
    ConferenceRosterEntry leader(peer->descriptor());
    if (leader.read(body, length) == 0)
        return;
    if (leader == _self) {
        if (_self.isLeader())
            return;
        _self.setLeader(true);
        _tell(_leadChangeCB, _self);
    } else {
        _self.setLeader(false);
        _tell(_leadChangeCB, leader);
    }
}

void ConferenceParticipant::_handleStopLeadRequest(ConferenceRosterEntry *, unsigned char *,
                                                   std::uint64_t) {
    if (_self.isHost())
        requestStartLeading();
}

void ConferenceParticipant::_assureLeader() {
    if (!Linking::decides(*this))
        return;
    const bool linked = Linking::isLinked(*this);
    ConferenceRosterEntry *first = nullptr; // of the members
    ConferenceRosterEntry *waiting = nullptr;
    for (ConferenceRosterEntry *peer : _attendees) {
        if (peer == nullptr || !(peer->doBroadcast() || (linked && peer->isShadow())))
            continue;
        if (peer->isLeader())
            return;
        if (first == nullptr && !(linked && peer->isServer()))
            first = peer;
        if (waiting == nullptr && peer->isLeadPending())
            waiting = peer;
    }
    _self.setLeadPending(false); // whom this party asked has gone without an answer
    if (serverMode() && first != nullptr) {
        if (waiting == nullptr)
            first->setLeadPending(true);
        acceptLeadChange();
        return;
    }
    if (_self.isLeader() || (_attendees.empty() && !linked) || !_self.isMeeting())
        return;
    _self.setLeader(true);
    Lead::announceLeader(*this, &_self);
}

// Tells the members and the application. A member that cannot be reached is found at the next
// broadcast.
void ConferenceParticipant::Lead::announceLeader(ConferenceParticipant &owner,
                                                 ConferenceRosterEntry *leader) {
    TCPMessage message;
    if (!openMessage(message, TCP_leadChangeNotify, *leader))
        return;
    leaveLeadTo(owner, leader);
    Linking::leadsNow(owner, *leader);
    for (const ConferenceRosterEntry *peer : owner._attendees)
        if (peer != nullptr && peer->doBroadcast())
            message.write(peer->descriptor(), nullptr);
    owner._tell(owner._leadChangeCB, *leader);
}

void ConferenceParticipant::Lead::leaveLeadTo(ConferenceParticipant &owner,
                                              const ConferenceRosterEntry *leader) {
    for (ConferenceRosterEntry *peer : owner._attendees)
        if (peer != nullptr && peer != leader)
            peer->setLeader(false);
}

bool ConferenceParticipant::_writeLeadReply(const ConferenceRosterEntry &party, int accepted) {
    const auto answer = static_cast<unsigned char>(accepted);
    if (&party == &_self && _self.isHost() && !Linking::decides(*this))
        return Linking::ask(*this, TCP_leadReply, _self, &answer, 1);
    TCPMessage message;
    if (!openMessage(message, TCP_leadReply, 1))
        return false;
    message.messageBuffer()[0] = answer;
    return Linking::write(*this, party, message);
}

// For a party that does not: the host, or itself at one of several hosts, for the one with
// authority.
ConferenceRosterEntry *ConferenceParticipant::Lead::whoDecides(ConferenceParticipant &owner) {
    return Linking::isLinked(owner) ? &owner._self : owner._getHost();
}

void ConferenceParticipant::_notifyLeadRequestAccepted() {
    unsigned char answer = 1;
    if (_leadReplyCB != nullptr)
        _leadReplyCB(this, &answer, 1);
}

void ConferenceParticipant::_notifyLeadRequestDenied() {
    unsigned char answer = 0;
    if (_leadReplyCB != nullptr)
        _leadReplyCB(this, &answer, 1);
}

} // namespace vintok
