// A command is a row of the table: the word, its argument, what it does. Most send a request that
// has no arguments; the others are operations of the client. Paths are made absolute, since the
// control process may run somewhere else.
#include "ControlCommands.h"

#include "Base64.h"
#include "ControlNotices.h"
#include "Person.h"
#include "Text.h"

#include <vintok/ControlRequest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

namespace app {

namespace {

using control::Field;

const char unsent[] = "the control process takes no requests any more";

std::string sent(bool written) {
    return written ? "" : unsent;
}

std::string absolutePath(const std::string &path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.string();
}

// Takes the first word off the front of a text. In double quotes it may hold blanks.
std::string takeWord(std::string_view &text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const bool inQuotes = !text.empty() && text.front() == '"';
    text.remove_prefix(inQuotes ? 1 : 0);
    const std::size_t end = std::min(text.find(inQuotes ? '"' : ' '), text.size());
    std::string word(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    return word;
}

// One of the words behind the address of a call.
std::string readCallOption(const std::string &word, ControlCall &call) {
    const std::size_t equals = std::min(word.find('='), word.size());
    const std::string key = word.substr(0, equals);
    const std::string value = word.substr(std::min(equals + 1, word.size()));
    Target proxy;
    unsigned short tries = 0;
    if (key == "proxy" && parseTarget(value, proxy)) {
        call.proxy = proxy.host;
        call.proxyPort = proxy.port;
    } else if (key == "meeting" && !value.empty()) {
        call.meetingID = value;
    } else if (key == "login" && !value.empty()) {
        call.authentication = base64(value);
    } else if (key == "tries" && parseNumber(value, tries)) {
        call.tries = tries;
    } else {
        return "'" + word +
               "' is not proxy=HOST[:PORT], meeting=ID, login=USER:PASSWORD or tries=N";
    }
    return "";
}

using vintok::RosterBase;

} // namespace

struct ControlCommand {
    std::string_view word;
    std::string_view argument; // empty: none; in brackets: may be left out
    std::string_view meaning;
    std::function<std::string(ControlClient &, const std::string &argument)> run;

    static const ControlCommand table[];

