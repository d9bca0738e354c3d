// The vocabulary of control texts: a row for each field, each request and each notification.
// Sending writes a text as its row says; whoever reads texts finds here what may stand in them.
#ifndef VINTOK_CONTROLWORDS_H
#define VINTOK_CONTROLWORDS_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace vintok::words {

// The same words mean different things in the two directions: "startup", "time", "transferFile".
enum class Direction : unsigned char { request, notification };

// What a text can hold. Scripts are told the fields of a notification in this order.
enum class Field : unsigned char {
    outcome,
    change, // of the roster
    machineName,
    address,
    port, // of a call, of the process, or of `address`: host byte order
    isSecure,
    firstName,
    lastName,
    title,
    email,
    phoneNumber,
    colorIndex,
    meetingName,
    meetingID,
    proxyAddress,
    proxyPort, // host byte order
    authenticationString,
    triesRemaining, // a request may give less than 0
    serverResponseCode,
    serverResponseMessage,
    filePath,
    path,
    direction, // of the clock
    seconds,
    relativePath,
    hideIP,
    variableName,  // of the environment: the part before the "="
    variableValue, // the part behind it
};

// How a value is written.
enum class Kind : unsigned char {
    text,
    flag,    // a keyword alone
    number,  // from `least` to `most`
    ip,      // an address as text
    encoded, // as by `encodeText`
    choice,  // one of `choices`
};

// What is known of a field.
struct FieldRow {
    Field field;            // which
    std::string_view name;  // its keyword
    Kind kind;              // how its value is written
    bool bare = false;      // the value has no keyword and stands directly behind the word
    std::int64_t least = 0; // of a number
    std::int64_t most = 0;  // of a number
    std::string_view choices[3] = {}; // of a choice; empty ones are none
};

// The bounds of numbers.
inline constexpr std::int64_t most16 = 0xFFFF;
inline constexpr std::int64_t most32 = 0xFFFFFFFF;

// A row for each field, in the order of the enumeration.
inline constexpr FieldRow fieldRows[] = {
    {Field::outcome, "ok", Kind::choice, true, 0, 0, {"true", "false"}},
    {Field::change, "change", Kind::choice, true, 0, 0, {"join", "leave", "ejected"}},
    {Field::machineName, "machineName", Kind::text},
    {Field::address, "address", Kind::ip},
    {Field::port, "port", Kind::number, false, 0, most16},
    {Field::isSecure, "isSecure", Kind::flag},
    {Field::firstName, "firstName", Kind::text},
    {Field::lastName, "lastName", Kind::text},
    {Field::title, "title", Kind::text},
    {Field::email, "email", Kind::text},
    {Field::phoneNumber, "phoneNumber", Kind::text},
    {Field::colorIndex, "colorIndex", Kind::number, false, 0, most16},
    {Field::meetingName, "meetingName", Kind::text},
    {Field::meetingID, "meetingID", Kind::text},
    {Field::proxyAddress, "proxyAddress", Kind::text},
    {Field::proxyPort, "proxyPort", Kind::number, false, 0, most16},
    {Field::authenticationString, "authenticationString", Kind::text},
    // Requests write it as a signed number and notifications as an unsigned one.
    {Field::triesRemaining, "triesRemaining", Kind::number, false, -0x80000000LL, most32},
    {Field::serverResponseCode, "serverResponseCode", Kind::number, false, 0, most32},
    {Field::serverResponseMessage, "serverResponseMessage", Kind::encoded},
    {Field::filePath, "filePath", Kind::text},
    {Field::path, "path", Kind::text, true},
    {Field::direction, "direction", Kind::choice, true, 0, 0, {"add", "subtract"}},
    {Field::seconds, "seconds", Kind::number, true, 0, most32},
    {Field::relativePath, "relativePath", Kind::text},
    {Field::hideIP, "hideIP", Kind::flag},
    {Field::variableName, "variableName", Kind::text, true},
    {Field::variableValue, "variableValue", Kind::text, true},
};

// The row of a field.
constexpr const FieldRow &rowOf(Field field) {
    return fieldRows[static_cast<std::size_t>(field)];
}

// Whether a field is written, and whether a text without it can be understood.
enum class Use : unsigned char {
    ifAny,   // left out when it is empty
    written, // always written, and a reader can do without
    always,
    needed, // a text whose value is empty is not sent
};

// A field of a text.
struct Part {
    Field field = Field::outcome; // which
    Use use = Use::ifAny;         // and when it is written

    // Whether a text without it cannot be understood.
    constexpr bool isRequired() const { return use >= Use::always; }
};

// The fields of a text in the order in which they are written.
class Parts {
public:
    // They are all used alike, in the order given; up to 10.
    template <class... Fields>
    constexpr explicit Parts(Use use, Fields... fields)
        : m_parts{Part{fields, use}...}, m_count(sizeof...(fields)) {}
    constexpr Parts() = default;

    // ---- What is in it: nothing here allocates ----

