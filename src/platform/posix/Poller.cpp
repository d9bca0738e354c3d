#include "platform/Poller.h"

#include "platform/Socket.h"
#include "platform/posix/SocketError.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

namespace vintok::platform {

namespace {

constexpr std::size_t batch = 256;

} // namespace

struct Poller::State {
    int descriptor = epoll_create1(EPOLL_CLOEXEC);
    std::array<epoll_event, batch> events = {};

    ~State() { close(descriptor); }
};

Poller::Poller() : m_state(std::make_unique<State>()) {}

Poller::~Poller() = default;

bool Poller::watch(int descriptor, bool reading, bool writing, void *owner) {
    epoll_event event = {};
    event.events = (reading ? EPOLLIN : 0u) | (writing ? EPOLLOUT : 0u);
    event.data.ptr = owner;
    // What is watched for nothing would still be told of its end, again and again.
    if (event.events == 0)
        return succeeded(epoll_ctl(m_state->descriptor, EPOLL_CTL_DEL, descriptor, &event)) ||
               errno == ENOENT;
    if (epoll_ctl(m_state->descriptor, EPOLL_CTL_MOD, descriptor, &event) == 0)
        return true;
    return succeeded(
        errno == ENOENT ? epoll_ctl(m_state->descriptor, EPOLL_CTL_ADD, descriptor, &event) : -1);
}

bool Poller::wait(std::vector<Event> &events, std::int32_t milliseconds) {
    events.clear();
    const int count = epoll_wait(m_state->descriptor, m_state->events.data(),
                                 static_cast<int>(batch), milliseconds);
    for (int i = 0; i < count; ++i) {
        const epoll_event &event = m_state->events[static_cast<std::size_t>(i)];
        const bool ended = (event.events & (EPOLLHUP | EPOLLERR)) != 0;
        events.push_back({event.data.ptr, ended || (event.events & EPOLLIN) != 0,
                          ended || (event.events & EPOLLOUT) != 0});
    }
    return succeeded(count) || errno == EINTR;
}

int Poller::descriptor() const {
    return m_state->descriptor;
}

std::size_t raiseDescriptorLimit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    const rlimit raised = {limit.rlim_max, limit.rlim_max};
    return setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
}

} // namespace vintok::platform
