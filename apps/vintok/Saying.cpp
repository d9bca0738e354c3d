#include "Saying.h"

#include <algorithm>

namespace app {

namespace {

constexpr std::string_view announcementMark = "say 1";

} // namespace

std::string encodeSaying(const Saying &saying) {
    std::string name(cut(saying.name, maxSaidName));
    std::replace(name.begin(), name.end(), '\n', ' ');
    std::string body = beginBody(announcementMark, saying.place) + name + '\n';
    return body.append(cut(saying.text, maxSaidText));
}

bool decodeSaying(std::string_view body, Saying &saying) {
    std::string_view name;
    Saying decoded;
    if (!takeBodyHead(body, announcementMark, decoded.place) ||
        !takeLine(body, maxSaidName, name) || body.size() > maxSaidText)
        return false;
    decoded.name = name;
    decoded.text = body;
    saying = decoded;
    return true;
}

} // namespace app
