// The carrier over NATS: what the node sends goes out on a thread of its own, and what NATS's
// threads bring waits until the participant's loop takes it.
#ifndef VINTOK_CLUSTER_CONNECTION_H
#define VINTOK_CLUSTER_CONNECTION_H

#include "platform/Waker.h"
#include "vintok-cluster/Arrival.h"
#include "vintok-cluster/Carrier.h"
#include "vintok-cluster/JetStream.h"
#include "vintok-cluster/Nats.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace vintok::cluster {

class Connection final : public Carrier {
public:
    Connection(const ClusterOptions &options, std::uint64_t incarnation);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Connects and subscribes. False with the reason. A connection that NATS closes for good is
    // opened anew.
    bool open(std::string &failure);
    // Sends what waits, for at most so many milliseconds, and ends.
    void close(std::uint32_t milliseconds);

    // ---- For the loop ----

    int descriptor() const { return m_waker.descriptor(); } // readable when there is something
    std::deque<Arrival> take();
    // Makes it readable not later than in so many milliseconds.
    void wakeIn(std::uint32_t milliseconds);
    void answer(const std::string &subject, const Packet &packet);
    // Whether more of what is ordered is wanted.
    void wantOrdered(bool wanted);

    void toAll(const Packet &packet) override;
    void toOne(std::uint64_t incarnation, const Packet &packet) override;
    void store(std::uint64_t number, const Packet &packet) override;
    std::size_t longestPacket() const override { return m_longest; }
    void wake() override;

    std::uint64_t packetsOut() const { return m_packetsOut; }
    std::uint64_t reconnects() const { return m_reconnects; }
    std::uint64_t dropped() const { return m_dropped; } // for want of room
    std::uint64_t lost() const { return m_jetStream != nullptr ? m_jetStream->lost() : 0; }
    bool isConnected() const { return m_connected; }
    std::string lastComplaint() const;

private:
    struct Callbacks;
    using Clock = std::chrono::steady_clock;
    struct Letter {
        std::string subject;
        Packet packet;
    };

    void arrive(Arrival arrival);
    bool isNews(const std::string &complaint);
    void isConnectedNow(bool connected, const std::string &text);
    void isClosed();
    bool connectFor(std::uint32_t milliseconds, std::string &failure);
    bool subscribe(NatsSubscription &subscription, const std::string &subject,
                   natsMsgHandler handler, std::string &failure);
    bool findOrder(std::string &failure);
    void disconnect();
    void reopen();
    void send(const std::string &subject, const Packet &packet);
    void sendFirst(std::unique_lock<std::mutex> &lock);
    void work();

    const ClusterOptions m_options;
    const Subjects m_subjects;
    const std::string m_ownSubject;
    const std::uint64_t m_mostUnsent;
    std::uint64_t m_id = 0; // under which NATS's callbacks find this object
    platform::Waker m_waker;
    std::atomic<bool> m_woken = false;
    std::atomic<std::size_t> m_longest = 0;

    NatsConnection m_connection;
    NatsSubscription m_all, m_own, m_find;
    std::unique_ptr<JetStream> m_jetStream; // null without one order

    std::atomic<bool> m_connected = false;
    std::atomic<bool> m_closed = false; // by NATS, for good
    std::atomic<std::uint64_t> m_packetsOut = 0, m_reconnects = 0, m_dropped = 0;

    mutable std::mutex m_lock; // of what follows
    std::condition_variable m_change;
    std::deque<Arrival> m_arrivals;
    std::uint64_t m_arrivedBytes = 0;
    std::deque<Letter> m_letters;
    std::uint64_t m_unsentBytes = 0;
    bool m_sending = false;
    bool m_ends = false;
    Clock::time_point m_wakeTime = Clock::time_point::max();
    Clock::time_point m_openTime; // when to try it the next time
    std::string m_complaint;
    Clock::time_point m_complaintTime;
    std::thread m_thread;
};

} // namespace vintok::cluster

#endif
