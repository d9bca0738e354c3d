// The guard that takes messages only from those from whom they can come.
//
// `permissions` says so for each message, by who has sent it: a stranger is any connection that has
// not joined, a member is who has joined a party that relays, and the host is the one that this
// party has joined. Whoever else has joined a party that neither hosts nor relays counts as a
// stranger: what is said to everybody comes by way of the host.
//
// An entry says more than its sender can know. Some of its bits are about the receiver's own
// connection; `believe` puts back what this end knows itself. The bits of the host, the leader and
// a server are a role: who calls may have it, and `settle` takes it from those who join this party.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <iterator>

namespace vintok {

namespace {

// A file of which nothing has come for so long is given up when another one begins. Otherwise one
// sender that stops in the middle would keep everybody else's from arriving.
constexpr std::chrono::seconds staleTime(60);

enum class Rule {
    no,
    yes,
    ownWord,  // the origin is the sender, or nobody
    ownFile,  // the origin is the sender
    ownEntry, // the body is about the sender
    leads,    // the sender leads
    answers,  // the sender leads, or nobody waits for an answer
    asked     // an answer is awaited from the sender; this is it
};

struct Permission {
    const TCPGUID *message;
    Rule stranger;
    Rule member;
    Rule host;
};

constexpr Permission permissions[] = {
    {&TCP_broadcastMessage, Rule::no, Rule::ownWord, Rule::yes},
    {&TCP_fileTransferData, Rule::no, Rule::ownFile, Rule::yes},
    {&TCP_fileTransferBegin, Rule::no, Rule::ownFile, Rule::yes},
    {&TCP_fileTransferEnd, Rule::no, Rule::ownFile, Rule::yes},
    {&TCP_fileTransferAck, Rule::no, Rule::ownFile, Rule::yes},
    {&TCP_rosterEntry, Rule::yes, Rule::yes, Rule::yes},
    {&TCP_joinRequest, Rule::yes, Rule::yes, Rule::yes},
    {&TCP_joinReply, Rule::yes, Rule::no, Rule::yes},
    {&TCP_hangup, Rule::yes, Rule::yes, Rule::yes},
    {&TCP_keepAlive, Rule::yes, Rule::yes, Rule::yes},
    {&TCP_rosterRequest, Rule::no, Rule::yes, Rule::yes},
    {&TCP_rosterReply, Rule::no, Rule::ownEntry, Rule::yes},
    {&TCP_leaveNotify, Rule::no, Rule::no, Rule::yes},
    {&TCP_leadRequest, Rule::no, Rule::ownEntry, Rule::yes},
    {&TCP_leadChangeNotify, Rule::no, Rule::no, Rule::yes},
    {&TCP_leadReply, Rule::no, Rule::answers, Rule::yes},
    {&TCP_stopLeadRequest, Rule::no, Rule::leads, Rule::yes},
    {&TCP_echoRequest32, Rule::no, Rule::yes, Rule::yes},
    {&TCP_echoReply32, Rule::no, Rule::asked, Rule::asked},
    {&TCP_messageID_46, Rule::no, Rule::ownFile, Rule::yes},
    {&TCP_messageID_47, Rule::no, Rule::ownFile, Rule::yes},
    {&TCP_RECYCLE_ME_1, Rule::no, Rule::ownFile, Rule::yes},
    {&TCP_RECYCLE_ME_2, Rule::yes, Rule::no, Rule::yes},
    {&TCP_RECYCLE_ME_3, Rule::yes, Rule::no, Rule::yes},
};
// Of the application's own.
constexpr Permission otherMessages = {nullptr, Rule::no, Rule::ownWord, Rule::yes};

bool hasIP(const TCPAddress &address) {
    return address.isIPv4() || address.isIPv6();
}

// Frames of the old form have no port.
bool isFrom(const TCPAddress &origin, const ConferenceRosterEntry &peer) {
    TCPAddress address = peer;
    if (origin.port() == 0)
        address.setPort(0);
    return address == origin;
}

// A body that is no entry is for the handler to pass over.
bool isAbout(const TCPMessage &message, const ConferenceRosterEntry &peer) {
    ConferenceRosterEntry entry;
    return entry.read(message.messageBuffer(), message.messageBufferLength()) == 0 || entry == peer;
}

// A caller that has an address and has not joined.
bool isWaiting(const ConferenceRosterEntry &entry) {
    return entry.descriptor() != -1 && !entry.doBroadcast() && hasIP(entry);
}

} // namespace

// ---- Messages ----

// What applies to a message: a rule of the table, or none where it has no row.
struct ConferenceParticipant::MembersOnly::Case {
    ConferenceParticipant &owner;
    ConferenceRosterEntry &peer;
    const TCPMessage &message;

    Rule rule() const {
        const auto *row =
            std::find_if(std::begin(permissions), std::end(permissions),
                         [&](const auto &each) { return *each.message == message.messageID(); });
        if (row == std::end(permissions))
            row = &otherMessages;
        if (peer.doBroadcast() && peer.isHost() && !owner._self.isHost())
            return row->host;
        const bool isMember = peer.doBroadcast() || Linking::isElsewhere(owner, peer);
        return isMember && owner._relays() ? row->member : row->stranger;
    }

