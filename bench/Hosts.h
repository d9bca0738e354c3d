// The hosts that are compared. Each prints "PORT:<port>" first and relays until it is ended.
#ifndef VINTOK_BENCH_HOSTS_H
#define VINTOK_BENCH_HOSTS_H

#include <cstddef>
#include <cstdint>

namespace bench {

struct Host {
    const char *name;
    void (*run)();
    bool joins; // its members go through the whole road of a join; those of others only connect
};

void runLibraryHost();
void runGuardedHost(); // with the guards of the programs
void runIdealHost();
void runBareHost();

// What the hosts without the library share. Writes never wait for more bytes to fill a packet.
int acceptMember(int listener);

// Every frame begins with its whole length.
constexpr std::size_t lengthSize = 4;
inline std::size_t frameLength(const unsigned char *start) {
    return std::size_t{start[0]} << 24 | std::size_t{start[1]} << 16 | std::size_t{start[2]} << 8 |
           std::size_t{start[3]};
}

} // namespace bench

#endif
