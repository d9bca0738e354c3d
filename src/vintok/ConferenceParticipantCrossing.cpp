// Calls that cross: parties that call each other, or others that call, in the same moment.
//
// A caller that finds no host becomes one (`_ensureHost`), and may be called itself before anybody
// has joined it. A meeting has one host, so one of the two gives way. A host that a call has made
// and that nobody has joined steps aside for another host: at once when nobody else is about to
// join it; otherwise it first tells the other, by another hello, to come. That one comes when it
// has nobody else itself, or when the address of the first comes before its own; else it asks once
// more, which is final. A host with members, one that the application has made, and a server never
// step aside. Whoever is left over is told: busy, rejected, or no answer.
//
// Of two connections between two parties both keep the one that the party with the first address
// has placed, unless the other one stands by then.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ConferenceParticipantMessages.h"

#include <algorithm>

namespace vintok {

// ---- Who hosts ----

// A host that a call has made, and that nobody has joined, gives way to another.
bool ConferenceParticipant::_hostsNobody() const {
    return _self.isHost() && _workings->hostsByCall && !_serverMode && _members().empty();
}

// Whether others than `peer` are about to join: they are called, wait for an answer, or were told
// to come.
bool ConferenceParticipant::_hasOthers(const ConferenceRosterEntry *peer) const {
    return std::any_of(
        _attendees.begin(), _attendees.end(),
        [&](const auto *entry) {
            return entry != nullptr && entry->descriptor() != -1 && !entry->doBroadcast() &&
                   (peer == nullptr || !(*entry == *peer)) &&
                   (_getPending(entry->descriptor()) != nullptr || entry->isHost() ||
                    entry->isJoinPending());
        });
}

// Whether this party has stepped aside for a host that it calls, and waits for the answer: that
// host or the one that asks now has been told that this party hosts.
bool ConferenceParticipant::_joinsAnother(const ConferenceRosterEntry *peer) const {
    return std::any_of(
        _attendees.begin(), _attendees.end(),
        [&](const auto *entry) {
            return entry != nullptr && entry->isHost() && !entry->doBroadcast() &&
                   (entry->m_toldHost || peer->m_toldHost) &&
                   _getPending(entry->descriptor()) != nullptr;
        });
}

// This party hosts no longer, and joins `peer`, if anybody. Its other calls are over: whoever
// accepted them would join nobody.
void ConferenceParticipant::_stepAside(const ConferenceRosterEntry *peer) {
    _leaveMeeting();
    _forEachAttendee([&](ConferenceRosterEntry *entry) {
        if (_getPending(entry->descriptor()) != nullptr && (peer == nullptr || !(*entry == *peer)))
            mf_hangup(entry);
    });
    _tell(_userDataCB, _self);
}

// A host lets no host in, and who has a host gets no second one. Such a caller has not known: it is
// told who this party is by now, and decides anew. A host that has known and asks all the same is
// let in by one that nobody has joined, and refused by any other.
ConferenceParticipant::Admission
ConferenceParticipant::_admission(const ConferenceRosterEntry *peer) const {
    if (!peer->isHost())
        return _self.isHost() || !peer->m_toldHost ? Admission::granted : Admission::refused;
    if (!_self.isHost() && _getHost() != nullptr)
        return Admission::decidesAnew;
    if (!_self.isHost())
        return _joinsAnother(peer) ? Admission::refused : Admission::granted;
    if (_hostsNobody() && (peer->m_toldHost || !_hasOthers(peer)))
        return Admission::granted;
    return peer->m_toldHost ? Admission::refused : Admission::decidesAnew;
}

// Answers those that are not admitted.
bool ConferenceParticipant::_isAdmitted(ConferenceRosterEntry *peer) {
    const Admission admission = _admission(peer);
    if (admission == Admission::decidesAnew) {
        peer->setJoinPending(false);
        _sendMe(peer);
    } else if (admission == Admission::refused) {
        mf_rejectCall(peer);
    }
    return admission == Admission::granted;
}

// ---- Two connections to one party ----

// Two parties that call each other would each keep the own call and hang up the other's. So the own
// call to a party whose address comes first waits with the party's, until that hangs the own one up
// or one of the two is answered.
bool ConferenceParticipant::_crosses(const ConferenceRosterEntry *peer) const {
    const ConferenceRosterEntry *twin = _getTwin(peer);
    return !twin->doBroadcast() && _getPending(twin->descriptor()) != nullptr &&
           _getPending(peer->descriptor()) == nullptr && *peer < _self;
}

// The called party has called too, and that call came first. The own one is answered with it.
void ConferenceParticipant::_giveUpForTwin(ConferenceRosterEntry *peer) {
    TempRosterEntry *call = _getPending(peer->descriptor());
    const ConferenceRosterEntry *twin = _getTwin(peer);
    if (call == nullptr || twin->isShadow() || _getPending(twin->descriptor()) != nullptr)
        return;
    if (!twin->doBroadcast())
        _loseCall(call, *peer);
    else if (std::find(_attendees.begin(), _attendees.end(), peer) <
             std::find(_attendees.begin(), _attendees.end(), twin))
        _answerCall(call, *peer); // the call was placed before the party joined
}

// The party has joined, and may have been called as well: that call is answered.
void ConferenceParticipant::_endCrossing(ConferenceRosterEntry *peer) {
    if (!peer->isIPv4() && !peer->isIPv6())
        return;
    const std::vector<TempRosterEntry *> calls = _pending;
    for (TempRosterEntry *call : calls) {
        const ConferenceRosterEntry *called = _getPeer(call->associatedDescriptor());
        const bool lost = call->associatedDescriptor() == -1;
        if (_isListed(call) && call->associatedDescriptor() != peer->descriptor() &&
            (lost ? *call == *peer || call->m_lostParty == *peer
                  : called != nullptr && *called == *peer))
            _answerCall(call, *peer);
    }
    _forEachAttendee([&](ConferenceRosterEntry *entry) {
        if (entry != peer && *entry == *peer && entry->descriptor() != -1 &&
            !entry->doBroadcast() && !entry->isProxyConnection())
            mf_hangup(entry);
    });
}

void ConferenceParticipant::_answerCall(TempRosterEntry *call, const ConferenceRosterEntry &peer) {
    call->m_callOutcome = OUTCOME_TOLD;
    if (_acceptedCB != nullptr)
        _acceptedCB(this, call->remoteName(), peer);
    if (_isListed(call))
        _removePending(call);
}

} // namespace vintok
