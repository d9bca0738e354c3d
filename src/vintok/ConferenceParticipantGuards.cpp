// The guards of a participant: what it does about those who are slow, late, too many or too long.
//
// Nothing here acts until a limit is set. What a connection may have waiting is kept by its buffers
// (`OutputLimits`): they fail, and `readFailed` then meets the failure as it would that of a peer
// which has died. Times are kept by the loop (`Deadlines`); whoever is late by then is looked for
// by its descriptor, so that a time which comes when somebody else has the number finds nobody.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/FrameLayout.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace vintok {

namespace {

Deadlines &deadlines() {
    return StreamLoop::ofThisThread()->deadlines();
}

// Whether two parties call from one place: one IPv4 address, or one network of IPv6.
bool isSamePlace(const TCPAddress &one, const TCPAddress &other) {
    constexpr std::size_t networkWords = 4; // of 16 bits
    std::array<std::uint16_t, 8> oneIP{};
    std::array<std::uint16_t, 8> otherIP{};
    if (one.IPv6(oneIP.data()) && other.IPv6(otherIP.data()))
        return std::equal(oneIP.begin(), oneIP.begin() + networkWords, otherIP.begin());
    std::uint32_t oneIPv4 = 0;
    std::uint32_t otherIPv4 = 0;
    return one.IPv4(oneIPv4) && other.IPv4(otherIPv4) && oneIPv4 == otherIPv4;
}

// The first frame of a run of whole ones.
Span firstFrame(const Span &run) {
    return {run.owner, run.bytes, std::min(layout::frameLength(run.bytes), run.length)};
}

void setFrameLimit(int descriptor, std::uint64_t longest) {
    if (const std::shared_ptr<StreamBuffer> buffer = bufferOf(descriptor))
        buffer->setLimits(static_cast<std::size_t>(longest), buffer->unsentLimit());
}

} // namespace

// ---- Switching them on ----

void ConferenceParticipant::setCallTimeouts(std::uint32_t hello, std::uint32_t answer) {
    _workings->guards.helloTimeout = hello;
    _workings->guards.answerTimeout = answer;
}

void ConferenceParticipant::setSlowMemberLimits(const SlowMemberLimits &limits) {
    OutputLimits &output = _workings->guards.output;
    output.soft = static_cast<std::size_t>(std::min(limits.bytes, limits.mostBytes));
    output.hard = static_cast<std::size_t>(limits.mostBytes);
    output.patience = std::chrono::milliseconds(limits.milliseconds);
    for (const ConferenceRosterEntry *peer : _attendees)
        if (peer != nullptr && peer->descriptor() != -1)
            Guards::limitOutput(*this, *peer);
}

void ConferenceParticipant::setSlowMemberCB(SlowMemberCallback callback) {
    _workings->guards.slowMemberCB = callback;
}

void ConferenceParticipant::setDropCB(DropCallback callback) {
    _workings->guards.dropCB = callback;
    _workings->guards.output.drops = callback != nullptr;
    for (const ConferenceRosterEntry *peer : _attendees)
        if (peer != nullptr && peer->descriptor() != -1)
            Guards::limitOutput(*this, *peer);
}

std::uint64_t ConferenceParticipant::waitingBytes() const {
    std::uint64_t most = 0;
    for (const ConferenceRosterEntry *peer : _attendees)
        if (peer != nullptr && peer->doBroadcast())
            if (const std::shared_ptr<StreamBuffer> buffer = bufferOf(peer->descriptor()))
                most = std::max<std::uint64_t>(most, buffer->queued());
    return most;
}

void ConferenceParticipant::setCallerLimits(const CallerLimits &limits) {
    _workings->guards.callers = limits;
}

void ConferenceParticipant::setMeetingLimits(const MeetingLimits &limits) {
    _workings->guards.meeting = limits;
    for (const ConferenceRosterEntry *peer : _attendees)
        if (peer != nullptr && peer->doBroadcast())
            setFrameLimit(peer->descriptor(), limits.frameBytes);
}

void ConferenceParticipant::setRosterByDifferences(bool on) {
    _workings->guards.rosterByDifferences = on;
    _workings->guards.told.clear();
}

