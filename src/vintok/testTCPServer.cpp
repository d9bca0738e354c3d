#include "vintok/testTCPServer.h"

#include "vintok/StreamInternal.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPServer.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

namespace vintok {

namespace {

constexpr unsigned short defaultPort = 8787;
constexpr std::size_t lineSize = 1024;

struct Arguments {
    unsigned short port = 0;
    std::string host;
};

Arguments parse(int argc, char **argv) {
    Arguments arguments;
    for (int i = 0; i + 1 < argc; ++i)
        if (std::strcmp(argv[i], "-port") == 0)
            std::sscanf(argv[++i], "%hu", &arguments.port);
        else if (std::strcmp(argv[i], "-host") == 0)
            arguments.host = argv[++i];
    return arguments;
}

// What the interrupt signal stops. Handlers read it.
std::atomic<TCPServer *> s_server{nullptr};
std::atomic<TCPSelect *> s_select{nullptr};

void handleInterrupt(int) {
    if (TCPServer *const server = s_server; server != nullptr && server->running())
        server->interrupt();
    if (TCPSelect *const select = s_select; select != nullptr && select->running())
        select->interrupt();
    std::signal(SIGINT, handleInterrupt); // systems forget a handler that they have called
}

// The library, and the interrupt signal, for the length of one program.
class Program {
public:
    enum Signals { ignoringSignals, handlingInterrupt };

    explicit Program(Signals signals) : m_handles(signals == handlingInterrupt) {
        init();
        if (!m_handles)
            return;
        m_before = std::signal(SIGINT, SIG_DFL);
        handleInterrupt(SIGINT); // installs itself
    }

    ~Program() {
        if (m_handles && m_before != SIG_ERR)
            std::signal(SIGINT, m_before);
        fini();
    }

    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

private:
    bool m_handles;
    void (*m_before)(int) = SIG_ERR;
};

int connectTo(const Arguments &arguments) {
    if (arguments.host.empty())
        return connectLocal(arguments.port);
    TCPAddress address;
    if (!address.resolve(arguments.host))
        return -1;
    address.setHostByteOrderPort(arguments.port);
    return connectToBoundSocket(address);
}

void printMessage(int descriptor, void * /*data*/, bool hangup) {
    if (hangup)
        return;
    TCPMessage message(descriptor);
    if (message.read(-1, nullptr)) {
        if (message.messageBufferLength() == 0)
            return;
        message.messageBuffer()[message.messageBufferLength() - 1] = 0;
        std::fputs(reinterpret_cast<const char *>(message.messageBuffer()), stdout);
        std::fflush(stdout);
    } else if (lastError() == TCP_ERROR_CONNECTION_RESET) {
        if (TCPSelect *const select = s_select; select != nullptr)
            select->interrupt();
    }
}

bool send(int descriptor, const std::array<char, lineSize> &line) {
    TCPMessage message(descriptor);
    message.setMessageID(TCP_broadcastMessage);
    if (!message.allocateMessageBuffer(line.size()))
        return false;
    std::memcpy(message.messageBuffer(), line.data(), line.size());
    return message.write(-1, nullptr);
}

} // namespace

int testTCPServer_server_main(int argc, char **argv) {
    const Program program(Program::handlingInterrupt);
    const Arguments arguments = parse(argc, argv);
    unsigned short port = 0;
    try {
        TCPServer server(arguments.port == 0 ? defaultPort : arguments.port, true, false);
        port = server.port();
        std::printf("PORT: %hu\n", port);
        std::fflush(stdout);
        s_server = &server;
        server.run();
        s_server = nullptr;
    } catch (const std::bad_alloc &) {
        std::fputs("Failed to create server", stderr);
    }
    return port == 0 ? 1 : 0;
}

int testTCPServer_client_recv_main(int argc, char **argv) {
    const Program program(Program::handlingInterrupt);
    const Arguments arguments = parse(argc, argv);
    const int descriptor = arguments.port == 0 ? -1 : connectTo(arguments);
    if (descriptor == -1)
        return 1;
    {
        TCPSelect select;
        s_select = &select;
        if (select.addSocketCallback(descriptor, printMessage, nullptr, true, false)) {
            bufferFrames(descriptor);
            readAhead(descriptor);
            select.run();
            select.removeCallback(descriptor, printMessage, nullptr);
        }
        s_select = nullptr;
    }
    closeDescriptor(descriptor);
    return 1; // whatever happened
}

int testTCPServer_client_send_main(int argc, char **argv) {
    const Program program(Program::ignoringSignals);
    const int descriptor = connectTo(parse(argc, argv));
    if (descriptor == -1)
        return 1;
    bool allSent = true;
    std::array<char, lineSize> line = {};
    while (std::fgets(line.data(), static_cast<int>(line.size()), stdin) != nullptr)
        allSent = send(descriptor, line) && allSent;
    closeDescriptor(descriptor);
    return allSent ? 0 : 1;
}

} // namespace vintok
