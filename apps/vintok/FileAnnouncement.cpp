#include "FileAnnouncement.h"

#include <charconv>

namespace app {

namespace {

constexpr std::string_view announcementTag = "file 1";
constexpr std::string_view closingTag = "file-end 1";
constexpr std::string_view turnTag = "file-turn 1";
constexpr std::string_view sentTag = "sent";
constexpr std::string_view withdrawn = "withdrawn";
constexpr std::string_view yesTag = "yes";
constexpr std::string_view noTag = "no";

bool parseSum(std::string_view text, FileSum &sum) {
    const char *end = text.data() + text.size();
    const auto number = std::from_chars(text.data(), end, sum.size);
    if (number.ec != std::errc() || number.ptr == end || *number.ptr != ' ')
        return false;
    sum.sha256.assign(number.ptr + 1, end);
    return sum.size >= 1 && sum.size <= maxFileSize && isSha256(sum.sha256);
}

} // namespace

std::string encodeAnnouncement(const FileAnnouncement &announcement) {
    return beginBody(announcementTag, announcement.place) + announcement.name + '\n' +
           std::to_string(announcement.sum.size) + ' ' + announcement.sum.sha256;
}

bool decodeAnnouncement(std::string_view body, FileAnnouncement &announcement) {
    FileAnnouncement decoded;
    std::string_view name;
    if (!takeBodyHead(body, announcementTag, decoded.place) || !takeLine(body, maxFileName, name) ||
        name.empty() || !parseSum(body, decoded.sum))
        return false;
    decoded.name = name;
    announcement = decoded;
    return true;
}

std::string encodeClosing(const FileClosing &closing) {
    return beginBody(closingTag, closing.place).append(closing.sent ? sentTag : withdrawn);
}

bool decodeClosing(std::string_view body, FileClosing &closing) {
    FileClosing decoded;
    if (!takeBodyHead(body, closingTag, decoded.place) || (body != sentTag && body != withdrawn))
        return false;
    decoded.sent = body == sentTag;
    closing = decoded;
    return true;
}

std::string encodeTurn(const FileTurn &turn) {
    return beginBody(turnTag, turn.place) + placeLine(turn.whose).append(turn.yes ? yesTag : noTag);
}

bool decodeTurn(std::string_view body, FileTurn &turn) {
    FileTurn decoded;
    if (!takeBodyHead(body, turnTag, decoded.place) || !takePlace(body, decoded.whose) ||
        (body != yesTag && body != noTag))
        return false;
    decoded.yes = body == yesTag;
    turn = decoded;
    return true;
}

} // namespace app
