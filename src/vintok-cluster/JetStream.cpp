#include "vintok-cluster/JetStream.h"

#include <algorithm>

namespace vintok::cluster {

namespace {

constexpr std::int64_t answerTime = 1000; // milliseconds that the engine has for an answer
constexpr std::chrono::milliseconds again(200);
constexpr std::chrono::seconds quietTime(2); // then it is asked whether anything is missing
constexpr std::uint64_t mostCut = 256;       // packets that one message may take
constexpr std::int64_t readTime = 100;       // milliseconds of one wait

constexpr std::int64_t second = 1000000000; // in the engine's nanoseconds
constexpr std::int64_t heartbeat = second;
constexpr std::int64_t consumerTime = 30 * second; // that it is kept without a reader
constexpr std::int64_t streamAge = 24 * 3600 * second;
constexpr std::int64_t streamBytes = 256 << 20;
constexpr std::int64_t streamMessages = 1 << 20;
constexpr std::int64_t replicas[] = {3, 1}; // what a cluster of servers can have, and a single one
constexpr int mostPendingMessages = 1 << 20;
constexpr int mostPendingBytes = 128 << 20;

using Context = std::unique_ptr<jsCtx, Release<jsCtx_Destroy>>;
using StreamInfo = std::unique_ptr<jsStreamInfo, Release<jsStreamInfo_Destroy>>;
using ConsumerInfo = std::unique_ptr<jsConsumerInfo, Release<jsConsumerInfo_Destroy>>;
using Place = std::unique_ptr<jsMsgMetaData, Release<jsMsgMetaData_Destroy>>;
using Acknowledgement = std::unique_ptr<jsPubAck, Release<jsPubAck_Destroy>>;

Context contextOf(natsConnection *connection) {
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = answerTime;
    jsCtx *context = nullptr;
    natsConnection_JetStream(&context, connection, &options);
    return Context(context);
}

natsStatus makeStream(jsCtx *context, const std::string &name, const std::string &subject) {
    const char *subjects[] = {subject.c_str()};
    jsStreamConfig stream;
    jsStreamConfig_Init(&stream);
    stream.Name = name.c_str();
    stream.Subjects = subjects;
    stream.SubjectsLen = 1;
    stream.MaxAge = streamAge;
    stream.MaxBytes = streamBytes;
    stream.MaxMsgs = streamMessages;
    stream.Discard = js_DiscardOld;
    natsStatus status = NATS_ERR;
    for (const std::int64_t count : replicas) {
        stream.Replicas = count;
        jsStreamInfo *info = nullptr;
        status = js_AddStream(&info, context, &stream, nullptr, nullptr);
        const StreamInfo made(info);
        if (status == NATS_OK)
            break;
    }
    return status;
}

} // namespace

JetStream::JetStream(const Subjects &subjects, std::uint64_t incarnation, std::uint32_t history,
                     Arrivals arrive)
    : m_subject(subjects.ordered()),
      m_name(subjects.stream()),
      m_incarnation(incarnation),
      m_history(history),
      m_arrive(std::move(arrive)) {}

bool JetStream::open(natsConnection *connection, std::string &failure) {
    const Context context = contextOf(connection);
    if (context != nullptr && findStream(context.get(), failure))
        return true;
    failure = "no stream of JetStream for the order of what is said (" + failure + ")";
    return false;
}

void JetStream::start(natsConnection *connection) {
    m_ends = false;
    m_writer = std::thread([this, connection] { write(connection); });
    m_reader = std::thread([this, connection] { read(connection); });
}

void JetStream::stop() {
    {
        const std::lock_guard lock(m_lock);
        m_ends = true;
        m_change.notify_all();
    }
    for (std::thread *thread : {&m_writer, &m_reader})
        if (thread->joinable())
            thread->join();
}

void JetStream::wait(std::unique_lock<std::mutex> &lock) {
    m_change.wait_for(
        lock, again, [this] { return m_ends.load(); });
}

void JetStream::complain(const std::string &text) {
    if (!m_ends)
        m_arrive({.kind = Arrival::complaint, .text = "JetStream: " + text});
}

// ---- The stream ----

bool JetStream::findStream(jsCtx *context, std::string &failure) {
    natsStatus made = NATS_OK;
    for (const bool isLast : {false, true}) {
        jsStreamInfo *raw = nullptr;
        const natsStatus status = js_GetStreamInfo(&raw, context, m_name.c_str(), nullptr, nullptr);
        const StreamInfo info(raw);
        if (status == NATS_OK && takeStream(*info))
            return true;
        failure = wordsOf(made == NATS_OK ? status : made);
        if (status == NATS_NOT_FOUND && !isLast)
            made = makeStream(context, m_name, m_subject); // or another host has
    }
    return false;
}

// At first where to begin in it. Later whether it is the same; one that is not is read as a whole.
bool JetStream::takeStream(const jsStreamInfo &info) {
    const jsStreamState &state = info.State;
    if (!m_isOpen) {
        m_past = state.LastSeq;
        const std::uint64_t wanted = m_history != 0 ? std::uint64_t{m_history} + mostCut : 0;
        m_next = state.LastSeq + 1 - std::min(wanted, state.LastSeq);
    } else if (info.Created != m_created || state.LastSeq + 1 < m_next) {
        complain("the stream has begun anew");
        m_next = 1;
        m_past = 0;
    }
    m_isOpen = true;
    m_created = info.Created;
    m_next = std::max({m_next, state.FirstSeq, std::uint64_t{1}});
    return true;
}

// ---- Storing ----

void JetStream::store(std::uint64_t number, const Packet &packet) {
    const std::lock_guard lock(m_lock);
    m_waiting.emplace(number, packet);
    m_change.notify_all();
}

natsStatus JetStream::publish(jsCtx *context, std::uint64_t number, const Packet &packet) {
    const std::string id = hexadecimal(m_incarnation) + '-' + hexadecimal(number);
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MaxWait = answerTime;
    options.MsgId = id.c_str();
    options.ExpectStream = m_name.c_str();
    jsPubAck *raw = nullptr;
    const natsStatus status = js_Publish(&raw, context, m_subject.c_str(), packet->data(),
                                         static_cast<int>(packet->size()), &options, nullptr);
    const Acknowledgement acknowledgement(raw);
    if (status == NATS_OK)
        m_arrive({.kind = Arrival::stored, .number = number, .place = raw->Sequence});
    return status;
}

void JetStream::write(natsConnection *connection) {
    const Context context = contextOf(connection);
    std::unique_lock lock(m_lock);
    while (!m_ends) {
        if (!m_waiting || context == nullptr) {
            m_change.wait(lock);
            continue;
        }
        const auto [number, packet] = *m_waiting;
        lock.unlock();
        const natsStatus status = publish(context.get(), number, packet);
        if (status != NATS_OK)
            complain("what was said is not stored yet: " + wordsOf(status));
        lock.lock();
        if (status == NATS_OK)
            m_waiting.reset();
        else
            wait(lock);
    }
}

// ---- Reading ----

void JetStream::want(bool wanted) {
    const std::lock_guard lock(m_lock);
    if (wanted && !m_isWanted)
        m_change.notify_all();
    m_isWanted = wanted;
}

void JetStream::read(natsConnection *connection) {
    const Context context = contextOf(connection);
    std::unique_lock lock(m_lock);
    while (!m_ends) {
        if (!m_isWanted || context == nullptr) {
            m_change.wait(lock);
            continue;
        }
        lock.unlock();
        const bool done = readOne(context.get());
        lock.lock();
        if (!done)
            wait(lock);
    }
    lock.unlock();
    m_subscription.reset();
}

// False if it had better be tried later.
bool JetStream::readOne(jsCtx *context) {
    if (!m_isPastTold && m_next > m_past) {
        m_isPastTold = true;
        m_arrive({.kind = Arrival::past, .place = m_past});
    }
    if (m_subscription == nullptr)
        return follow(context);
    natsMsg *raw = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&raw, m_subscription.get(), readTime);
    const NatsMessage message(raw);
    if (status == NATS_OK)
        take(raw);
    else if (status != NATS_TIMEOUT || !isWhole())
        m_subscription.reset();
    return true;
}

