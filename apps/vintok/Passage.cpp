// Each direction has a thread, since either may have to wait for its receiver: the host's program
// writes to this one as it would to a guest, and waits until that is taken.
//
// A thread waits in a loop of its own for two descriptors, the one that it reads and the reading
// end of a pair that nobody writes to. Waking closes the other end of that pair, which every waiter
// sees from then on. A write that finds no room looks for the same word at short intervals.
#include "Passage.h"

#include "LoopbackPair.h"

#include <vintok/TCPSelect.h>
#include <vintok/TCPStatusCallback.h>
#include <vintok/TCPStream.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <system_error>
#include <thread>
#include <vector>

namespace app {

namespace {

constexpr std::chrono::milliseconds ROOM_INTERVAL(2);
constexpr std::chrono::milliseconds FAILED_WAIT(10);
constexpr std::size_t CHUNK = 65536;
constexpr std::size_t LONGEST_REPLY = 8192;

// Paces a write for which there is no room, and ends it once the passage is woken.
class Pace final : public vintok::TCPStatusCallback {
public:
    explicit Pace(const Passage &passage) : m_passage(passage) {}
    void messageRead(int, bool, const vintok::TCPGUID &, std::size_t, std::size_t,
                     bool *) override {}
    void messageWrite(int, bool, const vintok::TCPGUID &, std::size_t, std::size_t,
                      bool *) override {}
    void byteRead(int, bool, std::size_t, std::size_t, bool *) override {}
    void byteWrite(int, bool, std::size_t done, std::size_t, bool *keepGoing) override {
        if (m_passage.isWoken()) {
            *keepGoing = false;
        } else if (done == m_done && *keepGoing) {
            std::this_thread::sleep_for(ROOM_INTERVAL);
        }
        m_done = done;
    }

private:
    const Passage &m_passage;
    std::size_t m_done = 0;
};

} // namespace

// Of one thread, for one descriptor.
class Passage::Waiter {
public:
    Waiter(const Passage &passage, int descriptor) : m_passage(passage), m_descriptor(descriptor) {
        m_good = m_loop.addSocketCallback(descriptor, readable, this, true, false) &&
                 m_loop.addSocketCallback(passage.m_wakeRead, readable, this, true, false);
    }
    ~Waiter() {
        m_loop.removeCallback(m_descriptor, readable, this);
        m_loop.removeCallback(m_passage.m_wakeRead, readable, this);
    }
    Waiter(const Waiter &) = delete;
    Waiter &operator=(const Waiter &) = delete;

    // How many bytes can be read, once there are some; 0 at the end of the stream, and when the
    // passage is woken.
    std::size_t bytes() {
        m_ready = false;
        while (m_good && !m_ready && !m_passage.isWoken()) {
            if (m_loop.pollDescriptors(false) == -1) {
                std::this_thread::sleep_for(FAILED_WAIT);
            }
        }
        const std::int64_t pending =
            m_ready && !m_passage.isWoken() ? vintok::bytesPending(m_descriptor) : 0;
        return static_cast<std::size_t>(std::max<std::int64_t>(pending, 0));
    }

private:
    static void readable(int descriptor, void *data, bool) {
        auto *waiter = static_cast<Waiter *>(data);
        waiter->m_ready = waiter->m_ready || descriptor == waiter->m_descriptor;
    }

    const Passage &m_passage;
    const int m_descriptor;
    vintok::TCPSelect m_loop;
    bool m_good = false;
    bool m_ready = false;
};

Passage::~Passage() {
    wake();
    for (const int descriptor : {server, local, m_wakeRead}) {
        if (descriptor != -1) {
            vintok::shutdownSocket(descriptor);
        }
    }
}

bool Passage::open() {
    return makeLoopbackPair(m_wakeRead, m_wakeWrite);
}

void Passage::wake() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_woken = true;
    if (m_wakeWrite != -1) {
        vintok::shutdownSocket(m_wakeWrite);
        m_wakeWrite = -1;
    }
}

bool Passage::write(int descriptor, const char *bytes, std::size_t length) {
    Pace pace(*this);
    return vintok::writeBytes(descriptor, reinterpret_cast<const unsigned char *>(bytes), length,
                              &pace) == static_cast<std::int64_t>(length);
}

std::string Passage::readReply() {
    Waiter waiter(*this, server);
    std::string reply;
    std::size_t lineLength = 0;
    while (reply.size() < LONGEST_REPLY && waiter.bytes() != 0) {
        unsigned char byte = 0;
        if (vintok::readBytes(server, &byte, 1, nullptr) != 1) {
            break;
        }
        reply += static_cast<char>(byte);
        if (byte == '\n' && lineLength == 0) {
            break;
        }
        lineLength = byte == '\n' ? 0 : lineLength + (byte == '\r' ? 0 : 1);
    }
    return reply;
}

void Passage::pass(int from, int to) {
    Waiter waiter(*this, from);
    std::vector<char> buffer(CHUNK);
    for (std::size_t count = waiter.bytes(); count != 0; count = waiter.bytes()) {
        const std::int64_t got =
            vintok::readBytes(from, reinterpret_cast<unsigned char *>(buffer.data()),
                              std::min(count, buffer.size()), nullptr);
        if (got <= 0 || !write(to, buffer.data(), static_cast<std::size_t>(got))) {
            break;
        }
    }
    wake(); // the end of one direction says nothing to the other side of a proxy: both end
}

bool Passage::start(const std::shared_ptr<Passage> &passage, const std::function<void()> &ended) {
    vintok::setNonBlocking(passage->server);
    vintok::setNonBlocking(passage->local);
    try {
        std::thread([kept = passage, ended]() mutable {
            try {
                std::thread inward([&kept] { kept->pass(kept->server, kept->local); });
                kept->pass(kept->local, kept->server);
                inward.join();
            } catch (const std::system_error &) {
                kept->wake(); // one direction alone is of no use
            }
            kept.reset(); // closes the connections before their end is told
            ended();
        }).detach();
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

} // namespace app
