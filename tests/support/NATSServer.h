// A server of NATS, run as a child on the loopback interface. One that is installed as a service is
// left alone.
#ifndef VINTOK_TESTS_NATSSERVER_H
#define VINTOK_TESTS_NATSSERVER_H

#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace vintok::test {

class NATSServer {
public:
    static constexpr char program[] = "/usr/sbin/nats-server";
    // Or has to be, as VINTOK_REQUIRE_NATS says.
    static bool isInstalled();

    // Started, on a port of the system's choice, which it has again when it is started again. With
    // "-js" among the options it keeps streams in a folder of its own.
    explicit NATSServer(std::vector<std::string> options = {});
    // With these options, too.
    void start(const std::vector<std::string> &more = {});
    void stop() { m_process->kill(); }

    std::string url() const { return "nats://127.0.0.1:" + m_port; }
    // Where other servers of its cluster connect to it.
    std::string route() const { return "nats://127.0.0.1:" + m_routePort; }

private:
    std::string portOf(const std::string &service) const;

    const std::vector<std::string> m_options;
    const TemporaryFolder m_folder;
    std::string m_port = "-1";
    std::string m_routePort;
    std::unique_ptr<ChildProcess> m_process;
};

// Several that are one cluster.
std::vector<std::unique_ptr<NATSServer>> startNATSCluster(std::size_t count);

} // namespace vintok::test

#endif
