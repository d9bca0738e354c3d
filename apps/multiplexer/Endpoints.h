// Between the library's addresses and the endpoints that sockets take.
#ifndef MULTIPLEXER_ENDPOINTS_H
#define MULTIPLEXER_ENDPOINTS_H

#include <cstdint>
#include <platform/Socket.h>
#include <string>
#include <string_view>
#include <vector>
#include <vintok/TCPAddress.h>

namespace mux {

using vintok::platform::Endpoint;

// False for an address that is neither IPv4 nor IPv6. An IPv4 address in its IPv6 form becomes the
// plain one, so that no rule for the one is got round by writing the other. `port` is in host byte
// order.
bool makeEndpoint(const vintok::TCPAddress &address, std::uint16_t port, Endpoint &endpoint);

// The same from a literal; false for a name.
bool makeEndpoint(const std::string &literal, std::uint16_t port, Endpoint &endpoint);

// The endpoint as accept gives it, with that same change.
Endpoint plain(const Endpoint &endpoint);

std::uint16_t portOf(const Endpoint &endpoint); // host byte order
bool isLoopback(const Endpoint &endpoint);

// The address as bytes in network order: four, or sixteen.
std::vector<unsigned char> addressBytes(const Endpoint &endpoint);

// "127.0.0.1", "2001:db8:0:0:0:0:0:1"; with the port "127.0.0.1:80", "[...]:80".
std::string addressText(const Endpoint &endpoint);
std::string endpointText(const Endpoint &endpoint);

} // namespace mux

#endif
