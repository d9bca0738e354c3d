// What is said beside the told broadcast: by whom, to one party alone, and in messages of the
// application's own.
//
// A message to one party goes over the connection to it, or to the host, which passes it on as it
// came. Whoever can take it no further answers: the party, that its application has it or does not
// want it, or the host, that it has nobody of this address. An older version at either place
// ignores the message, so the sender waits for the answer for a while and no longer. Nothing of
// this is taken from who is not in the meeting, guard or no guard: there is no older sender to it.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/BufferManager.h"
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Delivery.h"
#include "vintok/FrameLayout.h"
#include "vintok/Log.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace vintok {

namespace {

constexpr std::chrono::seconds answerTime(10);

bool deliver(int descriptor, const TCPMessage &message, Delivery::When when) {
    return Delivery::toOne(descriptor,
                           {message.rawBytes().shared(), message.rawBuffer(),
                            static_cast<std::size_t>(message.rawBufferLength())},
                           when);
}

} // namespace

// The body of these messages: a number of the sender's, the party that it is for, and the bytes, or
// one that says whether they were taken, or the name of a file that is refused.
struct ConferenceParticipant::Talk::Letter {
    std::uint32_t number = 0;
    TCPAddress party;
    const unsigned char *data = nullptr;
    std::uint64_t length = 0;

    static constexpr std::uint64_t headSize = sizeof(number) + layout::addressSize;

    bool read(const TCPMessage &message) {
        if (message.messageBufferLength() <= headSize)
            return false;
        const unsigned char *body = message.messageBuffer();
        BufferManager cursor(const_cast<unsigned char *>(body), headSize);
        cursor >> number;
        party.read(body + sizeof(number), layout::addressSize);
        data = body + headSize;
        length = message.messageBufferLength() - headSize;
        return true;
    }
    void write(unsigned char *body) const {
        BufferManager cursor(body, headSize);
        cursor << number;
        party.write(body + sizeof(number), layout::addressSize);
        std::memcpy(body + headSize, data, length);
    }
};

// ---- Who speaks ----

void ConferenceParticipant::setSaidCB(SaidCallback callback) {
    _workings->talk.saidCB = callback;
}

void ConferenceParticipant::Talk::said(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                                       TCPMessage &message) {
    if (SaidCallback callback = owner._workings->talk.saidCB)
        callback(&owner, speaker(owner, peer, message), message.messageBuffer(),
                 message.messageBufferLength(), owner._userData);
}

// The host tells its members what others say. Everybody else speaks for himself.
const ConferenceRosterEntry *
ConferenceParticipant::Talk::speaker(const ConferenceParticipant &owner,
                                     const ConferenceRosterEntry *peer, const TCPMessage &message) {
    if (owner._relays() || !peer->isHost())
        return peer;
    const TCPAddress &origin = message.originAddress();
    return origin.isIPv4() || origin.isIPv6() ? owner._getPeer(origin) : nullptr;
}

// ---- To one party ----

void ConferenceParticipant::setPrivateDataCB(PrivateCallback callback) {
    _workings->talk.privateCB = callback;
}

void ConferenceParticipant::setDeliveryCB(DeliveryCallback callback) {
    _workings->talk.deliveryCB = callback;
}

std::uint32_t ConferenceParticipant::sendPrivateData(const TCPAddress &party,
                                                     const unsigned char *data,
                                                     std::uint64_t length) {
    const Reason reason;
    const ConferenceRosterEntry *peer = _getPeer(party);
    if (data == nullptr || length == 0)
        return refuse(TCP_ERROR_INVALID_ARGUMENT, "sendPrivateData: nothing to send");
    const bool linked = Linking::isLinked(*this);
    if (peer != nullptr && peer->descriptor() == -1 && !linked)
        peer = _getHost();
    if (peer == nullptr || (!peer->doBroadcast() && !(linked && peer->isShadow())))
        return refuse(TCP_ERROR_INVALID_ADDRESS, "sendPrivateData: no such party in the meeting");
    TalkState &talk = _workings->talk;
    talk.lastNumber = std::max(talk.lastNumber + 1, std::uint32_t{1});
    const std::uint32_t number = talk.lastNumber;
    const bool sent = _attempt("sendPrivateData", [&] {
        talk.awaited.push_back({number, party, Deadlines::Clock::now() + answerTime});
        Talk::awaitAnswers(*this);
        return Talk::write(*this, *peer, TCP_messageID_46, {number, party, data, length});
    });
    if (reason.unless(sent, TCP_ERROR_CONNECTION_RESET,
                      "sendPrivateData: the connection has failed"))
        return number;
    std::erase_if(talk.awaited, [=](const auto &each) { return each.number == number; });
    return 0;
}

