// What the fuzz targets share. A target is a source with one entry, `LLVMFuzzerTestOneInput`, for
// libFuzzer, and for replay.cpp where the files of a folder are to be tried without it.
#ifndef VINTOK_FUZZ_FUZZ_H
#define VINTOK_FUZZ_FUZZ_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace vintok::fuzz {

// Ends the process, which is how a target says that it has found something.
inline void require(bool holds, const char *what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

inline std::string_view textOf(const std::uint8_t *data, std::size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

// Values in the order in which the bytes of an input give them. Behind the last byte all are 0.
class Input {
public:
    Input(const std::uint8_t *data, std::size_t size) : m_rest(textOf(data, size)) {}

    bool empty() const { return m_rest.empty(); }
    std::uint8_t byte() {
        const std::uint8_t value = empty() ? 0 : static_cast<std::uint8_t>(m_rest.front());
        m_rest.remove_prefix(empty() ? 0 : 1);
        return value;
    }
    unsigned below(unsigned limit) { return byte() % limit; }
    bool flag() { return (byte() & 1) != 0; }
    unsigned word() {
        const unsigned high = byte();
        return high << 8 | byte();
    }
    // So many bytes, or those that are left.
    std::string_view take(std::size_t count) {
        const std::string_view front = m_rest.substr(0, count);
        m_rest.remove_prefix(front.size());
        return front;
    }
    // Behind a count of one byte.
    std::string text() { return std::string(take(byte())); }

private:
    std::string_view m_rest;
};

} // namespace vintok::fuzz

#endif
