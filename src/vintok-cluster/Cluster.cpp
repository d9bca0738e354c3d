// The node between its participant and NATS. Everything happens in the wake-up that the connection
// asks the loop for.
#include "vintok-cluster/Cluster.h"

#include "vintok-cluster/Connection.h"
#include "vintok-cluster/Describe.h"
#include "vintok-cluster/Node.h"
#include "vintok/ConferenceLink.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <chrono>
#include <new>
#include <optional>
#include <random>
#include <thread>
#include <utility>

namespace vintok {

using cluster::Connection;
using cluster::Node;
using cluster::RemoteHost;

namespace {

constexpr std::uint32_t farewellTime = 1000; // milliseconds
constexpr std::uint32_t withoutMemory = 100;

std::uint64_t steadyNow() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

std::uint64_t wallNow() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

std::uint64_t randomNumber() {
    std::random_device random;
    const std::uint64_t number = std::uint64_t{random()} << 32 | random();
    return number != 0 ? number : 1;
}

std::string ipOf(const TCPAddress &address) {
    std::string text;
    address.ipString(text);
    return text;
}

} // namespace

// `LinkedMeeting` for this host.
struct cluster::State final : Side {
    State(Cluster &owner_, ConferenceParticipant &host_, const ClusterOptions &options_)
        : owner(owner_), host(host_), options(options_) {
        if (options.name.empty())
            options.name =
                ipOf(host.address()) + ':' + std::to_string(host.address().hostByteOrderPort());
        if (options.advertised.empty())
            options.advertised = ipOf(host.address());
        if (options.advertisedPort == 0)
            options.advertisedPort = host.address().hostByteOrderPort();
    }

    bool entry(const ConferenceRosterEntry &entry) override {
        return LinkedMeeting::entry(host, entry);
    }
    bool left(const TCPAddress &party) override { return LinkedMeeting::left(host, party); }
    bool said(const TCPAddress &speaker, View frames) override {
        return LinkedMeeting::said(host, speaker, frames.data(), frames.size());
    }
    bool saidTo(const TCPAddress &party, View frames) override {
        return LinkedMeeting::saidTo(host, party, frames.data(), frames.size());
    }
    bool hasRoom() override { return LinkedMeeting::hasRoom(host); }
    bool message(const TCPAddress &party, const TCPAddress &sender, View frame) override {
        return LinkedMeeting::message(host, party, sender, frame.data(), frame.size());
    }
    bool leader(const TCPAddress &leader) override { return LinkedMeeting::leader(host, leader); }
    void authorityChanged() override { LinkedMeeting::authorityChanged(host); }
    void giveColors(bool anew) override { LinkedMeeting::giveColors(host, anew); }
    TCPAddress leader() override;
    void happened(Event event, std::uint64_t incarnation) override;
    void log(const std::string &text) override;

    bool start();
    void stop();
    static void awake(int, void *self, bool) { static_cast<State *>(self)->work(); }
    void work();
    void take(const Arrival &arrival);
    void storeAll();
    void tell(const ClusterEvent &event);
    bool fail(const std::string &text);
    NodeOptions nodeOptions(std::uint64_t incarnation) const;
    ClusterHost describe(std::uint64_t incarnation) const;

