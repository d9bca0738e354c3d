// A host that is one of several: what it tells its link, and what it takes from it.
//
// The parties at other hosts are shadows here, as they are at a member: entries without a
// connection. What is sent to one of them goes to the link. A party has one connection in the
// meeting, so an entry from elsewhere never takes the place of one that is connected here.
//
// About the lead one host decides, the one with authority, by the same steps as the host of a
// meeting that has one. Every other host passes the questions and answers of its members on to it,
// and asks and answers for itself as a member does.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/BufferManager.h"
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Delivery.h"
#include "vintok/FrameLayout.h"
#include "vintok/Log.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPStream.h"
#include "vintok/messageUtil.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace vintok {

namespace {

// What a link may bring to one party, besides what is said to everybody.
const std::array<const TCPGUID *, 7> forOne = {
    &TCP_messageID_46, &TCP_messageID_47,  &TCP_RECYCLE_ME_1, &TCP_leadRequest,
    &TCP_leadReply,    &TCP_echoRequest32, &TCP_echoReply32};

bool isForOne(const TCPGUID &identifier) {
    return std::any_of(
        forOne.begin(), forOne.end(), [&](const TCPGUID *each) { return *each == identifier; });
}

// The length of the whole frame that `bytes` begins with; 0 when it is none.
std::size_t wholeFrame(const unsigned char *bytes, std::size_t length) {
    if (length < layout::sizeIPv4)
        return 0;
    const std::size_t frame = layout::frameLength(bytes);
    return frame >= layout::sizeIPv4 && frame <= length ? frame : 0;
}

bool readFrame(TCPMessage &message, const unsigned char *bytes, std::size_t length) {
    if (!message.allocateRawBuffer(length))
        throw std::bad_alloc();
    std::memcpy(message.rawBuffer(), bytes, length);
    return message.readHeader();
}

} // namespace

// Frames one behind the other, as the link has brought them.
struct ConferenceParticipant::Linking::Frames {
    const unsigned char *bytes;
    std::size_t length;

    // Of those that are relayed; of the first message alone when it is of another kind.
    std::size_t run(bool &isRelayed, bool one) const;
};

// ---- Whether there is a link ----

bool ConferenceParticipant::Linking::isLinked(const ConferenceParticipant &owner) {
    return owner._workings->linking.link != nullptr && owner._self.isHost();
}

bool ConferenceParticipant::Linking::isOrdered(const ConferenceParticipant &owner) {
    return isLinked(owner) && owner._workings->linking.link->isOrdered();
}

bool ConferenceParticipant::Linking::hasRoom(const ConferenceParticipant &owner) {
    return !isLinked(owner) || owner._workings->linking.link->hasRoom();
}

bool ConferenceParticipant::Linking::mayGoOn(void *owner) {
    return hasRoom(*static_cast<const ConferenceParticipant *>(owner));
}

bool ConferenceParticipant::Linking::decides(const ConferenceParticipant &owner) {
    return owner._self.isHost() &&
           (!isLinked(owner) || owner._workings->linking.link->hasAuthority());
}

// ---- Who is here ----

ConferenceRosterEntry
ConferenceParticipant::Linking::publicEntry(const ConferenceRosterEntry &entry) {
    ConferenceRosterEntry shown(entry);
    shown.setDescriptor(-1);
    shown.setHost(false);
    shown.setLeader(false);
    shown.setLeadPending(false);
    shown.setJoinPending(false);
    shown.setShadow(false);
    shown.setProxy(false);
    shown.setProxyPending(false);
    shown.setProxyConnection(false);
    shown.setMUXPending(false);
    return shown;
}

// What the other hosts do not know yet of those who are here.
void ConferenceParticipant::Linking::publish(ConferenceParticipant &owner) {
    if (!isLinked(owner))
        return;
    publish(owner, owner._self);
    for (const ConferenceRosterEntry *entry : owner._attendees)
        if (entry != nullptr && entry->doBroadcast())
            publish(owner, *entry);
}

void ConferenceParticipant::Linking::publish(ConferenceParticipant &owner,
                                             const ConferenceRosterEntry &entry) {
    const ConferenceRosterEntry shown = publicEntry(entry);
    std::string body(static_cast<std::size_t>(shown.size()), '\0');
    if (shown.write(reinterpret_cast<unsigned char *>(body.data()), body.size()) == 0)
        return;
    LinkState &state = owner._workings->linking;
    std::string &told = state.told[&entry];
    if (told == body)
        return;
    told = std::move(body);
    state.link->entryChanged(shown);
}

