// Who looks for a host of a meeting asks all of them at once. Each answers with its beat, which
// also says how many others there are.
#include "vintok-cluster/Cluster.h"
#include "vintok-cluster/Describe.h"
#include "vintok-cluster/Nats.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <tuple>

namespace vintok {

namespace {

using Clock = std::chrono::steady_clock;
using cluster::Beat;

constexpr std::int64_t moment = 20; // milliseconds that a poll for answers takes

bool hasRoom(const ClusterHost &host) {
    return host.mostMembers == 0 || host.members < host.mostMembers;
}

using Answers = std::map<std::uint64_t, Beat>;

void take(natsMsg *message, Answers &answers) {
    const cluster::Packet packet = cluster::packetOf(message);
    cluster::Reader reader(*packet);
    const auto header = cluster::readHeader(reader);
    Beat beat;
    if (!header || header->kind != cluster::Kind::beat || !cluster::decode(reader, beat))
        return;
    beat.rank.incarnation = header->sender;
    answers.insert_or_assign(header->sender, beat);
}

// All that those who have answered know of have answered.
bool isComplete(const Answers &answers) {
    return !answers.empty() &&
           std::all_of(
               answers.begin(), answers.end(),
               [&](const auto &answer) {
                   const auto &known = answer.second.taken;
                   return std::all_of(
                       known.begin(), known.end(),
                       [&](const auto &other) { return answers.contains(other.first); });
               });
}

natsStatus ask(natsConnection *connection, const std::string &subject, Clock::time_point end,
               Answers &answers) {
    natsInbox *inbox = nullptr;
    natsStatus status = natsInbox_Create(&inbox);
    natsSubscription *raw = nullptr;
    if (status == NATS_OK)
        status = natsConnection_SubscribeSync(&raw, connection, inbox);
    const cluster::NatsSubscription subscription(raw);
    if (status == NATS_OK)
        status = natsConnection_PublishRequest(connection, subject.c_str(), inbox, "", 0);
    natsInbox_Destroy(inbox);
    while (status == NATS_OK && Clock::now() < end && !isComplete(answers)) {
        natsMsg *message = nullptr;
        status = natsSubscription_NextMsg(&message, raw, moment);
        const cluster::NatsMessage owned(message);
        if (status == NATS_OK)
            take(message, answers);
        else if (status == NATS_TIMEOUT || status == NATS_NO_RESPONDERS)
            status = NATS_OK;
    }
    return status;
}

} // namespace

std::vector<ClusterHost> Cluster::find(const ClusterOptions &options, std::uint32_t milliseconds,
                                       std::string &failure) {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    const cluster::NatsOptions made = cluster::makeOptions(options, failure);
    if (made == nullptr)
        return {};
    const cluster::NatsConnection connection = cluster::connect(made.get(), milliseconds, failure);
    if (connection == nullptr)
        return {};
    Answers answers;
    const natsStatus status =
        ask(connection.get(), cluster::Subjects(options.meeting).find(), end, answers);
    std::vector<ClusterHost> hosts;
    for (const auto &[incarnation, beat] : answers)
        hosts.push_back(cluster::describe(beat));
    std::stable_sort(hosts.begin(), hosts.end(), [](const ClusterHost &a, const ClusterHost &b) {
        return std::tuple(!hasRoom(a), a.members) < std::tuple(!hasRoom(b), b.members);
    });
    if (hosts.empty())
        failure =
            status == NATS_OK ? "no host of this meeting has answered" : cluster::wordsOf(status);
    return hosts;
}

} // namespace vintok
