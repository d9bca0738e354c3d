// What one host of a meeting does to be one with the others. It knows neither the engine that
// carries the packets nor a clock: both are given to it, and so it does the same for the same input
// in the same order.
//
// What arrives (`received`, `stored`, `ordered`) is only taken note of. The meeting at this side is
// told in `turn` alone. What the meeting says comes in as of a ConferenceLink.
#ifndef VINTOK_CLUSTER_NODE_H
#define VINTOK_CLUSTER_NODE_H

#include "vintok-cluster/Carrier.h"
#include "vintok-cluster/Colors.h"
#include "vintok-cluster/Ordered.h"
#include "vintok-cluster/Outgoing.h"
#include "vintok-cluster/RemoteHost.h"
#include "vintok/ConferenceLink.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vintok::cluster {

struct NodeOptions {
    Rank rank;
    TCPAddress address; // the host's
    std::string name;
    std::string advertised;
    std::uint16_t port = 0;
    std::uint32_t mostMembers = 0;
    bool ordered = false;
    std::uint32_t history = 0;
    std::uint32_t hostTimeout = 3000;
    std::uint64_t window = 32 << 20;
    std::uint32_t retention = 60000;
};

struct Counters {
    std::uint64_t messagesOut = 0, messagesIn = 0;
    std::uint64_t bytesOut = 0, bytesIn = 0;
    std::uint64_t packetsOut = 0, packetsIn = 0;
    std::uint64_t sentAgain = 0;  // packets that others have asked for
    std::uint64_t askedAgain = 0; // packets that this host has asked for
    std::uint64_t lost = 0;       // packets that could not be had any more
    std::uint64_t refused = 0;    // packets that are none, or of nobody's
    std::uint64_t hostsLost = 0;
};

class Node final : public ConferenceLink {
public:
    // Times are milliseconds of a clock that never goes back; `wall` is added for those since 1970.
    Node(const NodeOptions &options, Carrier &carrier, Side &side, std::uint64_t now,
         std::uint64_t wall);
    ~Node() = default;
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    void received(const Packet &packet, std::uint64_t now);
    // The engine has stored what was given to `Carrier::store` under this number.
    void stored(std::uint64_t number, std::uint64_t place) { m_ordered.stored(number, place); }
    // What the engine has stored, in its order. `isPast`: from before this host was there; null
    // where that ends.
    void ordered(const Packet &packet, std::uint64_t place, bool isPast, std::uint64_t now);
    // Whether more of that can be taken.
    bool hasRoomForOrdered() const { return m_ordered.hasRoom(); }

    // Does what there is to do. The milliseconds until it wants to be called again.
    std::uint32_t turn(std::uint64_t now);
    // To be said before goodbye: hands over what is to be stored. False when all of it is stored.
    bool store();
    // Goodbye to the others.
    void leave();

    // What is told to whoever asks for hosts of this meeting; null outside one.
    Packet answer();
    Beat beat() const;
    const std::map<std::uint64_t, std::unique_ptr<RemoteHost>> &hosts() const { return m_hosts; }
    std::uint64_t authority() const { return m_authority; } // incarnation; 0: nobody as yet
    // Of the host where it is; 0: nowhere.
    std::uint64_t hostOf(const TCPAddress &party) const;
    const Counters &counters() const { return m_counters; }
    std::uint64_t waiting() const; // bytes that not everybody has acknowledged

    void entryChanged(const ConferenceRosterEntry &entry) override;
    void entryLeft(const TCPAddress &party) override;
    void say(const TCPAddress &speaker, const unsigned char *frames, std::size_t length) override;
    bool isOrdered() const override { return m_options.ordered; }
    bool hasRoom() const override;
    bool sendTo(const TCPAddress &party, const TCPAddress &sender, const unsigned char *frame,
                std::size_t length) override;
    bool sendToAuthority(const TCPAddress &sender, const unsigned char *frame,
                         std::size_t length) override;
    bool hasAuthority() const override { return m_authority == m_options.rank.incarnation; }
    void leaderChanged(const TCPAddress &leader) override;
    unsigned short takeColor() override;
    void meetingEnded() override;

private:
    // ---- Packets (NodePackets.cpp) ----
    void takeBeat(Reader &reader, std::uint64_t sender);
    void takeStream(RemoteHost &host, Reader &reader, const Packet &packet);
    void takeSnapshot(RemoteHost &host, Reader &reader);
    void answerAll(RemoteHost &asker);
    void answerAgain(RemoteHost &asker, Reader &reader);
    void askFor(RemoteHost &host);
    RemoteHost *meet(const Beat &beat);
    void takeAcknowledgements(RemoteHost &host);
    void sendBeat();

    // ---- Who is where (NodeRoster.cpp) ----
    struct Local {
        std::uint64_t since;
        Bytes body;
    };
    bool takesPart() const { return m_local.contains(m_self); }
    void unsettle(const RemoteHost &host); // to be looked at in the next turn
    void settle(const Key &key);
    void settleAll();
    const RemoteHost *ownerOf(const Key &key) const;
    void takeEntry(RemoteHost &host, View body);
    void takeLeft(RemoteHost &host, View body);
    void letLeave();

    // ---- Authority (NodeAuthority.cpp) ----
    void lookForSilence();
    void lookForAuthority();
    void takeLeader();
    void giveBlocks();
    void takeBlocks(const RemoteHost &host);

    // ---- Items (Node.cpp) ----
    bool isNew() const { return m_now < m_claimsFrom + m_options.hostTimeout; }
    bool takePackets();
    void take(RemoteHost &host, ItemKind kind, View body);
    void takeSaid(View speaker, View frames);
    void takeMessage(ItemKind kind, View body);
    bool takeOrdered();
    bool isInTime(const Ordered::Item &item) const;
    void remember(View frames);
    void tellNewcomers();
    void takeColors();
    void release();
    void releaseOrdered();
    void forget();

    const NodeOptions m_options;
    Carrier &m_carrier;
    Side &m_side;
    const Key m_self;
    const std::uint32_t m_beatTime;
    const std::uint64_t m_claimsFrom; // authority, if nobody else is heard of
    const std::uint64_t m_wall;
    Rank m_rank;
    std::uint64_t m_now;
    std::uint64_t m_lastTurn;
    std::uint64_t m_nextBeat = 0;
    bool m_beatWanted = true;
    bool m_inTurn = false;
    bool m_blocked = false;
    std::uint64_t m_takenBytes = 0; // since the last beat

    Outgoing m_outgoing;
    std::uint64_t m_live = 0; // packet up to which all that are there have it
    Ordered m_ordered;
    std::map<std::uint64_t, std::unique_ptr<RemoteHost>> m_hosts;

    std::map<Key, Local> m_local;
    std::map<Key, std::uint64_t> m_shown; // to this side, and of which host
    std::set<Key> m_unsettled;
    std::deque<Bytes> m_history; // frames
    std::size_t m_historyBytes = 0;
    bool m_isPastThere = false;
    std::set<Key> m_newcomers; // here, to whom the last messages are owed

    std::uint64_t m_authority = 0;
    std::uint64_t m_authoritySince = 0;
    TCPAddress m_leader;
    bool m_leaderTaken = false;
    Colors m_colors;
    bool m_colorsGained = false;
    bool m_colorsLost = false;
    std::uint32_t m_snapshots = 0;
    Counters m_counters;
};

} // namespace vintok::cluster

#endif
