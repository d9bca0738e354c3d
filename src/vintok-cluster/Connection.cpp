// NATS may still call while the connection is being taken down, and once more behind it. Its
// callbacks are therefore given a number, under which a table has the connection for as long as it
// is there; whoever is called holds it meanwhile.
#include "vintok-cluster/Connection.h"

#include <algorithm>
#include <map>
#include <shared_mutex>
#include <utility>

namespace vintok::cluster {

namespace {

constexpr std::uint32_t connectTime = 5000; // milliseconds
constexpr std::size_t mostPacket = 256 << 10;
constexpr std::int64_t leastPacket = 4096;
constexpr std::uint64_t mostArrived = 128 << 20; // bytes
constexpr int mostPendingMessages = 1 << 20;
constexpr int mostPendingBytes = 64 << 20;

struct Table {
    std::shared_mutex lock;
    std::map<std::uint64_t, Connection *> connections;
    std::uint64_t last = 0;
};

// Left to the end of the process, whose threads may outlive its objects.
Table &table() {
    static Table &made = *new Table;
    return made;
}

void *closure(std::uint64_t id) {
    return reinterpret_cast<void *>(static_cast<std::uintptr_t>(id));
}

template <class Action>
void with(void *closure, Action action) {
    Table &all = table();
    const std::shared_lock lock(all.lock);
    const auto found =
        all.connections.find(static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(closure)));
    if (found != all.connections.end())
        action(*found->second);
}

} // namespace

// On NATS's threads.
struct Connection::Callbacks {
    static void packet(natsConnection *, natsSubscription *, natsMsg *raw, void *id) {
        const NatsMessage message(raw);
        with(id, [&](Connection &self) { self.arrive({Arrival::packet, packetOf(raw), {}, 0}); });
    }
    static void search(natsConnection *, natsSubscription *, natsMsg *raw, void *id) {
        const NatsMessage message(raw);
        const char *const reply = natsMsg_GetReply(raw);
        with(id, [reply](Connection &self) {
            if (reply != nullptr)
                self.arrive({Arrival::search, nullptr, reply, 0});
        });
    }
    static void disconnected(natsConnection *connection, void *id) {
        const char *words = nullptr;
        natsConnection_GetLastError(connection, &words);
        with(id, [&](Connection &self) {
            self.m_connected = false;
            const std::string text = words != nullptr ? words : "";
            self.arrive({Arrival::disconnected, nullptr, text, 0});
        });
    }
    static void reconnected(natsConnection *, void *id) {
        with(
            id,
            [](Connection &self) {
                self.m_connected = true;
                ++self.m_reconnects;
                self.arrive({Arrival::connected, nullptr, {}, 0});
            });
    }
    static void failed(natsConnection *, natsSubscription *, natsStatus status, void *id) {
        const std::string words = natsStatus_GetText(status);
        with(id, [&](Connection &self) { self.complain(words); });
    }
};

Connection::Connection(const ClusterOptions &options, std::uint64_t incarnation)
    : m_options(options),
      m_subjects(options.meeting),
      m_ownSubject(m_subjects.to(incarnation)),
      m_incarnation(incarnation),
      m_mostUnsent(4 * options.window + (64 << 20)) {
    Table &all = table();
    const std::unique_lock lock(all.lock);
    m_id = ++all.last;
    all.connections.emplace(m_id, this);
}

Connection::~Connection() {
    close(0);
}

bool Connection::open(std::string &failure) {
    const NatsOptions options = makeOptions(m_options, failure);
    if (options == nullptr)
        return false;
    natsOptions *const raw = options.get();
    natsOptions_SetDisconnectedCB(raw, Callbacks::disconnected, closure(m_id));
    natsOptions_SetReconnectedCB(raw, Callbacks::reconnected, closure(m_id));
    natsOptions_SetErrorHandler(raw, Callbacks::failed, closure(m_id));
    if (!m_waker.open()) {
        failure = "there is no descriptor to be had";
        return false;
    }
    m_connection = connect(raw, connectTime, failure);
    if (m_connection == nullptr)
        return false;
    m_connected = true;
    const std::int64_t payload = natsConnection_GetMaxPayload(m_connection.get());
    if (payload < leastPacket) {
        failure = "the server takes no messages of 4096 bytes";
        return false;
    }
    m_longest = std::min(mostPacket, static_cast<std::size_t>(payload));
    if (!subscribe(m_all, m_subjects.all(), Callbacks::packet, failure) ||
        !subscribe(m_own, m_ownSubject, Callbacks::packet, failure) ||
        !subscribe(m_find, m_subjects.find(), Callbacks::search, failure))
        return false;
    m_thread = std::thread([this] { work(); });
    return true;
}

