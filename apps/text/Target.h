// Where a call goes: HOST[:PORT].
#ifndef VINTOK_APP_TARGET_H
#define VINTOK_APP_TARGET_H

#include <string>
#include <string_view>

namespace app {

// Where a party listens unless its configuration says otherwise, where a relay and a multiplexer
// do, and where a proxy is looked for.
inline constexpr unsigned short partyPort = 7777;
inline constexpr unsigned short relayPort = 8787;
inline constexpr unsigned short multiplexerPort = 7780;
inline constexpr unsigned short proxyPort = 80;

struct Target {
    std::string host;
    unsigned short port = 0; // 0: none was given

    // As it was written: "[::1]:7777", "meeting.example".
    std::string text() const;
    bool operator==(const Target &other) const = default;
};

// Splits a port off, behind brackets or behind the only colon; 0: none was given. False without a
// host, and for what is behind it and no port. What the host consists of is not looked at.
bool splitPort(std::string_view text, std::string_view &host, unsigned short &port);

// A name or an IPv4 literal, with or without a port; an IPv6 literal alone or, with a port, in
// brackets. Ports are 1 to 65535. False for anything else; nothing is resolved.
bool parseTarget(std::string_view text, Target &target);

} // namespace app

#endif
