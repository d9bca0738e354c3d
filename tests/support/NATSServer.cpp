#include "support/NATSServer.h"

#include "support/Eventually.h"

#include <cstdlib>
#include <filesystem>

namespace vintok::test {

bool NATSServer::isInstalled() {
    return std::filesystem::exists(program) || std::getenv("VINTOK_REQUIRE_NATS") != nullptr;
}

NATSServer::NATSServer(std::vector<std::string> options) : m_options(std::move(options)) {
    start();
}

void NATSServer::start(const std::vector<std::string> &more) {
    std::vector<std::string> words = {
        program, "-a", "127.0.0.1", "-p", m_port, "--ports_file_dir", m_folder.path("")};
    words.insert(words.end(), {"-sd", m_folder.path("streams")});
    words.insert(words.end(), m_options.begin(), m_options.end());
    words.insert(words.end(), more.begin(), more.end());
    m_process = std::make_unique<ChildProcess>(words);
    EXPECT_TRUE(eventually([this] { return !portOf("nats").empty(); })) << m_process->story();
    m_port = portOf("nats");
    m_routePort = portOf("cluster");
}

// From what the server writes when it is ready: {"nats":["nats://127.0.0.1:4222"],"cluster":[...]}.
std::string NATSServer::portOf(const std::string &service) const {
    const std::string name = "_" + std::to_string(m_process->id()) + ".ports";
    const std::string text = m_folder.content("nats-server" + name);
    const std::size_t entry = text.find('"' + service + '"');
    const std::size_t at = text.find("127.0.0.1:", entry);
    return entry == std::string::npos || at == std::string::npos
               ? ""
               : text.substr(at + 10, text.find('"', at) - at - 10);
}

std::vector<std::unique_ptr<NATSServer>> startNATSCluster(std::size_t count) {
    std::vector<std::unique_ptr<NATSServer>> servers;
    std::vector<std::string> options = {"-cluster_name", "tests", "-cluster",
                                        "nats://127.0.0.1:-1"};
    while (servers.size() < count) {
        servers.push_back(std::make_unique<NATSServer>(options));
        if (servers.size() == 1)
            options.insert(options.end(), {"-routes", servers[0]->route()});
    }
    return servers;
}

} // namespace vintok::test