bool ConferenceParticipant::Guards::areOn(const ConferenceParticipant &owner) {
    const GuardState &guards = owner._workings->guards;
    return guards.output.hard != 0 || areOn(guards.callers) || owner._membersOnly;
}

bool ConferenceParticipant::Guards::areOn(const CallerLimits &callers) {
    return callers.connections != 0 || callers.perAddress != 0 || callers.helloTime != 0 ||
           callers.joinTime != 0 || callers.frameBytes != 0 || callers.joins != 0;
}

// ---- Who has not joined ----

// False when there is no room for a new connection, which is to be closed then.
bool ConferenceParticipant::Guards::letsIn(ConferenceParticipant &owner, int descriptor,
                                           const TCPAddress &from) {
    GuardState &guards = owner._workings->guards;
    const auto makesRoom = [&](std::uint32_t most, auto counts) {
        const auto &all = guards.strangers;
        if (most == 0 || std::count_if(all.begin(), all.end(), counts) < std::int64_t{most})
            return true;
        const auto idle = std::find_if(all.begin(), all.end(), [&](const auto &stranger) {
            const ConferenceRosterEntry *peer = owner._getPeer(stranger.descriptor);
            return counts(stranger) && (peer == nullptr || !peer->isJoinPending());
        });
        if (idle == all.end())
            return false;
        closeStranger(owner, idle->descriptor, "makes room for the next");
        return true;
    };
    using Stranger = GuardState::Stranger;
    if (!makesRoom(guards.callers.perAddress,
                   [&](const Stranger &other) { return isSamePlace(other.from, from); }) ||
        !makesRoom(guards.callers.connections, [](const Stranger &) { return true; }))
        return false;
    if (areOn(guards.callers))
        guards.strangers.push_back({descriptor, from, false});
    const CallerLimits &callers = guards.callers;
    if (const std::uint32_t time = callers.helloTime != 0 ? callers.helloTime : callers.joinTime)
        deadlines().set(descriptor, strangerIsLate, &owner, std::chrono::milliseconds(time));
    return true;
}

// The connection has its buffers.
void ConferenceParticipant::Guards::connected(ConferenceParticipant &owner, int descriptor) {
    const GuardState &guards = owner._workings->guards;
    if (guards.output.hard != 0)
        if (const std::shared_ptr<StreamBuffer> buffer = bufferOf(descriptor))
            buffer->setOutputLimits(guards.output);
    if (guards.callers.frameBytes != 0)
        setFrameLimit(descriptor, guards.callers.frameBytes);
}

void ConferenceParticipant::Guards::strangerIsLate(int descriptor, void *data) {
    auto &owner = *static_cast<ConferenceParticipant *>(data);
    const Operation operation(owner);
    GuardState &guards = owner._workings->guards;
    const auto stranger =
        std::find_if(guards.strangers.begin(), guards.strangers.end(),
                     [=](const auto &each) { return each.descriptor == descriptor; });
    if (stranger == guards.strangers.end())
        return;
    const ConferenceRosterEntry *peer = owner._getPeer(descriptor);
    const bool saidHello = peer != nullptr && (peer->isIPv4() || peer->isIPv6());
    if (saidHello && peer->isJoinPending())
        return; // the application's turn
    if (saidHello && !stranger->saidHello && guards.callers.joinTime != 0) {
        stranger->saidHello = true;
        deadlines().set(descriptor, strangerIsLate, data,
                        std::chrono::milliseconds(guards.callers.joinTime));
    } else if (!saidHello || guards.callers.joinTime != 0) {
        closeStranger(owner, descriptor, saidHello ? "has not joined" : "has said no hello");
    }
}

bool ConferenceParticipant::Guards::isStranger(const ConferenceParticipant &owner, int descriptor) {
    const auto &strangers = owner._workings->guards.strangers;
    return std::any_of(strangers.begin(), strangers.end(),
                       [=](const auto &each) { return each.descriptor == descriptor; });
}

void ConferenceParticipant::Guards::closeStranger(ConferenceParticipant &owner, int descriptor,
                                                  const char *why) {
    VINTOK_LOG(SEVERITY_INFO, formatText("Closing connection %d, which %s", descriptor, why));
    if (ConferenceRosterEntry *peer = owner._getPeer(descriptor))
        Ending::dropConnection(owner, peer);
    else if (Handshakes::forget(owner, descriptor))
        shutdownSocket(descriptor);
    forgetStranger(owner, descriptor);
}