    bool keeps(Rule rule) const {
        const TCPAddress &origin = message.originAddress();
        switch (rule) {
        case Rule::no:
            return false;
        case Rule::yes:
            return true;
        case Rule::ownWord:
            return !hasIP(origin) || isFrom(origin, peer);
        case Rule::ownFile:
            return isFrom(origin, peer);
        case Rule::ownEntry:
            return isAbout(message, peer);
        case Rule::leads:
            return peer.isLeader();
        case Rule::answers:
            return owner._self.isHost() &&
                   (peer.isLeader() ||
                    (!owner._self.isLeadPending() && owner._getPendingLeader() == nullptr));
        case Rule::asked:
            return peer.m_echoesAwaited != 0 && peer.m_echoesAwaited-- != 0;
        }
        return false;
    }
};

bool ConferenceParticipant::MembersOnly::takes(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer,
                                               const TCPMessage &message) {
    const Case here{owner, *peer, message};
    if (!owner._membersOnly || here.keeps(here.rule()))
        return true;
    ++owner._refusedMessages;
    if (!peer->m_refused)
        logRefused(owner, *peer, message);
    peer->m_refused = true;
    return false;
}

bool ConferenceParticipant::MembersOnly::mayCome(ConferenceParticipant &owner,
                                                 ConferenceRosterEntry *peer,
                                                 const TCPMessage &message) {
    const Case here{owner, *peer, message};
    return here.keeps(here.rule());
}

void ConferenceParticipant::MembersOnly::logRefused(const ConferenceParticipant &owner,
                                                    const ConferenceRosterEntry &peer,
                                                    const TCPMessage &message) {
    const MessageKind *kind = findMessageKind(message.messageID());
    std::string address = "0.0.0.0";
    if (!owner._self.isHidingIPsRequired() && !peer.isHidingIPsRequired())
        peer.ipString(address);
    VINTOK_LOG(SEVERITY_WARNING,
               "Refused " + std::string(kind != nullptr ? kind->name : "") + " from " +
                   visibleText(peer.email()) + " at " + address +
                   formatText(" : %hu, fd = %d", peer.hostByteOrderPort(), peer.descriptor()));
}

// ---- Entries ----

// `entry` is about the party that is `known`. A shadow's is the host's word.
void ConferenceParticipant::MembersOnly::believe(const ConferenceParticipant &owner,
                                                 ConferenceRosterEntry &entry,
                                                 const ConferenceRosterEntry &known) {
    if (!owner._membersOnly)
        return;
    entry.setProxy(false); // nobody sends it; it would hide the party from look-ups
    entry.setProxyConnection(known.isProxyConnection());
    entry.setJoinPending(known.isJoinPending());
    // Both ends leave the secure step out, or neither.
    entry.setMUXEncrypt(entry.isMUXEncrypt() && owner._self.isMUXEncrypt());
    if (known.descriptor() == -1) {
        entry.setHost(false); // a meeting has one, and that is who says this
        return;
    }
    entry.setSecure(known.isSecure());
    entry.setLeadPending(known.isLeadPending());
    if (known.doBroadcast()) {
        entry.setHost(known.isHost());
        entry.setServer(known.isHost() ? entry.isServer() : known.isServer());
    }
    entry.setLeader(owner._self.isHost() ? known.isLeader() : entry.isLeader() && entry.isHost());
}

// The party joins: the roles that are left to it. A server that nobody has called would hear
// everything unseen.
void ConferenceParticipant::MembersOnly::settle(const ConferenceParticipant &owner,
                                                ConferenceRosterEntry *peer, bool called) {
    if (!owner._membersOnly)
        return;
    peer->setHost(peer->isHost() && !owner._self.isHost());
    peer->setServer(peer->isServer() && (peer->isHost() || called));
}

// ---- Addresses ----

// Whether the entry makes another connection of its address a second one: a caller does not.
bool ConferenceParticipant::MembersOnly::hasAddress(const ConferenceParticipant &owner,
                                                    const ConferenceRosterEntry &entry) {
    return !owner._membersOnly || !isWaiting(entry) ||
           owner._getPending(entry.descriptor()) != nullptr;
}

bool ConferenceParticipant::MembersOnly::isOwnAddress(const ConferenceParticipant &owner,
                                                      const ConferenceRosterEntry &entry) {
    return owner._membersOnly && hasIP(entry) && entry == owner._self;
}

// Of two calls that cross, that of the party with the first address stands. Whoever has called
// with the address of a party that is called would otherwise be its call.
void ConferenceParticipant::MembersOnly::preferOwnCall(ConferenceParticipant &owner,
                                                       const ConferenceRosterEntry *peer) {
    if (!owner._membersOnly || owner._getPending(peer->descriptor()) == nullptr ||
        !(owner._self < *peer))
        return;
    owner._forEachAttendee([&](ConferenceRosterEntry *entry) {
        if (entry != peer && *entry == *peer && isWaiting(*entry) &&
            owner._getPending(entry->descriptor()) == nullptr)
            owner.mf_hangup(entry);
    });
}

// ---- Files ----

// Makes room for a file that begins. False when the application has hung up meanwhile.
bool ConferenceParticipant::MembersOnly::mayBeginFile(ConferenceParticipant &owner,
                                                      const ConferenceRosterEntry *peer,
                                                      const TCPMessage &message) {
    if (!owner._membersOnly || owner._workings->fileNeighbour == nullptr)
        return true;
    const auto age = std::chrono::steady_clock::now() - owner._workings->fileSign;
    if (mayEndFile(owner, peer, message) || age >= staleTime)
        Files::abandonFile(owner);
    return owner._isListed(peer);
}

bool ConferenceParticipant::MembersOnly::mayEndFile(const ConferenceParticipant &owner,
                                                    const ConferenceRosterEntry *peer,
                                                    const TCPMessage &message) {
    return !owner._membersOnly || (owner._workings->fileNeighbour == peer &&
                                   owner._fileTransferOrigin == message.originAddress());
}

} // namespace vintok
