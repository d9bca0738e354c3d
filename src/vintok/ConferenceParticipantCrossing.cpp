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
bool ConferenceParticipant::Crossing::hostsNobody(const ConferenceParticipant &owner) {
    return owner._self.isHost() && owner._workings->hostsByCall && !owner._serverMode &&
           !Linking::isLinked(owner) && Roster::allMembers(owner).empty();
}

// Whether others than `peer` are about to join: they are called, wait for an answer, or were told
// to come.
bool ConferenceParticipant::Crossing::hasOthers(const ConferenceParticipant &owner,
                                                const ConferenceRosterEntry *peer) {
    return std::any_of(
        owner._attendees.begin(), owner._attendees.end(),
        [&](const auto *entry) {
            return entry != nullptr && entry->descriptor() != -1 && !entry->doBroadcast() &&
                   (peer == nullptr || !(*entry == *peer)) &&
                   (owner._getPending(entry->descriptor()) != nullptr || entry->isHost() ||
                    entry->isJoinPending());
        });
}

// Whether this party has stepped aside for a host that it calls, and waits for the answer: that
// host or the one that asks now has been told that this party hosts.
bool ConferenceParticipant::Crossing::joinsAnother(const ConferenceParticipant &owner,
                                                   const ConferenceRosterEntry *peer) {
    return std::any_of(
        owner._attendees.begin(), owner._attendees.end(),
        [&](const auto *entry) {
            return entry != nullptr && entry->isHost() && !entry->doBroadcast() &&
                   (entry->m_toldHost || peer->m_toldHost) &&
                   owner._getPending(entry->descriptor()) != nullptr;
        });
}

// This party hosts no longer, and joins `peer`, if anybody. Its other calls are over: whoever
// accepted them would join nobody.
void ConferenceParticipant::Crossing::stepAside(ConferenceParticipant &owner,
                                                const ConferenceRosterEntry *peer) {
    Ending::leaveMeeting(owner);
    owner._forEachAttendee([&](ConferenceRosterEntry *entry) {
        if (owner._getPending(entry->descriptor()) != nullptr &&
            (peer == nullptr || !(*entry == *peer)))
            owner.mf_hangup(entry);
    });
    owner._tell(owner._userDataCB, owner._self);
}

// A host lets no host in, and who has a host gets no second one. Such a caller has not known: it is
// told who this party is by now, and decides anew. A host that has known and asks all the same is
// let in by one that nobody has joined, and refused by any other.
ConferenceParticipant::Admission
ConferenceParticipant::Crossing::admission(const ConferenceParticipant &owner,
                                           const ConferenceRosterEntry *peer) {
    if (!peer->isHost())
        return owner._self.isHost() || !peer->m_toldHost ? Admission::granted : Admission::refused;
    if (!owner._self.isHost() && owner._getHost() != nullptr)
        return Admission::decidesAnew;
    if (!owner._self.isHost())
        return joinsAnother(owner, peer) ? Admission::refused : Admission::granted;
    if (hostsNobody(owner) && (peer->m_toldHost || !hasOthers(owner, peer)))
        return Admission::granted;
    return peer->m_toldHost ? Admission::refused : Admission::decidesAnew;
}

// Answers those that are not admitted.
bool ConferenceParticipant::Crossing::isAdmitted(ConferenceParticipant &owner,
                                                 ConferenceRosterEntry *peer) {
    const Admission decision = admission(owner, peer);
    if (decision == Admission::decidesAnew) {
        peer->setJoinPending(false);
        owner._sendMe(peer);
    } else if (decision == Admission::refused) {
        owner.mf_rejectCall(peer);
    }
    return decision == Admission::granted;
}

// ---- Two connections to one party ----

// Two parties that call each other would each keep the own call and hang up the other's. So the own
// call to a party whose address comes first waits with the party's, until that hangs the own one up
// or one of the two is answered.
bool ConferenceParticipant::Crossing::crosses(const ConferenceParticipant &owner,
                                              const ConferenceRosterEntry *peer) {
    const ConferenceRosterEntry *twin = Roster::getTwin(owner, peer);
    return twin != nullptr && !twin->doBroadcast() &&
           owner._getPending(twin->descriptor()) != nullptr &&
           owner._getPending(peer->descriptor()) == nullptr && *peer < owner._self;
}

// The called party has called too, and that call came first. The own one is answered with it.
void ConferenceParticipant::Crossing::giveUpForTwin(ConferenceParticipant &owner,
                                                    ConferenceRosterEntry *peer) {
    TempRosterEntry *call = owner._getPending(peer->descriptor());
    const ConferenceRosterEntry *twin = Roster::getTwin(owner, peer);
    TempRosterEntry *kept = twin != nullptr ? owner._getPending(twin->descriptor()) : nullptr;
    if (kept != nullptr)
        kept->m_isCrossed = true; // the party's own goes in its favour
    if (call == nullptr || twin == nullptr || twin->isShadow() || kept != nullptr)
        return;
    if (!twin->doBroadcast())
        Ending::loseCall(owner, call, *peer);
    else if (std::find(owner._attendees.begin(), owner._attendees.end(), peer) <
             std::find(owner._attendees.begin(), owner._attendees.end(), twin))
        answerCall(owner, call, *peer); // the call was placed before the party joined
}

// The party has joined, and may have been called as well: that call is answered.
void ConferenceParticipant::Crossing::endCrossing(ConferenceParticipant &owner,
                                                  ConferenceRosterEntry *peer) {
    if (!peer->isIPv4() && !peer->isIPv6())
        return;
    const std::vector<TempRosterEntry *> calls = owner._pending;
    for (TempRosterEntry *call : calls) {
        const ConferenceRosterEntry *called = owner._getPeer(call->associatedDescriptor());
        const bool lost = call->associatedDescriptor() == -1;
        if (owner._isListed(call) && call->associatedDescriptor() != peer->descriptor() &&
            (lost ? *call == *peer || call->m_lostParty == *peer
                  : called != nullptr && *called == *peer))
            answerCall(owner, call, *peer);
    }
    owner._forEachAttendee([&](ConferenceRosterEntry *entry) {
        if (entry != peer && *entry == *peer && entry->descriptor() != -1 &&
            !entry->doBroadcast() && !entry->isProxyConnection())
            owner.mf_hangup(entry);
    });
    Ending::endLost(owner);
}

void ConferenceParticipant::Crossing::answerCall(ConferenceParticipant &owner,
                                                 TempRosterEntry *call,
                                                 const ConferenceRosterEntry &peer) {
    call->m_callOutcome = OUTCOME_TOLD;
    if (owner._acceptedCB != nullptr)
        owner._acceptedCB(&owner, call->remoteName(), peer);
    if (owner._isListed(call))
        owner._removePending(call);
}

} // namespace vintok
