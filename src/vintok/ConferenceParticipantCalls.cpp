// How a party starts a meeting, calls another, and parts from it.
//
// An outgoing call is a pair: a TempRosterEntry in `_pending` and the attendee of the same
// descriptor. The pair stands from `placeCall` until the join reply. When the connection dies
// before, the attendee goes and the call stays, until `hangup`, so that the same address is not
// called again meanwhile.
//
// There are two ways down. `mf_hangup` is the local act: it says TCP_hangup, drops the connection
// and tells the application only how a pending call has ended. `_handleHangup` is for a peer that
// has left or died: it also tells the application and, on a host, everybody else.
#include "vintok/ConferenceParticipant.h"

#include "vintok/ConferenceMessage.h"
#include "vintok/Globals.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <new>

namespace vintok {

namespace {

constexpr unsigned short HTTP_PORT = 80;

} // namespace

bool ConferenceParticipant::hostMeeting(const std::string &meetingName) {
    if (!_attendees.empty()) {
        if (_self.isMeeting()) {
            VINTOK_LOG(SEVERITY_ERROR, "hostMeeting already in meeting");
            return false;
        }
        for (const ConferenceRosterEntry *entry : _attendees) {
            if (entry != nullptr && entry->isHost()) {
                VINTOK_LOG(SEVERITY_ERROR, "hostMeeting cannot set meeting name not host");
                return false;
            }
        }
    }
    _self.setMeeting(true);
    _self.setHost(true);
    _self.setMeetingName(meetingName);
    _self.setColorIndex(0);
    _nextColorIndex = 1;
    _workings.hostsByCall = false;
    VINTOK_LOG(SEVERITY_TRACE, "ConferenceParticipant::hostMeeting index = 0");
    _tell(_userDataCB, _self);
    return true;
}

// ---- Placing a call ----

bool ConferenceParticipant::placeCall(const std::string &remoteName, unsigned short port,
                                      const std::string &proxyName, unsigned short proxyPort,
                                      const std::string &meetingID,
                                      const std::string &authentication, unsigned int retries) {
    const Operation operation(*this);
    if (_self.isMeeting() && !_self.isHost()) {
        VINTOK_LOG(SEVERITY_WARNING, "Cannot place call in meeting and not host");
        return false;
    }
    try {
        auto call = std::make_unique<TempRosterEntry>(remoteName, proxyName);
        call->setHostByteOrderPort(port != 0 ? port : sf_getDefaultPort());
        call->setProxyHostByteOrderPort(proxyPort != 0 ? proxyPort : HTTP_PORT);
        call->setMeetingID(meetingID);
        call->setAuthentication(authentication);
        call->m_authenticationRetries = retries;
        // Of the port as it was given: a call to the default port is never direct in this way.
        const bool direct = proxyName.empty() ||
                            (remoteName == proxyName && port == call->proxyHostByteOrderPort());
        return _mayCall(*call, direct) && _connectCall(std::move(call), direct);
    } catch (const std::bad_alloc &) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall allocation failed");
        return false;
    }
}

bool ConferenceParticipant::_mayCall(const TempRosterEntry &call, bool direct) const {
    const TCPAddress &target = call.connectAddress();
    if (!target.isIPv4() && !target.isIPv6()) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Cannot resolve address");
        return false;
    }
    if (_self == target) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Attempt to call self");
        return false;
    }
    if ((direct && _getPeer(target) != nullptr) || _getPending(target) != nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Attempt to place same call again");
        return false;
    }
    return true;
}

bool ConferenceParticipant::_connectCall(std::unique_ptr<TempRosterEntry> call, bool direct) {
    const int descriptor = connectToBoundSocket(call->connectAddress());
    if (descriptor == -1) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot connect socket to place call");
        return false;
    }
    secureConnect(descriptor, std::string());
    if (!_addPending(call.get())) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add descriptor to pending list");
        shutdownSocket(descriptor);
        return false;
    }
    TempRosterEntry *pending = call.release();
    pending->setAssociatedDescriptor(descriptor);
    ConferenceRosterEntry *peer = _addDescriptor(descriptor);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add descriptor to attendee list");
        _removePending(pending);
        shutdownSocket(descriptor);
        return false;
    }
    if (_select == nullptr ||
        !_select->addSocketCallback(descriptor, sf_dataCB, this, true, false)) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add data callback");
        _removeDescriptor(descriptor);
        _removePending(pending);
        shutdownSocket(descriptor);
        return false;
    }
    *peer = static_cast<const TCPAddress &>(*pending);
    if (!pending->meetingID().empty())
        return _startTunnel(peer, pending, direct);
    if (bufferFrames(descriptor))
        return true;
    _removePending(pending);
    _dropConnection(peer);
    return false;
}

bool ConferenceParticipant::acceptCall(const TCPAddress &address) {
    const Operation operation(*this);
    ConferenceRosterEntry *peer = _getCaller(address);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "acceptCall Port ip combination not found");
        return false;
    }
    return mf_acceptCall(peer);
}