// A caller whose frame is too long, or none, is not waited for.
bool ConferenceParticipant::Guards::closesCorrupt(ConferenceParticipant &owner, int descriptor) {
    if (owner._workings->guards.callers.frameBytes == 0 || !isStranger(owner, descriptor))
        return false;
    closeStranger(owner, descriptor, "has sent a frame that is too long");
    return true;
}

void ConferenceParticipant::Guards::forgetStranger(ConferenceParticipant &owner, int descriptor) {
    std::erase_if(
        owner._workings->guards.strangers,
        [=](const auto &each) { return each.descriptor == descriptor; });
}

void ConferenceParticipant::Guards::left(ConferenceParticipant &owner,
                                         const ConferenceRosterEntry &peer) {
    if (peer.doBroadcast()) // it is to be known when it is told that it has left
        owner._attempt("changes", [&] {
            tellChangesBefore(owner, &peer);
            return true;
        });
    owner._workings->guards.told.erase(&peer);
    std::erase(owner._workings->guards.waiting, &peer);
    if (peer.descriptor() != -1)
        forgetStranger(owner, peer.descriptor());
}

// ---- Who asks to join ----

// A join is told to everybody, and so is its end. So those of a crowd come in one after the other.
bool ConferenceParticipant::Guards::waitsForItsTurn(ConferenceParticipant &owner,
                                                    ConferenceRosterEntry *peer) {
    GuardState &guards = owner._workings->guards;
    if (guards.callers.joins == 0 || (guards.waiting.empty() && takesTurn(guards)))
        return false;
    if (std::find(guards.waiting.begin(), guards.waiting.end(), peer) == guards.waiting.end())
        guards.waiting.push_back(peer);
    awaitTurn(owner);
    return true;
}

// Each turn takes its part of a second, and so many may be taken before their time.
bool ConferenceParticipant::Guards::takesTurn(GuardState &guards) {
    const std::uint32_t joins = guards.callers.joins;
    const std::uint32_t ahead = std::min(joins, 32u);
    const auto now = Deadlines::Clock::now();
    const auto part = Deadlines::Clock::duration(std::chrono::seconds(1)) / joins;
    guards.turnsTaken = std::max(guards.turnsTaken, now);
    guards.nextTurn = guards.turnsTaken - (ahead - 1) * part;
    if (guards.nextTurn > now)
        return false;
    guards.turnsTaken += part;
    return true;
}

void ConferenceParticipant::Guards::awaitTurn(ConferenceParticipant &owner) {
    const auto left = owner._workings->guards.nextTurn - Deadlines::Clock::now();
    if (!owner._workings->guards.waiting.empty())
        deadlines().set(-1, turnsAreDue, &owner,
                        std::chrono::ceil<std::chrono::milliseconds>(left));
}

void ConferenceParticipant::Guards::turnsAreDue(int, void *data) {
    auto &owner = *static_cast<ConferenceParticipant *>(data);
    const Operation operation(owner);
    GuardState &guards = owner._workings->guards;
    while (!guards.waiting.empty() && (guards.callers.joins == 0 || takesTurn(guards))) {
        ConferenceRosterEntry *peer = guards.waiting.front();
        guards.waiting.erase(guards.waiting.begin());
        if (peer->isJoinPending())
            Joining::decide(owner, peer);
    }
    awaitTurn(owner);
}

// ---- Members ----

void ConferenceParticipant::Guards::joined(ConferenceParticipant &owner,
                                           const ConferenceRosterEntry &peer) {
    forgetStranger(owner, peer.descriptor());
    const GuardState &guards = owner._workings->guards;
    if (guards.callers.frameBytes != 0 || guards.meeting.frameBytes != 0)
        setFrameLimit(peer.descriptor(), guards.meeting.frameBytes);
    limitOutput(owner, peer);
}

