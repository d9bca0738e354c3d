// Looks host names up on threads of its own, since the system's resolver makes its caller wait.
#ifndef MULTIPLEXER_RESOLVER_H
#define MULTIPLEXER_RESOLVER_H

#include "Endpoints.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace mux {

class Resolver {
public:
    using Answer = std::pair<std::uint64_t, std::vector<Endpoint>>; // empty: not found

    // The threads end by themselves; one that is in the middle of a look-up does so with it.
    Resolver();
    ~Resolver();
    Resolver(const Resolver &) = delete;
    Resolver &operator=(const Resolver &) = delete;

    // Asks for the addresses of `host`, in the resolver's order. False when too many others wait,
    // or when there is no thread to ask. The first question starts the threads.
    bool ask(std::uint64_t id, const std::string &host, std::uint16_t port);

    // How many have been asked for and not been taken.
    std::size_t open() const { return m_open; }
    // Those that have come.
    std::vector<Answer> take();

private:
    struct Shared;
    std::shared_ptr<Shared> m_shared;
    std::size_t m_open = 0;
    int m_threads = 0;
};

} // namespace mux

#endif
