#include "Saying.h"

#include <algorithm>

namespace app {

namespace {

constexpr std::string_view MARK = "say 1";

} // namespace

std::string encodeSaying(const Saying &saying) {
    std::string name(cut(saying.name, MAX_SAID_NAME));
    std::replace(name.begin(), name.end(), '\n', ' ');
    std::string body = beginBody(MARK, saying.place) + name + '\n';
    return body.append(cut(saying.text, MAX_SAID_TEXT));
}

bool decodeSaying(std::string_view body, Saying &saying) {
    std::string_view name;
    Saying decoded;
    if (!takeBodyHead(body, MARK, decoded.place) || !takeLine(body, MAX_SAID_NAME, name) ||
        body.size() > MAX_SAID_TEXT) {
        return false;
    }
    decoded.name = name;
    decoded.text = body;
    saying = decoded;
    return true;
}

} // namespace app
