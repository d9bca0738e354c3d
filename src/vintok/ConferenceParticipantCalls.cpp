// How a party starts a meeting, calls another, and answers a call.
//
// An outgoing call is a pair: a TempRosterEntry in `_pending` and the attendee of the same
// descriptor. The pair stands from `placeCall` until the join reply. When the connection dies
// before, the attendee goes and the call stays, until `hangup`, so that the same address is not
// called again meanwhile.
#include "vintok/ConferenceParticipantWorkings.h"

#include "platform/Socket.h"
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <new>

namespace vintok {

namespace {

constexpr unsigned short httpPort = 80;

} // namespace

bool ConferenceParticipant::hostMeeting(const std::string &meetingName) {
    if (!_attendees.empty()) {
        if (_self.isMeeting()) {
            VINTOK_LOG(SEVERITY_ERROR, "hostMeeting already in meeting");
            return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "hostMeeting: in a meeting already");
        }
        for (const ConferenceRosterEntry *entry : _attendees) {
            if (entry != nullptr && entry->isHost()) {
                VINTOK_LOG(SEVERITY_ERROR, "hostMeeting cannot set meeting name not host");
                return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "hostMeeting: somebody else hosts");
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
    Linking::began(*this);
    _tell(_userDataCB, _self);
    return true;
}

// ---- Placing a call ----

bool ConferenceParticipant::placeCall(const std::string &remoteName, unsigned short port,
                                      const std::string &proxyName, unsigned short proxyPort,
                                      const std::string &meetingID,
                                      const std::string &authentication, unsigned int retries) {
    const CallTarget target = {remoteName, port,           proxyName, proxyPort,
                               meetingID,  authentication, retries};
    return Calling::place(*this, target, nullptr);
}

bool ConferenceParticipant::startCall(const std::string &remoteName, unsigned short port,
                                      const std::string &proxyName, unsigned short proxyPort,
                                      const std::string &meetingID,
                                      const std::string &authentication, unsigned int retries) {
    std::vector<TCPAddress> addresses;
    TCPAddress::lookup(proxyName.empty() ? remoteName : proxyName, addresses,
                       TCPAddress::IPTYPE_NONE);
    return startCall(addresses, remoteName, port, proxyName, proxyPort, meetingID, authentication,
                     retries);
}

bool ConferenceParticipant::startCall(const std::vector<TCPAddress> &addresses,
                                      const std::string &remoteName, unsigned short port,
                                      const std::string &proxyName, unsigned short proxyPort,
                                      const std::string &meetingID,
                                      const std::string &authentication, unsigned int retries) {
    const CallTarget target = {remoteName, port,           proxyName, proxyPort,
                               meetingID,  authentication, retries};
    return Calling::place(*this, target, &addresses);
}

// Without `addresses` looks the name up and waits for the connection.
bool ConferenceParticipant::Calling::place(ConferenceParticipant &owner, const CallTarget &target,
                                           const std::vector<TCPAddress> *addresses) {
    const Reason reason;
    const bool placed = owner._attempt("placeCall", [&] {
        if (owner._self.isMeeting() && !owner._self.isHost()) {
            VINTOK_LOG(SEVERITY_WARNING, "Cannot place call in meeting and not host");
            return refuse(TCP_ERROR_UNSPECIFIED_ERROR,
                          "placeCall: in a meeting that somebody else hosts");
        }
        std::unique_ptr<TempRosterEntry> call(
            addresses == nullptr
                ? new TempRosterEntry(target.remoteName, target.proxyName)
                : new TempRosterEntry(target.remoteName, target.proxyName,
                                      addresses->empty() ? TCPAddress() : addresses->front()));
        prepare(*call, target);
        const bool direct = isDirect(target, *call);
        if (!mayCall(owner, *call, direct))
            return false;
        return addresses == nullptr ? connectCall(owner, std::move(call), direct)
                                    : startConnect(owner, std::move(call), *addresses, direct);
    });
    return reason.unless(placed, TCP_ERROR_CONNECTION_REFUSED, "placeCall: no connection");
}

void ConferenceParticipant::Calling::prepare(TempRosterEntry &call, const CallTarget &target) {
    call.setHostByteOrderPort(target.port != 0 ? target.port : sf_getDefaultPort());
    call.setProxyHostByteOrderPort(target.proxyPort != 0 ? target.proxyPort : httpPort);
    call.setMeetingID(target.meetingID);
    call.setAuthentication(target.authentication);
    call.m_authenticationRetries = target.retries;
}

// Of the port as it was given: a call to the default port is never direct by way of its proxy.
bool ConferenceParticipant::Calling::isDirect(const CallTarget &target,
                                              const TempRosterEntry &call) {
    return target.proxyName.empty() ||
           (target.remoteName == target.proxyName && target.port == call.proxyHostByteOrderPort());
}

bool ConferenceParticipant::Calling::mayCall(const ConferenceParticipant &owner,
                                             const TempRosterEntry &call, bool direct) {
    const TCPAddress &target = call.connectAddress();
    if (!target.isIPv4() && !target.isIPv6()) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Cannot resolve address");
        return refuse(TCP_ERROR_INVALID_ADDRESS, "placeCall: the name has no address");
    }
    if (owner._self == target) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Attempt to call self");
        return refuse(TCP_ERROR_INVALID_ADDRESS, "placeCall: the address is one's own");
    }
    const ConferenceRosterEntry *known = direct ? owner._getPeer(target) : nullptr;
    if ((known != nullptr && MembersOnly::hasAddress(owner, *known)) ||
        owner._getPending(target) != nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall Attempt to place same call again");
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR,
                      "placeCall: this party is called, or known, already");
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
    if (!owner._addPending(call.get())) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add descriptor to pending list");
        shutdownSocket(descriptor);
        return false;
    }
    TempRosterEntry *const pending = call.release();
    try {
        return makeSecure(owner, pending, descriptor, direct);
    } catch (const std::bad_alloc &) {
        abandon(owner, pending, descriptor);
        throw;
    }
}

