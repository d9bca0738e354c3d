#include "BodyHead.h"

#include "Text.h"

namespace app {

std::string beginBody(std::string_view mark, const Place &place) {
    return std::string(mark) + '\n' + placeLine(place);
}

std::string placeLine(const Place &place) {
    return place.address + ' ' + std::to_string(place.port) + '\n';
}

bool takeBodyHead(std::string_view &body, std::string_view mark, Place &place) {
    std::string_view first;
    return takeLine(body, mark.size(), first) && first == mark && takePlace(body, place);
}

bool takePlace(std::string_view &body, Place &place) {
    std::string_view line;
    if (!takeLine(body, maxBodyAddress, line))
        return false;
    const std::size_t blank = line.find(' ');
    if (blank == 0 || blank == std::string_view::npos)
        return false;
    place.address = line.substr(0, blank);
    return parseNumber(line.substr(blank + 1), place.port);
}

bool takeLine(std::string_view &body, std::size_t limit, std::string_view &line) {
    const std::size_t end = body.substr(0, limit + 1).find('\n');
    if (end == std::string_view::npos)
        return false;
    line = body.substr(0, end);
    body.remove_prefix(end + 1);
    return true;
}

std::string_view cut(std::string_view text, std::size_t limit) {
    if (text.size() <= limit)
        return text;
    std::size_t end = 0;
    for (std::size_t position = 0; position <= limit; nextCharacter(text, position))
        end = position;
    return text.substr(0, end);
}

} // namespace app