    Cluster &owner;
    ConferenceParticipant &host;
    ClusterOptions options;
    TCPSelect loop;
    std::unique_ptr<Connection> connection;
    std::unique_ptr<Node> node;
    Cluster::HostsCallback callback = nullptr;
    void *callbackData = nullptr;
    std::string failure;
    bool isWorking = false;
    bool isStopWanted = false;
};

ClusterHost cluster::State::describe(std::uint64_t incarnation) const {
    const auto found = node->hosts().find(incarnation);
    const Beat own = node->beat();
    ClusterHost described;
    if (incarnation == own.rank.incarnation)
        described = cluster::describe(own);
    else if (found != node->hosts().end())
        described = cluster::describe(found->second->beat);
    described.self = incarnation == own.rank.incarnation;
    described.authority = incarnation != 0 && incarnation == node->authority();
    return described;
}

TCPAddress cluster::State::leader() {
    if (host.isLeader())
        return host.address();
    for (const ConferenceRosterEntry &entry : host.roster())
        if (entry.isLeader())
            return TCPAddress(entry);
    return TCPAddress();
}

void cluster::State::log(const std::string &text) {
    logMessage(("cluster: " + visibleText(text)).c_str(), SEVERITY_WARNING);
}

void cluster::State::tell(const ClusterEvent &event) {
    if (callback != nullptr)
        callback(&owner, event, callbackData);
}

void cluster::State::happened(Event event, std::uint64_t incarnation) {
    ClusterEvent told;
    told.kind = event == Event::came   ? ClusterEvent::hostCame
                : event == Event::went ? ClusterEvent::hostWent
                                       : ClusterEvent::authorityMoved;
    told.host = describe(incarnation);
    tell(told);
}

bool cluster::State::fail(const std::string &text) {
    failure = text;
    setLastError(TCP_ERROR_UNSPECIFIED_ERROR, "vintok::Cluster::start\n" + text);
    return false;
}

cluster::NodeOptions cluster::State::nodeOptions(std::uint64_t incarnation) const {
    NodeOptions made;
    made.rank = {wallNow(), incarnation};
    made.address = host.address();
    made.name = options.name;
    made.advertised = options.advertised;
    made.port = options.advertisedPort;
    made.mostMembers = options.mostMembers;
    made.ordered = options.ordered;
    made.history = options.history;
    made.hostTimeout = options.hostTimeout;
    made.window = options.window;
    made.retention = options.retention;
    return made;
}

bool cluster::State::start() {
    if (node != nullptr)
        return true;
    if (!host.isHost())
        return fail("this party hosts no meeting");
    const std::uint64_t incarnation = randomNumber();
    auto made = std::make_unique<Connection>(options, incarnation);
    std::string reason;
    if (!made->open(reason))
        return fail(reason);
    if (!loop.addReadableCallback(made->descriptor(), awake, this))
        return fail("the loop takes no further descriptor");
    connection = std::move(made);
    const std::uint64_t now = steadyNow();
    node =
        std::make_unique<Node>(nodeOptions(incarnation), *connection, *this, now, wallNow() - now);
    if (!LinkedMeeting::install(host, node.get())) {
        const std::string words = lastErrorString();
        stop();
        return fail(words);
    }
    connection->wake();
    return true;
}

void cluster::State::stop() {
    isStopWanted = isWorking && node != nullptr;
    if (node == nullptr || isWorking)
        return;
    storeAll();
    node->leave();
    LinkedMeeting::install(host, nullptr);
    loop.removeCallback(connection->descriptor(), awake, this);
    connection->close(farewellTime);
    node.reset();
    connection.reset();
}

// What was said here is to be in the order before goodbye, if that can be done in time.
void cluster::State::storeAll() {
    const std::uint64_t end = steadyNow() + farewellTime;
    while (node->store() && steadyNow() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (const Arrival &arrival : connection->take())
            if (arrival.kind == Arrival::stored)
                node->stored(arrival.number, arrival.place);
    }
}

void cluster::State::take(const Arrival &arrival) {
    const std::uint64_t now = steadyNow();
    ClusterEvent event;
    event.text = arrival.text;
    switch (arrival.kind) {
    case Arrival::packet:
        return node->received(arrival.bytes, now);
    case Arrival::search:
        if (const Packet answer = node->answer())
            connection->answer(arrival.text, answer);
        return;
    case Arrival::stored:
        return node->stored(arrival.number, arrival.place);
    case Arrival::ordered:
    case Arrival::past:
        return node->ordered(arrival.bytes, arrival.place, arrival.kind == Arrival::past, now);
    case Arrival::complaint:
        return log("NATS: " + arrival.text);
    case Arrival::connected:
        event.kind = ClusterEvent::connected;
        log("connected to NATS again");
        return tell(event);
    case Arrival::disconnected:
        event.kind = ClusterEvent::disconnected;
        log("no connection to NATS (" + arrival.text + ')');
        return tell(event);
    }
}

void cluster::State::work() {
    if (isWorking) // an application that runs the loop from a callback
        return;
    isWorking = true;
    try {
        for (const Arrival &arrival : connection->take())
            take(arrival);
        connection->wakeIn(node->turn(steadyNow()));
        connection->wantOrdered(node->hasRoomForOrdered());
    } catch (const std::bad_alloc &) {
        connection->wakeIn(withoutMemory);
    }
    isWorking = false;
    if (isStopWanted)
        stop();
}

Cluster::Cluster(ConferenceParticipant &host, const ClusterOptions &options)
    : m_state(std::make_unique<cluster::State>(*this, host, options)) {}

Cluster::~Cluster() {
    m_state->stop();
}

bool Cluster::start() {
    return m_state->start();
}

void Cluster::stop() {
    m_state->stop();
}

bool Cluster::running() const {
    return m_state->node != nullptr;
}

std::vector<ClusterHost> Cluster::hosts() const {
    std::vector<ClusterHost> hosts;
    if (!running())
        return hosts;
    hosts.push_back(m_state->describe(m_state->node->beat().rank.incarnation));
    for (const auto &[incarnation, host] : m_state->node->hosts())
        if (host->isCounted)
            hosts.push_back(m_state->describe(incarnation));
    return hosts;
}

std::string Cluster::hostOf(const TCPAddress &party) const {
    const std::uint64_t incarnation = running() ? m_state->node->hostOf(party) : 0;
    return incarnation != 0 ? m_state->describe(incarnation).name : std::string();
}

ClusterMetrics Cluster::metrics() const {
    ClusterMetrics metrics;
    if (!running())
        return metrics;
    const cluster::Counters &counters = m_state->node->counters();
    metrics.messagesOut = counters.messagesOut;
    metrics.messagesIn = counters.messagesIn;
    metrics.bytesOut = counters.bytesOut;
    metrics.bytesIn = counters.bytesIn;
    metrics.packetsOut = m_state->connection->packetsOut();
    metrics.packetsIn = counters.packetsIn;
    metrics.sentAgain = counters.sentAgain;
    metrics.askedAgain = counters.askedAgain;
    metrics.lost = counters.lost + m_state->connection->lost();
    metrics.refused = counters.refused;
    metrics.hostsLost = counters.hostsLost;
    metrics.reconnects = m_state->connection->reconnects();
    metrics.waiting = m_state->node->waiting();
    metrics.hosts = 1;
    for (const auto &[incarnation, host] : m_state->node->hosts())
        metrics.hosts += host->isCounted ? 1 : 0;
    metrics.connected = m_state->connection->isConnected();
    return metrics;
}

void Cluster::setHostsCB(HostsCallback callback, void *data) {
    m_state->callback = callback;
    m_state->callbackData = data;
}

std::string Cluster::lastFailure() const {
    const std::string complaint = running() ? m_state->connection->lastComplaint() : std::string();
    return complaint.empty() ? m_state->failure : complaint;
}

} // namespace vintok
