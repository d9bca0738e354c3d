// What strangers call themselves and their files, as it can stand in a notification: a line feed or
// a zero byte would break its lines, and a party without an address would have none.
#ifndef VINTOK_CONTROL_READABLE_H
#define VINTOK_CONTROL_READABLE_H

#include <vintok/RosterBase.h>
#include <vintok/TCPStream.h>

#include <string>

namespace control {

inline std::string readable(const std::string &text) {
    return vintok::visibleText(text);
}

inline vintok::TCPAddress readable(const vintok::TCPAddress &address) {
    vintok::TCPAddress result(address);
    if (std::string text; !address.ipString(text))
        result.setIPv4(0);
    return result;
}

inline vintok::RosterBase readable(const vintok::RosterBase &party) {
    vintok::RosterBase result(readable(static_cast<const vintok::TCPAddress &>(party)));
    static_cast<vintok::UserInfo &>(result) = party.visible();
    result.setColorIndex(party.colorIndex());
    return result;
}

} // namespace control

#endif
