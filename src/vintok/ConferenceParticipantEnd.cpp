// How a connection, a call or the whole meeting ends: everything that decides on an end, and
// carries it out, is here.
//
//   what is seen                                    who decides
//   the application hangs up                        hangup
//   a read that fails                               Ending::readFailed
//   a write that fails                              _bringOutYerDead
//   TCP_hangup from the peer                        _handleHangup
//   a member that loses one of two hosts            Ending::removeAttendee
//   a guard, of whoever breaks its rule;
//   a call that fails, of who has joined meanwhile  Ending::dismiss
//
// There are two ways down. `mf_hangup` is the local act: it says TCP_hangup, drops the connection
// and tells the application only how a pending call has ended. `_handleHangup` is for a peer that
// has left or died: it also tells the application and, on a host, everybody else. Both come down to
// `dropConnection`: out of the loop, off the list (`removeAttendee`), then the socket is closed.
//
// `_bringOutYerDead` probes the members with keep-alives after a round of writes with failures, and
// hangs up the first whose connection turns out to be reset; the leave notice of that hang-up is a
// round of its own, which leads to the next sweep. So they call each other until a round goes
// through or nobody is left. `Workings::sweeps` bounds how deep; whoever hangs up sweeps once more
// on the way back, which takes out those that the bound left over.
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/ConferenceParticipantWorkings.h"
#include "vintok/Log.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <algorithm>

