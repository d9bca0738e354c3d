#include "ControlWords.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace control {

namespace {

constexpr std::int64_t MAX16 = std::numeric_limits<std::uint16_t>::max();
constexpr std::int64_t MAX32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::int64_t MIN_INT = std::numeric_limits<std::int32_t>::min();

// In the order of the enumeration.
constexpr FieldRow fieldRows[] = {
    {Field::machineName, Kind::text, "machineName"},
    {Field::proxyAddress, Kind::text, "proxyAddress"},
    {Field::meetingID, Kind::text, "meetingID"},
    {Field::meetingName, Kind::text, "meetingName"},
    {Field::authenticationString, Kind::text, "authenticationString"},
    {Field::port, Kind::number, "port", 0, MAX16},
    {Field::proxyPort, Kind::number, "proxyPort", 0, MAX16},
    // Written as a signed number by requests and as an unsigned one by notifications.
    {Field::triesRemaining, Kind::number, "triesRemaining", MIN_INT, MAX32},
    {Field::filePath, Kind::text, "filePath"},
    {Field::relativePath, Kind::text, "relativePath"},
    {Field::address, Kind::ip, "address"},
    {Field::firstName, Kind::text, "firstName"},
    {Field::lastName, Kind::text, "lastName"},
    {Field::title, Kind::text, "title"},
    {Field::email, Kind::text, "email"},
    {Field::phoneNumber, Kind::text, "phoneNumber"},
    {Field::colorIndex, Kind::number, "colorIndex", 0, MAX16},
    {Field::serverResponseCode, Kind::number, "serverResponseCode", 0, MAX32},
    {Field::serverResponseMessage, Kind::encoded, "serverResponseMessage"},
    {Field::isSecure, Kind::flag, "isSecure"},
    {Field::hideIP, Kind::flag, "hideIP"},
    {Field::outcome, Kind::choice, "", 0, 0, {"true", "false"}},
    {Field::change, Kind::choice, "", 0, 0, {"join", "leave", "ejected"}},
    {Field::direction, Kind::choice, "", 0, 0, {"add", "subtract"}},
    {Field::seconds, Kind::number, "", 0, MAX32},
    {Field::path, Kind::text, ""},
    {Field::variableName, Kind::text, ""},
    {Field::variableValue, Kind::text, ""},
};
static_assert(std::size(fieldRows) == FIELDS);

constexpr auto request = Direction::request;
constexpr auto notification = Direction::notification;

constexpr FieldSet ADDRESS = bit(Field::address) | bit(Field::port);
constexpr FieldSet USER = bit(Field::firstName) | bit(Field::lastName) | bit(Field::title) |
                          bit(Field::email) | bit(Field::phoneNumber);
constexpr FieldSet PARTY = ADDRESS | USER;
constexpr FieldSet COLOR = bit(Field::colorIndex);
constexpr FieldSet MACHINE = bit(Field::machineName);
constexpr FieldSet FILE_PATH = bit(Field::filePath);
constexpr FieldSet OUTCOME = bit(Field::outcome);
constexpr FieldSet CHANGE = bit(Field::change);
constexpr FieldSet VARIABLE = bit(Field::variableName) | bit(Field::variableValue);
constexpr FieldSet NAME = bit(Field::meetingName);
constexpr FieldSet RELATIVE = bit(Field::relativePath);
constexpr FieldSet CALL_NUMBERS =
    bit(Field::port) | bit(Field::proxyPort) | bit(Field::triesRemaining);
constexpr FieldSet CALL_TEXTS =
    bit(Field::proxyAddress) | bit(Field::meetingID) | bit(Field::authenticationString);
constexpr FieldSet IDENTITY =
    bit(Field::isSecure) | bit(Field::hideIP) | USER | bit(Field::meetingID);

constexpr WordRow wordRows[] = {
    {"acceptLeadChange", request},
    {"acceptPendingCall", request},
    {"adjournMeeting", request},
    {"conveneMeeting", request, 0, 0, NAME},
    {"disableUser", request, 0, COLOR, PARTY},
    {"enableUser", request, 0, COLOR, PARTY},
    {"hangup", request},
    {"keepAlive", request},
    {"meetingRoster", request, 0, COLOR, PARTY},
    {"pausePlayback", request},
    {"placeCall", request, 0, CALL_NUMBERS, MACHINE | CALL_TEXTS},
    {"putenv", request, VARIABLE},
    {"rejectLeadChange", request},
    {"rejectPendingCall", request},
    {"resumePlayback", request},
    {"shutdown", request},
    {"startLeading", request},
    {"startPlayback", request, 0, FILE_PATH},
    {"startRecording", request, 0, FILE_PATH},
    {"startup", request, 0, bit(Field::port), IDENTITY},
    {"stopLeading", request},
    {"stopPlayback", request},
    {"stopRecording", request},
    {"time", request},
    {"transferFile", request, 0, 0, FILE_PATH | RELATIVE},

    {"authenticationRequired", notification, 0, MACHINE | CALL_NUMBERS, CALL_TEXTS},
    {"beginLeading", notification},
    {"beginLeadingDenied", notification},
    {"beginLeadingGranted", notification},
    {"beginMeeting", notification, 0, NAME},
    {"callPending", notification, 0, COLOR, PARTY},
    {"dialing", notification, 0, MACHINE},
    {"ejected", notification},
    {"endLeading", notification},
    {"endMeeting", notification},
    {"hideIP", notification, OUTCOME},
    {"hosting", notification},
    {"leadRequestPending", notification, 0, COLOR, PARTY},
    {"leaderChanged", notification, 0, COLOR, PARTY},
    {"placedCallAccepted", notification, 0, MACHINE | COLOR, PARTY},
    {"placedCallBusy", notification, 0, MACHINE | COLOR, PARTY},
    {"placedCallNoAnswer", notification, 0, MACHINE},
    {"placedCallRejected", notification, 0, MACHINE | COLOR, PARTY},
    {"playbackPaused", notification, OUTCOME},
    {"playbackResumed", notification, OUTCOME},
    {"playbackStarted", notification, OUTCOME},
    {"playbackStopped", notification, OUTCOME},
    {"recordingStarted", notification, OUTCOME},
    {"recordingStopped", notification, OUTCOME},
    {"ringing", notification, 0, MACHINE | COLOR, PARTY},
    {"rosterChanged", notification, CHANGE, COLOR, PARTY},
    {"rosterEntry", notification, 0, COLOR, PARTY},
    {"serverResponse", notification, 0, bit(Field::serverResponseCode),
     bit(Field::serverResponseMessage)},
    {"startup", notification, 0, 0, ADDRESS | bit(Field::isSecure)},
    {"time", notification, bit(Field::direction) | bit(Field::seconds)},
    {"transferFile", notification, bit(Field::path)},
    {"transferredFileFailure", notification, 0, FILE_PATH, ADDRESS},
    {"transferredFileSuccess", notification, 0, FILE_PATH, ADDRESS},
    {"versionNotCompatible", notification, 0, MACHINE, ADDRESS},
};

} // namespace

const WordRow *findWord(Direction direction, std::string_view word) {
    const auto *found =
        std::find_if(std::begin(wordRows), std::end(wordRows), [&](const WordRow &row) {
            return row.direction == direction && row.word == word;
        });
    return found == std::end(wordRows) ? nullptr : found;
}

const FieldRow *findKeyword(std::string_view keyword) {
    const auto *found =
        std::find_if(std::begin(fieldRows), std::end(fieldRows), [&](const FieldRow &row) {
            return !keyword.empty() && row.keyword == keyword;
        });
    return found == std::end(fieldRows) ? nullptr : found;
}

const FieldRow &rowOf(Field field) {
    return fieldRows[static_cast<std::size_t>(field)];
}

} // namespace control
