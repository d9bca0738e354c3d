#include "ClusterText.h"

#include "ClusterEvents.h"
#include "Target.h"

namespace app {

namespace {

std::string counted(std::uint64_t count, const std::string &what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string placeOf(const vintok::ClusterHost &host) {
    return Target{host.advertised, host.port}.text();
}

// By ClusterEvent::Kind.
const char *const events[] = {"host-came", "host-went", "authority", "cluster-back",
                              "cluster-lost"};

std::int64_t number(std::uint64_t value) {
    return static_cast<std::int64_t>(value);
}

} // namespace

Notice noticeOf(const vintok::ClusterEvent &event) {
    const bool isOfHost = event.kind <= vintok::ClusterEvent::authorityMoved;
    return {events[event.kind], cluster::sentenceOf(event),
            isOfHost ? fieldsOf(event.host) : Fields().text("reason", event.text)};
}

std::string textOf(const vintok::ClusterHost &host) {
    const std::string most = host.mostMembers == 0 ? "" : " of " + std::to_string(host.mostMembers);
    return placeOf(host) + "  " + std::to_string(host.members) + most + " members" +
           (host.authority ? "  authority" : "") + (host.self ? "  this one" : "");
}

Fields fieldsOf(const vintok::ClusterHost &host) {
    return Fields()
        .text("name", host.name)
        .text("address", host.advertised)
        .number("port", host.port)
        .number("members", host.members)
        .number("most", host.mostMembers)
        .flag("authority", host.authority)
        .flag("self", host.self);
}

std::string textOf(const vintok::ClusterMetrics &metrics) {
    return "Out: " + counted(metrics.messagesOut, "message") + ", " +
           counted(metrics.bytesOut, "byte") + ", " + counted(metrics.packetsOut, "packet") +
           "; in: " + counted(metrics.messagesIn, "message") + ", " +
           counted(metrics.bytesIn, "byte") + ", " + counted(metrics.packetsIn, "packet") +
           ".\nSent again: " + std::to_string(metrics.sentAgain) +
           ", asked again: " + std::to_string(metrics.askedAgain) +
           ", lost: " + std::to_string(metrics.lost) +
           ", refused: " + std::to_string(metrics.refused) +
           ", hosts lost: " + std::to_string(metrics.hostsLost) +
           ", connected again: " + std::to_string(metrics.reconnects) +
           ", waiting: " + counted(metrics.waiting, "byte") +
           (metrics.connected ? "." : ". NATS is out of reach.");
}

Fields fieldsOf(const vintok::ClusterMetrics &metrics) {
    return Fields()
        .flag("connected", metrics.connected)
        .number("messages-out", number(metrics.messagesOut))
        .number("messages-in", number(metrics.messagesIn))
        .number("bytes-out", number(metrics.bytesOut))
        .number("bytes-in", number(metrics.bytesIn))
        .number("packets-out", number(metrics.packetsOut))
        .number("packets-in", number(metrics.packetsIn))
        .number("sent-again", number(metrics.sentAgain))
        .number("asked-again", number(metrics.askedAgain))
        .number("lost", number(metrics.lost))
        .number("refused", number(metrics.refused))
        .number("hosts-lost", number(metrics.hostsLost))
        .number("reconnects", number(metrics.reconnects))
        .number("waiting", number(metrics.waiting));
}

} // namespace app