// Who is connected counts, whatever other hosts say of its address.
void ConferenceParticipant::Linking::joins(ConferenceParticipant &owner,
                                           const ConferenceRosterEntry &member) {
    if (isLinked(owner))
        Lists::retire(owner, elsewhere(owner, member));
}

// Of an entry that leaves the list.
void ConferenceParticipant::Linking::left(ConferenceParticipant &owner,
                                          const ConferenceRosterEntry &entry) {
    constexpr std::size_t mostDeparted = 256;
    LinkState &state = owner._workings->linking;
    state.recolored.erase(&entry);
    if (state.link == nullptr || state.told.erase(&entry) == 0)
        return;
    state.link->entryLeft(entry);
    if (!isOrdered(owner))
        return;
    state.departed.push_back(entry);
    if (state.departed.size() > mostDeparted)
        state.departed.pop_front();
}

// The meeting has been begun, or the link has come to it.
void ConferenceParticipant::Linking::began(ConferenceParticipant &owner) {
    if (!isLinked(owner))
        return;
    LinkedMeeting::giveColors(owner, true);
    publish(owner);
}

void ConferenceParticipant::Linking::ended(ConferenceParticipant &owner) {
    if (!isLinked(owner))
        return;
    owner._workings->linking.told.clear();
    owner._workings->linking.link->meetingEnded();
}

void ConferenceParticipant::Linking::leadsNow(ConferenceParticipant &owner,
                                              const ConferenceRosterEntry &leader) {
    if (isLinked(owner))
        owner._workings->linking.link->leaderChanged(leader);
}

// ---- What is said here ----

bool ConferenceParticipant::Linking::sayToAll(ConferenceParticipant &owner, const Span &frames,
                                              const Said &said, Delivery::When when) {
    pass(owner, owner._self, frames.bytes, frames.length);
    if (isOrdered(owner))
        return true;
    const bool sent = Relaying::broadcastFrames(owner, nullptr, frames, said, when);
    return sent || (isLinked(owner) && Roster::allMembers(owner).empty());
}

bool ConferenceParticipant::Linking::sayToAll(ConferenceParticipant &owner,
                                              const TCPMessage &message) {
    const Span frame = {nullptr, message.rawBuffer(),
                        static_cast<std::size_t>(message.rawBufferLength())};
    return sayToAll(owner, frame, {message.timeStamp(), false}, Delivery::When::now);
}

void ConferenceParticipant::Linking::pass(ConferenceParticipant &owner,
                                          const ConferenceRosterEntry &speaker,
                                          const unsigned char *frames, std::size_t length) {
    if (isLinked(owner) && length != 0)
        owner._workings->linking.link->say(speaker, frames, length);
}

// Whether a member's message is kept until its place among those of all hosts is known.
bool ConferenceParticipant::Linking::keepsForOrder(ConferenceParticipant &owner,
                                                   const ConferenceRosterEntry &speaker,
                                                   const TCPMessage &message) {
    if (!isOrdered(owner) || !speaker.doBroadcast())
        return false;
    pass(owner, speaker, message.rawBuffer(), static_cast<std::size_t>(message.rawBufferLength()));
    if (!hasRoom(owner))
        StreamLoop::ofThisThread()->holdUp(speaker.descriptor(), mayGoOn, &owner);
    return true;
}

bool ConferenceParticipant::Linking::write(ConferenceParticipant &owner,
                                           const ConferenceRosterEntry &party,
                                           TCPMessage &message) {
    return party.descriptor() != -1 ? message.write(party.descriptor(), nullptr)
                                    : writeTo(owner, party, owner._self, message);
}

bool ConferenceParticipant::Linking::writeTo(ConferenceParticipant &owner, const TCPAddress &party,
                                             const TCPAddress &sender, const TCPMessage &message) {
    return isLinked(owner) && elsewhere(owner, party) != nullptr &&
           owner._workings->linking.link->sendTo(
               party, sender, message.rawBuffer(),
               static_cast<std::size_t>(message.rawBufferLength()));
}

