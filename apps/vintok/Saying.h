// A line said in a meeting, as the body of a broadcast message. It has a head (BodyHead.h) and the
// rest:
//
//     say 1\n
//     <address> <port>\n     finds name and colour of the speaker
//     <name>\n               for a listener whose roster does not have the speaker
//     <text>                 UTF-8, up to the end of the body
//
// Name and text are bytes from the network and go through `printable` before anybody sees them.
#ifndef VINTOK_APP_SAYING_H
#define VINTOK_APP_SAYING_H

#include "BodyHead.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace app {

struct Saying {
    Place place;
    std::string name;
    std::string text;
};

// What a receiver takes; longer fields make a body unreadable.
inline constexpr std::size_t maxSaidName = 256;
inline constexpr std::size_t maxSaidText = 65536;

// A line end in the name becomes a blank, and name and text are cut to what a receiver takes,
// between characters.
std::string encodeSaying(const Saying &saying);

// False, with `saying` as it was, for a body of any other form.
bool decodeSaying(std::string_view body, Saying &saying);

} // namespace app

#endif
