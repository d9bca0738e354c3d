// What happens between the hosts of a meeting, in words.
#ifndef VINTOK_APP_CLUSTEREVENTS_H
#define VINTOK_APP_CLUSTEREVENTS_H

#include <vintok-cluster/Cluster.h>

#include <string>

namespace app::cluster {

std::string sentenceOf(const vintok::ClusterEvent &event);

} // namespace app::cluster

#endif