bool ConferenceParticipant::Linking::writeToAuthority(ConferenceParticipant &owner,
                                                      const TCPAddress &sender,
                                                      const TCPMessage &message) {
    return isLinked(owner) &&
           owner._workings->linking.link->sendToAuthority(
               sender, message.rawBuffer(), static_cast<std::size_t>(message.rawBufferLength()));
}

// For one of this side.
bool ConferenceParticipant::Linking::ask(ConferenceParticipant &owner, const TCPGUID &identifier,
                                         const TCPAddress &sender, const unsigned char *body,
                                         std::uint64_t length) {
    TCPMessage message;
    if (!openMessage(message, identifier, length))
        return false;
    std::copy_n(body, length, message.messageBuffer());
    return writeToAuthority(owner, sender, message);
}

// ---- Who is elsewhere ----

ConferenceRosterEntry *ConferenceParticipant::Linking::elsewhere(const ConferenceParticipant &owner,
                                                                 const TCPAddress &party) {
    const auto found = std::find_if(owner._attendees.begin(), owner._attendees.end(),
                                    [&](const ConferenceRosterEntry *entry) {
                                        return entry != nullptr && entry->isShadow() &&
                                               entry->descriptor() == -1 && *entry == party;
                                    });
    return found != owner._attendees.end() ? *found : nullptr;
}

bool ConferenceParticipant::Linking::isElsewhere(const ConferenceParticipant &owner,
                                                 const ConferenceRosterEntry &party) {
    return isLinked(owner) && party.isShadow() && party.descriptor() == -1;
}

ConferenceRosterEntry *ConferenceParticipant::Linking::inMeeting(const ConferenceParticipant &owner,
                                                                 const TCPAddress &party) {
    const auto isParty = [&](const ConferenceRosterEntry *entry) {
        return entry != nullptr && (entry->isShadow() || entry->doBroadcast()) && *entry == party;
    };
    const auto found = std::find_if(owner._attendees.begin(), owner._attendees.end(), isParty);
    return found != owner._attendees.end() ? *found : nullptr;
}

// Somebody who is in the meeting. One that talks much is not looked for anew each time.
ConferenceRosterEntry *ConferenceParticipant::Linking::speakerOf(ConferenceParticipant &owner,
                                                                 const TCPAddress &address) {
    LinkState &state = owner._workings->linking;
    if (owner._self == address)
        return &owner._self;
    if (state.speaker == nullptr || state.speakerChanges != owner._workings->listChanges ||
        !(*state.speaker == address)) {
        state.speaker = inMeeting(owner, address);
        state.speakerChanges = owner._workings->listChanges;
    }
    return state.speaker != nullptr ? state.speaker : departed(owner, address);
}

// Who has left here, when what was said is kept for its order: the last words come afterwards.
ConferenceRosterEntry *ConferenceParticipant::Linking::departed(const ConferenceParticipant &owner,
                                                                const TCPAddress &party) {
    auto &entries = owner._workings->linking.departed;
    const auto found = std::find(entries.rbegin(), entries.rend(), party);
    return found != entries.rend() ? &*found : nullptr;
}

bool ConferenceParticipant::Linking::takeEntry(ConferenceParticipant &owner,
                                               const ConferenceRosterEntry &entry) {
    if (owner._self == entry || !(entry.isIPv4() || entry.isIPv6()))
        return refuse(TCP_ERROR_INVALID_ADDRESS, "entry: this host's own address, or none");
    ConferenceRosterEntry *known = elsewhere(owner, entry);
    const auto isHere = [&](const ConferenceRosterEntry *other) {
        return other != nullptr && other->doBroadcast() && *other == entry;
    };
    if (known == nullptr && std::any_of(owner._attendees.begin(), owner._attendees.end(), isHere))
        return refuse(TCP_ERROR_INVALID_ADDRESS, "entry: a member here has this address");
    const bool isNew = known == nullptr;
    if (isNew)
        known = owner._addDescriptor(-1);
    if (known == nullptr)
        throw std::bad_alloc();
    const bool leads = known->isLeader();
    const bool waits = known->isLeadPending();
    vintok::takeEntry(*known, publicEntry(entry));
    known->setLeader(leads);
    known->setLeadPending(waits);
    if (isNew)
        owner._tell(owner._joinCB, *known);
    if (owner._isListed(known))
        owner._tell(owner._userDataCB, *known);
    if (isLinked(owner))
        owner._sendRoster(nullptr);
    return true;
}

