#include "platform/Poller.h"

#include "platform/Socket.h"
#include "platform/win32/SocketError.h"

#include <SystemSockets.h>
#include <map>

namespace vintok::platform {

struct Poller::State {
    std::vector<WSAPOLLFD> polled;
    std::vector<void *> owners;           // beside `polled`
    std::map<int, std::size_t> positions; // of the descriptors in both
};

Poller::Poller() : m_state(std::make_unique<State>()) {}

Poller::~Poller() = default;

bool Poller::watch(int descriptor, bool reading, bool writing, void *owner) {
    State &state = *m_state;
    const auto found = state.positions.find(descriptor);
    const auto wanted = static_cast<SHORT>((reading ? POLLRDNORM : 0) | (writing ? POLLWRNORM : 0));
    if (found == state.positions.end()) {
        if (wanted != 0) {
            state.positions[descriptor] = state.polled.size();
            state.polled.push_back({static_cast<SOCKET>(descriptor), wanted, 0});
            state.owners.push_back(owner);
        }
        return true;
    }
    const std::size_t position = found->second;
    if (wanted != 0) {
        state.polled[position].events = wanted;
        state.owners[position] = owner;
        return true;
    }
    state.positions.erase(found);
    if (position != state.polled.size() - 1) { // the last one takes its place
        state.polled[position] = state.polled.back();
        state.owners[position] = state.owners.back();
        state.positions[static_cast<int>(state.polled[position].fd)] = position;
    }
    state.polled.pop_back();
    state.owners.pop_back();
    return true;
}

bool Poller::wait(std::vector<Event> &events, std::int32_t milliseconds) {
    events.clear();
    State &state = *m_state;
    if (state.polled.empty()) {
        Sleep(static_cast<DWORD>(milliseconds)); // the call refuses an empty list
        return true;
    }
    const int count =
        WSAPoll(state.polled.data(), static_cast<ULONG>(state.polled.size()), milliseconds);
    for (std::size_t i = 0; i < state.polled.size() && count > 0; ++i) {
        const SHORT seen = state.polled[i].revents;
        const bool ended = (seen & (POLLHUP | POLLERR | POLLNVAL)) != 0;
        if (seen != 0)
            events.push_back({state.owners[i], ended || (seen & POLLRDNORM) != 0,
                              ended || (seen & POLLWRNORM) != 0});
    }
    return succeeded(count);
}

int Poller::descriptor() const {
    return -1;
}

std::size_t raiseDescriptorLimit() {
    return 0;
}

} // namespace vintok::platform
