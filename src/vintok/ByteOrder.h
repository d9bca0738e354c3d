// Ports and address words between the host's and the network's byte order, which is one operation
// for both directions.
#ifndef VINTOK_BYTEORDER_H
#define VINTOK_BYTEORDER_H

#include <bit>
#include <cstdint>

namespace vintok {

constexpr std::uint16_t networkOrder(std::uint16_t value) {
    if constexpr (std::endian::native == std::endian::little)
        return static_cast<std::uint16_t>(value << 8 | value >> 8);
    return value;
}

} // namespace vintok

#endif
