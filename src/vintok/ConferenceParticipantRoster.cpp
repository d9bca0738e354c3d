// How the parties of a meeting learn of each other.
//
// The host is the only source of the roster. It sends one message for each entry: itself first,
// then every member and shadow, the receiver among them, who learns its own colour so. A non-host
// keeps the others as shadows, entries without a connection, and publishes its own data to the host
// alone.
//
// A TCP_rosterEntry is what a party says of itself: its hello, or changed data. The test against
// two connections to one party is made there. The connection whose hello comes second is hung up,
// whoever called, unless the two parties call each other.
//
// What arrives overwrites an entry, save for what is known at this end only (`takeEntry` and the
// values that each handler puts back).
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Delivery.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace vintok {

namespace {

// Of an entry whose message could not be made.
void logFailure(const ConferenceRosterEntry &entry, bool own, bool allocated) {
    const char *const ownText = allocated ? "_sendRoster write roster message buffer failed"
                                          : "_sendRoster message buffer allocation failed";
    const std::string text = own ? ownText
                             : allocated
                                 ? "Write Failed\n" + logText(entry)
                                 : formatText("Allocation failed for entry %d", entry.descriptor());
    VINTOK_LOG(SEVERITY_ERROR, text);
}

void logSent(const ConferenceRosterEntry &entry, bool own, bool sent) {
    if (sent)
        VINTOK_LOG(own ? SEVERITY_INFO : SEVERITY_DEBUG, "Sent Entry\n" + logText(entry));
    else
        VINTOK_LOG(SEVERITY_ERROR, own ? std::string("_sendRoster message write Failed")
                                       : "Send Failed\n" + logText(entry));
}

} // namespace

// ---- Asking and sending ----

bool ConferenceParticipant::sendRoster() {
    const Reason reason;
    const bool sent = _attempt("sendRoster", [this] {
        if (_self.isHost()) {
            Linking::publish(*this);
            return Roster::sendRosterTo(*this, Roster::allMembers(*this), true);
        }
        bool told = false;
        _forEachAttendee([&](ConferenceRosterEntry *peer) {
            if (peer->isHost())
                told = _sendMe(peer);
        });
        return told;
    });
    return reason.unless(sent, TCP_ERROR_UNSPECIFIED_ERROR, "sendRoster: nobody to send it to");
}

bool ConferenceParticipant::requestRoster() {
    const Reason reason;
    const bool requested = _attempt("requestRoster", [this] {
        bool sent = _self.isHost();
        _forEachAttendee([&, hosts = sent](ConferenceRosterEntry *peer) {
            if (hosts && !_self.isServer() && (peer->doBroadcast() || peer->isShadow())) {
                _tell(_userDataCB, *peer);
            } else if (!hosts && peer->isHost()) {
                _sendMe(peer);
                sent = _requestRoster(peer);
            }
        });
        return sent;
    });
    return reason.unless(requested, TCP_ERROR_UNSPECIFIED_ERROR, "requestRoster: no host to ask");
}

bool ConferenceParticipant::_requestRoster(ConferenceRosterEntry *peer) {
    return _isListed(peer) && sendByte(peer->descriptor(), TCP_rosterRequest, 0);
}

// To one peer, or to every member, without waiting for any of them. At a non-host the result says
// nothing: it sends itself and is done.
bool ConferenceParticipant::_sendRoster(ConferenceRosterEntry *peer) {
    if (peer != nullptr)
        return Roster::sendRosterTo(*this, {peer}, false);
    Linking::publish(*this);
    // Many may come and go at the other hosts at once.
    if ((_workings->guards.rosterByDifferences || Linking::isLinked(*this)) && _self.isHost())
        return Guards::sendChangesInTime(*this);
    return Roster::sendRosterTo(*this, Roster::allMembers(*this), false);
}

std::vector<ConferenceRosterEntry *>
ConferenceParticipant::Roster::allMembers(const ConferenceParticipant &owner) {
    std::vector<ConferenceRosterEntry *> members;
    std::copy_if(owner._attendees.begin(), owner._attendees.end(), std::back_inserter(members),
                 [](const ConferenceRosterEntry *entry) {
                     return entry != nullptr && entry->doBroadcast();
                 });
    return members;
}

// The messages of a roster, one behind the other: the same for everybody.
struct ConferenceParticipant::RosterFrames {
    std::vector<unsigned char> bytes;
    std::vector<const ConferenceRosterEntry *> entries; // this party first, unless that failed
    bool failed = false;                                // an entry other than this party's

    void add(const ConferenceRosterEntry &entry, bool own) {
        TCPMessage message;
        message.setMessageID(TCP_rosterReply);
        message.setMessageMajorVersion(s_majorVersion);
        message.setMessageMinorVersion(s_minorVersion);
        const bool allocated = message.allocateMessageBuffer(entry.size());
        if (!allocated ||
            entry.write(message.messageBuffer(), message.messageBufferLength()) == 0) {
            logFailure(entry, own, allocated);
            failed = failed || !own;
            return;
        }
        const auto length = static_cast<std::size_t>(message.rawBufferLength());
        begins.push_back(bytes.size());
        bodies.push_back(bytes.size() + message.headerSize());
        bytes.insert(bytes.end(), message.rawBuffer(), message.rawBuffer() + length);
        entries.push_back(&entry);
    }

    // Of the entry at `index`: its message, and what that says.
    std::string_view message(std::size_t index) const { return from(begins[index], index); }
    std::string_view body(std::size_t index) const { return from(bodies[index], index); }

private:
    std::string_view from(std::size_t begin, std::size_t index) const {
        const std::size_t end = index + 1 < begins.size() ? begins[index + 1] : bytes.size();
        return {reinterpret_cast<const char *>(bytes.data()) + begin, end - begin};
    }

    std::vector<std::size_t> begins; // of the messages, and of their bodies
    std::vector<std::size_t> bodies;
};

// The entries of the meeting, the receiver's own among them; of a non-host itself alone. True when
// there is somebody else and nobody's message could not be made.
bool ConferenceParticipant::Roster::writeRoster(ConferenceParticipant &owner,
                                                RosterFrames &roster) {
    roster.add(owner._self, true);
    std::size_t others = 0;
    for (const ConferenceRosterEntry *entry : owner._attendees) {
        if (entry == nullptr || !owner._self.isHost())
            continue;
        if (entry->isJoinPending()) {
            VINTOK_LOG(SEVERITY_DEBUG, formatText("Ignore Pending Entry %d", entry->descriptor()));
        } else if (entry->doBroadcast() || entry->isShadow()) {
            roster.add(*entry, false); // a connection that has not joined is nobody's business
            ++others;
        }
    }
    return others != 0 && !roster.failed;
}

bool ConferenceParticipant::Roster::sendRosterTo(
    ConferenceParticipant &owner, const std::vector<ConferenceRosterEntry *> &receivers,
    bool waits) {
    if (receivers.empty())
        return false;
    Relaying::closeRelay(owner);
    RosterFrames roster;
    const bool complete = writeRoster(owner, roster);
    Delivery delivery(copyToChunk(roster.bytes.data(), roster.bytes.size()),
                      waits ? Delivery::When::now : Delivery::When::withTheTurn);
    for (const ConferenceRosterEntry *peer : receivers)
        delivery.give(peer->descriptor());
    delivery.complete();
    bool refused = false;
    for (const ConferenceRosterEntry *peer : receivers) {
        const int descriptor = peer->descriptor();
        const bool sent = !delivery.isRefusedBy(descriptor);
        VINTOK_LOG(SEVERITY_DEBUG, formatText("Begin Sending Roster to %d", descriptor));
        for (const ConferenceRosterEntry *entry : roster.entries)
            logSent(*entry, entry == &owner._self, sent);
        VINTOK_LOG(SEVERITY_DEBUG, formatText("Done Sending Roster to %d", descriptor));
        refused = refused || !sent;
    }
    return complete && !refused;
}

// The whole roster to those who have not had one, and what has changed since to the others.
bool ConferenceParticipant::Roster::sendChanges(ConferenceParticipant &owner) {
    Relaying::closeRelay(owner);
    RosterFrames roster;
    const bool complete = writeRoster(owner, roster);
    auto &told = owner._workings->guards.told;
    std::vector<unsigned char> changes;
    for (std::size_t i = 0; i < roster.entries.size(); ++i) {
        std::string &before = told[roster.entries[i]].body;
        if (before == roster.body(i))
            continue;
        before = roster.body(i);
        const std::string_view message = roster.message(i);
        changes.insert(changes.end(), message.begin(), message.end());
    }
    Delivery whole(copyToChunk(roster.bytes.data(), roster.bytes.size()),
                   Delivery::When::withTheTurn);
    Delivery changed(copyToChunk(changes.data(), changes.size()), Delivery::When::withTheTurn);
    bool refused = false;
    for (const ConferenceRosterEntry *peer : allMembers(owner)) {
        const bool isNew = !std::exchange(told[peer].hasRoster, true);
        if (!isNew && changes.empty())
            continue;
        Delivery &delivery = isNew ? whole : changed;
        delivery.give(peer->descriptor());
        refused = refused || delivery.isRefusedBy(peer->descriptor());
    }
    VINTOK_LOG(SEVERITY_DEBUG,
               formatText("Sent %zu bytes of changes in the roster", changes.size()));
    return complete && !refused;
}

// ---- What a party says of itself ----

void ConferenceParticipant::_handleRosterEntry(ConferenceRosterEntry *peer, unsigned char *body,
                                               std::uint64_t length) {
    if (!_isListed(peer) || !Guards::takesEntry(*this, peer, length))
        return;
    ConferenceRosterEntry entry(peer->descriptor());
    if (entry.read(body, length) == 0)
        return;
    const bool member = peer->doBroadcast();
    if (member && !(*peer == entry))
        return; // a member cannot change its address
    const ConferenceRosterEntry before = *peer;
    MembersOnly::believe(*this, entry, before);
    takeEntry(*peer, entry);
    peer->setProxyConnection(before.isProxyConnection());
    peer->setSecure(before.isSecure());
    peer->setMajorVersion(before.majorVersion());
    peer->setMinorVersion(before.minorVersion());
    if (_self.isHost()) {
        peer->setColorIndex(before.colorIndex());
        VINTOK_LOG(SEVERITY_DEBUG, logText(*peer));
    }
    if (member)
        _tell(_userDataCB, *peer);
    if (!_isListed(peer))
        return;
    MembersOnly::preferOwnCall(*this, peer);
    if (!_isListed(peer))
        return;
    if (!MembersOnly::isOwnAddress(*this, *peer) && _isUnique(peer)) {
        VINTOK_LOG(SEVERITY_DEBUG, formatText("Entry is Unique %d\n", peer->descriptor()));
        if (TempRosterEntry *pending = _getPending(peer->descriptor()))
            _completeCall(peer, pending);
        return;
    }
    if (Crossing::crosses(*this, peer))
        return;
    Crossing::giveUpForTwin(*this, peer);
    Roster::turnAway(*this, *peer);
    if (!_isListed(peer))
        return;
    VINTOK_LOG(SEVERITY_DEBUG,
               formatText("Hanging up on duplicate connection to client %d (", peer->descriptor()) +
                   visibleText(peer->email()) + ")");
    Ending::dismiss(*this, peer);
}

// Who calls with an address that is taken in the meeting is told so before it is hung up, by an
// application that wants to hear of it itself. Of calls that cross both sides know by themselves.
void ConferenceParticipant::Roster::turnAway(ConferenceParticipant &owner,
                                             const ConferenceRosterEntry &peer) {
    const ConferenceRosterEntry *twin = getTwin(owner, &peer);
    const bool isTaken = twin != nullptr && (twin->doBroadcast() || twin->isShadow());
    const bool isOwn = MembersOnly::isOwnAddress(owner, peer);
    const bool isCalled = owner._getPending(peer.descriptor()) != nullptr;
    if (!isOwn && (isCalled || !isTaken))
        return;
    if (!isCalled && owner._workings->turnedAwayCB != nullptr)
        sendByte(peer.descriptor(), TCP_RECYCLE_ME_2, 1);
    tellTurnedAway(owner, peer,
                   isOwn ? "the other side's address and port are this party's own"
                         : "the caller's address and port are another party's in the meeting");
}

void ConferenceParticipant::Roster::tellTurnedAway(ConferenceParticipant &owner,
                                                   const ConferenceRosterEntry &party,
                                                   const char *why) {
    VINTOK_LOG(SEVERITY_WARNING, formatText("Turned away %d (", party.descriptor()) +
                                     visibleText(party.email()) + "): " + why);
    refuse(TCP_ERROR_INVALID_ADDRESS, std::string(why));
    if (TurnedAwayCallback callback = owner._workings->turnedAwayCB)
        callback(&owner, party, why, owner._userData);
}

void ConferenceParticipant::setTurnedAwayCB(TurnedAwayCallback callback) {
    _workings->turnedAwayCB = callback;
}

// The called party says why it hangs up.
void ConferenceParticipant::Roster::turnedAway(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer) {
    if (owner._getPending(peer->descriptor()) == nullptr || peer->doBroadcast() ||
        getTwin(owner, peer) != nullptr)
        return;
    tellTurnedAway(owner, *peer, "this party's address and port are another's in the meeting");
    owner.mf_hangup(peer);
}

bool ConferenceParticipant::_isUnique(ConferenceRosterEntry *entry) {
    const ConferenceRosterEntry *listed =
        entry != nullptr ? Roster::getTwin(*this, entry) : nullptr;
    if (listed != nullptr && s_printDebug)
        Roster::logDuplicate(*this, *listed, *entry);
    return listed == nullptr;
}

// The first other entry of the same party.
ConferenceRosterEntry *ConferenceParticipant::Roster::getTwin(const ConferenceParticipant &owner,
                                                              const ConferenceRosterEntry *entry) {
    const auto found =
        std::find_if(owner._attendees.begin(), owner._attendees.end(), [&](const auto *listed) {
            return listed != nullptr && listed != entry && !listed->isProxyConnection() &&
                   *listed == *entry && MembersOnly::hasAddress(owner, *listed);
        });
    return found != owner._attendees.end() ? *found : nullptr;
}

void ConferenceParticipant::Roster::logDuplicate(const ConferenceParticipant &owner,
                                                 const ConferenceRosterEntry &listed,
                                                 const ConferenceRosterEntry &entry) {
    std::string name;
    if (!entry.name(name))
        name = "unknown";
    std::string address;
    entry.ipString(address, false);
    if (owner._self.isHidingIPsRequired() || entry.isHidingIPsRequired())
        address = "0.0.0.0";
    VINTOK_LOG(SEVERITY_WARNING,
               "Duplicate connection from (" + visibleText(name) + " )[ " + address +
                   " ]  :  " + std::to_string(entry.hostByteOrderPort()) + " (" +
                   visibleText(listed.email()) + " and " + visibleText(entry.email()) + ")");
}

// ---- What the host says of others, and a member of itself ----

void ConferenceParticipant::_handleRosterReply(ConferenceRosterEntry *peer, unsigned char *body,
                                               std::uint64_t length) {
    VINTOK_LOG(SEVERITY_DEBUG, formatText("Receive Roster entry from %d", peer->descriptor()));
    if (!Guards::takesEntry(*this, peer, length))
        return;
    ConferenceRosterEntry entry;
    if (entry.read(body, length) == 0) {
        VINTOK_LOG(SEVERITY_ERROR, "Could not decode Entry\n");
        return;
    }
    VINTOK_LOG(SEVERITY_DEBUG, logText(entry));
    if (entry == _self) {
        Roster::takeOwnEntry(*this, entry);
        return;
    }
    ConferenceRosterEntry *known = _getPeer(entry);
    if (known != nullptr && peer->doBroadcast() && !_self.isHost() && !known->doBroadcast() &&
        !known->isShadow()) {
        mf_hangup(known); // whoever is in the meeting is not called any more
        known = nullptr;
    }
    if (!_isListed(peer))
        return;
    const bool isNew = known == nullptr;
    if (isNew)
        known = _addDescriptor(-1);
    if (known == nullptr)
        return;
    const bool joinPending = known->isJoinPending();
    const unsigned short color = known->colorIndex();
    MembersOnly::believe(*this, entry, *known);
    takeEntry(*known, entry);
    known->setJoinPending(joinPending);
    if (_self.isHost()) {
        known->setColorIndex(color);
        VINTOK_LOG(SEVERITY_DEBUG, logText(*known));
    }
    if (isNew)
        _tell(_joinCB, *known);
    if (isNew && _isListed(known) && known->isLeader())
        _tell(_leadChangeCB, *known);
    if (_isListed(known))
        _tell(_userDataCB, *known);
    if (_self.isHost())
        _sendRoster(nullptr); // any entry that reaches the host goes out to all
}

// The roster's entry of this party itself, which brings its colour.
void ConferenceParticipant::Roster::takeOwnEntry(ConferenceParticipant &owner,
                                                 const ConferenceRosterEntry &entry) {
    if (owner._self.isHost()) {
        VINTOK_LOG(SEVERITY_ERROR, "_handleRosterReply got self back when hosting");
        return;
    }
    owner._self.setColorIndex(entry.colorIndex());
    VINTOK_LOG(SEVERITY_DEBUG, logText(owner._self));
    if (owner._userDataCB != nullptr)
        owner._userDataCB(&owner, owner._self); // a server's too
}

bool ConferenceParticipant::Roster::broadcastLeave(ConferenceParticipant &owner,
                                                   const ConferenceRosterEntry &party) {
    TCPMessage message;
    return openMessage(message, TCP_leaveNotify, party) && owner._broadcastData(nullptr, message);
}

// The colours of a meeting are never given twice; past 65535 they begin again.
void ConferenceParticipant::Roster::giveColor(ConferenceParticipant &owner,
                                              ConferenceRosterEntry *peer) {
    ConferenceLink *link = owner._workings->linking.link;
    peer->setColorIndex(link != nullptr ? link->takeColor()
                                        : static_cast<unsigned short>(owner._nextColorIndex++));
    VINTOK_LOG(SEVERITY_DEBUG, logText(*peer));
}

void ConferenceParticipant::_handleLeaveNotify(ConferenceRosterEntry *peer, unsigned char *body,
                                               std::uint64_t length) {
    VINTOK_LOG(SEVERITY_DEBUG, formatText("Receive leave Notify from %d\n", peer->descriptor()));
    ConferenceRosterEntry entry;
    if (entry.read(body, length) == 0) {
        VINTOK_LOG(SEVERITY_ERROR, "Could not decode Entry");
        return;
    }
    VINTOK_LOG(SEVERITY_INFO, "Receive==========\n" + logText(entry) + "\n==============");
    ConferenceRosterEntry *known = _getPeer(entry);
    if (known == nullptr || !known->isShadow())
        return; // a connection goes by its own hang-up
    const bool joinPending = known->isJoinPending();
    const unsigned short color = known->colorIndex();
    takeEntry(*known, entry);
    known->setJoinPending(joinPending);
    known->setColorIndex(color);
    VINTOK_LOG(SEVERITY_DEBUG, logText(*known));
    _tell(_leaveCB, *known);
    if (_isListed(known))
        _removeDescriptor(static_cast<const TCPAddress &>(*known));
    if (_fileTransferOrigin == *known && (known->isIPv4() || known->isIPv6()))
        Files::abandonFile(*this); // it came by way of the host
}

} // namespace vintok
