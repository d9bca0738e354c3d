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
constexpr std::chrono::milliseconds betweenTries(200);
constexpr std::chrono::seconds betweenOpenings(1);
constexpr std::chrono::seconds betweenComplaints(10);
constexpr std::chrono::hours longestWait(1);

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
    static void arrive(void *id, const Arrival &arrival) {
        with(
            id, [&](Connection &self) { self.arrive(arrival); });
    }
    static void packet(natsConnection *, natsSubscription *, natsMsg *raw, void *id) {
        const NatsMessage message(raw);
        arrive(id, {.kind = Arrival::packet, .bytes = packetOf(raw)});
    }
    static void search(natsConnection *, natsSubscription *, natsMsg *raw, void *id) {
        const NatsMessage message(raw);
        if (const char *const reply = natsMsg_GetReply(raw))
            arrive(id, {.kind = Arrival::search, .text = reply});
    }
    static void disconnected(natsConnection *connection, void *id) {
        const char *words = nullptr;
        natsConnection_GetLastError(connection, &words);
        const std::string text = words != nullptr ? words : "";
        const auto note = [&](Connection &self) { self.isConnectedNow(false, text); };
        with(id, note);
    }
    static void reconnected(natsConnection *, void *id) {
        const auto note = [](Connection &self) { self.isConnectedNow(true, {}); };
        with(id, note);
    }
    static void closed(natsConnection *, void *id) {
        const auto note = [](Connection &self) { self.isClosed(); };
        with(id, note);
    }
    static void failed(natsConnection *, natsSubscription *, natsStatus status, void *id) {
        arrive(id, {.kind = Arrival::complaint, .text = natsStatus_GetText(status)});
    }
};

Connection::Connection(const ClusterOptions &options, std::uint64_t incarnation)
    : m_options(options),
      m_subjects(options.meeting),
      m_ownSubject(m_subjects.to(incarnation)),
      m_mostUnsent(4 * options.window + (64 << 20)) {
    if (options.ordered)
        m_jetStream =
            std::make_unique<JetStream>(m_subjects, incarnation, options.history,
                                        [this](const Arrival &arrival) { arrive(arrival); });
    Table &all = table();
    const std::unique_lock lock(all.lock);
    m_id = ++all.last;
    all.connections.emplace(m_id, this);
}

Connection::~Connection() {
    close(0);
}

bool Connection::open(std::string &failure) {
    if (!m_waker.open()) {
        failure = "there is no descriptor to be had";
        return false;
    }
    if (!connectFor(connectTime, failure) || !findOrder(failure))
        return false;
    m_thread = std::thread([this] { work(); });
    return true;
}

bool Connection::connectFor(std::uint32_t milliseconds, std::string &failure) {
    const NatsOptions options = makeOptions(m_options, failure);
    if (options == nullptr)
        return false;
    natsOptions *const raw = options.get();
    natsOptions_SetDisconnectedCB(raw, Callbacks::disconnected, closure(m_id));
    natsOptions_SetReconnectedCB(raw, Callbacks::reconnected, closure(m_id));
    natsOptions_SetClosedCB(raw, Callbacks::closed, closure(m_id));
    natsOptions_SetErrorHandler(raw, Callbacks::failed, closure(m_id));
    m_connection = connect(raw, milliseconds, failure);
    if (m_connection == nullptr)
        return false;
    const std::int64_t payload = natsConnection_GetMaxPayload(m_connection.get());
    if (payload < leastPacket) {
        failure = "the server takes no messages of 4096 bytes";
        return false;
    }
    m_longest = std::min(mostPacket, static_cast<std::size_t>(payload));
    m_connected = true;
    return subscribe(m_all, m_subjects.all(), Callbacks::packet, failure) &&
           subscribe(m_own, m_ownSubject, Callbacks::packet, failure) &&
           subscribe(m_find, m_subjects.find(), Callbacks::search, failure);
}