bool ConferenceParticipant::Linking::takeLeft(ConferenceParticipant &owner,
                                              const TCPAddress &party) {
    ConferenceRosterEntry *known = elsewhere(owner, party);
    if (known == nullptr)
        return refuse(TCP_ERROR_INVALID_ADDRESS, "left: nobody elsewhere has this address");
    const ConferenceRosterEntry copy = *known;
    const bool sentFile = owner._workings->fileNeighbour == known;
    Lists::retire(owner, known);
    if (sentFile)
        Files::abandonFile(owner);
    owner._assureLeader();
    Roster::broadcastLeave(owner, copy);
    owner._tell(owner._leaveCB, copy); // last: the roster stands without the party by now
    return true;
}

// ---- What is said elsewhere ----

std::size_t ConferenceParticipant::Linking::Frames::run(bool &isRelayed, bool one) const {
    std::size_t done = 0;
    while (const std::size_t frame = wholeFrame(bytes + done, length - done)) {
        const bool relayed =
            frame >= headerSizeOf(bytes + done) && Relaying::isRelayed(identifierOf(bytes + done));
        if (done == 0)
            isRelayed = relayed;
        if (done == 0 && !relayed)
            return frame;
        if (!relayed)
            break;
        done += frame;
        if (one)
            break;
    }
    return done;
}

// Whoever is connected here gets a run of messages in one piece, before any of them is looked at.
bool ConferenceParticipant::Linking::takeSaid(ConferenceParticipant &owner,
                                              const TCPAddress &address, Frames frames) {
    const bool one = owner._workings->guards.dropCB != nullptr; // may keep each from somebody
    while (frames.length != 0) {
        ConferenceRosterEntry *speaker = speakerOf(owner, address);
        if (speaker == nullptr)
            return refuse(TCP_ERROR_INVALID_ADDRESS, "said: nobody in the meeting has said it");
        bool isRelayed = false;
        const std::size_t length = frames.run(isRelayed, one);
        if (length == 0)
            return refuse(TCP_ERROR_CORRUPT_HEADER, "said: no whole message");
        const Span span = {nullptr, frames.bytes, length};
        frames.bytes += length;
        frames.length -= length;
        if (isRelayed)
            deliver(owner, speaker, span);
        if (speaker != &owner._self)
            Relaying::handle(owner, speaker, span, isRelayed);
        if (!isLinked(owner))
            return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "said: the meeting is over here");
    }
    return true;
}

void ConferenceParticipant::Linking::deliver(ConferenceParticipant &owner,
                                             const ConferenceRosterEntry *speaker,
                                             const Span &frames) {
    const Span copy = copyToChunk(frames.bytes, frames.length);
    if (copy.owner == nullptr)
        throw std::bad_alloc();
    Relaying::broadcastFrames(owner, speaker, copy, {getTime(), speaker->isHidingIPsRequired()},
                              Delivery::When::withTheTurn);
}

// What the messages mean for this host itself. `isRelayed`: the members have them already.
void ConferenceParticipant::Relaying::handle(ConferenceParticipant &owner,
                                             ConferenceRosterEntry *speaker, const Span &frames,
                                             bool isRelayed) {
    TCPMessage message;
    const TCPAddress address = *speaker;
    for (std::size_t done = 0; done < frames.length;) {
        const std::size_t frame = wholeFrame(frames.bytes + done, frames.length - done);
        const bool isHere = owner._isListed(speaker);
        if (!isHere && Linking::departed(owner, address) != speaker)
            return;
        if (readFrame(message, frames.bytes + done, frame)) {
            if (isRelayed && (isHere || message.messageID() == TCP_broadcastMessage))
                dispatch(owner, speaker, message);
            else if (owner._workings->talk.messageCB != nullptr &&
                     !Talk::isLibrarys(message.messageID()) &&
                     owner._workings->talk.messageCB(&owner, *speaker, message, owner._userData))
                Linking::deliver(owner, speaker, {nullptr, message.rawBuffer(), frame});
        }
        done += frame;
    }
}

// ---- The clock and the lead ----

