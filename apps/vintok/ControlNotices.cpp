#include "ControlNotices.h"

#include "Palette.h"
#include "Person.h"

#include <algorithm>
#include <string_view>

namespace app {

namespace {

using control::Field;
using control::Text;

// ---- For a person ----

std::string whereIs(const Text &text) {
    return text.value(Field::address) + " port " + text.value(Field::port);
}

std::string machine(const Text &text) {
    return text.value(Field::machineName);
}

std::string name(const Text &text) {
    vintok::RosterBase person = text.person();
    person.setHostByteOrderPort(static_cast<unsigned short>(text.number(Field::port)));
    return nameOfParty(person, text.value(Field::address) == hiddenAddress);
}

// "Ann Lee (192.0.2.1 port 7777)"
std::string party(const Text &text) {
    return name(text) + " (" + whereIs(text) + ')';
}

std::string colour(const Text &text) {
    return colourText(static_cast<unsigned short>(text.number(Field::colorIndex)));
}

std::string started(const Text &text) {
    return "The control process listens on " + whereIs(text) +
           (text.has(Field::isSecure) ? ", securely." : ".");
}

std::string beginMeeting(const Text &text) {
    const std::string &meeting = text.value(Field::meetingName);
    return "The meeting" + (meeting.empty() ? "" : " \"" + meeting + '"') + " begins.";
}

std::string rosterChanged(const Text &text) {
    const std::string &change = text.value(Field::change);
    if (change == "join")
        return name(text) + " is in the meeting, in " + colour(text) + '.';
    return name(text) +
           (change == "leave" ? " has left the meeting." : " was ejected from the meeting.");
}

std::string rosterEntry(const Text &text) {
    std::string line = "  " + party(text) + "  " + colour(text);
    for (const Field field : {Field::title, Field::email, Field::phoneNumber})
        line += text.value(field).empty() ? "" : "  " + text.value(field);
    return line;
}

std::string authenticationRequired(const Text &text) {
    const std::string &proxy = text.value(Field::proxyAddress);
    return (proxy.empty() ? "The server" : "The proxy " + proxy) + " asks who calls " +
           machine(text) + ". /login USER:PASSWORD calls again.";
}

std::string serverResponse(const Text &text) {
    const std::string &message = text.value(Field::serverResponseMessage);
    return "The server answers " + text.value(Field::serverResponseCode) +
           (message.empty() ? "." : ": " + message);
}

std::string clockChange(const Text &text) {
    if (text.number(Field::seconds) == 0)
        return "The clock is right as it is.";
    return "The clock has " + text.value(Field::seconds) +
           (text.value(Field::direction) == "add" ? " s added to it." : " s subtracted from it.");
}

std::string hideIP(const Text &text) {
    return text.succeeded() ? "Addresses are hidden." : "Addresses are shown.";
}

std::string versionNotCompatible(const Text &text) {
    return (machine(text).empty() ? whereIs(text) : machine(text)) + " speaks too old a version.";
}

// A sentence with places for what the text says, or a function where that is not enough.
struct Words {
    const char *word;
    const char *pattern;
    std::string (*sentence)(const Text &) = nullptr;
};

const Words words[] = {
    {"startup", "", started},
    {"hideIP", "", hideIP},
    {"beginMeeting", "", beginMeeting},
    {"hosting", "This party hosts the meeting."},
    {"endMeeting", "The meeting is over."},
    {"ejected", "You were ejected from the meeting."},
    {"dialing", "Calling {machine} ..."},
    {"ringing", "Ringing at {machine}: {party}."},
    {"placedCallAccepted", "{machine} has accepted the call."},
    {"placedCallBusy", "{machine} is busy in another meeting."},
    {"placedCallRejected", "{machine} has rejected the call."},
    {"placedCallNoAnswer", "{machine} did not answer the call."},
    {"authenticationRequired", "", authenticationRequired},
    {"serverResponse", "", serverResponse},
    {"versionNotCompatible", "", versionNotCompatible},
    {"callPending", "{party} wants to join. /accept or /reject?"},
    {"rosterChanged", "", rosterChanged},
    {"rosterEntry", "", rosterEntry},
    {"beginLeading", "You lead the meeting."},
    {"endLeading", "You no longer lead the meeting."},
    {"beginLeadingGranted", "The lead was given to you."},
    {"beginLeadingDenied", "The lead was not given to you."},
    {"leaderChanged", "{name} leads the meeting."},
    {"leadRequestPending", "{name} asks for the lead. /give or /keep?"},
    {"transferFile", "The file '{path}' is on its way."},
    {"transferredFileSuccess", "The file '{file}' has been transferred."},
    {"transferredFileFailure", "The file '{file}' has not been transferred."},
    {"recordingStarted", "The recording {has} started."},
    {"recordingStopped", "The recording {has} stopped."},
    {"playbackStarted", "Playing {has} started."},
    {"playbackStopped", "Playing {has} stopped."},
    {"playbackPaused", "Playing {has} paused."},
    {"playbackResumed", "Playing {has} resumed."},
    {"time", "", clockChange},
};
static_assert(std::size(words) == std::size(vintok::words::notifications));

std::string placed(std::string_view place, const Text &text) {
    if (place == "machine")
        return machine(text);
    if (place == "party")
        return party(text);
    if (place == "name")
        return name(text);
    if (place == "has")
        return text.succeeded() ? "has" : "has not";
    return text.value(place == "path" ? Field::path : Field::filePath);
}

std::string filled(std::string_view pattern, const Text &text) {
    std::string sentence;
    while (!pattern.empty()) {
        const std::size_t begin = std::min(pattern.find('{'), pattern.size());
        const std::size_t end = std::min(pattern.find('}', begin), pattern.size());
        sentence.append(pattern.substr(0, begin));
        if (begin < end)
            sentence += placed(pattern.substr(begin + 1, end - begin - 1), text);
        pattern.remove_prefix(std::min(end + 1, pattern.size()));
    }
    return sentence;
}

// ---- For a script ----

Fields fieldsOf(const Text &text) {
    Fields fields;
    for (const vintok::words::FieldRow &row : vintok::words::fieldRows) {
        if (!text.has(row.field))
            continue;
        const std::string key(row.name);
        if (row.field == Field::outcome)
            fields.flag(key, text.succeeded());
        else if (row.kind == vintok::words::Kind::flag)
            fields.flag(key, true);
        else if (row.kind == vintok::words::Kind::number)
            fields.number(key, text.number(row.field));
        else
            fields.text(key, text.value(row.field));
    }
    return fields;
}

} // namespace

std::string nameOfParty(const vintok::RosterBase &party, bool hides) {
    return personOf(vintok::ConferenceRosterEntry(party), hides).name;
}

Notice noticeOf(Text text, bool hides) {
    if (hides)
        text.hideAddress(hiddenAddress);
    Notice notice{text.word(), text.word(), fieldsOf(text)};
    for (const Words &row : words)
        if (text.word() == row.word)
            notice.sentence = row.sentence ? row.sentence(text) : filled(row.pattern, text);
    return notice;
}

} // namespace app