bool ConferenceParticipant::rejectCall(const TCPAddress &address) {
    const Operation operation(*this);
    ConferenceRosterEntry *peer = _getCaller(address);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "rejectCall Port ip combination not found");
        return false;
    }
    return mf_rejectCall(peer);
}

// ---- The local act ----

void ConferenceParticipant::hangup() {
    const Operation operation(*this);
    {
        const Nested nested(_workings.hangups);
        // What a callback adds meanwhile is not met: one that calls again at once would never end.
        _forEachAttendee([this](ConferenceRosterEntry *peer) { mf_hangup(peer); });
        const std::vector<TempRosterEntry *> calls = _pending;
        for (TempRosterEntry *call : calls)
            if (_isListed(call) && call->associatedDescriptor() == -1)
                _endCall(call);
    }
    _leaveMeeting();
    _self.setServer(false); // until `setServerMode`, deliberately: `_serverMode` stays
    _self.setMUXRedirected(false);
    _abandonFile();
}

void ConferenceParticipant::_leaveMeeting() {
    _self.setMeeting(false);
    _self.setHost(false);
    _self.setLeader(false);
    _self.setLeadPending(false);
    _self.setMeetingName(std::string());
}

bool ConferenceParticipant::mf_hangup(ConferenceRosterEntry *peer) {
    if (!_isListed(peer))
        return false;
    TempRosterEntry *call = _getPending(peer->descriptor());
    const bool saysGoodbye = call == nullptr || _endCall(call);
    if (!_isListed(peer))
        return false; // a callback hung up
    if (saysGoodbye)
        sendByte(peer->descriptor(), TCP_hangup, 0);
    return _dropConnection(peer);
}

// Tells the application how the call has ended and takes it off the list. True unless the other
// side is to be spared a TCP_hangup: one that only demands credentials has no use for it.
bool ConferenceParticipant::_endCall(TempRosterEntry *call) {
    const int outcome = call->m_callOutcome;
    const unsigned int retries = call->m_authenticationRetries;
    call->m_callOutcome = OUTCOME_TOLD; // a callback that hangs up meets the call once more
    switch (outcome) {
    case OUTCOME_COMPLETING:
    case OUTCOME_TOLD:
    case OUTCOME_REDIRECTED:
        break;
    case OUTCOME_AUTHENTICATE:
        if (_proxyCB != nullptr && retries >= 2)
            _proxyCB(this, call->remoteName(), call->hostByteOrderPort(), call->proxyName(),
                     call->proxyHostByteOrderPort(), call->authentication(), retries - 1,
                     call->meetingID());
        else
            _tellNoAnswer(*call);
        break;
    case OUTCOME_SERVER_ERROR:
        if (_serverResponseCB != nullptr && call->m_tunnelStatus != 0)
            _serverResponseCB(this, static_cast<unsigned int>(call->m_tunnelStatus),
                              call->m_tunnelResponse);
        break;
    default:
        _tellNoAnswer(*call);
    }
    if (_isListed(call))
        _removePending(call);
    return outcome != OUTCOME_AUTHENTICATE;
}

void ConferenceParticipant::_tellNoAnswer(const TempRosterEntry &call) {
    if (_noAnswerCB != nullptr)
        _noAnswerCB(this, call.remoteName(), RosterBase(call));
}

// Takes the party out of the loop and off the list, and closes its connection.
bool ConferenceParticipant::_dropConnection(ConferenceRosterEntry *peer) {
    const int descriptor = peer->descriptor();
    if (_select != nullptr)
        _select->removeCallback(descriptor, sf_dataCB, this);
    const bool removed = _removeAttendee(peer);
    shutdownSocket(descriptor);
    if (_workings.fileNeighbour == peer)
        _abandonFile();
    return removed;
}

// ---- A peer that has left or died ----

void ConferenceParticipant::_handleHangup(ConferenceRosterEntry *peer) {
    if (!_isListed(peer))
        return;
    // Without a leave callback nothing is known of the party from here on, deliberately: a member
    // then notices only by its empty list that its host has gone.
    const bool kept = peer->doBroadcast() && _leaveCB != nullptr;
    const ConferenceRosterEntry copy = kept ? *peer : ConferenceRosterEntry();
    if (!peer->doBroadcast() && peer->isJoinPending()) {
        if (TempRosterEntry *call = _getPending(peer->descriptor()))
            _endCall(call);
        if (!_isListed(peer))
            return; // the callback hung up
    }
    _dropConnection(peer);
    bool nobodyLeft = _attendees.empty();
    if (!nobodyLeft)
        _assureLeader();
    if (!_relays() && kept && copy.isHost()) {
        hangup();
    } else {
        if (_relays() && !_broadcastLeave(copy)) {
            _bringOutYerDead();
            nobodyLeft = _attendees.empty();
            if (!nobodyLeft)
                _assureLeader();
        }
        if (nobodyLeft)
            hangup();
    }
    if (kept)
        _tell(_leaveCB, copy); // last: the roster stands without the party by now
}

bool ConferenceParticipant::_broadcastLeave(const ConferenceRosterEntry &party) {
    TCPMessage message;
    return openMessage(message, TCP_leaveNotify, party) && _broadcastData(nullptr, message);
}

} // namespace vintok
