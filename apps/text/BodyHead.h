// What a program itself says begins with two lines: what it is, such as "say 1", and where
// the party listens that speaks, as in the roster:
//
//     <mark>\n
//     <address> <port>\n
//     ...
//
// A body that was relayed arrives without its sender, so it names its own. It proves nothing: any
// party can speak in another's name, since a meeting trusts its members. All of it is bytes from
// the network.
#ifndef VINTOK_APP_BODYHEAD_H
#define VINTOK_APP_BODYHEAD_H

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>

namespace app {

// A longer address makes a body unreadable.
inline constexpr std::size_t maxBodyAddress = 64;

// Where a party listens; the address as TCPAddress::ipString has it.
struct Place {
    std::string address;
    unsigned short port = 0;

    auto operator<=>(const Place &other) const = default;
};

std::string beginBody(std::string_view mark, const Place &place);
// The second of those lines, and any other of its form.
std::string placeLine(const Place &place);

// Takes the first two lines off the front of a body. False when they are others; `body` may have
// lost lines then.
bool takeBodyHead(std::string_view &body, std::string_view mark, Place &place);

// Takes a line of a place off the front. False for any other line.
bool takePlace(std::string_view &body, Place &place);

// Takes one line off the front. False when there is no line end within the limit.
bool takeLine(std::string_view &body, std::size_t limit, std::string_view &line);

// The front of a text: as many whole characters as fit.
std::string_view cut(std::string_view text, std::size_t limit);

} // namespace app

#endif