bool JetStream::follow(jsCtx *context) {
    std::string failure;
    if (!findStream(context, failure)) {
        complain(failure);
        return false;
    }
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = m_name.c_str();
    options.Config.DeliverPolicy = js_DeliverByStartSequence;
    options.Config.OptStartSeq = m_next;
    options.Config.AckPolicy = js_AckNone;
    options.Config.FlowControl = true;
    options.Config.Heartbeat = heartbeat;
    options.Config.InactiveThreshold = consumerTime;
    options.Config.MemoryStorage = true;
    options.Config.Replicas = 1;
    natsSubscription *raw = nullptr;
    const natsStatus status =
        js_SubscribeSync(&raw, context, m_subject.c_str(), nullptr, &options, nullptr);
    m_subscription.reset(raw);
    if (status != NATS_OK) {
        complain(wordsOf(status));
        return false;
    }
    natsSubscription_SetPendingLimits(raw, mostPendingMessages, mostPendingBytes);
    m_nextDelivery = 1;
    m_heard = Clock::now();
    return true;
}

// By the word of the engine, which is asked when nothing has come for a while.
bool JetStream::isWhole() {
    const bool isAsked = m_isChecked.exchange(false) || Clock::now() - m_heard > quietTime;
    if (!isAsked)
        return true;
    jsConsumerInfo *raw = nullptr;
    const natsStatus status =
        natsSubscription_GetConsumerInfo(&raw, m_subscription.get(), nullptr, nullptr);
    const ConsumerInfo info(raw);
    m_heard = Clock::now();
    if (status == NATS_NOT_FOUND)
        return false;
    int pending = 0;
    const bool isRead =
        natsSubscription_GetPending(m_subscription.get(), &pending, nullptr) == NATS_OK &&
        pending == 0;
    return status != NATS_OK || !isRead || raw->Delivered.Consumer < m_nextDelivery;
}

void JetStream::take(natsMsg *message) {
    jsMsgMetaData *raw = nullptr;
    if (natsMsg_GetMetaData(&raw, message) != NATS_OK)
        return;
    const Place place(raw);
    if (raw->Sequence.Consumer != m_nextDelivery) {
        m_subscription.reset();
        return;
    }
    ++m_nextDelivery;
    m_heard = Clock::now();
    const std::uint64_t at = raw->Sequence.Stream;
    if (at < m_next)
        return;
    if (at > m_next) {
        m_lost += at - m_next;
        complain("the stream no longer has " + std::to_string(at - m_next) + " packets");
    }
    m_next = at + 1;
    m_arrive({.kind = at <= m_past ? Arrival::past : Arrival::ordered,
              .bytes = packetOf(message),
              .place = at});
}

} // namespace vintok::cluster
