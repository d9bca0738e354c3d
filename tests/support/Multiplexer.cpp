#include "support/Multiplexer.h"
#include "support/Eventually.h"

#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Wait.h"
#include "support/SocketPair.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <cstdlib>

namespace vintok::test {

namespace {

// Sockets need the library to be started, on some systems.
int openSocket() {
    static const bool started = init();
    static_cast<void>(started); // false also when this machine's own name does not resolve
    return platform::openSocket(platform::FAMILY_IPV4);
}

const unsigned char *raw(const std::string &bytes) {
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

} // namespace

// ---- A client ----

Client::Client(unsigned short port, const std::string &bytes) : m_descriptor(openSocket()) {
    EXPECT_TRUE(platform::connectSocket(m_descriptor, loopbackEndpoint(port)));
    sends(bytes);
}

bool Client::sends(const std::string &bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const std::int64_t count =
            platform::send(m_descriptor, raw(bytes) + sent, bytes.size() - sent);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::size_t Client::pours(const std::string &bytes) {
    platform::setBlockingMode(m_descriptor, false);
    std::size_t sent = 0;
    std::int64_t count = 1;
    while (count > 0 && sent < bytes.size()) {
        count = platform::send(m_descriptor, raw(bytes) + sent, bytes.size() - sent);
        sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    platform::setBlockingMode(m_descriptor, true);
    return sent;
}

std::string Client::takes() {
    std::string bytes(65536, '\0');
    const std::int64_t count =
        waits(ChildProcess::patienceMs)
            ? platform::receive(m_descriptor, reinterpret_cast<unsigned char *>(bytes.data()),
                                bytes.size())
            : 0;
    bytes.resize(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)));
    return bytes;
}

std::string Client::receives(std::size_t length) {
    std::string bytes(length, '\0');
    std::size_t got = 0;
    while (got < length && waits(ChildProcess::patienceMs)) {
        const std::int64_t count = platform::receive(
            m_descriptor, reinterpret_cast<unsigned char *>(bytes.data()) + got, length - got);
        if (count <= 0)
            break;
        got += static_cast<std::size_t>(count);
    }
    bytes.resize(got);
    return bytes;
}

std::string Client::answer() {
    std::string head;
    while (head.find("\r\n\r\n") == std::string::npos) {
        const std::string byte = receives(1);
        if (byte.empty())
            return head + "<end>";
        head += byte;
    }
    return head;
}

bool Client::seesTheEnd() {
    unsigned char byte = 0;
    return m_descriptor == -1 ||
           (waits(ChildProcess::patienceMs) && platform::receive(m_descriptor, &byte, 1) <= 0);
}

bool Client::waits(unsigned int milliseconds) {
    return m_descriptor != -1 && platform::awaitSocket(m_descriptor, platform::Await::readable,
                                                       static_cast<std::int32_t>(milliseconds));
}

void Client::endsSending() {
    platform::shutdownSending(m_descriptor);
}

void Client::resets() {
    platform::resetOnClose(m_descriptor);
    closes();
}

void Client::closes() {
    if (m_descriptor != -1) {
        platform::closeSocket(m_descriptor);
        m_descriptor = -1;
    }
}

// ---- A party ----

Called::Called() : m_listener(openSocket()) {
    platform::Endpoint endpoint = loopbackEndpoint(0);
    EXPECT_TRUE(platform::bindSocket(m_listener, endpoint) &&
                platform::listenSocket(m_listener, 4096) &&
                platform::boundEndpoint(m_listener, endpoint.family, endpoint));
    TCPAddress address;
    address.setPort(endpoint.port);
    m_port = address.hostByteOrderPort();
}

std::unique_ptr<Client> Called::picksUp() {
    platform::Endpoint peer;
    const bool called =
        platform::awaitSocket(m_listener, platform::Await::readable, ChildProcess::patienceMs);
    EXPECT_TRUE(called) << "nobody calls port " << m_port;
    return std::make_unique<Client>(Client::Accepted{
        called ? platform::acceptSocket(m_listener, platform::FAMILY_IPV4, peer) : -1});
}

void Called::stops() {
    if (m_listener != -1) {
        platform::closeSocket(m_listener);
        m_listener = -1;
    }
}

// ---- The program ----

Multiplexer::Multiplexer(const std::vector<std::string> &options, unsigned short port)
    : ChildProcess(
          with({MULTIPLEXER, "--listen", "127.0.0.1", "--port", std::to_string(port)}, options)) {
    std::string line;
    EXPECT_TRUE(printed("listening on 127.0.0.1 port ", &line)) << story();
    m_port = static_cast<unsigned short>(std::atoi(line.c_str() + line.rfind(' ')));
}

std::size_t Multiplexer::count(const std::string &name) const {
    Client client(m_port);
    client.sends("GET /status HTTP/1.0\r\n\r\n");
    const std::string page = client.rest();
    const std::size_t at = page.find('\n' + name + ' ');
    return at == std::string::npos
               ? std::string::npos
               : static_cast<std::size_t>(std::atoll(page.c_str() + at + name.size() + 2));
}

testing::AssertionResult Multiplexer::comesTo(const std::string &name, std::size_t value) const {
    return eventually([&] { return count(name) == value; })
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << count(name) << ' ' << name << '\n'
                                             << story();
}

// ---- What is asked ----

std::string request(const std::string &host, unsigned short port, const std::string &meeting,
                    const std::string &more) {
    return "CONNECT " + host + ':' + std::to_string(static_cast<std::int16_t>(port)) +
           " HTTP/1.0\r\npLorMUX_Version: 2.0\r\npLorMUX_ResponseRequired: true\r\n"
           "pLorMUX_Encrypt: true\r\npLorMUX_Redirect: true\r\npLorMUX_MeetingID: " +
           meeting +
           "\r\npLorMUX_ConfParticipantVersion: 4.0\r\npLorMUX_ProxyAddress: :80\r\n"
           "pLorMUX_ConferenceAddress: " +
           host + ':' + std::to_string(port) + "\r\nQOR_BUILD_INFO: none\r\n" + more + "\r\n";
}

std::string callTo(const Multiplexer &mux, const std::string &meeting, const std::string &more) {
    return request("127.0.0.1", mux.port(), meeting, more);
}

std::string jump(const std::string &more) {
    return "CONNECT party.example:7777 HTTP/1.0\r\npLorMUX_Version: 2.0\r\n"
           "pLorMUX_ProxyJump: true\r\npLorMUX_ProxyAddress: 127.0.0.1:80\r\n" +
           more + "\r\n";
}

} // namespace vintok::test
