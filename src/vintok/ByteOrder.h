// Numbers between the host's and the network's byte order, which is one operation for both
// directions.
#ifndef VINTOK_BYTEORDER_H
#define VINTOK_BYTEORDER_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace vintok {

constexpr std::uint16_t networkOrder(std::uint16_t value) {
    if constexpr (std::endian::native == std::endian::little)
        return static_cast<std::uint16_t>(value << 8 | value >> 8);
    return value;
}

// The number at `bytes`, and `value` put there, in network order. For a caller that has looked
// whether so many bytes are there: each is one move and one swap.
template <typename T>
T loadNetworkOrder(const unsigned char *bytes) {
    std::make_unsigned_t<T> bits;
    std::memcpy(&bits, bytes, sizeof(bits));
    if constexpr (std::endian::native == std::endian::big)
        return static_cast<T>(bits);
    else if constexpr (sizeof(T) == 2)
        return static_cast<T>(__builtin_bswap16(bits));
    else if constexpr (sizeof(T) == 4)
        return static_cast<T>(__builtin_bswap32(bits));
    else if constexpr (sizeof(T) == 8)
        return static_cast<T>(__builtin_bswap64(bits));
}

template <typename T>
void storeNetworkOrder(unsigned char *bytes, T value) {
    unsigned char own[sizeof(T)];
    std::memcpy(own, &value, sizeof(T));
    const T swapped = loadNetworkOrder<T>(own);
    std::memcpy(bytes, &swapped, sizeof(T));
}

} // namespace vintok

#endif