void ConferenceParticipant::Linking::askClock(ConferenceParticipant &owner) {
    TCPMessage message;
    if (openMessage(message, TCP_echoRequest32, sizeof(std::uint32_t)) &&
        BufferManager(message.messageBuffer(), message.messageBufferLength())
                .write(static_cast<std::uint32_t>(getTime())) != 0)
        writeToAuthority(owner, owner._self, message);
}

void ConferenceParticipant::Linking::answerClock(ConferenceParticipant &owner,
                                                 const ConferenceRosterEntry &sender,
                                                 TCPMessage &message) {
    std::uint64_t sent = 0;
    if (!decodeEchoRequest(message.messageBuffer(), message.messageBufferLength(), sent, true))
        return;
    TCPMessage reply;
    if (!openMessage(reply, TCP_echoReply32, 2 * sizeof(std::uint32_t)))
        return;
    BufferManager body(reply.messageBuffer(), reply.messageBufferLength());
    body.write(static_cast<std::uint32_t>(sent));
    body.write(static_cast<std::uint32_t>(getTime()));
    writeTo(owner, sender, owner._self, reply);
}

bool ConferenceParticipant::Linking::takeLeader(ConferenceParticipant &owner,
                                                const TCPAddress &address) {
    ConferenceRosterEntry *leader = speakerOf(owner, address);
    if (leader == nullptr)
        return refuse(TCP_ERROR_INVALID_ADDRESS, "leader: nobody in the meeting has this address");
    if (leader->isLeader())
        return true;
    owner._self.setLeader(false);
    leader->setLeader(true);
    Lead::announceLeader(owner, leader);
    return true;
}

// ---- The interface ----

bool LinkedMeeting::install(ConferenceParticipant &host, ConferenceLink *link) {
    using Party = ConferenceParticipant;
    if (link != nullptr && !host._self.isHost())
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "install: this party hosts no meeting");
    return host._attempt("install", [&] {
        auto &state = host._workings->linking;
        StreamLoop::ofThisThread()->letGoOn(&host);
        const bool wasLinked = state.link != nullptr;
        state = Party::LinkState();
        state.link = link;
        if (link != nullptr)
            Party::Linking::began(host);
        else if (wasLinked)
            host._forEachAttendee([&](ConferenceRosterEntry *entry) {
                if (entry->isShadow() && entry->descriptor() == -1)
                    Party::Linking::takeLeft(host, TCPAddress(*entry));
            });
        return true;
    });
}

bool LinkedMeeting::entry(ConferenceParticipant &host, const ConferenceRosterEntry &entry) {
    return host._attempt(
        "entry", [&] { return ConferenceParticipant::Linking::takeEntry(host, entry); });
}

bool LinkedMeeting::left(ConferenceParticipant &host, const TCPAddress &party) {
    return host._attempt(
        "left", [&] { return ConferenceParticipant::Linking::takeLeft(host, party); });
}

bool LinkedMeeting::said(ConferenceParticipant &host, const TCPAddress &speaker,
                         const unsigned char *frames, std::size_t length) {
    return host._attempt(
        "said",
        [&] {
            return ConferenceParticipant::Linking::takeSaid(host, speaker, {frames, length});
        });
}

bool LinkedMeeting::saidTo(ConferenceParticipant &host, const TCPAddress &address,
                           const unsigned char *frames, std::size_t length) {
    using Linking = ConferenceParticipant::Linking;
    return host._attempt("saidTo", [&] {
        const ConferenceRosterEntry *member = Linking::inMeeting(host, address);
        if (member == nullptr || !member->doBroadcast())
            return refuse(TCP_ERROR_INVALID_ADDRESS, "saidTo: nobody here has this address");
        bool isRelayed = false;
        const Linking::Frames all = {frames, length};
        if (all.run(isRelayed, false) != length || !isRelayed)
            return refuse(TCP_ERROR_INVALID_ARGUMENT, "saidTo: none that may come this way");
        ConferenceParticipant::Guards::tellChangesBefore(host, nullptr);
        return Delivery::toOne(member->descriptor(), {nullptr, frames, length},
                               Delivery::When::withTheTurn);
    });
}

bool LinkedMeeting::hasRoom(const ConferenceParticipant &host) {
    return ConferenceParticipant::Outgoing::membersHaveRoom(host);
}

