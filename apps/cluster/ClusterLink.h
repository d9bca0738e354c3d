// What links a host to the others of its meeting, and what finds one of them. Where the program was
// built without NATS, both say so.
#ifndef VINTOK_APP_CLUSTERLINK_H
#define VINTOK_APP_CLUSTERLINK_H

#include <vintok-cluster/Cluster.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace app::cluster {

// One host's, for as long as it is linked.
class Link {
public:
    virtual ~Link() = default;

    // This one first.
    virtual std::vector<vintok::ClusterHost> hosts() const = 0;
    // The name of the host that a party is at; empty: it is in no meeting.
    virtual std::string hostOf(const vintok::TCPAddress &party) const = 0;
    virtual vintok::ClusterMetrics metrics() const = 0;
};

using Told = std::function<void(const vintok::ClusterEvent &)>;

// Null, with the reason, when there is no link then. May take five seconds.
std::unique_ptr<Link> link(vintok::ConferenceParticipant &host,
                           const vintok::ClusterOptions &options, const Told &told,
                           std::string &failure);

// For who wants to call one of them, the best first; none with the reason. On any thread.
std::vector<vintok::ClusterHost> find(const vintok::ClusterOptions &options,
                                      std::uint32_t milliseconds, std::string &failure);

} // namespace app::cluster

#endif
