#include "Endpoints.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace mux {

using vintok::platform::FAMILY_IPV4;
using vintok::platform::FAMILY_IPV6;

namespace {

constexpr unsigned char mappedFront[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

std::uint16_t networkOrder(std::uint16_t port) {
    const unsigned char bytes[2] = {static_cast<unsigned char>(port >> 8),
                                    static_cast<unsigned char>(port & 0xFF)};
    std::uint16_t result = 0;
    std::memcpy(&result, bytes, sizeof result);
    return result;
}

} // namespace

Endpoint plain(const Endpoint &endpoint) {
    Endpoint result = endpoint;
    const auto *bytes = reinterpret_cast<const unsigned char *>(endpoint.ipv6.data());
    if (endpoint.family == FAMILY_IPV6 &&
        std::memcmp(bytes, mappedFront, sizeof mappedFront) == 0) {
        result.family = FAMILY_IPV4;
        std::memcpy(&result.ipv4, bytes + sizeof mappedFront, sizeof result.ipv4);
    }
    return result;
}

bool makeEndpoint(const vintok::TCPAddress &address, std::uint16_t port, Endpoint &endpoint) {
    Endpoint made;
    made.port = networkOrder(port);
    if (address.IPv4(made.ipv4))
        made.family = FAMILY_IPV4;
    else if (address.IPv6(made.ipv6.data()))
        made.family = FAMILY_IPV6;
    else
        return false;
    endpoint = plain(made);
    return true;
}

bool makeEndpoint(const std::string &literal, std::uint16_t port, Endpoint &endpoint) {
    vintok::TCPAddress address;
    address.setName(literal);
    return makeEndpoint(address, port, endpoint);
}

std::uint16_t portOf(const Endpoint &endpoint) {
    return networkOrder(endpoint.port); // the way back is the same
}

std::vector<unsigned char> addressBytes(const Endpoint &endpoint) {
    const bool v4 = endpoint.family == FAMILY_IPV4;
    std::vector<unsigned char> bytes(v4 ? sizeof endpoint.ipv4 : sizeof endpoint.ipv6);
    std::memcpy(bytes.data(), v4 ? static_cast<const void *>(&endpoint.ipv4) : endpoint.ipv6.data(),
                bytes.size());
    return bytes;
}

bool isLoopback(const Endpoint &endpoint) {
    const std::vector<unsigned char> bytes = addressBytes(endpoint);
    if (bytes.size() == 4)
        return bytes[0] == 127;
    static const std::vector<unsigned char> loopback = {0, 0, 0, 0, 0, 0, 0, 0,
                                                        0, 0, 0, 0, 0, 0, 0, 1};
    return bytes == loopback;
}

std::string addressText(const Endpoint &endpoint) {
    const std::vector<unsigned char> bytes = addressBytes(endpoint);
    std::string text;
    char part[8];
    for (std::size_t i = 0; i < bytes.size(); i += bytes.size() == 4 ? 1 : 2) {
        if (bytes.size() == 4) {
            std::snprintf(part, sizeof part, i == 0 ? "%u" : ".%u", bytes[i]);
        } else {
            std::snprintf(part, sizeof part, i == 0 ? "%x" : ":%x",
                          static_cast<unsigned int>(bytes[i]) << 8 | bytes[i + 1]);
        }
        text += part;
    }
    return text;
}

std::string endpointText(const Endpoint &endpoint) {
    const std::string text = addressText(endpoint);
    return (endpoint.family == FAMILY_IPV6 ? '[' + text + ']' : text) + ':' +
           std::to_string(portOf(endpoint));
}

} // namespace mux