namespace vintok {

namespace {

constexpr int deepestSweep = 32; // each of them sweeps again for what it finds

// The shutdown of a connection that has died fails too. The last error stays the one that tells how
// the connection died.
void shutDown(int descriptor) {
    const TCPError code = lastError();
    const std::string text = lastErrorString();
    const std::uint32_t before = failuresKept();
    shutdownSocket(descriptor);
    if (code != TCP_ERROR_NO_ERROR && failuresKept() != before)
        setLastError(code, text);
}

} // namespace

// ---- The local act ----

void ConferenceParticipant::hangup() {
    const Operation operation(*this);
    {
        const Nested nested(_workings->hangups);
        if (!_attempt("hangup", [this] { return Ending::dropAll(*this); }))
            Ending::dropAllWithoutMemory(*this);
    }
    Linking::ended(*this);
    Ending::leaveMeeting(*this);
    _self.setServer(false); // until `setServerMode`, deliberately: `_serverMode` stays
    _self.setMUXRedirected(false);
    _attempt("hangup", [this] {
        Files::abandonFile(*this);
        Outgoing::endAll(*this);
        return true;
    });
}

// What a callback adds meanwhile is not met: one that calls again at once would never end.
bool ConferenceParticipant::Ending::dropAll(ConferenceParticipant &owner) {
    const std::vector<TempRosterEntry *> calls = owner._pending;
    owner._forEachAttendee([&owner](ConferenceRosterEntry *peer) { owner.mf_hangup(peer); });
    for (TempRosterEntry *call : calls)
        if (owner._isListed(call) && call->associatedDescriptor() == -1)
            endCall(owner, call);
    return true;
}

// The same, without a list of those who are there now.
void ConferenceParticipant::Ending::dropAllWithoutMemory(ConferenceParticipant &owner) {
    for (std::size_t left = owner._attendees.size(); left != 0 && !owner._attendees.empty(); --left)
        owner._attempt("hangup", [&] { return owner.mf_hangup(owner._attendees.front()); });
    for (std::size_t left = owner._pending.size(); left != 0 && !owner._pending.empty(); --left)
        endCall(owner, owner._pending.front());
}

void ConferenceParticipant::Ending::leaveMeeting(ConferenceParticipant &owner) {
    owner._self.setMeeting(false);
    owner._self.setHost(false);
    owner._self.setLeader(false);
    owner._self.setLeadPending(false);
    owner._self.setMeetingName(std::string());
}

bool ConferenceParticipant::mf_hangup(ConferenceRosterEntry *peer) {
    if (!_isListed(peer))
        return false;
    TempRosterEntry *call = _getPending(peer->descriptor());
    const bool saysGoodbye = call == nullptr || Ending::endCall(*this, call);
    if (!_isListed(peer))
        return false; // a callback hung up
    if (saysGoodbye)
        sendByte(peer->descriptor(), TCP_hangup, 0);
    const bool dropped = Ending::dropConnection(*this, peer);
    if (_workings->hangups == 0)
        Ending::endLost(*this);
    return dropped;
}

// As `mf_hangup`; but when it is a member that has to go, everybody hears that it has left.
void ConferenceParticipant::Ending::dismiss(ConferenceParticipant &owner,
                                            ConferenceRosterEntry *peer) {
    if (!owner._isListed(peer) || !peer->doBroadcast()) {
        owner.mf_hangup(peer);
        return;
    }
    sendByte(peer->descriptor(), TCP_hangup, 0);
    owner._handleHangup(peer);
}

// Tells the application how the call has ended and takes it off the list. True unless the other
// side is to be spared a TCP_hangup: one that only demands credentials has no use for it.
bool ConferenceParticipant::Ending::endCall(ConferenceParticipant &owner, TempRosterEntry *call) {
    const int outcome = call->m_callOutcome;
    call->m_callOutcome = OUTCOME_TOLD; // a callback that hangs up meets the call once more
    switch (outcome) {
    case OUTCOME_COMPLETING:
    case OUTCOME_TOLD:
    case OUTCOME_REDIRECTED:
        break;
    case OUTCOME_AUTHENTICATE:
        if (!Tunnels::askForCredentials(owner, *call))
            tellNoAnswer(owner, *call);
        break;
    case OUTCOME_SERVER_ERROR:
        if (owner._serverResponseCB != nullptr && call->m_tunnelStatus != 0)
            owner._serverResponseCB(&owner, static_cast<unsigned int>(call->m_tunnelStatus),
                                    call->m_tunnelResponse);
        break;
    default:
        tellNoAnswer(owner, *call);
    }
    if (owner._isListed(call))
        owner._removePending(call);
    return outcome != OUTCOME_AUTHENTICATE;
}

// A call whose connection has died stays until `hangup`; but not where nobody is left, where
// somebody else hosts, or where the called party had called as well and has no connection any more:
// nothing can come of it then.
void ConferenceParticipant::Ending::endLost(ConferenceParticipant &owner) {
    const bool all = owner._attendees.empty() || (owner._self.isMeeting() && !owner._self.isHost());
    const auto isKnown = [&](const TempRosterEntry &call) {
        return std::any_of(owner._attendees.begin(), owner._attendees.end(), [&](const auto *each) {
            return each != nullptr && *each == call.m_lostParty;
        });
    };
    const std::vector<TempRosterEntry *> calls = owner._pending;
    for (TempRosterEntry *call : calls)
        if (owner._isListed(call) && call->m_isLost &&
            (all || (call->m_isCrossed && !isKnown(*call))))
            endCall(owner, call);
}

void ConferenceParticipant::Ending::tellNoAnswer(ConferenceParticipant &owner,
                                                 const TempRosterEntry &call) {
    if (owner._noAnswerCB == nullptr)
        return;
    owner._attempt("noAnswer", [&] {
        owner._noAnswerCB(&owner, call.remoteName(), RosterBase(call));
        return true;
    });
}

// ---- A peer that has left or died ----

void ConferenceParticipant::Ending::readFailed(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer, bool closed) {
    const int descriptor = peer->descriptor();
    const TCPError why = lastError();
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(descriptor);
    if (why == TCP_ERROR_CORRUPT_HEADER && Guards::closesCorrupt(owner, descriptor))
        return;
    VINTOK_LOG(SEVERITY_INFO, formatText("Hangup on %d", descriptor));
    if (buffer != nullptr && buffer->failed() && peer->doBroadcast())
        Relaying::logUndelivered(owner, *peer, owner._workings->relayed);
    // A failed read is taken for a bad message as long as the line takes a keep-alive, which one
    // whose stream has ended does not. Of somebody who never joined the log need not tell that.
    const bool gone =
        buffer != nullptr && !buffer->readsAhead() && DescriptorState(descriptor).closed;
    if (closed || gone || !sf_sendKeepAlive(descriptor))
        owner._handleHangup(peer);
}

void ConferenceParticipant::_handleHangup(ConferenceRosterEntry *peer) {
    if (!_isListed(peer))
        return;
    Guards::tellSlow(*this, *peer);
    if (!_isListed(peer))
        return; // the callback hung up
    // Without a leave callback nothing is known of the party from here on, deliberately: a member
    // then notices only by its empty list that its host has gone.
    const bool kept = peer->doBroadcast() && _leaveCB != nullptr;
    const ConferenceRosterEntry copy = kept ? *peer : ConferenceRosterEntry();
    if (!peer->doBroadcast() && peer->isJoinPending()) {
        if (TempRosterEntry *call = _getPending(peer->descriptor()))
            Ending::endCall(*this, call);
        if (!_isListed(peer))
            return; // the callback hung up
    }
    Ending::dropConnection(*this, peer);
    bool nobodyLeft = _attendees.empty();
    if (!nobodyLeft)
        _assureLeader();
    if (!_relays() && kept && copy.isHost()) {
        hangup();
    } else {
        if (_relays() && !Roster::broadcastLeave(*this, copy)) {
            _bringOutYerDead();
            nobodyLeft = _attendees.empty();
            if (!nobodyLeft)
                _assureLeader();
        }
        if (nobodyLeft && !Linking::isLinked(*this))
            hangup();
    }
    if (_workings->hangups == 0)
        Ending::endLost(*this);
    if (kept)
        _tell(_leaveCB, copy); // last: the roster stands without the party by now
}

void ConferenceParticipant::_bringOutYerDead() {
    VINTOK_LOG(SEVERITY_TRACE, "_bringOutYerDead");
    if (_attendees.empty() || _workings->sweeps == deepestSweep)
        return;
    const Nested nested(_workings->sweeps);
    _handleHangup(Ending::findDead(*this));
}

// The first member whose connection is reset; null when there is none.
ConferenceRosterEntry *ConferenceParticipant::Ending::findDead(ConferenceParticipant &owner) {
    ConferenceRosterEntry *dead = nullptr;
    owner._forEachAttendee([&](ConferenceRosterEntry *peer) {
        if (dead != nullptr || !peer->doBroadcast() || sf_sendKeepAlive(peer->descriptor()))
            return;
        VINTOK_LOG(SEVERITY_ERROR, "_bringOutYerDead sf_sendKeepAlive failed");
        if (lastError() != TCP_ERROR_CONNECTION_RESET)
            return;
        VINTOK_LOG(SEVERITY_ERROR, "_bringOutYerDead CONNECTION_RESET");
        dead = peer;
    });
    return dead;
}

// ---- What both come down to ----

// Takes the party out of the loop and off the list, and closes its connection.
bool ConferenceParticipant::Ending::dropConnection(ConferenceParticipant &owner,
                                                   ConferenceRosterEntry *peer) {
    const int descriptor = peer->descriptor();
    Handshakes::forget(owner, descriptor);
    if (owner._select != nullptr)
        owner._select->removeCallback(descriptor, sf_dataCB, &owner);
    const bool removed = removeAttendee(owner, peer);
    shutDown(descriptor);
    owner._attempt("hangup", [&] {
        if (Guards::areOn(owner))
            StreamLoop::ofThisThread()->letGoOf(descriptor);
        if (owner._workings->fileNeighbour == peer)
            Files::abandonFile(owner);
        return true;
    });
    return removed;
}

bool ConferenceParticipant::_removeDescriptor(int descriptor) {
    return Ending::removeAttendee(*this, _getPeer(descriptor));
}

// A member that loses one of its hosts and has another gives the whole call up, unless it is doing
// so already.
bool ConferenceParticipant::Ending::removeAttendee(ConferenceParticipant &owner,
                                                   ConferenceRosterEntry *entry) {
    if (!Lists::retire(owner, entry))
        return false;
    // A call whose connection has gone stays listed, so that its address is not called again; but
    // the next owner of the descriptor's number is not its answer.
    if (TempRosterEntry *call = owner._getPending(entry->descriptor()))
        loseCall(owner, call, *entry);
    const auto isMember = [](const ConferenceRosterEntry *other) {
        return other != nullptr && other->doBroadcast();
    };
    if (entry->doBroadcast() && !owner._self.isHost() && owner._workings->hangups == 0 &&
        std::any_of(owner._attendees.begin(), owner._attendees.end(), isMember))
        owner.hangup();
    return true;
}

void ConferenceParticipant::Ending::loseCall(const ConferenceParticipant &owner,
                                             TempRosterEntry *call,
                                             const ConferenceRosterEntry &party) {
    call->setAssociatedDescriptor(-1);
    call->m_lostParty = party;
    call->m_isLost = true;
    call->m_isCrossed = call->m_isCrossed || Roster::getTwin(owner, &party) != nullptr;
}

} // namespace vintok
