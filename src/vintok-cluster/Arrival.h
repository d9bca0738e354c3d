// What comes from NATS's side and waits until the participant's loop takes it.
#ifndef VINTOK_CLUSTER_ARRIVAL_H
#define VINTOK_CLUSTER_ARRIVAL_H

#include "vintok-cluster/Wire.h"

#include <cstdint>
#include <functional>
#include <string>

namespace vintok::cluster {

struct Arrival {
    enum Kind : std::uint8_t {
        packet,
        search,       // `text`: where to answer it
        connected,    // again
        disconnected, // `text`: why
        complaint,
        stored,  // what was given under `number` has the place `place`
        ordered, // from that place
        past,    // the same from before this host was there; without bytes: that was all of it
    };
    Kind kind = packet;
    Packet bytes = nullptr;
    std::string text = {};
    std::uint64_t number = 0;
    std::uint64_t place = 0;
};

// Takes one on any thread.
using Arrivals = std::function<void(Arrival)>;

} // namespace vintok::cluster

#endif
