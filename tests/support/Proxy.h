// An HTTP proxy of the distribution, run as a child on the loopback interface with a configuration
// of its own. Nothing of one that is installed as a service is touched.
#ifndef VINTOK_TESTS_PROXY_H
#define VINTOK_TESTS_PROXY_H

#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace vintok::test {

// A port of the loopback interface that was free a moment ago, below those that the request behind
// CONNECT writes as negative numbers.
unsigned short freePort();

class Proxy {
public:
    enum class Kind { tinyproxy, squid, privoxy }; // the last one never asks
    static constexpr char credentials[] = "ann:secret";

    explicit Proxy(Kind kind, bool asksForCredentials = false);
    ~Proxy();
    Proxy(const Proxy &) = delete;
    Proxy &operator=(const Proxy &) = delete;

    // Takes calls. Otherwise `story` says why not.
    bool runs() const { return m_runs; }
    unsigned short port() const { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }
    std::string story() const { return m_process ? m_process->story() : ""; }

private:
    std::vector<std::string> prepare(Kind kind, bool asks);
    std::string squid(bool asks) const;
    std::string serviceName() const { return "vintok" + std::to_string(m_port); }
    bool start(Kind kind, bool asks);

    TemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<ChildProcess> m_process;
    bool m_runs = false;
};

std::string nameOf(Proxy::Kind kind);

} // namespace vintok::test

#endif