// There is no memory for the call, whose connection stands.
void ConferenceParticipant::Calling::abandon(ConferenceParticipant &owner, TempRosterEntry *call,
                                             int descriptor) {
    if (owner._isListed(call))
        owner._removePending(call);
    if (ConferenceRosterEntry *peer = owner._getPeer(descriptor))
        Ending::dropConnection(owner, peer);
    else
        shutdownSocket(descriptor);
}

// The connection of a listed call stands. False as `attend`.
bool ConferenceParticipant::Calling::makeSecure(ConferenceParticipant &owner, TempRosterEntry *call,
                                                int descriptor, bool direct) {
    const auto goOn = [=, &owner](Shaken how) {
        if (how != Shaken::failed)
            return attend(owner, call, descriptor, direct);
        VINTOK_LOG(SEVERITY_ERROR, "placeCall the handshake has failed");
        owner._removePending(call);
        shutdownSocket(descriptor);
        return false;
    };
    const auto later = [=, &owner](Shaken how) {
        if (!goOn(how))
            Ending::tellNoAnswer(owner, *call);
    };
    if (call->m_isStarted && (!call->meetingID().empty() || !call->proxyName().empty()))
        return goOn(Shaken::plain); // the tunnel makes its own
    const Shaken how =
        Handshakes::begin(owner, descriptor, Handshakes::Side::connects, later, call);
    return how == Shaken::underWay || goOn(how);
}

// The connection is what it can be, secure or plain. False when the call has come to its end, and
// is not listed any more.
bool ConferenceParticipant::Calling::attend(ConferenceParticipant &owner, TempRosterEntry *pending,
                                            int descriptor, bool direct) {
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
    Guards::callBegins(owner, descriptor);
    if (!pending->meetingID().empty())
        return Tunnels::startTunnel(owner, peer, pending, direct);
    if (bufferFrames(descriptor))
        return true;
    owner._removePending(pending);
    Ending::dropConnection(owner, peer);
    return false;
}

// ---- Calls that do not wait for their connection ----

bool ConferenceParticipant::Calling::startConnect(ConferenceParticipant &owner,
                                                  std::unique_ptr<TempRosterEntry> call,
                                                  const std::vector<TCPAddress> &addresses,
                                                  bool direct) {
    StartedCall started = {call.get(), direct, -1, {}, 0};
    for (TCPAddress address : addresses) {
        address.setPort(call->connectAddress().port());
        if (!(owner._self == address))
            started.addresses.push_back(address);
    }
    if (!owner._addPending(call.get())) {
        VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot add descriptor to pending list");
        return false;
    }
    TempRosterEntry *const pending = call.release();
    if (owner._attempt("placeCall", [&] { return connectNext(owner, started); }))
        return true;
    VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot connect socket to place call");
    owner._removePending(pending);
    return false;
}

// Tries the next address to which a connect can be begun. False when there is none.
bool ConferenceParticipant::Calling::connectNext(ConferenceParticipant &owner,
                                                 StartedCall started) {
    std::vector<StartedCall> &calls = owner._workings->startedCalls;
    while (started.next != started.addresses.size()) {
        calls.reserve(calls.size() + 1);
        started.descriptor = beginConnect(started.addresses[started.next++]);
        if (started.descriptor == -1)
            continue;
        const int descriptor = started.descriptor;
        calls.push_back(std::move(started));
        const std::shared_ptr<StreamLoop> loop = StreamLoop::ofThisThread();
        loop->await(descriptor, platform::Await::writable, connectEnded, &owner);
        if (const std::uint32_t timeout = connectTimeout())
            loop->deadlines().set(descriptor, connectIsLate, &owner,
                                  std::chrono::milliseconds(timeout));
        return true;
    }
    return false;
}

