#include "Saying.h"

#include "Text.h"

#include <algorithm>

namespace app {

namespace {

constexpr std::string_view MARK = "say 1";

// As many whole characters as fit.
std::string_view cut(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return text;
    }
    std::size_t end = 0;
    for (std::size_t position = 0; position <= limit; nextCharacter(text, position)) {
        end = position;
    }
    return text.substr(0, end);
}

// Takes one line off the front. False when there is no line end within the limit.
bool takeLine(std::string_view &body, std::size_t limit, std::string_view &line) {
    const std::size_t end = body.substr(0, limit + 1).find('\n');
    if (end == std::string_view::npos) {
        return false;
    }
    line = body.substr(0, end);
    body.remove_prefix(end + 1);
    return true;
}

} // namespace

std::string encodeSaying(const Saying &saying) {
    std::string name(cut(saying.name, MAX_SAID_NAME));
    std::replace(name.begin(), name.end(), '\n', ' ');
    std::string body(MARK);
    body += '\n' + saying.address + ' ' + std::to_string(saying.port) + '\n' + name + '\n';
    return body.append(cut(saying.text, MAX_SAID_TEXT));
}

bool decodeSaying(std::string_view body, Saying &saying) {
    std::string_view mark;
    std::string_view where;
    std::string_view name;
    Saying decoded;
    if (!takeLine(body, MARK.size(), mark) || mark != MARK ||
        !takeLine(body, MAX_SAID_ADDRESS, where) || !takeLine(body, MAX_SAID_NAME, name) ||
        body.size() > MAX_SAID_TEXT) {
        return false;
    }
    const std::size_t blank = where.find(' ');
    if (blank == 0 || blank == std::string_view::npos ||
        !parseNumber(where.substr(blank + 1), decoded.port)) {
        return false;
    }
    decoded.address = where.substr(0, blank);
    decoded.name = name;
    decoded.text = body;
    saying = decoded;
    return true;
}

} // namespace app