// A member waits for its host, so that one who says much is held up and not hung up.
void ConferenceParticipant::Guards::limitOutput(ConferenceParticipant &owner,
                                                const ConferenceRosterEntry &peer) {
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(peer.descriptor());
    if (buffer == nullptr)
        return;
    const bool isMember = peer.doBroadcast() && owner._relays() && !peer.isHost();
    const bool isLimited =
        isMember || (!peer.doBroadcast() && owner._getPending(peer.descriptor()) == nullptr);
    const OutputLimits limits = isLimited ? owner._workings->guards.output : OutputLimits();
    if (limits.hard != 0 || buffer->isLimited())
        buffer->setOutputLimits(limits);
}

bool ConferenceParticipant::Guards::isFull(const ConferenceParticipant &owner) {
    const std::uint32_t most = owner._workings->guards.meeting.members;
    return most != 0 && Roster::allMembers(owner).size() + Handshakes::joining(owner) >= most;
}

// Whether an entry that came is not too long; hangs up who sent one that is.
bool ConferenceParticipant::Guards::takesEntry(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer, std::uint64_t length) {
    const std::uint32_t most = owner._workings->guards.meeting.entryBytes;
    if (most == 0 || length <= most)
        return true;
    VINTOK_LOG(SEVERITY_WARNING,
               formatText("Hanging up on %d, whose roster entry is too long", peer->descriptor()));
    Ending::dismiss(owner, peer);
    return false;
}

// Of a peer whose connection has failed by its limits.
void ConferenceParticipant::Guards::tellSlow(ConferenceParticipant &owner,
                                             const ConferenceRosterEntry &peer) {
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(peer.descriptor());
    if (buffer == nullptr || buffer->slow() == StreamBuffer::Slow::no)
        return;
    const bool isFull = buffer->slow() == StreamBuffer::Slow::full;
    const std::uint64_t waiting = buffer->slowBytes();
    VINTOK_LOG(SEVERITY_WARNING,
               formatText("Hanging up on %d, which takes too slowly what is sent: %lu bytes wait%s",
                          peer.descriptor(), static_cast<unsigned long>(waiting),
                          isFull ? "" : " for too long"));
    if (SlowMemberCallback callback = owner._workings->guards.slowMemberCB)
        callback(&owner, peer, waiting, isFull ? SLOW_MEMBER_FULL : SLOW_MEMBER_BEHIND);
}

bool ConferenceParticipant::Guards::drops(ConferenceParticipant &owner,
                                          const ConferenceRosterEntry &peer, const Span &frame) {
    const GuardState &guards = owner._workings->guards;
    if (guards.dropCB == nullptr || guards.output.hard == 0 ||
        !(identifierOf(frame.bytes) == TCP_broadcastMessage))
        return false;
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(peer.descriptor());
    const std::size_t header = headerSizeOf(frame.bytes);
    return buffer != nullptr && buffer->isLimited() && buffer->queued() > guards.output.soft &&
           frame.length > header &&
           guards.dropCB(&owner, peer, frame.bytes + header, frame.length - header);
}

void ConferenceParticipant::Guards::spread(ConferenceParticipant &owner, StreamLoop &loop,
                                           int source, const Span &span) {
    GuardState &guards = owner._workings->guards;
    const std::size_t most = guards.relaysFile ? guards.output.soft / 2 : guards.output.hard / 2;
    guards.relaysFile = false;
    bool isTooMuch = false;
    Span copy;
    for (const ConferenceRosterEntry *peer : owner._attendees) {
        if (peer == nullptr || !peer->doBroadcast() || !peer->enabled() ||
            peer->descriptor() == source)
            continue;
        const StreamLoop::BufferPtr buffer = loop.member(peer->descriptor());
        if (buffer == nullptr)
            continue;
        isTooMuch = isTooMuch || buffer->queued() > most;
        if (buffer->queued() <= guards.output.soft) {
            StreamLoop::relay(*buffer, span);
            continue;
        }
        // What is kept for long is kept without the rest of the chunk that it came in.
        if (copy.owner == nullptr)
            copy = copyToChunk(span.bytes, span.length);
        if (copy.owner == nullptr)
            copy = span;
        if (guards.dropCB == nullptr)
            StreamLoop::relay(*buffer, copy);
        else
            relayKept(owner, *peer, *buffer, copy);
    }
    if (isTooMuch)
        loop.holdUp(source, most);
}