void ConferenceParticipant::Calling::connectEnded(int descriptor, void *owner) {
    endConnect(*static_cast<ConferenceParticipant *>(owner), descriptor, true);
}

void ConferenceParticipant::Calling::connectIsLate(int descriptor, void *owner) {
    endConnect(*static_cast<ConferenceParticipant *>(owner), descriptor, false);
}

void ConferenceParticipant::Calling::endConnect(ConferenceParticipant &owner, int descriptor,
                                                bool inTime) {
    const Operation operation(owner);
    std::vector<StartedCall> &calls = owner._workings->startedCalls;
    const auto found = std::find_if(calls.begin(), calls.end(), [=](const StartedCall &call) {
        return call.descriptor == descriptor;
    });
    if (found == calls.end())
        return;
    const StartedCall started = std::move(*found);
    calls.erase(found);
    forgetConnect(owner, descriptor);
    try {
        if (!goesOn(owner, started, inTime))
            Ending::endCall(owner, started.call);
    } catch (const std::bad_alloc &) {
        abandon(owner, started.call, descriptor);
        Ending::tellNoAnswer(owner, *started.call);
    }
}

// False when the call has come to its end.
bool ConferenceParticipant::Calling::goesOn(ConferenceParticipant &owner,
                                            const StartedCall &started, bool inTime) {
    const int descriptor = started.descriptor;
    if (!inTime) {
        VINTOK_LOG(SEVERITY_WARNING, formatText("Connect %d took too long", descriptor));
        platform::closeSocket(descriptor);
    } else if (vintok::endConnect(descriptor, started.addresses[started.next - 1])) {
        if (started.call->proxyName().empty())
            static_cast<TCPAddress &>(*started.call) = started.addresses[started.next - 1];
        if (!makeSecure(owner, started.call, descriptor, started.direct))
            Ending::tellNoAnswer(owner, *started.call);
        return true;
    }
    if (connectNext(owner, started))
        return true;
    VINTOK_LOG(SEVERITY_ERROR, "placeCall cannot connect socket to place call");
    return false;
}

void ConferenceParticipant::Calling::forgetConnect(ConferenceParticipant &owner, int descriptor) {
    const std::shared_ptr<StreamLoop> loop = StreamLoop::ofThisThread();
    loop->forget(descriptor);
    loop->deadlines().clear(descriptor, connectIsLate, &owner);
}

// A call that goes leaves no connect behind.
void ConferenceParticipant::Calling::forgetStarted(ConferenceParticipant &owner,
                                                   const TempRosterEntry *call) {
    if (call != nullptr)
        Handshakes::forgetCall(owner, call);
    std::erase_if(owner._workings->startedCalls, [&](const StartedCall &started) {
        if (call != nullptr && started.call != call)
            return false;
        forgetConnect(owner, started.descriptor);
        platform::closeSocket(started.descriptor);
        return true;
    });
}

bool ConferenceParticipant::acceptCall(const TCPAddress &address) {
    const Reason reason;
    const bool accepted = _attempt("acceptCall", [&] {
        ConferenceRosterEntry *peer = Lists::getCaller(*this, address);
        if (peer == nullptr) {
            VINTOK_LOG(SEVERITY_ERROR, "acceptCall Port ip combination not found");
            return refuse(TCP_ERROR_INVALID_ADDRESS,
                          "acceptCall: nobody of this address is connected");
        }
        return mf_acceptCall(peer);
    });
    return reason.unless(accepted, TCP_ERROR_UNSPECIFIED_ERROR,
                         "acceptCall: this party does not wait for an answer");
}

bool ConferenceParticipant::rejectCall(const TCPAddress &address) {
    const Reason reason;
    const bool rejected = _attempt("rejectCall", [&] {
        ConferenceRosterEntry *peer = Lists::getCaller(*this, address);
        if (peer == nullptr) {
            VINTOK_LOG(SEVERITY_ERROR, "rejectCall Port ip combination not found");
            return refuse(TCP_ERROR_INVALID_ADDRESS,
                          "rejectCall: nobody of this address is connected");
        }
        return mf_rejectCall(peer);
    });
    return reason.unless(rejected, TCP_ERROR_UNSPECIFIED_ERROR,
                         "rejectCall: this party does not wait for an answer");
}

} // namespace vintok