bool LinkedMeeting::message(ConferenceParticipant &host, const TCPAddress &party,
                            const TCPAddress &sender, const unsigned char *frame,
                            std::size_t length) {
    using Linking = ConferenceParticipant::Linking;
    return host._attempt("message", [&] {
        TCPMessage message;
        ConferenceRosterEntry *from = Linking::elsewhere(host, sender);
        if (from == nullptr || wholeFrame(frame, length) != length ||
            !readFrame(message, frame, length) || !isForOne(message.messageID()))
            return refuse(TCP_ERROR_INVALID_ARGUMENT, "message: none that may come this way");
        if (host._self == party && message.messageID() == TCP_echoRequest32) {
            Linking::answerClock(host, *from, message);
            return true;
        }
        if (host._self == party) {
            ConferenceParticipant::Relaying::dispatch(host, from, message);
            return true;
        }
        const ConferenceRosterEntry *member = Linking::inMeeting(host, party);
        if (member == nullptr || !member->doBroadcast())
            return refuse(TCP_ERROR_INVALID_ADDRESS, "message: nobody here has this address");
        return Delivery::toOne(member->descriptor(), {nullptr, frame, length},
                               Delivery::When::withTheTurn);
    });
}

bool LinkedMeeting::leader(ConferenceParticipant &host, const TCPAddress &leader) {
    return host._attempt(
        "leader", [&] { return ConferenceParticipant::Linking::takeLeader(host, leader); });
}

void LinkedMeeting::authorityChanged(ConferenceParticipant &host) {
    using Linking = ConferenceParticipant::Linking;
    const auto decide = [&] {
        host._assureLeader();
        const ConferenceRosterEntry *leader = host._getLeader();
        if (host._self.isLeader() || leader != nullptr)
            Linking::leadsNow(host, host._self.isLeader() ? host._self : *leader);
        return true;
    };
    const auto follow = [&] {
        // Who has asked here asks again there.
        for (ConferenceRosterEntry *entry : host._attendees)
            if (entry != nullptr)
                entry->setLeadPending(false);
        host._self.setLeadPending(false);
        Linking::askClock(host);
        return true;
    };
    host._attempt("authorityChanged", [&] { return Linking::decides(host) ? decide() : follow(); });
}

void LinkedMeeting::giveColors(ConferenceParticipant &host, bool anew) {
    constexpr unsigned short none = 65535;
    ConferenceLink *const link = host._workings->linking.link;
    if (link == nullptr)
        return;
    auto &awaited = host._workings->linking.recolored;
    // Until it gets its new colour everybody keeps the old one.
    const auto give = [&](ConferenceRosterEntry &entry) {
        if (!anew && entry.colorIndex() != none && awaited.count(&entry) == 0)
            return false;
        const unsigned short color = link->takeColor();
        if (color == none) {
            awaited.insert(&entry);
            return false;
        }
        awaited.erase(&entry);
        const bool changes = entry.colorIndex() != color;
        entry.setColorIndex(color);
        return changes;
    };
    host._attempt("giveColors", [&] {
        bool changed = give(host._self);
        if (changed)
            host._tell(host._userDataCB, host._self);
        host._forEachAttendee([&](ConferenceRosterEntry *entry) {
            if (!entry->doBroadcast() || !give(*entry))
                return;
            changed = true;
            host._tell(host._userDataCB, *entry);
        });
        return changed && host._sendRoster(nullptr);
    });
}

bool LinkedMeeting::redirect(ConferenceParticipant &host, const TCPAddress &caller,
                             const std::string &name, unsigned short port) {
    return host._attempt(
        "redirect",
        [&] {
            ConferenceRosterEntry *peer = ConferenceParticipant::Lists::getCaller(host, caller);
            if (peer == nullptr || !peer->isJoinPending() || name.empty())
                return refuse(TCP_ERROR_INVALID_ADDRESS, "redirect: nobody of this address waits");
            TCPMessage message(peer->descriptor());
            if (!openMessage(message, TCP_RECYCLE_ME_3, sizeof port + name.size()))
                return false;
            BufferManager body(message.messageBuffer(), message.messageBufferLength());
            body.write(port);
            std::copy(name.begin(), name.end(), message.messageBuffer() + sizeof port);
            message.write(-1, nullptr);
            return host.mf_rejectCall(peer);
        });
}

} // namespace vintok