bool ConferenceParticipant::Talk::write(ConferenceParticipant &owner,
                                        const ConferenceRosterEntry &neighbour,
                                        const TCPGUID &identifier, const Letter &letter) {
    TCPMessage message;
    if (!openMessage(message, identifier, Letter::headSize + letter.length))
        return false;
    letter.write(message.messageBuffer());
    message.setOriginAddress(owner._self);
    Relaying::closeRelay(owner);
    if (neighbour.descriptor() == -1)
        return Linking::writeTo(owner, neighbour, owner._self, message);
    return deliver(neighbour.descriptor(), message, Delivery::When::now);
}

void ConferenceParticipant::Talk::privateCame(ConferenceParticipant &owner,
                                              ConferenceRosterEntry *peer, TCPMessage &message) {
    Letter letter;
    if (!MembersOnly::mayCome(owner, peer, message) || !letter.read(message))
        return;
    if (!(letter.party == owner._self)) {
        if (!passOn(owner, peer, message, letter.party))
            answer(owner, peer, letter, message.originAddress(), false);
        return;
    }
    const ConferenceRosterEntry *from = speaker(owner, peer, message);
    const PrivateCallback callback = owner._workings->talk.privateCB;
    const bool isTaken = from != nullptr && callback != nullptr;
    answer(owner, peer, letter, message.originAddress(), isTaken);
    if (isTaken && owner._isListed(from))
        callback(&owner, *from, letter.data, letter.length, owner._userData);
}

// To another member, by whoever relays.
bool ConferenceParticipant::Talk::passOn(ConferenceParticipant &owner,
                                         const ConferenceRosterEntry *peer, TCPMessage &message,
                                         const TCPAddress &party) {
    const ConferenceRosterEntry *target = owner._relays() ? owner._getPeer(party) : nullptr;
    if (target == nullptr || target == peer)
        return false;
    if (target->isShadow())
        return peer->doBroadcast() && Linking::writeTo(owner, party, *peer, message);
    if (!target->doBroadcast() || !target->enabled())
        return false;
    Relaying::closeRelay(owner);
    Guards::tellChangesBefore(owner, peer);
    return deliver(target->descriptor(), message, Delivery::When::withTheTurn);
}

void ConferenceParticipant::Talk::answer(ConferenceParticipant &owner,
                                         const ConferenceRosterEntry *peer, const Letter &letter,
                                         const TCPAddress &to, bool taken) {
    const unsigned char byte = taken ? 1 : 0;
    write(owner, *peer, TCP_messageID_47, {letter.number, to, &byte, 1});
}

// A member's answer counts for what was sent to that member, the host's for everything.
void ConferenceParticipant::Talk::answerCame(ConferenceParticipant &owner,
                                             ConferenceRosterEntry *peer, TCPMessage &message) {
    Letter letter;
    if (!MembersOnly::mayCome(owner, peer, message) || !letter.read(message))
        return;
    if (!(letter.party == owner._self)) {
        passOn(owner, peer, message, letter.party);
        return;
    }
    auto &awaited = owner._workings->talk.awaited;
    const auto found = std::find_if(awaited.begin(), awaited.end(), [&](const auto &each) {
        return each.number == letter.number && (!owner._relays() || *peer == each.party);
    });
    if (found == awaited.end())
        return;
    const TalkState::Awaited answered = *found;
    awaited.erase(found);
    tell(owner, answered, letter.data[0] != 0);
}

void ConferenceParticipant::Talk::tell(ConferenceParticipant &owner,
                                       const TalkState::Awaited &awaited, bool taken) {
    if (DeliveryCallback callback = owner._workings->talk.deliveryCB)
        callback(&owner, awaited.number, awaited.party, taken, owner._userData);
}

