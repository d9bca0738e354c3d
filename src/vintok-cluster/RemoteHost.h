// Another host of the meeting, as this one knows it.
#ifndef VINTOK_CLUSTER_REMOTEHOST_H
#define VINTOK_CLUSTER_REMOTEHOST_H

#include "vintok-cluster/Incoming.h"
#include "vintok-cluster/Ordered.h"
#include "vintok-cluster/Wire.h"
#include "vintok/ConferenceRosterEntry.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vintok::cluster {

// A party as its host tells it: since when it is there, and its entry.
struct Party {
    std::uint64_t since = 0; // milliseconds since 1970, by the host's word
    ConferenceRosterEntry entry;
};
using Parties = std::map<Key, Party>;

// The body of `ItemKind::entry`: 8 bytes of `since`, and the entry.
Bytes encode(std::uint64_t since, const ConferenceRosterEntry &entry);
bool decode(View body, Party &party);

// The parts of a snapshot until all are there.
class Snapshot {
public:
    // One part. True when it was the last that was missing: `parties` and `at` hold.
    bool take(Reader &reader);
    Parties parties;
    struct At {
        std::uint64_t sequence = 0; // what the stream was like behind this packet
        std::uint64_t first = 0;    // that could still be had
    };
    At at;

    // All parts, each a packet.
    static std::vector<Packet> make(std::uint64_t sender, std::uint32_t number, const At &at,
                                    const std::map<Key, Bytes> &parties, std::size_t longest);

private:
    bool join();

    std::optional<std::uint32_t> m_number;
    std::vector<Bytes> m_parts;
    std::vector<bool> m_there;
    std::size_t m_missing = 0;
    std::size_t m_bytes = 0;
};

struct RemoteHost {
    explicit RemoteHost(std::uint64_t mostBytes) : incoming(mostBytes) {}

    Beat beat; // the last
    std::uint64_t heard = 0;
    bool isLive = true;
    bool isEnded = false; // it has said goodbye, or another has its place

    Incoming incoming;
    Joiner joiner;
    Snapshot snapshot;
    Parties parties;
    // Who has left there, until what they have said is taken, or a time is over.
    struct Leaving {
        Key party;
        Ordered::End end;
        std::uint64_t since;
    };
    std::deque<Leaving> leaving;
    bool isCounted = false;        // it has counted among the hosts of the meeting
    std::uint64_t askedAll = 0;    // when
    std::uint64_t answeredAll = 0; // when
    std::uint64_t askedAgain = 0;  // when
    std::uint64_t askedUpTo = 0;   // which packet

    std::optional<std::uint64_t> acknowledged; // of this host's stream
    std::uint64_t namedUs = 0;                 // when it last said so
};

} // namespace vintok::cluster

#endif
