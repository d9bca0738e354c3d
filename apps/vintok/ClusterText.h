// What a host tells of the other hosts of its meeting.
#ifndef VINTOK_APP_CLUSTERTEXT_H
#define VINTOK_APP_CLUSTERTEXT_H

#include "Report.h"

#include <vintok-cluster/Cluster.h>

namespace app {

// A host that came or went, and the like.
Notice noticeOf(const vintok::ClusterEvent &event);

// Where callers call it, how many members it has of how many, and what it is.
std::string textOf(const vintok::ClusterHost &host);
Fields fieldsOf(const vintok::ClusterHost &host);

// What has crossed between the hosts.
std::string textOf(const vintok::ClusterMetrics &metrics);
Fields fieldsOf(const vintok::ClusterMetrics &metrics);

} // namespace app

#endif