bool Connection::subscribe(NatsSubscription &subscription, const std::string &subject,
                           natsMsgHandler handler, std::string &failure) {
    natsSubscription *raw = nullptr;
    natsStatus status =
        natsConnection_Subscribe(&raw, m_connection.get(), subject.c_str(), handler, closure(m_id));
    subscription.reset(raw);
    if (status == NATS_OK)
        status = natsSubscription_SetPendingLimits(raw, mostPendingMessages, mostPendingBytes);
    if (status == NATS_OK)
        return true;
    failure = wordsOf(status);
    return false;
}

void Connection::close(std::uint32_t milliseconds) {
    if (m_thread.joinable()) {
        std::unique_lock lock(m_lock);
        m_change.wait_for(lock, std::chrono::milliseconds(milliseconds),
                          [this] { return m_letters.empty() && !m_sending; });
        m_ends = true;
        m_change.notify_all();
        lock.unlock();
        m_thread.join();
        if (m_connected && milliseconds > 0)
            natsConnection_FlushTimeout(m_connection.get(), milliseconds);
    }
    m_find.reset();
    m_own.reset();
    m_all.reset();
    m_connection.reset();
    m_connected = false;
    Table &all = table();
    const std::unique_lock lock(all.lock);
    all.connections.erase(m_id);
}

// ---- What comes ----

void Connection::arrive(Arrival arrival) {
    const std::size_t size = arrival.bytes != nullptr ? arrival.bytes->size() : 0;
    {
        const std::lock_guard lock(m_lock);
        if (arrival.kind <= Arrival::search && m_arrivedBytes + size > mostArrived) {
            ++m_dropped; // and asked for again
            return;
        }
        m_arrivedBytes += size;
        m_arrivals.push_back(std::move(arrival));
    }
    wake();
}

void Connection::complain(const std::string &text) {
    const std::lock_guard lock(m_lock);
    m_complaint = text;
}

std::string Connection::lastComplaint() const {
    const std::lock_guard lock(m_lock);
    return m_complaint;
}

std::deque<Connection::Arrival> Connection::take() {
    m_waker.clear();
    m_woken = false; // behind that: a wake-up in between is for what is taken now
    const std::lock_guard lock(m_lock);
    m_arrivedBytes = 0;
    return std::exchange(m_arrivals, {});
}

void Connection::wake() {
    if (!m_woken.exchange(true))
        m_waker.wake();
}

void Connection::wakeIn(std::uint32_t milliseconds) {
    if (milliseconds == 0)
        return wake();
    const Clock::time_point time = Clock::now() + std::chrono::milliseconds(milliseconds);
    const std::lock_guard lock(m_lock);
    if (time < m_wakeTime)
        m_change.notify_all();
    m_wakeTime = time;
}

// ---- What goes ----

void Connection::send(const std::string &subject, const Packet &packet) {
    const std::lock_guard lock(m_lock);
    if (!m_connected || m_unsentBytes + packet->size() > m_mostUnsent) {
        ++m_dropped; // and asked for again
        return;
    }
    m_unsentBytes += packet->size();
    m_letters.push_back({subject, packet});
    m_change.notify_all();
}

void Connection::toAll(const Packet &packet) {
    send(m_subjects.all(), packet);
}

void Connection::toOne(std::uint64_t incarnation, const Packet &packet) {
    send(m_subjects.to(incarnation), packet);
}

void Connection::answer(const std::string &subject, const Packet &packet) {
    send(subject, packet);
}

void Connection::store(std::uint64_t, const Packet &) {}

void Connection::wantOrdered(bool) {}

// The thread that sends, and that wakes the loop when it is time.
void Connection::work() {
    std::unique_lock lock(m_lock);
    while (!m_ends) {
        if (!m_letters.empty()) {
            const Letter letter = std::move(m_letters.front());
            m_letters.pop_front();
            m_sending = true;
            lock.unlock();
            if (publish(m_connection.get(), letter.subject, letter.packet) == NATS_OK)
                ++m_packetsOut;
            else
                ++m_dropped;
            lock.lock();
            m_sending = false;
            m_unsentBytes -= letter.packet->size();
            if (m_letters.empty())
                m_change.notify_all();
        } else if (Clock::now() >= m_wakeTime) {
            m_wakeTime = Clock::time_point::max();
            wake();
        } else if (m_wakeTime == Clock::time_point::max()) {
            m_change.wait(lock);
        } else {
            m_change.wait_until(lock, m_wakeTime);
        }
    }
}

} // namespace vintok::cluster
