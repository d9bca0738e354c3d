// A host as its beat describes it, for an application. What strangers may have written is made
// visible.
#ifndef VINTOK_CLUSTER_DESCRIBE_H
#define VINTOK_CLUSTER_DESCRIBE_H

#include "vintok-cluster/Cluster.h"
#include "vintok-cluster/Wire.h"
#include "vintok/TCPStream.h"

namespace vintok::cluster {

inline ClusterHost describe(const Beat &beat) {
    ClusterHost host;
    host.name = visibleText(beat.name, 256);
    host.address = beat.address;
    host.advertised = visibleText(beat.advertised, 256);
    host.port = beat.port;
    host.members = beat.members;
    host.mostMembers = beat.mostMembers;
    host.authority = beat.has(Beat::hasAuthority);
    return host;
}

} // namespace vintok::cluster

#endif
