// How a message reaches everybody.
//
// A round writes to every enabled member but the one that the message came from, and a failed write
// never stops it. After a round with failures `_bringOutYerDead` looks who has died.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Delivery.h"
#include "vintok/Log.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPStream.h"

#include <cstring>

namespace vintok {

bool ConferenceParticipant::sendBroadcastData(const unsigned char *data, std::uint64_t length) {
    const Reason reason;
    if (data == nullptr || length == 0)
        return refuse(TCP_ERROR_INVALID_ARGUMENT, "sendBroadcastData: nothing to send");
    if (_attendees.empty())
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "sendBroadcastData: nobody is connected");
    const bool sent = _attempt("sendBroadcastData", [&] {
        TCPMessage message;
        if (!_formatBroadcastMessage(message, data, length))
            return Lists::findsNoMemory("sendBroadcastData");
        if (_workings->talk.saidCB != nullptr)
            message.setOriginAddress(_self);
        return Linking::sayToAll(*this, message);
    });
    return reason.unless(sent, TCP_ERROR_CONNECTION_RESET,
                         "sendBroadcastData: it did not reach everybody");
}

bool ConferenceParticipant::sendAllKeepAlive() {
    const Reason reason;
    const bool sent = _attempt("sendAllKeepAlive", [this] {
        TCPMessage message;
        if (!openMessage(message, TCP_keepAlive, 1))
            return Lists::findsNoMemory("sendAllKeepAlive");
        message.messageBuffer()[0] = 0;
        return _broadcastData(nullptr, message);
    });
    return reason.unless(sent, TCP_ERROR_CONNECTION_RESET,
                         "sendAllKeepAlive: it did not reach everybody");
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
    const Said said = {message.timeStamp(), source != nullptr && source->isHidingIPsRequired()};
    const Span frame = {nullptr, message.rawBuffer(),
                        static_cast<std::size_t>(message.rawBufferLength())};
    return Relaying::broadcastFrames(*this, source, frame, said);
}

// Everybody is given the frames before anybody is waited for.
bool ConferenceParticipant::Relaying::broadcastFrames(ConferenceParticipant &owner,
                                                      const ConferenceRosterEntry *source,
                                                      const Span &frames, const Said &said,
                                                      Delivery::When when) {
    if (owner._attendees.empty())
        return true;
    closeRelay(owner);
    Guards::tellChangesBefore(owner, source);
    Delivery delivery(frames, when);
    for (const ConferenceRosterEntry *peer : owner._attendees)
        if (peer != nullptr && peer->doBroadcast() && peer->enabled() && peer != source &&
            !Guards::drops(owner, *peer, frames))
            delivery.give(peer->descriptor());
    delivery.complete();
    std::vector<const ConferenceRosterEntry *> refused;
    for (const ConferenceRosterEntry *peer : owner._attendees)
        if (peer != nullptr && delivery.isRefusedBy(peer->descriptor()))
            refused.push_back(peer);
    for (const ConferenceRosterEntry *peer : refused)
        logUndelivered(owner, *peer, said);
    if (!refused.empty())
        owner._bringOutYerDead();
    return delivery.isTaken() && refused.empty();
}

// A message that came from one member goes to the others in one run with those in front of it and
// behind it. Who cannot be given it is found out in the next turn of the loop.
void ConferenceParticipant::Relaying::passOn(ConferenceParticipant &owner,
                                             ConferenceRosterEntry *source, TCPMessage &message) {
    if (message.rawBytes().shared() == nullptr) {
        Linking::pass(owner, *source, message.rawBuffer(),
                      static_cast<std::size_t>(message.rawBufferLength()));
        owner._broadcastData(source, message);
        return;
    }
    Guards::tellChangesBefore(owner, source);
    if (owner._workings->relay == nullptr)
        owner._workings->relay = std::make_unique<RelayRun>(spread, &owner);
    if (owner._workings->relay->add(source->descriptor(), message.rawBytes()))
        owner._workings->relayed = {message.timeStamp(), source->isHidingIPsRequired()};
    if (message.messageID() == TCP_fileTransferData)
        owner._workings->guards.relaysFile = true;
}

void ConferenceParticipant::Relaying::closeRelay(ConferenceParticipant &owner) {
    if (owner._workings->relay != nullptr)
        owner._workings->relay->close();
}

void ConferenceParticipant::Relaying::spread(void *owner, StreamLoop &loop, int source,
                                             const Span &span) {
    auto &participant = *static_cast<ConferenceParticipant *>(owner);
    if (Linking::isLinked(participant)) {
        if (const ConferenceRosterEntry *speaker = participant._getPeer(source))
            Linking::pass(participant, *speaker, span.bytes, span.length);
        if (!Linking::hasRoom(participant))
            loop.holdUp(source, Linking::mayGoOn, owner);
    }
    if (participant._workings->guards.output.hard != 0) {
        Guards::spread(participant, loop, source, span);
        return;
    }
    for (const ConferenceRosterEntry *peer : participant._attendees)
        if (peer != nullptr && peer->doBroadcast() && peer->enabled() &&
            peer->descriptor() != source)
            loop.relay(peer->descriptor(), span);
}

void ConferenceParticipant::Relaying::logUndelivered(const ConferenceParticipant &owner,
                                                     const ConferenceRosterEntry &peer,
                                                     const Said &said) {
    std::string address;
    peer.ipString(address, false);
    if (owner._self.isHidingIPsRequired() || said.hidden)
        address = "0.0.0.0";
    const int age = static_cast<int>(getTime() - said.time);
    VINTOK_LOG(SEVERITY_ERROR, "broadcastData write failed to " + visibleText(peer.email()) +
                                   " at " + address +
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
