// Addresses as tests make them and look at them.
#ifndef VINTOK_TESTS_SUPPORT_ADDRESSES_H
#define VINTOK_TESTS_SUPPORT_ADDRESSES_H

#include "support/Matchers.h"
#include "support/Wire.h"
#include "vintok/TCPAddress.h"

#include <array>
#include <cstring>
#include <string>

namespace vintok::test {

using Quad = std::array<unsigned char, 4>;
using Words = std::array<unsigned, 8>; // host byte order

inline std::uint32_t networkIPv4(const Quad &bytes) {
    std::uint32_t address = 0;
    std::memcpy(&address, bytes.data(), sizeof(address));
    return address;
}

inline std::array<std::uint16_t, 8> networkIPv6(const Words &words) {
    std::array<std::uint16_t, 8> result{};
    for (std::size_t i = 0; i < words.size(); ++i) {
        const unsigned char bytes[] = {static_cast<unsigned char>(words[i] >> 8),
                                       static_cast<unsigned char>(words[i])};
        std::memcpy(&result[i], bytes, sizeof(bytes));
    }
    return result;
}

inline TCPAddress literal(const std::string &text) {
    TCPAddress address;
    address.setName(text);
    return address;
}

inline TCPAddress network(const std::string &text) {
    TCPAddress address;
    EXPECT_TRUE(address.setNetwork(text)) << text;
    return address;
}

inline TCPAddress nameOnly(const std::string &name, std::uint16_t port = 0) {
    TCPAddress address = literal(name);
    address.setHostByteOrderPort(port);
    return address;
}

inline TCPAddress unixPath(const std::string &path) {
    TCPAddress address;
    address.setUnix(path);
    return address;
}

// The bytes in memory, on a host that stores the least significant byte first.
inline Bytes stored(const TCPAddress &address) {
    TCPAddress::Storage storage;
    EXPECT_TRUE(address.storage(storage));
    Bytes bytes(sizeof(storage));
    std::memcpy(bytes.data(), &storage, sizeof(storage));
    return bytes;
}

inline std::string text(const TCPAddress &address) {
    std::string result = "untouched";
    address.ipString(result);
    return result;
}

} // namespace vintok::test

#endif
