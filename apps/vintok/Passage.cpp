// One thread passes both ways and waits for neither: what one connection has given and the other
// does not take is kept, and nothing more is asked of the first meanwhile. The thread waits for
// both and for the reading end of a pair that nobody writes to. Waking closes the other end of that
// pair, which every waiter sees from then on.
#include "Passage.h"

#include <vintok/HTTPText.h>
#include <vintok/TCPStream.h>

#include <algorithm>
#include <platform/Poller.h>
#include <platform/Socket.h>
#include <platform/SocketErrors.h>
#include <platform/Wait.h>
#include <system_error>
#include <thread>
#include <vector>

namespace app {

namespace {

namespace platform = vintok::platform;

constexpr std::size_t chunk = 65536;
constexpr std::size_t longestReply = 8192;

bool isPassing(std::int64_t result) {
    return result > 0 ||
           (result < 0 && platform::socketError() == vintok::socketErrors::wouldBlock);
}

} // namespace

// What has come from one connection and has not gone to the other yet.
class Passage::Direction {
public:
    Direction(int from, int to) : m_from(from), m_to(to), m_bytes(chunk) {}

    bool wantsBytes() const { return m_begin == m_end; }

    // False once either connection has ended.
    bool pass() {
        if (wantsBytes() && !receive())
            return false;
        return wantsBytes() || send();
    }

private:
    bool receive() {
        const std::int64_t count = platform::receiveNow(m_from, m_bytes.data(), m_bytes.size());
        m_begin = 0;
        m_end = static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
        return isPassing(count);
    }

    bool send() {
        const std::int64_t count =
            platform::sendNow(m_to, m_bytes.data() + m_begin, m_end - m_begin);
        m_begin += static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
        return isPassing(count);
    }

    const int m_from;
    const int m_to;
    std::vector<unsigned char> m_bytes;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
};

Passage::~Passage() {
    wake();
    for (const int descriptor : {server, local})
        if (descriptor != -1)
            vintok::shutdownSocket(descriptor);
}

bool Passage::open() {
    return m_waker.open();
}

void Passage::wake() {
    m_woken = true;
    m_waker.wake(); // and nobody takes that back
}

bool Passage::write(std::string_view bytes) const {
    return vintok::writeBytes(server, reinterpret_cast<const unsigned char *>(bytes.data()),
                              bytes.size(), nullptr) == static_cast<std::int64_t>(bytes.size());
}

// False once woken.
bool Passage::awaitServer() const {
    platform::DescriptorSet waiting;
    waiting.insert(server);
    waiting.insert(m_waker.descriptor());
    platform::waitReadable(waiting, false);
    return !isWoken();
}

std::string Passage::readReply() const {
    std::string reply;
    vintok::HTTPHeadEnd end;
    while (reply.size() < longestReply && awaitServer()) {
        unsigned char byte = 0;
        const std::int64_t count = platform::receiveNow(server, &byte, 1);
        if (!isPassing(count))
            break;
        if (count != 1)
            continue;
        reply += static_cast<char>(byte);
        if (end.take(reply.back()))
            break;
    }
    return reply;
}

// The end of one direction says nothing to the other side of a proxy: both end.
void Passage::pass() {
    Direction inward(server, local);
    Direction outward(local, server);
    platform::Poller poller;
    std::vector<platform::Poller::Event> events;
    bool good = poller.watch(m_waker.descriptor(), true, false, nullptr);
    while (good && inward.pass() && outward.pass() && !isWoken()) {
        good = poller.watch(server, inward.wantsBytes(), !outward.wantsBytes(), nullptr) &&
               poller.watch(local, outward.wantsBytes(), !inward.wantsBytes(), nullptr) &&
               poller.wait(events, -1);
    }
    for (const int descriptor : {server, local, m_waker.descriptor()})
        poller.watch(descriptor, false, false, nullptr);
}

bool Passage::start(const std::shared_ptr<Passage> &passage, const std::function<void()> &ended) {
    try {
        std::thread([kept = passage, ended]() mutable {
            kept->pass();
            kept.reset(); // closes the connections before their end is told
            ended();
        }).detach();
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

} // namespace app