// ---- Files that are not wanted ----

void ConferenceParticipant::Talk::refuseFile(ConferenceParticipant &owner,
                                             const ConferenceRosterEntry &neighbour,
                                             const TCPAddress &origin, const std::string &name) {
    write(owner, neighbour, TCP_RECYCLE_ME_1,
          {0, origin, reinterpret_cast<const unsigned char *>(name.data()), name.size()});
}

void ConferenceParticipant::Talk::fileRefused(ConferenceParticipant &owner,
                                              ConferenceRosterEntry *peer, TCPMessage &message) {
    Letter letter;
    if (!MembersOnly::mayCome(owner, peer, message) || !letter.read(message))
        return;
    const ConferenceRosterEntry *from = speaker(owner, peer, message);
    if (!(letter.party == owner._self))
        passOn(owner, peer, message, letter.party);
    else if (from != nullptr)
        Outgoing::refused(
            owner, *from,
            {reinterpret_cast<const char *>(letter.data), static_cast<std::size_t>(letter.length)});
}

// ---- What becomes of letters ----

// What was sent to somebody who leaves, or by way of him, is not waited for any longer.
void ConferenceParticipant::Talk::left(ConferenceParticipant &owner,
                                       const ConferenceRosterEntry &party) {
    bool ends = false;
    const bool isHost = party.isHost();
    for (TalkState::Awaited &each : owner._workings->talk.awaited) {
        if (isHost || party == each.party) {
            each.end = Deadlines::Clock::time_point();
            ends = true;
        }
    }
    if (ends)
        awaitAnswers(owner);
}

void ConferenceParticipant::Talk::awaitAnswers(ConferenceParticipant &owner) {
    const auto &awaited = owner._workings->talk.awaited;
    if (awaited.empty())
        return;
    const auto first =
        std::min_element(awaited.begin(), awaited.end(),
                         [](const auto &one, const auto &other) { return one.end < other.end; });
    const auto left = std::max(first->end - Deadlines::Clock::now(), Deadlines::Clock::duration());
    StreamLoop::ofThisThread()->deadlines().set(-1, answersAreDue, &owner,
                                                std::chrono::ceil<std::chrono::milliseconds>(left));
}

void ConferenceParticipant::Talk::answersAreDue(int, void *data) {
    auto &owner = *static_cast<ConferenceParticipant *>(data);
    const Operation operation(owner);
    auto &awaited = owner._workings->talk.awaited;
    std::vector<TalkState::Awaited> late;
    const auto now = Deadlines::Clock::now();
    std::copy_if(
        awaited.begin(), awaited.end(), std::back_inserter(late),
        [=](const auto &each) { return each.end <= now; });
    std::erase_if(awaited, [=](const auto &each) { return each.end <= now; });
    for (const TalkState::Awaited &each : late)
        tell(owner, each, false);
    awaitAnswers(owner);
}

// ---- Messages of the application's own ----

void ConferenceParticipant::setMessageCB(MessageCallback callback) {
    _workings->talk.messageCB = callback;
}

bool ConferenceParticipant::sendMessage(const TCPGUID &identifier, const unsigned char *data,
                                        std::uint64_t length) {
    const Reason reason;
    if (data == nullptr || length == 0 || Talk::isLibrarys(identifier))
        return refuse(TCP_ERROR_INVALID_ARGUMENT,
                      "sendMessage: nothing to send, or an identifier of the library's");
    if (_attendees.empty())
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "sendMessage: nobody is connected");
    const bool sent = _attempt("sendMessage", [&] {
        TCPMessage message;
        if (!openMessage(message, identifier, length))
            return Lists::findsNoMemory("sendMessage");
        std::memcpy(message.messageBuffer(), data, length);
        message.setOriginAddress(_self);
        return Linking::sayToAll(*this, message);
    });
    return reason.unless(sent, TCP_ERROR_CONNECTION_RESET,
                         "sendMessage: it did not reach everybody");
}

void ConferenceParticipant::Talk::isOwn(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                                        TCPMessage &message) {
    const bool goesOn = owner._workings->talk.messageCB(&owner, *peer, message, owner._userData);
    if (goesOn && owner._relays())
        Relaying::passOn(owner, peer, message);
}

} // namespace vintok
