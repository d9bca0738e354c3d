#include "support/Meeting.h"

#include "platform/Thread.h"
#include "support/WirePeer.h"

#include <algorithm>
#include <cctype>
#include <chrono>

namespace vintok::test {

namespace {

// Far above what any machine needs: whoever waits this long waits for something that does not come.
constexpr std::chrono::seconds patience(20);

} // namespace

unsigned short freshPort() {
    // Processes that run at the same time begin at different places; who meets a taken port goes
    // on.
    static unsigned next = platform::currentProcessId() % 200 * 100;
    next = (next + 1) % 20000;
    return static_cast<unsigned short>(10000 + next);
}

bool Meeting::turn() {
    bool happened = m_select.pollDescriptors(true) > 0;
    for (WirePeer *peer : std::vector(m_peers))
        happened = peer->pump() || happened;
    if (!happened)
        platform::sleepMilliseconds(1);
    return happened;
}

testing::AssertionResult Meeting::until(const std::function<bool()> &condition,
                                        const std::string &what) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return testing::AssertionFailure() << "waited in vain: " << what;
        turn();
    }
    return testing::AssertionSuccess();
}

void Meeting::remove(WirePeer *peer) {
    m_peers.erase(std::remove(m_peers.begin(), m_peers.end(), peer), m_peers.end());
}

std::string caseName(const std::string &sentence) {
    std::string name = sentence;
    for (char &c : name)
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    return name;
}

} // namespace vintok::test