// The servers of a cluster agree on who keeps streams some seconds after they have started.
bool Connection::findOrder(std::string &failure) {
    if (!m_options.ordered)
        return true;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(connectTime);
    while (!m_jetStream->open(m_connection.get(), failure)) {
        if (Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(betweenTries);
    }
    m_jetStream->start(m_connection.get());
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
    disconnect();
    Table &all = table();
    const std::unique_lock lock(all.lock);
    all.connections.erase(m_id);
}

void Connection::disconnect() {
    if (m_jetStream != nullptr)
        m_jetStream->stop();
    m_find.reset();
    m_own.reset();
    m_all.reset();
    m_connection.reset();
    m_connected = false;
}

// NATS has closed the connection, for a server no longer let this host in.
void Connection::reopen() {
    disconnect();
    m_closed = false;
    std::string failure;
    if (!connectFor(0, failure)) {
        arrive({.kind = Arrival::complaint, .text = failure});
        disconnect();
        m_closed = true;
        return;
    }
    if (m_jetStream != nullptr)
        m_jetStream->start(m_connection.get());
    isConnectedNow(true, {});
}

// ---- What comes ----

void Connection::isConnectedNow(bool connected, const std::string &text) {
    m_connected = connected;
    m_reconnects += connected ? 1 : 0;
    if (connected && m_jetStream != nullptr)
        m_jetStream->check();
    arrive({.kind = connected ? Arrival::connected : Arrival::disconnected, .text = text});
}

void Connection::isClosed() {
    const std::lock_guard lock(m_lock);
    m_closed = true;
    m_change.notify_all();
}

void Connection::arrive(Arrival arrival) {
    const std::size_t size = arrival.bytes != nullptr ? arrival.bytes->size() : 0;
    {
        const std::lock_guard lock(m_lock);
        if (arrival.kind <= Arrival::search && m_arrivedBytes + size > mostArrived) {
            ++m_dropped; // and asked for again
            return;
        }
        if (arrival.kind == Arrival::complaint && !isNews(arrival.text))
            return;
        m_arrivedBytes += size;
        if (m_jetStream != nullptr && m_arrivedBytes > mostArrived / 4)
            m_jetStream->want(false); // until the loop says otherwise
        m_arrivals.push_back(std::move(arrival));
    }
    wake();
}

// With the lock. False for one that has been there just now.
bool Connection::isNews(const std::string &complaint) {
    const Clock::time_point now = Clock::now();
    if (complaint == m_complaint && now - m_complaintTime < betweenComplaints)
        return false;
    m_complaint = complaint;
    m_complaintTime = now;
    return true;
}

std::string Connection::lastComplaint() const {
    const std::lock_guard lock(m_lock);
    return m_complaint;
}

std::deque<Arrival> Connection::take() {
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

void Connection::store(std::uint64_t number, const Packet &packet) {
    m_jetStream->store(number, packet);
}

void Connection::wantOrdered(bool wanted) {
    if (m_jetStream != nullptr)
        m_jetStream->want(wanted);
}

// The thread that sends, and that wakes the loop when it is time.
void Connection::work() {
    std::unique_lock lock(m_lock);
    while (!m_ends) {
        const Clock::time_point now = Clock::now();
        const bool opens = m_closed && now >= m_openTime;
        if (now >= m_wakeTime) {
            m_wakeTime = Clock::time_point::max();
            wake();
        } else if (opens) {
            m_openTime = now + betweenOpenings;
            lock.unlock();
            reopen();
            lock.lock();
        } else if (!m_letters.empty()) {
            sendFirst(lock);
        } else {
            const Clock::time_point next = m_closed ? std::min(m_wakeTime, m_openTime) : m_wakeTime;
            m_change.wait_until(lock, std::min(next, now + longestWait));
        }
    }
}

void Connection::sendFirst(std::unique_lock<std::mutex> &lock) {
    const Letter letter = std::move(m_letters.front());
    m_letters.pop_front();
    m_sending = true;
    lock.unlock();
    const bool sent = m_connection != nullptr &&
                      publish(m_connection.get(), letter.subject, letter.packet) == NATS_OK;
    ++(sent ? m_packetsOut : m_dropped);
    lock.lock();
    m_sending = false;
    m_unsentBytes -= letter.packet->size();
    if (m_letters.empty())
        m_change.notify_all();
}

} // namespace vintok::cluster
