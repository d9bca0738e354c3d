#include "ClusterEvents.h"

#include "Target.h"

namespace app::cluster {

std::string sentenceOf(const vintok::ClusterEvent &event) {
    switch (event.kind) {
    case vintok::ClusterEvent::hostCame:
        return "The host " + event.host.name + " (" +
               Target{event.host.advertised, event.host.port}.text() + ") is linked.";
    case vintok::ClusterEvent::hostWent:
        return "The host " + event.host.name + " is gone.";
    case vintok::ClusterEvent::authorityMoved:
        return event.host.self           ? "This host has authority."
               : event.host.name.empty() ? "No host has authority."
                                         : "The host " + event.host.name + " has authority.";
    case vintok::ClusterEvent::connected:
        return "NATS is back.";
    case vintok::ClusterEvent::disconnected:
        break;
    }
    return "NATS is lost" + (event.text.empty() ? "" : ": " + event.text) + '.';
}

} // namespace app::cluster
