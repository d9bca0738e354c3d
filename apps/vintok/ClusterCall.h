// Whom a guest calls who looks for a host of a meeting: the search, which takes a thread of its own
// because it waits for answers, the order of those who were found, and the pauses when nobody takes
// the call.
#ifndef VINTOK_APP_CLUSTERCALL_H
#define VINTOK_APP_CLUSTERCALL_H

#include "Target.h"

#include <vintok-cluster/Cluster.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>

namespace app {

class ClusterCall {
public:
    using Clock = std::chrono::steady_clock;
    using TimePoint = Clock::time_point;

    // The options must outlive it. With a target that is called first.
    ClusterCall(const vintok::ClusterOptions &options, const Target &target);

    // The host is lost: from now on everybody is tried again and again, for a bounded time.
    void beginAgain(TimePoint now);
    bool isAgain() const { return m_isAgain; }

    // What to do while no call is under way.
    enum class Step { wait, call, giveUp };
    Step step(TimePoint now);
    // Whom to call.
    const Target &target() const { return m_target; }

    // Why the call has come to nothing. The last one is the reason for giving up.
    void failed(const std::string &reason) { m_failure = reason; }
    const std::string &failure() const { return m_failure; }

private:
    struct Search;

    bool search();
    bool takeResult();

    const vintok::ClusterOptions &m_options;
    std::deque<Target> m_targets;
    Target m_target;
    std::shared_ptr<Search> m_search; // shared with the thread, which may outlive this object
    std::string m_failure;
    bool m_isAgain = false;
    bool m_hasSearched = false;
    TimePoint m_next{}; // the next search
    TimePoint m_end{};
    Clock::duration m_pause{};
};

} // namespace app

#endif
