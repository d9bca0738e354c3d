// How a message reaches everybody, and how the dead are found.
//
// A round writes to every enabled member but the one that the message came from, and a failed write
// never stops it. After a round with failures the sweep probes the members with keep-alives and
// hangs up the first whose connection turns out to be reset; the leave notice of that hang-up is a
// round of its own, which leads to the next sweep. So they call each other until a round goes
// through or nobody is left. `Workings::sweeps` bounds how deep; whoever hangs up sweeps once more
// on the way back, which takes out those that the bound left over.
#include "vintok/ConferenceParticipant.h"

#include "vintok/ConferenceMessage.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPStream.h"

#include <cstring>

namespace vintok {

namespace {

constexpr int DEEPEST_SWEEP = 32;

} // namespace

bool ConferenceParticipant::sendBroadcastData(const unsigned char *data, std::uint64_t length) {
    const Operation operation(*this);
    if (_attendees.empty())
        return false;
    TCPMessage message;
    return _formatBroadcastMessage(message, data, length) && _broadcastData(nullptr, message);
}

bool ConferenceParticipant::sendAllKeepAlive() {
    const Operation operation(*this);
    TCPMessage message;
    if (!openMessage(message, TCP_keepAlive, 1))
        return false;
    message.messageBuffer()[0] = 0;
    return _broadcastData(nullptr, message);
}

bool ConferenceParticipant::_formatBroadcastMessage(TCPMessage &message, const unsigned char *data,
                                                    std::uint64_t length) {
    if (data == nullptr || length == 0 || !openMessage(message, TCP_broadcastMessage, length))
        return false;
    std::memcpy(message.messageBuffer(), data, length);
    return true;
}

// True when somebody took the message and nobody refused it, and for an empty list; false when
// everybody listed was passed over.
bool ConferenceParticipant::_broadcastData(ConferenceRosterEntry *source, TCPMessage &message) {
    if (_attendees.empty())
        return true;
    bool written = false;
    bool failed = false;
    _forEachAttendee([&](ConferenceRosterEntry *peer) {
        if (!peer->doBroadcast() || !peer->enabled() || peer == source)
            return;
        if (message.write(peer->descriptor(), nullptr)) {
            written = true;
            return;
        }
        failed = true;
        _logUndelivered(*peer, source, message);
    });
    if (failed)
        _bringOutYerDead();
    return written && !failed;
}

void ConferenceParticipant::_logUndelivered(const ConferenceRosterEntry &peer,
                                            const ConferenceRosterEntry *source,
                                            const TCPMessage &message) const {
    std::string address;
    peer.ipString(address, false);
    if (_self.isHidingIPsRequired() || (source != nullptr && source->isHidingIPsRequired()))
        address = "0.0.0.0";
    const int age = static_cast<int>(getTime() - message.timeStamp());
    VINTOK_LOG(SEVERITY_ERROR, "broadcastData write failed to " + peer.email() + " at " + address +
                                   formatText(" message was %d seconds old.", age));
}

bool ConferenceParticipant::sf_sendKeepAlive(int descriptor) {
    TCPMessage message(descriptor);
    if (!openMessage(message, TCP_keepAlive, 1)) {
        VINTOK_LOG(SEVERITY_ERROR, "sf_sendKeepAlive allocation failed");
        return false;
    }
    message.messageBuffer()[0] = 0;
    if (!message.write(-1, nullptr)) {
        VINTOK_LOG(SEVERITY_ERROR, "sf_sendKeepAlive write failed");
        return false;
    }
    return true;
}

void ConferenceParticipant::_bringOutYerDead() {
    VINTOK_LOG(SEVERITY_TRACE, "_bringOutYerDead");
    if (_attendees.empty() || _workings.sweeps == DEEPEST_SWEEP)
        return;
    const Nested nested(_workings.sweeps);
    _handleHangup(_findDead());
}

// The first member whose connection is reset; null when there is none.
ConferenceRosterEntry *ConferenceParticipant::_findDead() {
    ConferenceRosterEntry *dead = nullptr;
    _forEachAttendee([&](ConferenceRosterEntry *peer) {
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

void ConferenceParticipant::_setBlockingBroadcast() {
    for (const ConferenceRosterEntry *peer : _attendees)
        if (peer != nullptr && peer->doBroadcast())
            setBlocking(peer->descriptor());
}

void ConferenceParticipant::_setNonBlockingBroadcast() {
    for (const ConferenceRosterEntry *peer : _attendees)
        if (peer != nullptr && peer->doBroadcast())
            setNonBlocking(peer->descriptor());
}

} // namespace vintok