    // Sends a request that has no arguments.
    static auto request(bool (*send)(int descriptor)) {
        return [send](const ControlClient &client, const std::string &) {
            return sent(send(client.m_descriptor));
        };
    }
    // Sends one about a party, which the argument names.
    static auto about(bool (*send)(int descriptor, const RosterBase &)) {
        return [send](const ControlClient &client, const std::string &who) {
            std::string complaint;
            const RosterBase *person = client.find(who, complaint);
            return person ? sent(send(client.m_descriptor, *person)) : complaint;
        };
    }
};

const ControlCommand ControlCommand::table[] = {
    {"/startup", "[PORT]", "tell the control process again who you are", &ControlClient::startup},
    {"/convene", "[NAME]", "begin a meeting", &ControlClient::convene},
    {"/adjourn", "", "end the meeting for everybody", request(vintok::requestAdjournMeeting)},
    {"/call", "HOST[:PORT] [OPTION...]",
     "call a party; proxy=HOST[:PORT] meeting=ID login=USER:PASSWORD tries=N",
     &ControlClient::call},
    {"/login", "USER:PASSWORD", "call again, with what the proxy asks for", &ControlClient::login},
    {"/accept", "", "let the caller in", request(vintok::requestAcceptPendingCall)},
    {"/reject", "", "turn the caller away", request(vintok::requestRejectPendingCall)},
    {"/hangup", "", "leave the meeting", request(vintok::requestHangup)},
    {"/who", "", "who is in the meeting", &ControlClient::roster},
    {"/enable", "NAME", "let a party take part again", about(vintok::requestEnableUser)},
    {"/disable", "NAME", "send a party nothing more", about(vintok::requestDisableUser)},
    {"/lead", "", "ask for the lead", request(vintok::requestStartLeading)},
    {"/stop-leading", "", "give the lead back", request(vintok::requestStopLeading)},
    {"/give", "", "give the lead to the party that asks for it",
     request(vintok::requestAcceptLeadChange)},
    {"/keep", "", "do not give it", request(vintok::requestRejectLeadChange)},
    {"/send", "FILE [AS]", "send a file to everybody, to be kept as AS", &ControlClient::sendFile},
    {"/record", "FILE", "write what is said into a record file", &ControlClient::record},
    {"/play", "FILE", "say what a record file holds", &ControlClient::play},
    {"/pause", "", "stop playing for a while", request(vintok::requestPausePlayback)},
    {"/resume", "", "go on playing", request(vintok::requestResumePlayback)},
    {"/stop", "[recording|playing]", "stop recording or playing, or both", &ControlClient::stop},
    {"/putenv", "NAME=VALUE", "set an environment variable of the control process",
     &ControlClient::putenv},
    {"/time", "", "ask how the clock was set", request(vintok::requestTime)},
    {"/keepalive", "", "test the connections", request(vintok::requestKeepAlive)},
};

void ControlClient::note(const control::Text &text) {
    const std::string &word = text.word();
    if (word == "hideIP") {
        m_hides = text.succeeded();
    } else if (word == "recordingStarted" || word == "recordingStopped") {
        m_recording = (word == "recordingStarted") == text.succeeded();
    } else if (word == "playbackStarted" || word == "playbackStopped") {
        m_playing = (word == "playbackStarted") == text.succeeded();
    } else if (word == "authenticationRequired") {
        m_call = {
            text.value(Field::machineName),
            static_cast<unsigned short>(text.number(Field::port)),
            text.value(Field::proxyAddress),
            static_cast<unsigned short>(text.number(Field::proxyPort)),
            text.value(Field::meetingID),
            text.value(Field::authenticationString),
            static_cast<int>(std::min<std::int64_t>(text.number(Field::triesRemaining), 65535))};
    } else if (word == "endMeeting") {
        m_people.clear();
    } else if (word == "rosterEntry" || word == "rosterChanged") {
        const RosterBase person = text.person();
        m_people.erase(std::remove(m_people.begin(), m_people.end(), person), m_people.end());
        const std::string &change = text.value(Field::change);
        if (change != "leave" && change != "ejected")
            m_people.push_back(person);
    }
}

std::string ControlClient::obey(std::string_view line) {
    const auto [word, argument] = splitCommand(line);
    if (word.empty())
        return "";
    for (const ControlCommand &command : ControlCommand::table) {
        if (command.word != word)
            continue;
        const bool needed = !command.argument.empty() && command.argument.front() != '[';
        if (argument.empty() ? needed : command.argument.empty())
            return "it is '" + word + (needed ? ' ' + std::string(command.argument) : "") + "'";
        return command.run(*this, argument);
    }
    return word.front() == '/' ? "there is no command '" + word + "'; /help lists them"
                               : "a control process says no lines; /help lists the commands";
}

std::string ControlClient::startup(const std::string &port) {
    unsigned short number = m_options.port;
    if (!port.empty() && !parseNumber(port, number))
        return "'" + port + "' is no port";
    return sent(vintok::requestStartup(m_descriptor, number, m_options.control.secure,
                                       m_options.control.hideIP, m_options.firstName,
                                       m_options.lastName, m_options.title, m_options.email,
                                       m_options.phone, m_options.control.meetingID));
}

bool ControlClient::shutdown() {
    return vintok::requestShutdown(m_descriptor);
}

std::string ControlClient::convene(const std::string &name) {
    return sent(vintok::requestConveneMeeting(m_descriptor, name));
}

std::string ControlClient::call(const std::string &argument) {
    std::string_view rest = argument;
    const std::string whom = takeWord(rest);
    Target target;
    if (!parseTarget(whom, target))
        return "'" + whom + "' is not HOST, HOST:PORT, ADDRESS or [IPv6-ADDRESS]:PORT";
    ControlCall call;
    call.machine = target.host;
    call.port = target.port == 0 ? partyPort : target.port;
    for (std::string word = takeWord(rest); !word.empty(); word = takeWord(rest)) {
        std::string complaint = readCallOption(word, call);
        if (!complaint.empty())
            return complaint;
    }
    m_call = call;
    return place();
}

std::string ControlClient::login(const std::string &credentials) {
    if (m_call.machine.empty())
        return "there was no call yet";
    m_call.authentication = base64(credentials);
    return place();
}

std::string ControlClient::place() {
    return sent(vintok::requestPlaceCall(m_descriptor, m_call.machine, m_call.port, m_call.proxy,
                                         m_call.proxyPort, m_call.meetingID, m_call.authentication,
                                         m_call.tries));
}

std::string ControlClient::roster(const std::string &) {
    return sent(vintok::requestRoster(m_descriptor, RosterBase()));
}

// By name, or by address and port.
const RosterBase *ControlClient::find(const std::string &who, std::string &complaint) const {
    const RosterBase *found = nullptr;
    for (const RosterBase &person : m_people) {
        std::string address = hiddenAddress;
        if (!m_hides)
            person.ipString(address);
        if (who == address + ' ' + std::to_string(person.hostByteOrderPort()))
            return &person;
        if (who == nameOfParty(person, m_hides)) {
            complaint = found ? "'" + who + "' is more than one: give ADDRESS PORT" : "";
            found = found ? nullptr : &person;
        }
    }
    if (!found && complaint.empty())
        complaint = "'" + who + "' is not in the meeting; /who asks who is";
    return found;
}

std::string ControlClient::sendFile(const std::string &argument) {
    std::string_view rest = argument;
    const std::string path = absolutePath(takeWord(rest));
    std::string as = takeWord(rest);
    if (!takeWord(rest).empty())
        return "it is '/send FILE [AS]', names with blanks in double quotes";
    if (as.empty())
        as = std::filesystem::path(path).filename().string();
    return sent(vintok::requestTransferFile(m_descriptor, path, as));
}

std::string ControlClient::record(const std::string &path) {
    return sent(vintok::requestStartRecording(m_descriptor, absolutePath(path)));
}

std::string ControlClient::play(const std::string &path) {
    return sent(vintok::requestStartPlayback(m_descriptor, absolutePath(path)));
}

std::string ControlClient::stop(const std::string &what) {
    if (!what.empty() && what != "recording" && what != "playing")
        return "it is '/stop [recording|playing]'";
    const bool recording = what.empty() ? m_recording : what == "recording";
    const bool playing = what.empty() ? m_playing : what == "playing";
    if (!recording && !playing)
        return "nothing is being recorded or played";
    return sent((!recording || vintok::requestStopRecording(m_descriptor)) &&
                (!playing || vintok::requestStopPlayback(m_descriptor)));
}

std::string ControlClient::putenv(const std::string &assignment) {
    const std::size_t equals = assignment.find('=');
    if (equals == 0 || equals == std::string::npos)
        return "it is '/putenv NAME=VALUE'";
    return sent(vintok::requestPutenv(m_descriptor, assignment.substr(0, equals),
                                      assignment.substr(equals + 1)));
}

std::vector<CommandHelp> controlHelp() {
    std::vector<CommandHelp> help;
    for (const ControlCommand &command : ControlCommand::table) {
        std::string usage(command.word);
        if (!command.argument.empty())
            usage.append(" ").append(command.argument);
        help.push_back({usage, std::string(command.meaning)});
    }
    help.push_back({"/shutdown", "end the control process"});
    help.push_back({"/help", "this list"});
    return help;
}

} // namespace app
