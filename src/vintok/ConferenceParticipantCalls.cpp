// How a party starts a meeting, calls another, and answers a call.
//
// An outgoing call is a pair: a TempRosterEntry in `_pending` and the attendee of the same
// descriptor. The pair stands from `placeCall` until the join reply. When the connection dies
// before, the attendee goes and the call stays, until `hangup`, so that the same address is not
// called again meanwhile.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <new>

namespace vintok {

namespace {

constexpr unsigned short httpPort = 80;

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
    _workings->hostsByCall = false;
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
        call->setProxyHostByteOrderPort(proxyPort != 0 ? proxyPort : httpPort);
        call->setMeetingID(meetingID);
        call->setAuthentication(authentication);
        call->m_authenticationRetries = retries;
        // Of the port as it was given: a call to the default port is never direct in this way.
        const bool direct = proxyName.empty() ||
                            (remoteName == proxyName && port == call->proxyHostByteOrderPort());
        return Calling::mayCall(*this, *call, direct) &&
               Calling::connectCall(*this, std::move(call), direct);
    } catch (const std::bad_alloc &) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall allocation failed");
        return false;
    }
}

bool ConferenceParticipant::Calling::mayCall(const ConferenceParticipant &owner,
                                             const TempRosterEntry &call, bool direct) {
    const TCPAddress &target = call.connectAddress();
    if (!target.isIPv4() && !target.isIPv6()) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Cannot resolve address");
        return false;
    }
    if (owner._self == target) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Attempt to call self");
        return false;
    }
    const ConferenceRosterEntry *known = direct ? owner._getPeer(target) : nullptr;
    if ((known != nullptr && MembersOnly::hasAddress(owner, *known)) ||
        owner._getPending(target) != nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Attempt to place same call again");
        return false;
    }
    return true;
}

bool ConferenceParticipant::Calling::connectCall(ConferenceParticipant &owner,
                                                 std::unique_ptr<TempRosterEntry> call,
                                                 bool direct) {
    const int descriptor = connectToBoundSocket(call->connectAddress());
    if (descriptor == -1) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot connect socket to place call");
        return false;
    }
    secureConnect(descriptor, std::string());
    if (!owner._addPending(call.get())) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add descriptor to pending list");
        shutdownSocket(descriptor);
        return false;
    }
    TempRosterEntry *pending = call.release();
    pending->setAssociatedDescriptor(descriptor);
    ConferenceRosterEntry *peer = owner._addDescriptor(descriptor);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add descriptor to attendee list");
        owner._removePending(pending);
        shutdownSocket(descriptor);
        return false;
    }
    if (owner._select == nullptr ||
        !owner._select->addSocketCallback(descriptor, sf_dataCB, &owner, true, false)) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add data callback");
        owner._removeDescriptor(descriptor);
        owner._removePending(pending);
        shutdownSocket(descriptor);
        return false;
    }
    *peer = static_cast<const TCPAddress &>(*pending);
    if (!pending->meetingID().empty())
        return Tunnels::startTunnel(owner, peer, pending, direct);
    if (bufferFrames(descriptor))
        return true;
    owner._removePending(pending);
    Ending::dropConnection(owner, peer);
    return false;
}

bool ConferenceParticipant::acceptCall(const TCPAddress &address) {
    const Operation operation(*this);
    ConferenceRosterEntry *peer = Lists::getCaller(*this, address);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "acceptCall Port ip combination not found");
        return false;
    }
    return mf_acceptCall(peer);
}

bool ConferenceParticipant::rejectCall(const TCPAddress &address) {
    const Operation operation(*this);
    ConferenceRosterEntry *peer = Lists::getCaller(*this, address);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "rejectCall Port ip combination not found");
        return false;
    }
    return mf_rejectCall(peer);
}

} // namespace vintok
