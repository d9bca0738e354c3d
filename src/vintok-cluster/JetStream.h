// The one order of what all hosts say, as a stream of JetStream keeps it.
//
// One thread stores, a packet at a time, again and again until it is acknowledged. Another reads
// through a consumer of its own, which it makes anew behind the last place that it has read,
// whenever anything is missing: the connection was gone, the consumer is no longer there, a message
// was overtaken. A stream that an operator has made is used as it is.
#ifndef VINTOK_CLUSTER_JETSTREAM_H
#define VINTOK_CLUSTER_JETSTREAM_H

#include "vintok-cluster/Arrival.h"
#include "vintok-cluster/Nats.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace vintok::cluster {

class JetStream {
public:
    // `history`: how many messages of the past are wanted.
    JetStream(const Subjects &subjects, std::uint64_t incarnation, std::uint32_t history,
              Arrivals arrive);
    ~JetStream() { stop(); }
    JetStream(const JetStream &) = delete;
    JetStream &operator=(const JetStream &) = delete;

    // Finds the stream, or makes it. False with the reason.
    bool open(natsConnection *connection, std::string &failure);
    // To be stopped before the connection goes; with the next one everything goes on.
    void start(natsConnection *connection);
    void stop();

    void store(std::uint64_t number, const Packet &packet);
    // Whether more is to be read.
    void want(bool wanted);
    // Something may be missing: the connection was gone for a while.
    void check() { m_isChecked = true; }
    std::uint64_t lost() const { return m_lost; } // packets that the stream no longer had

private:
    using Clock = std::chrono::steady_clock;

    bool findStream(jsCtx *context, std::string &failure);
    bool takeStream(const jsStreamInfo &info);
    void wait(std::unique_lock<std::mutex> &lock);
    void complain(const std::string &text);

    void write(natsConnection *connection);
    natsStatus publish(jsCtx *context, std::uint64_t number, const Packet &packet);
    void read(natsConnection *connection);
    bool readOne(jsCtx *context);
    bool follow(jsCtx *context);
    bool isWhole();
    void take(natsMsg *message);

    const std::string m_subject;
    const std::string m_name;
    const std::uint64_t m_incarnation;
    const std::uint32_t m_history;
    const Arrivals m_arrive;

    std::atomic<bool> m_ends = false;
    std::atomic<bool> m_isChecked = false;
    std::atomic<std::uint64_t> m_lost = 0;

    // Of the thread that reads, and before it of `open`.
    bool m_isOpen = false;
    std::int64_t m_created = 0; // when the stream was
    std::uint64_t m_next = 0;   // place to be read
    std::uint64_t m_past = 0;   // last place of the past
    bool m_isPastTold = false;
    std::uint64_t m_nextDelivery = 1; // by the consumer
    Clock::time_point m_heard;
    NatsSubscription m_subscription;

    std::mutex m_lock; // of what follows
    std::condition_variable m_change;
    std::optional<std::pair<std::uint64_t, Packet>> m_waiting; // to be stored
    bool m_isWanted = true;
    std::thread m_writer, m_reader;
};

} // namespace vintok::cluster

#endif
