// The head of a request or a reply (RFC 9112): a first line, and headers behind it.
#ifndef VINTOK_APP_HTTPHEAD_H
#define VINTOK_APP_HTTPHEAD_H

#include <string_view>

namespace app {

// What a party sends that answers for its meeting, with "true".
inline constexpr char offerHeader[] = "pLorMUX_Offer";

// Takes the first line of the text, its end excluded.
std::string_view takeLine(std::string_view &text);

struct Header {
    std::string_view name;
    std::string_view value; // without the blanks around it
};

// False for a line without a colon.
bool splitHeader(std::string_view line, Header &header);

} // namespace app

#endif
