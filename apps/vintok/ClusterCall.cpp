#include "ClusterCall.h"

#include "ClusterLink.h"

#include <algorithm>
#include <atomic>
#include <random>
#include <system_error>
#include <thread>
#include <vector>

namespace app {

namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t answerTime = 2000; // milliseconds
constexpr std::chrono::seconds againTime(60);
constexpr milliseconds shortestPause(250);
constexpr milliseconds longestPause(8000);

std::mt19937 &chance() {
    static std::mt19937 generator{std::random_device()()};
    return generator;
}

} // namespace

struct ClusterCall::Search {
    std::vector<vintok::ClusterHost> hosts;
    std::string failure;
    std::atomic<bool> isOver = false; // the thread is done with the rest
};

ClusterCall::ClusterCall(const vintok::ClusterOptions &options, const Target &target)
    : m_options(options) {
    if (!target.host.empty())
        m_targets.push_back(target);
}

// Everybody who was at the lost host begins at a time of their own.
void ClusterCall::beginAgain(TimePoint now) {
    m_isAgain = true;
    m_targets.clear();
    m_end = now + againTime;
    m_pause = shortestPause;
    m_next = now + milliseconds(std::uniform_int_distribution<int>(0, 500)(chance()));
}

ClusterCall::Step ClusterCall::step(TimePoint now) {
    if (m_search != nullptr && !takeResult())
        return Step::wait;
    if (!m_targets.empty()) {
        m_target = m_targets.front();
        m_targets.pop_front();
        return Step::call;
    }
    if (m_isAgain ? now >= m_end : m_hasSearched)
        return Step::giveUp;
    if (m_isAgain) {
        if (now < m_next)
            return Step::wait;
        m_next = now + m_pause;
        m_pause = std::min<Clock::duration>(2 * m_pause, longestPause);
    }
    return search() ? Step::wait : Step::giveUp;
}

bool ClusterCall::search() {
    m_hasSearched = true;
    m_search = std::make_shared<Search>();
    try {
        std::thread([search = m_search, options = m_options] {
            search->hosts = cluster::find(options, answerTime, search->failure);
            search->isOver = true;
        }).detach();
        return true;
    } catch (const std::system_error &) {
        m_search.reset();
        m_failure = "cannot start a thread";
        return false;
    }
}

// Who was at a host that is lost is not to be at one and the same again with everybody else.
bool ClusterCall::takeResult() {
    if (!m_search->isOver)
        return false;
    std::vector<vintok::ClusterHost> &hosts = m_search->hosts;
    if (hosts.empty())
        m_failure =
            "cannot find a host of the meeting " + m_options.meeting + ": " + m_search->failure;
    if (m_isAgain)
        std::shuffle(hosts.begin(), hosts.end(), chance());
    for (const vintok::ClusterHost &host : hosts)
        m_targets.push_back({host.advertised, host.port});
    m_search.reset();
    return true;
}

} // namespace app
