// The client library of NATS under owners, and how a connection is set up.
#ifndef VINTOK_CLUSTER_NATS_H
#define VINTOK_CLUSTER_NATS_H

#include "vintok-cluster/Cluster.h"
#include "vintok-cluster/Wire.h"

#include <memory>
#include <nats/nats.h>
#include <string>

namespace vintok::cluster {

template <auto release>
struct Release {
    template <typename T>
    void operator()(T *object) const {
        release(object);
    }
};

using NatsOptions = std::unique_ptr<natsOptions, Release<natsOptions_Destroy>>;
using NatsConnection = std::unique_ptr<natsConnection, Release<natsConnection_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, Release<natsSubscription_Destroy>>;
using NatsMessage = std::unique_ptr<natsMsg, Release<natsMsg_Destroy>>;

// The words of a status, with what this thread's last call left.
std::string wordsOf(natsStatus status);

// Everything that the application has said about the way to the servers. Null, with the reason, for
// what cannot be used.
NatsOptions makeOptions(const ClusterOptions &options, std::string &failure);
// Tries for so many milliseconds. Null, with the reason, when no server has let us in.
NatsConnection connect(natsOptions *options, std::uint32_t milliseconds, std::string &failure);

natsStatus publish(natsConnection *connection, const std::string &subject, const Packet &packet);
Packet packetOf(natsMsg *message);

// The subjects of a meeting.
struct Subjects {
    explicit Subjects(const std::string &meeting)
        : token(subjectToken(meeting)), root("vintok." + token) {}
    std::string all() const { return root + ".all"; }
    std::string to(std::uint64_t host) const { return root + ".to." + hexadecimal(host); }
    std::string find() const { return root + ".find"; }
    std::string ordered() const { return root + ".ordered"; }
    std::string stream() const { return "VINTOK_" + token; } // of JetStream, with what is ordered

    const std::string token;
    const std::string root;
};

} // namespace vintok::cluster

#endif
