// The library writes to descriptors and to nothing else, so the messages go into one end of a pair
// of connected sockets. One thread takes them out of the other end and into the queue, a second one
// from the queue to the application: each may wait for its own side alone.
#include "Outbox.h"

#include "LoopbackPair.h"

#include <vintok/BufferManager.h>
#include <vintok/TCPStream.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace control {

namespace {

using Message = std::vector<unsigned char>;

constexpr std::size_t MOST = 64 << 20; // bytes that wait
constexpr std::size_t LENGTH_SIZE = 4;
constexpr std::chrono::seconds PATIENCE(2);

bool readAll(int descriptor, unsigned char *bytes, std::size_t count) {
    return count == 0 ||
           vintok::readBytes(descriptor, bytes, count, nullptr) == static_cast<std::int64_t>(count);
}

bool readMessage(int descriptor, Message &message) {
    message.resize(LENGTH_SIZE);
    if (!readAll(descriptor, message.data(), LENGTH_SIZE))
        return false;
    std::uint32_t length = 0;
    vintok::BufferManager(message.data(), LENGTH_SIZE).read(length);
    message.resize(length);
    return readAll(descriptor, message.data() + LENGTH_SIZE, length - LENGTH_SIZE);
}

} // namespace

struct Outbox::Queue {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Message> messages;
    std::size_t bytes = 0;
    bool complete = false; // there will be no more messages
    bool over = false;     // nothing is written to the connection any more

    void collect(int descriptor) {
        for (Message message; readMessage(descriptor, message); message.clear())
            push(std::move(message));
        vintok::shutdownSocket(descriptor);
        const std::lock_guard<std::mutex> lock(mutex);
        complete = true;
        changed.notify_all();
    }

    // What comes when the application has gone is dropped.
    void push(Message message) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return over || bytes < MOST; });
        if (over)
            return;
        bytes += message.size();
        messages.push_back(std::move(message));
        changed.notify_all();
    }

    void deliver(int connection) {
        std::unique_lock<std::mutex> lock(mutex);
        while (!over) {
            changed.wait(lock, [this] { return complete || !messages.empty(); });
            if (messages.empty())
                break;
            const Message message = std::move(messages.front());
            messages.pop_front();
            bytes -= message.size();
            lock.unlock();
            const bool sent =
                vintok::writeBytes(connection, message.data(), message.size(), nullptr) ==
                static_cast<std::int64_t>(message.size());
            lock.lock();
            over = !sent;
            changed.notify_all();
        }
        over = true;
        changed.notify_all();
    }

    void awaitEnd() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, PATIENCE, [this] { return over; });
    }
};

bool Outbox::open(int connection) {
    int far = -1;
    if (!app::makeLoopbackPair(far, m_descriptor))
        return false;
    m_queue = std::make_shared<Queue>();
    std::thread([queue = m_queue, far] { queue->collect(far); }).detach();
    std::thread([queue = m_queue, connection] { queue->deliver(connection); }).detach();
    return true;
}

void Outbox::close() {
    if (m_descriptor == -1)
        return;
    vintok::shutdownSocket(std::exchange(m_descriptor, -1));
    m_queue->awaitEnd();
}

Outbox::~Outbox() {
    if (m_queue)
        m_queue->awaitEnd();
}

} // namespace control
