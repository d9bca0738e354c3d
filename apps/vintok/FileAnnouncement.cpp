#include "FileAnnouncement.h"

#include <charconv>

namespace app {

namespace {

constexpr std::string_view ANNOUNCEMENT = "file 1";
constexpr std::string_view CLOSING = "file-end 1";
constexpr std::string_view TURN = "file-turn 1";
constexpr std::string_view SENT = "sent";
constexpr std::string_view WITHDRAWN = "withdrawn";
constexpr std::string_view YES = "yes";
constexpr std::string_view NO = "no";

bool parseSum(std::string_view text, FileSum &sum) {
    const char *end = text.data() + text.size();
    const auto number = std::from_chars(text.data(), end, sum.size);
    if (number.ec != std::errc() || number.ptr == end || *number.ptr != ' ') {
        return false;
    }
    sum.sha256.assign(number.ptr + 1, end);
    return sum.size >= 1 && sum.size <= MAX_FILE_SIZE && isSha256(sum.sha256);
}

} // namespace

std::string encodeAnnouncement(const FileAnnouncement &announcement) {
    return beginBody(ANNOUNCEMENT, announcement.place) + announcement.name + '\n' +
           std::to_string(announcement.sum.size) + ' ' + announcement.sum.sha256;
}

bool decodeAnnouncement(std::string_view body, FileAnnouncement &announcement) {
    FileAnnouncement decoded;
    std::string_view name;
    if (!takeBodyHead(body, ANNOUNCEMENT, decoded.place) || !takeLine(body, MAX_FILE_NAME, name) ||
        name.empty() || !parseSum(body, decoded.sum)) {
        return false;
    }
    decoded.name = name;
    announcement = decoded;
    return true;
}

std::string encodeClosing(const FileClosing &closing) {
    return beginBody(CLOSING, closing.place).append(closing.sent ? SENT : WITHDRAWN);
}

bool decodeClosing(std::string_view body, FileClosing &closing) {
    FileClosing decoded;
    if (!takeBodyHead(body, CLOSING, decoded.place) || (body != SENT && body != WITHDRAWN)) {
        return false;
    }
    decoded.sent = body == SENT;
    closing = decoded;
    return true;
}

std::string encodeTurn(const FileTurn &turn) {
    return beginBody(TURN, turn.place) + placeLine(turn.whose).append(turn.yes ? YES : NO);
}

bool decodeTurn(std::string_view body, FileTurn &turn) {
    FileTurn decoded;
    if (!takeBodyHead(body, TURN, decoded.place) || !takePlace(body, decoded.whose) ||
        (body != YES && body != NO)) {
        return false;
    }
    decoded.yes = body == YES;
    turn = decoded;
    return true;
}

} // namespace app
