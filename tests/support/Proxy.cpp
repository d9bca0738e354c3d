#include "support/Proxy.h"

#include "support/SocketPair.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPStream.h"

#include <chrono>
#include <filesystem>

namespace vintok::test {

namespace {

// The helper of squid that knows users from a file.
constexpr char basicHelper[] = "/usr/lib/squid/basic_ncsa_auth";

bool takesCalls(unsigned short port) {
    TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(port);
    const int descriptor = connectToBoundSocket(address);
    shutdownSocket(descriptor);
    return descriptor != -1;
}

// What the shell would find; the administrator's programs are not on everybody's path.
std::string programOf(Proxy::Kind kind) {
    for (const char *folder : {"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/", "/usr/local/bin/"})
        if (std::filesystem::exists(folder + nameOf(kind)))
            return folder + nameOf(kind);
    return nameOf(kind);
}

} // namespace

unsigned short freePort() {
    unsigned short port = 0;
    shutdownSocket(listenSomewhere(port));
    return port;
}

std::string nameOf(Proxy::Kind kind) {
    static const char *const names[] = {"tinyproxy", "squid", "privoxy"};
    return names[static_cast<int>(kind)];
}

Proxy::Proxy(Kind kind, bool asks) {
    // One that runs as root gives its rights away and reads its files as somebody else.
    std::filesystem::permissions(m_folder.path(""), std::filesystem::perms::all);
    for (int attempt = 0; attempt < 3 && !m_runs; ++attempt) // somebody may take the port first
        m_runs = start(kind, asks);
}

// To end in order takes squid a second. One that is killed leaves shared memory behind.
Proxy::~Proxy() {
    m_process.reset();
    for (const char *part : {"metadata", "queues", "readers"}) {
        std::error_code ignored;
        std::filesystem::remove("/dev/shm/" + serviceName() + "-cf__" + part + ".shm", ignored);
    }
}

bool Proxy::start(Kind kind, bool asks) {
    m_port = freePort();
    m_process = std::make_unique<ChildProcess>(prepare(kind, asks));
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (m_process->started() && std::chrono::steady_clock::now() < limit) {
        if (takesCalls(m_port))
            return true;
        if (m_process->exitCode(20) != -1) // a wait, too
            return false;
    }
    return false;
}

// Writes the configuration; the command line that uses it.
std::vector<std::string> Proxy::prepare(Kind kind, bool asks) {
    const std::string port = std::to_string(m_port);
    std::string lines;
    switch (kind) {
    case Kind::tinyproxy:
        lines = "Listen 127.0.0.1\nPort " + port + "\nTimeout 600\nMaxClients 20\n";
        lines += asks ? "BasicAuth ann secret\n" : "";
        return {programOf(kind), "-d", "-c", m_folder.holding("config", lines)};
    case Kind::squid:
        return {programOf(kind),
                "-N",
                "-n",
                serviceName(),
                "-d",
                "1",
                "-f",
                m_folder.holding("config", squid(asks))};
    case Kind::privoxy:
        lines = "listen-address 127.0.0.1:" + port + "\nconfdir " + m_folder.path("") +
                "\nactionsfile actions\n";
        m_folder.holding("actions", "{ +limit-connect{-} }\n/\n");
        return {programOf(kind), "--no-daemon", m_folder.holding("config", lines)};
    }
    return {};
}

std::string Proxy::squid(bool asks) const {
    std::string lines =
        "http_port 127.0.0.1:" + std::to_string(m_port) +
        "\npid_filename none\naccess_log none\ncache_log /dev/null\ncache deny all\n"
        "cache_mem 0\npinger_enable off\ncoredump_dir none\nshutdown_lifetime 0 seconds\n"
        "acl tunnels method CONNECT\n";
    if (!asks)
        return lines + "http_access allow tunnels\nhttp_access deny all\n";
    const std::string users =
        m_folder.holding("users", "ann:$apr1$abcdefgh$h9FWgUz3n9YxylKLlR5SQ/\n");
    return lines + "auth_param basic program " + basicHelper + ' ' + users +
           "\nauth_param basic children 1\nauth_param basic realm office\n"
           "acl known proxy_auth REQUIRED\nhttp_access allow known tunnels\n"
           "http_access deny all\n";
}

} // namespace vintok::test
