// Waiting for many descriptors at once, thousands of them, to be read or written: for programs that
// pass bytes between connections which must not wait for each other.
#ifndef VINTOK_PLATFORM_POLLER_H
#define VINTOK_PLATFORM_POLLER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace vintok::platform {

class Poller {
public:
    struct Event {
        void *owner;
        bool readable;
        bool writable;
    };

    Poller();
    ~Poller();
    Poller(const Poller &) = delete;
    Poller &operator=(const Poller &) = delete;

    // Sets what `descriptor` is watched for, and who is told. Neither: it is watched no longer, as
    // it must not be when it is closed. False with `socketError()`.
    bool watch(int descriptor, bool reading, bool writing, void *owner);

    // Waits until something can be done or the time is over, and leaves what can be done in
    // `events`: at most a few hundred of them, the others come with the next call. An end or an
    // error counts as readable and writable. A signal handled meanwhile ends the wait. Returns
    // false with `socketError()` when it could not wait at all.
    bool wait(std::vector<Event> &events, std::int32_t milliseconds);

    // Readable while `wait` would not wait; -1 where the system has no such thing.
    int descriptor() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// Lets this process open as many descriptors as the system ever grants it; the number, or 0 where
// there is no such limit.
std::size_t raiseDescriptorLimit();

} // namespace vintok::platform

#endif
