// A line travels as the body of a broadcast message: the line, its end, and a zero byte, so that
// clients which treat the body as a text with a zero byte, or put one over its last byte, lose
// nothing.
//
// A client that sends has to listen as well: what the others send would otherwise pile up until the
// relay waits for this client and everybody stands still. At the end of its input it says that it
// hangs up and waits until the relay has closed the connection: then all lines have gone through.
#include "Relay.h"

#include "Failure.h"
#include "Inbox.h"
#include "MessageSocket.h"
#include "Send.h"

#include <vintok/TCPAddress.h>
#include <vintok/TCPGUID.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPSelect.h>
#include <vintok/TCPServer.h>
#include <vintok/TCPStream.h>

#include <string>
#include <string_view>

namespace app {

namespace {

constexpr unsigned int partingSeconds = 5;
constexpr std::size_t longestBody = 16 << 20; // more is no line

// The line that a body holds: up to a zero byte, without its end.
std::string lineOf(const unsigned char *body, std::size_t length) {
    const std::string_view text(reinterpret_cast<const char *>(body), length);
    std::string_view line = text.substr(0, text.find('\0'));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    return std::string(line);
}

class RelayClient {
public:
    RelayClient(const Options &options, Report &report)
        : m_options(options),
          m_report(report),
          m_sends(options.role == Role::relaySend),
          m_inbox(m_loop),
          m_socket(m_loop, "relay", longestBody,
                   [this](const vintok::TCPMessage &message) { receive(message); }) {}
    RelayClient(const RelayClient &) = delete;
    RelayClient &operator=(const RelayClient &) = delete;

    int run();

private:
    bool connect();
    void receive(const vintok::TCPMessage &message);
    void take(Inbox::Kind kind, const std::string &text);
    void part();
    void end(const std::string &failure);

    const Options &m_options;
    Report &m_report;
    bool m_sends;
    vintok::TCPSelect m_loop;
    Inbox m_inbox;
    MessageSocket m_socket;
    int m_descriptor = -1;
    unsigned int m_parting = 0; // seconds left for the relay to close the connection
    bool m_done = false;
    int m_exitCode = 0;
};

int RelayClient::run() {
    if (!m_inbox.open([this](Inbox::Kind kind, const std::string &text) { take(kind, text); })) {
        end(withLastFailure("cannot make sockets on the loopback address"));
    } else if (connect()) {
        m_inbox.watch();
        m_report.connected(m_options.target.text());
        if (m_sends)
            m_inbox.readStandardInput();
        while (!m_done) {
            m_inbox.pass();
            if (m_socket.ended() && !m_done)
                end(m_parting != 0 ? "" : "the relay has closed the connection");
        }
    }
    return m_exitCode;
}

bool RelayClient::connect() {
    const Target &target = m_options.target;
    vintok::TCPAddress address;
    if (!address.resolve(target.host)) {
        end("cannot find the host '" + target.host + "'");
        return false;
    }
    address.setHostByteOrderPort(target.port == 0 ? relayPort : target.port);
    m_descriptor = vintok::connectToBoundSocket(address);
    if (m_descriptor == -1 || !m_socket.adopt(m_descriptor)) {
        end(withLastFailure("cannot reach " + target.text()));
        return false;
    }
    return true;
}

void RelayClient::receive(const vintok::TCPMessage &message) {
    if (!m_sends && message.messageID() == vintok::TCP_broadcastMessage) {
        m_report.relayed(lineOf(message.messageBuffer(),
                                static_cast<std::size_t>(message.messageBufferLength())));
    }
}

void RelayClient::take(Inbox::Kind kind, const std::string &text) {
    switch (kind) {
    case Inbox::Kind::line:
        if (!sendMessage(m_descriptor, vintok::TCP_broadcastMessage, text + '\n' + '\0'))
            end("the relay has closed the connection");
        return;
    case Inbox::Kind::longLine:
        return m_report.problem("a line of more than " + std::to_string(maxLine) +
                                " bytes was not sent");
    case Inbox::Kind::endOfInput:
    case Inbox::Kind::interrupt:
        return part();
    case Inbox::Kind::tick:
        if (m_parting != 0 && --m_parting == 0)
            end("the relay did not take everything in time");
        return;
    case Inbox::Kind::addresses:
    case Inbox::Kind::alarm:
        return;
    }
}

void RelayClient::part() {
    if (m_parting == 0 && !m_done) {
        m_parting = partingSeconds;
        if (!sendHangup(m_descriptor))
            end("the relay has closed the connection");
    }
}

void RelayClient::end(const std::string &failure) {
    m_done = true;
    if (!failure.empty()) {
        m_exitCode = 1;
        m_report.failed(failure);
    }
}

} // namespace

int runRelay(const Options &options, Report &report) {
    const unsigned short port = options.port == 0 ? relayPort : options.port;
    vintok::TCPServer server(port, options.exactPort, options.localOnly);
    vintok::TCPSelect loop; // the thread's; also the server's
    if (server.port() == 0 ||
        (options.exactPort && loop.numDescriptors() == 1 && lastFailureIsTakenPort())) {
        report.failed(withLastFailure("cannot listen on port " + std::to_string(port)));
        return 1;
    }
    Inbox inbox(loop);
    bool done = false;
    const bool open = inbox.open([&](Inbox::Kind kind, const std::string &) {
        done = done || kind == Inbox::Kind::interrupt;
    });
    if (!open) {
        report.failed(withLastFailure("cannot make sockets on the loopback address"));
        return 1;
    }
    inbox.watch();
    report.listening(options.localOnly ? "the loopback addresses" : "all addresses", server.port());
    while (!done)
        inbox.pass();
    report.ended("The relay ends.");
    return 0;
}

int runRelayClient(const Options &options, Report &report) {
    return RelayClient(options, report).run();
}

} // namespace app
