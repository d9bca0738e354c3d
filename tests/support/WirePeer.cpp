#include "support/WirePeer.h"

#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Wait.h"
#include "support/SocketPair.h"
#include "vintok/ByteOrder.h"

#include <array>
#include <sstream>

namespace vintok::test {

namespace {

constexpr std::uint32_t loopback = 0x7F000001;

bool readable(int descriptor) {
    platform::DescriptorSet set;
    set.insert(descriptor);
    return platform::waitReadable(set, true) == 1;
}

testing::AssertionResult systemFailure(const char *what) {
    return testing::AssertionFailure() << what << ": error " << platform::socketError();
}

unsigned nextNumber() {
    static unsigned number = 0;
    return ++number % 60000;
}

} // namespace

WirePeer::WirePeer(Meeting &meeting, const std::string &name)
    : entry(WireEntry::party(name, nextNumber())), m_meeting(meeting) {
    meeting.add(this);
}

WirePeer::~WirePeer() {
    m_meeting.remove(this);
    closes();
    if (m_listener != -1)
        platform::closeSocket(m_listener);
}

testing::AssertionResult WirePeer::listens() {
    if (m_listener != -1)
        return testing::AssertionSuccess();
    m_listener = platform::openSocket(platform::FAMILY_IPV4);
    if (m_listener == -1 || !platform::setExclusiveAddress(m_listener))
        return systemFailure("cannot make a listener");
    for (int tries = 0; tries < 255; ++tries) {
        entry.address = WireAddress::ipv4(loopback, freshPort());
        if (platform::bindSocket(m_listener, loopbackEndpoint(port())))
            return platform::listenSocket(m_listener, 100) ? testing::AssertionSuccess()
                                                           : systemFailure("cannot listen");
    }
    return systemFailure("no free port");
}

testing::AssertionResult WirePeer::picksUp() {
    const auto called =
        m_meeting.until([this] { return readable(m_listener); }, "nobody calls " + entry.firstName);
    if (!called)
        return called;
    closes();
    platform::Endpoint caller;
    m_descriptor = platform::acceptSocket(m_listener, platform::FAMILY_IPV4, caller);
    return m_descriptor != -1 ? testing::AssertionSuccess() : systemFailure("cannot accept");
}

testing::AssertionResult WirePeer::connects(unsigned short port) {
    closes();
    m_descriptor = platform::openSocket(platform::FAMILY_IPV4);
    if (m_descriptor == -1 || !platform::connectSocket(m_descriptor, loopbackEndpoint(port)))
        return systemFailure("cannot connect");
    platform::setNoDelayOption(m_descriptor);
    return testing::AssertionSuccess();
}

testing::AssertionResult WirePeer::joins(unsigned short port) {
    auto result = connects(port);
    if (result)
        result = receives(id::rosterEntry);
    if (result && !(saysHello() && asksToJoin()))
        result = systemFailure("cannot ask to join");
    WireFrame reply;
    if (result)
        result = receives(id::joinReply, &reply);
    if (result && reply.body != Bytes{1})
        result = testing::AssertionFailure() << entry.firstName << " was refused";
    return result;
}

testing::AssertionResult WirePeer::knocks(unsigned short port) {
    const auto result = connects(port);
    return !result || (saysHello() && asksToJoin()) ? result : systemFailure("cannot ask to join");
}

bool WirePeer::sends(const Bytes &bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const auto count = platform::send(m_descriptor, bytes.data() + sent, bytes.size() - sent);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool WirePeer::sends(unsigned char id, const Bytes &body) {
    return sends(WireFrame{.id = id, .origin = entry.address, .body = body}.encode());
}

testing::AssertionResult WirePeer::receives(unsigned char id, WireFrame *frame) {
    std::ostringstream dropped;
    bool found = false;
    const auto take = [&] {
        while (!found && !m_frames.empty()) {
            found = m_frames.front().id == id;
            if (found && frame != nullptr)
                *frame = m_frames.front();
            dropped << std::hex << ' ' << static_cast<int>(m_frames.front().id);
            m_frames.pop_front();
        }
        return found || m_ended;
    };
    std::ostringstream what;
    what << entry.firstName << " awaits message " << std::hex << static_cast<int>(id);
    const auto result = m_meeting.until(take, what.str());
    if (found)
        return result;
    return testing::AssertionFailure() << what.str() << (m_ended ? ", the connection ended" : "")
                                       << "; came instead:" << dropped.str();
}

testing::AssertionResult WirePeer::fences(std::vector<WireFrame> *before) {
    const Bytes token = wireNumber(++m_token);
    if (!sends(id::echoRequest32, token))
        return systemFailure("cannot ask for an echo");
    std::vector<WireFrame> came;
    bool found = false;
    const auto take = [&] {
        while (!found && !m_frames.empty()) {
            const WireFrame &next = m_frames.front();
            found = next.id == id::echoReply32 && next.body.size() == 8 &&
                    Bytes(next.body.begin(), next.body.begin() + 4) == token;
            if (!found)
                came.push_back(next);
            m_frames.pop_front();
        }
        return found || m_ended;
    };
    const auto result = m_meeting.until(take, entry.firstName + " awaits its echo");
    if (before != nullptr)
        *before = came;
    if (!found && result)
        return testing::AssertionFailure() << entry.firstName << " awaits its echo, the end came";
    return result;
}

WireFrame WirePeer::next(unsigned char id) {
    WireFrame frame;
    EXPECT_TRUE(receives(id, &frame));
    return frame;
}

std::vector<WireFrame> WirePeer::gets() {
    std::vector<WireFrame> frames;
    EXPECT_TRUE(fences(&frames));
    return frames;
}

testing::AssertionResult WirePeer::seesTheEnd() {
    return m_meeting.until([this] { return m_ended; }, entry.firstName + " is not hung up");
}

void WirePeer::closes() {
    if (m_descriptor != -1) {
        platform::closeSocket(m_descriptor);
        m_descriptor = -1;
    }
    m_ended = false;
    m_bytes.clear();
    m_frames.clear();
}

void WirePeer::resets() {
    platform::resetOnClose(m_descriptor);
    closes();
}

void WirePeer::halfCloses() {
    platform::shutdownSending(m_descriptor);
}

int WirePeer::handsOver() {
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    return descriptor;
}

void WirePeer::readsText(bool on) {
    m_text = on;
    cutFrames();
}

testing::AssertionResult WirePeer::receivesText(const std::string &text) {
    m_meeting.until([&] { return m_bytes.size() >= text.size() || m_ended; }, text);
    const std::string came(m_bytes.begin(), m_bytes.end());
    if (came.compare(0, text.size(), text) != 0)
        return testing::AssertionFailure()
               << entry.firstName << " awaits \"" << text << "\"; came instead: \"" << came << '"';
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(text.size()));
    return testing::AssertionSuccess();
}

void WirePeer::cutFrames() {
    while (!m_text) {
        auto frame = WireFrame::take(m_bytes);
        if (!frame)
            break;
        m_frames.push_back(std::move(*frame));
    }
}

bool WirePeer::pump() {
    if (m_descriptor == -1 || m_ended || !readable(m_descriptor))
        return false;
    std::array<unsigned char, 65536> buffer;
    const auto count = platform::receive(m_descriptor, buffer.data(), buffer.size());
    if (count <= 0) {
        m_ended = true;
        return true;
    }
    m_bytes.insert(m_bytes.end(), buffer.begin(), buffer.begin() + count);
    cutFrames();
    return true;
}

std::vector<int> kinds(const std::vector<WireFrame> &frames) {
    std::vector<int> result;
    for (const WireFrame &frame : frames)
        result.push_back(frame.id);
    return result;
}

std::vector<WireEntry> entries(const std::vector<WireFrame> &frames, unsigned char id) {
    std::vector<WireEntry> result;
    for (const WireFrame &frame : frames)
        if (frame.id == id)
            result.push_back(entryIn(frame));
    return result;
}

std::vector<std::string> names(const std::vector<WireFrame> &frames, unsigned char id) {
    std::vector<std::string> result;
    for (const WireEntry &entry : entries(frames, id))
        result.push_back(entry.firstName);
    return result;
}

WireEntry entryIn(const WireFrame &frame) {
    return WireEntry::decode(frame.body).value_or(WireEntry{});
}

} // namespace vintok::test
