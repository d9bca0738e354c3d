// What a host under a fuzzer sees of the world: time that passes only where it waits or is told so,
// a network of two ports on this machine, and one folder. The calls of the platform layer are
// wrapped by the linker, see `vintok_sandboxed_fuzz` in the build file.
#ifndef VINTOK_FUZZ_SANDBOX_H
#define VINTOK_FUZZ_SANDBOX_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vintok::fuzz {

struct Sandbox {
    // Of the steady clock, which goes on a little with each look.
    std::chrono::nanoseconds now = std::chrono::hours(1);
    // Waits and sleeps, which take no time: they move the clock instead. One without an end is a
    // fault, unless `relieve` has done something for it.
    unsigned waits = 0;
    unsigned sleeps = 0;
    std::function<bool()> relieve;

    int sockets = 0;                  // that are open
    std::vector<std::uint16_t> ports; // that may be connected to on this machine, nothing else may
    std::string folder;               // below which alone files may be written
    std::string sent;                 // a file beside it that may be read
    unsigned filesTouched = 0;
};

Sandbox &sandbox();

} // namespace vintok::fuzz

#endif