    constexpr const Part *begin() const { return m_parts; }
    constexpr const Part *end() const { return m_parts + m_count; }
    constexpr bool has(Field field) const {
        for (const Part &part : *this)
            if (part.field == field)
                return true;
        return false;
    }
    constexpr Parts operator+(const Parts &more) const {
        Parts sum = *this;
        for (const Part &part : more)
            sum.m_parts[sum.m_count++] = part;
        return sum;
    }

private:
    Part m_parts[10] = {};
    std::size_t m_count = 0;
};

// What several texts have in common.

inline constexpr Parts addressParts(Use::ifAny, Field::address, Field::port);
inline constexpr Parts userParts(Use::ifAny, Field::firstName, Field::lastName, Field::title,
                                 Field::email, Field::phoneNumber);
inline constexpr Parts colorParts(Use::always, Field::colorIndex);
inline constexpr Parts partyParts = addressParts + userParts + colorParts;

// A text: its first line, and what may follow.
struct Word {
    std::string_view word; // as it stands, without the line feed
    Parts parts = {};      // in the order of writing
};

// Of fields that are all left out when empty, and of those that are always there.
template <class... Fields>
constexpr Parts ifAny(Fields... fields) {
    return Parts(Use::ifAny, fields...);
}
template <class... Fields>
constexpr Parts always(Fields... fields) {
    return Parts(Use::always, fields...);
}

inline constexpr Parts outcome = always(Field::outcome);
inline constexpr Parts machine(Use::needed, Field::machineName);
inline constexpr Parts file(Use::needed, Field::filePath);
inline constexpr Parts callNumbers = always(Field::port, Field::proxyPort, Field::triesRemaining);
inline constexpr Parts callTexts =
    ifAny(Field::proxyAddress, Field::meetingID, Field::authenticationString);

// What an application may ask.
inline constexpr Word requests[] = {
    {"startup", always(Field::port) + ifAny(Field::isSecure, Field::hideIP) + userParts +
                    ifAny(Field::meetingID)},
    {"putenv", always(Field::variableName, Field::variableValue)}, // on one line, or none at all
    {"time"},
    {"keepAlive"},
    {"shutdown"},
    {"conveneMeeting", ifAny(Field::meetingName)},
    {"placeCall", ifAny(Field::machineName) + callTexts + callNumbers},
    {"acceptPendingCall"},
    {"rejectPendingCall"},
    {"hangup"},
    {"adjournMeeting"},
    {"meetingRoster", partyParts},
    {"disableUser", partyParts},
    {"enableUser", partyParts},
    {"startLeading"},
    {"stopLeading"},
    {"acceptLeadChange"},
    {"rejectLeadChange"},
    {"transferFile", ifAny(Field::filePath, Field::relativePath)},
    {"startRecording", file},
    {"stopRecording"},
    {"startPlayback", file},
    {"stopPlayback"},
    {"pausePlayback"},
    {"resumePlayback"},
};

// What a control process may tell.
inline constexpr Word notifications[] = {
    {"startup", addressParts + ifAny(Field::isSecure)},
    {"hideIP", outcome},
    {"time", always(Field::direction, Field::seconds)},
    {"beginMeeting", Parts(Use::written, Field::meetingName)},
    {"hosting"},
    {"endMeeting"},
    {"ejected"},
    {"dialing", machine},
    {"ringing", machine + partyParts},
    {"placedCallAccepted", machine + partyParts},
    {"placedCallBusy", machine + partyParts},
    {"placedCallRejected", machine + partyParts},
    {"placedCallNoAnswer", machine},
    {"authenticationRequired", always(Field::machineName) + callTexts + callNumbers},
    {"serverResponse", always(Field::serverResponseCode) + ifAny(Field::serverResponseMessage)},
    {"versionNotCompatible", always(Field::machineName) + addressParts},
    {"callPending", partyParts},
    {"rosterChanged", always(Field::change) + partyParts},
    {"rosterEntry", partyParts},
    {"beginLeading"},
    {"endLeading"},
    {"beginLeadingGranted"},
    {"beginLeadingDenied"},
    {"leaderChanged", partyParts},
    {"leadRequestPending", partyParts},
    {"transferFile", always(Field::path)},
    {"transferredFileSuccess", addressParts + always(Field::filePath)},
    {"transferredFileFailure", addressParts + always(Field::filePath)},
    {"recordingStarted", outcome},
    {"recordingStopped", outcome},
    {"playbackStarted", outcome},
    {"playbackStopped", outcome},
    {"playbackPaused", outcome},
    {"playbackResumed", outcome},
};

// Null when there is no such word in this direction.
constexpr const Word *find(Direction direction, std::string_view word) {
    const bool asks = direction == Direction::request;
    const Word *row = asks ? std::begin(requests) : std::begin(notifications);
    const Word *end = asks ? std::end(requests) : std::end(notifications);
    while (row != end && row->word != word)
        ++row;
    return row == end ? nullptr : row;
}

} // namespace vintok::words

#endif