// All of the run but the broadcasts that may be kept from the member.
void ConferenceParticipant::Guards::relayKept(ConferenceParticipant &owner,
                                              const ConferenceRosterEntry &peer,
                                              StreamBuffer &buffer, Span run) {
    while (run.length != 0) {
        const Span frame = firstFrame(run);
        if (!drops(owner, peer, frame))
            StreamLoop::relay(buffer, frame);
        run.bytes += frame.length;
        run.length -= frame.length;
    }
}

void ConferenceParticipant::Guards::awaitSlow(ConferenceParticipant &owner) {
    if (owner._workings->guards.output.hard == 0)
        return;
    std::vector<StreamLoop::BufferPtr> buffers;
    for (const ConferenceRosterEntry *peer : owner._attendees)
        if (peer != nullptr && peer->doBroadcast())
            if (const std::shared_ptr<StreamBuffer> buffer = bufferOf(peer->descriptor()))
                buffers.push_back(buffer);
    if (!buffers.empty())
        buffers.front()->loop().awaitBelow(buffers, owner._workings->guards.output.soft / 2);
}

// ---- The roster's changes ----

// Those who come and go in a flood are told of together. To look for what has changed takes longer
// the more are there, so a large meeting is told less often: a tenth of the time goes into that.
bool ConferenceParticipant::Guards::sendChangesInTime(ConferenceParticipant &owner) {
    constexpr Deadlines::Clock::duration least = std::chrono::milliseconds(20);
    GuardState &guards = owner._workings->guards;
    const auto now = Deadlines::Clock::now();
    guards.changesWait = now < guards.nextChanges;
    if (!guards.changesWait) {
        const bool sent = Roster::sendChanges(owner);
        const auto end = Deadlines::Clock::now();
        guards.nextChanges = end + std::max(least, 10 * (end - now));
        return sent;
    }
    deadlines().set(-1, changesAreDue, &owner,
                    std::chrono::ceil<std::chrono::milliseconds>(guards.nextChanges - now));
    return true;
}

// Nobody hears of a party by what it says, or what is said of it, before it has been told of.
void ConferenceParticipant::Guards::tellChangesBefore(ConferenceParticipant &owner,
                                                      const ConferenceRosterEntry *speaker) {
    GuardState &guards = owner._workings->guards;
    if (guards.changesWait && owner._self.isHost() &&
        (speaker == nullptr || guards.told.count(speaker) == 0)) {
        guards.changesWait = false;
        Roster::sendChanges(owner);
    }
}

void ConferenceParticipant::Guards::changesAreDue(int, void *data) {
    auto &owner = *static_cast<ConferenceParticipant *>(data);
    const Operation operation(owner);
    if (owner._self.isHost())
        owner._sendRoster(nullptr);
}

// ---- Outgoing calls ----

void ConferenceParticipant::Guards::callBegins(ConferenceParticipant &owner, int descriptor) {
    if (const std::uint32_t time = owner._workings->guards.helloTimeout)
        deadlines().set(descriptor, callIsLate, &owner, std::chrono::milliseconds(time));
}

void ConferenceParticipant::Guards::callRings(ConferenceParticipant &owner, int descriptor) {
    if (const std::uint32_t time = owner._workings->guards.answerTimeout)
        deadlines().set(descriptor, callIsLate, &owner, std::chrono::milliseconds(time));
    else
        deadlines().clear(descriptor, callIsLate, &owner);
}

void ConferenceParticipant::Guards::callIsLate(int descriptor, void *data) {
    auto &owner = *static_cast<ConferenceParticipant *>(data);
    const Operation operation(owner);
    ConferenceRosterEntry *peer = owner._getPeer(descriptor);
    TempRosterEntry *call = owner._getPending(descriptor);
    if (peer == nullptr || call == nullptr)
        return; // answered
    VINTOK_LOG(SEVERITY_WARNING, formatText("Giving up the call on %d: no answer", descriptor));
    if (peer->doBroadcast())
        Ending::endCall(owner, call); // it has asked to join instead, and the others know it
    else
        owner.mf_hangup(peer);
}

} // namespace vintok
