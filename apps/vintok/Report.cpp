#include "Report.h"

#include "ClusterText.h"
#include "Palette.h"
#include "ProgressLine.h"
#include "Text.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace app {

namespace {

constexpr std::size_t nameLimit = 64;
constexpr std::size_t fileNameLimit = 200;
constexpr std::size_t longestPaddedName = 24;

void print(const std::string &line) {
    ProgressLine::clear();
    std::fputs((line + '\n').c_str(), stdout);
    std::fflush(stdout);
}

// ---- For a script ----

JsonLine &describe(JsonLine &line, const Person &person) {
    line.text("name", person.name)
        .text("address", person.shownAddress())
        .number("port", person.port);
    if (person.colour == noColour)
        line.nothing("colour");
    else
        line.number("colour", person.colour);
    return line.flag("host", person.host).flag("self", person.self);
}

JsonLine personEvent(const char *event, const Person &person) {
    JsonLine line(event);
    return describe(line, person);
}

JsonLine &sized(JsonLine &line, const char *key, std::uint64_t bytes, bool known) {
    return known ? line.number(key, static_cast<std::int64_t>(bytes)) : line.nothing(key);
}

JsonLine fileEvent(const char *event, const FileNews &file) {
    JsonLine line = personEvent(event, file.person);
    line.text("file", file.name);
    return sized(line, "size", file.announced.size, file.announced.size != 0);
}

JsonLine partyOf(const Person &person) {
    JsonLine party;
    describe(party, person)
        .flag("leader", person.leader)
        .text("email", person.email)
        .text("title", person.title)
        .text("phone", person.phone);
    if (!person.at.empty())
        party.text("at", person.at);
    if (!person.channel)
        return party.nothing("encrypted");
    return party.flag("encrypted", !person.channel->empty()).text("channel", *person.channel);
}

// ---- For a person ----

std::string bytes(std::uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string described(const FileSum &sum) {
    return sum.sha256.empty() ? "it cannot be read here"
                              : bytes(sum.size) + ", SHA-256 " + sum.sha256;
}

std::string titleOf(const FileNews &file) {
    const std::uint64_t size = file.announced.size;
    return printable(file.name, fileNameLimit) + " (" +
           (size == 0 ? "of a size that was not announced" : bytes(size)) + ')';
}

std::string quotedMeeting(const std::string &meeting) {
    return meeting.empty() ? "" : " \"" + printable(meeting, nameLimit) + '"';
}

std::string placeOf(const Person &person) {
    return person.shownAddress() + " port " + std::to_string(person.port);
}

std::string padded(const std::string &name) {
    std::string text = printable(name, nameLimit);
    text.resize(std::max(text.size(), longestPaddedName), ' ');
    return text;
}

// By CallEvent.
const char *const callEvents[] = {"calling", "ringing",   "accepted", "rejected",
                                  "busy",    "no-answer", "too-old"};

// By FileEnd.
const char *const fileResults[] = {"sent", "not-sent", "received", "differs", "unsure", "lost"};

} // namespace

void Report::tell(const JsonLine &line, const std::string &sentence) const {
    if (m_json || !sentence.empty())
        print(m_json ? line.str() : sentence);
}

std::string Report::paint(const std::string &text, const Person &person) const {
    return m_colours ? coloured(text, person.colour) : text;
}

std::string Report::nameOf(const Person &person) const {
    return paint(printable(person.name, nameLimit), person);
}

// ---- The way into the meeting ----

void Report::listening(const std::string &address, unsigned short port) const {
    tell(JsonLine("port").text("address", address).number("port", port),
         port == 0 ? "Listening nowhere: nobody can call this party."
                   : "Listening on " + address + " port " + std::to_string(port) + '.');
}

// The output of the client of a relay is for the lines alone.
void Report::connected(const std::string &whom) const {
    tell(JsonLine("connected").text("whom", whom), "");
}

void Report::hosting(const std::string &meeting) const {
    tell(JsonLine("hosting").text("meeting", meeting),
         "Hosting the meeting" + quotedMeeting(meeting) + ". /help tells what can be typed.");
}

// A call that fails ends the run, which says why.
void Report::call(CallEvent event, const std::string &whom) const {
    const std::string sentences[] = {"Calling " + printable(whom) + " ...", "Ringing ...",
                                     "The call was accepted. /help tells what can be typed."};
    const auto index = static_cast<std::size_t>(event);
    tell(JsonLine(callEvents[index]).text("whom", whom),
         index < std::size(sentences) ? sentences[index] : "");
}

void Report::asked(unsigned int call, const Person &caller) const {
    const std::string number = std::to_string(call);
    tell(personEvent("asked", caller).text("email", caller.email).number("call", call),
         "Call " + number + ": " + nameOf(caller) + " (" + placeOf(caller) +
             ") wants to join. /accept " + number + " or /reject " + number + '?');
}

// ---- Who is there, and who leads ----

void Report::joined(const Person &person) const {
    tell(personEvent("joined", person),
         nameOf(person) + " is in the meeting, in " + colourText(person.colour) + '.');
}

void Report::left(const Person &person) const {
    tell(personEvent("left", person), nameOf(person) + " has left the meeting.");
}

void Report::changed(const Person &person, const Person &before) const {
    std::string sentence;
    if (person.self && person.colour != before.colour)
        sentence = paint("You are in " + colourText(person.colour) + '.', person);
    else if (person.name != before.name)
        sentence = nameOf(before) + " is now " + nameOf(person) + '.';
    tell(personEvent("changed", person), sentence);
}

void Report::leads(const Person &person) const {
    tell(personEvent("leader", person), person.self ? paint("You lead the meeting.", person)
                                                    : nameOf(person) + " leads the meeting.");
}

void Report::leadAsked(const Person &person) const {
    tell(personEvent("lead-asked", person), nameOf(person) + " asks for the lead. /give or /keep?");
}

// The news follow the lead that is given.
void Report::leadAnswered(bool granted) const {
    tell(JsonLine("lead-answer").flag("granted", granted),
         granted ? "" : "The lead was not given to you.");
}

void Report::roster(const std::string &meeting, const std::vector<Person> &people) const {
    std::vector<JsonLine> parties;
    std::string lines;
    for (const Person &person : people) {
        parties.push_back(partyOf(person));
        lines += '\n' + rosterLine(person);
    }
    tell(JsonLine("roster").text("meeting", meeting).list("parties", parties),
         "In the meeting" + quotedMeeting(meeting) + ':' + lines);
}

std::string Report::rosterLine(const Person &person) const {
    return "  " + paint(padded(person.name), person) + "  " + colourText(person.colour) + "  " +
           placeOf(person) + (person.at.empty() ? "" : "  at " + printable(person.at, nameLimit)) +
           (person.host ? "  host" : "") + (person.leader ? "  leader" : "") +
           (person.self ? "  you" : "") +
           (person.channel && !person.channel->empty()
                ? "  encrypted: " + printable(*person.channel)
                : "");
}

void Report::hosts(const std::string &meeting, const std::vector<vintok::ClusterHost> &hosts,
                   const vintok::ClusterMetrics &metrics) const {
    std::vector<JsonLine> list;
    std::string lines;
    for (const vintok::ClusterHost &host : hosts) {
        list.push_back(JsonLine().fields(fieldsOf(host)));
        lines += "\n  " + padded(host.name) + "  " + printable(textOf(host));
    }
    tell(JsonLine("cluster")
             .text("meeting", meeting)
             .list("hosts", list)
             .object("crossed", JsonLine().fields(fieldsOf(metrics))),
         "The hosts of the meeting" + quotedMeeting(meeting) + ':' + lines + '\n' +
             textOf(metrics));
}

// ---- What is said ----

// On a terminal the own line stands there already, as it was typed.
void Report::said(const Person &person, const std::string &text) const {
    if (m_json)
        print(personEvent("said", person).text("text", text).str());
    else if (!person.self)
        print(paint(printable(person.name, nameLimit) + ": " + printable(text), person));
}

void Report::relayed(const std::string &text) const {
    // An empty line, too.
    print(m_json ? JsonLine("relayed").text("text", text).str() : printable(text));
}

void Report::strangeData(std::size_t count) const {
    tell(JsonLine("data").number("bytes", static_cast<std::int64_t>(count)),
         "(" + std::to_string(count) + " bytes arrived that are no line)");
}

// ---- Files ----

void Report::fileBegins(const FileNews &file) const {
    tell(
        fileEvent("file-begin", file).text("sha256", file.announced.sha256).text("path", file.path),
        file.person.self ? "Sending " + titleOf(file) + " to everybody."
                         : nameOf(file.person) + " sends " + titleOf(file) + '.');
}

void Report::fileGoesOn(const FileNews &file) const {
    if (m_progress)
        ProgressLine::show(printable(file.name, ProgressLine::nameLimit), file.done,
                           file.announced.size);
    if (!m_json)
        return;
    const bool known = file.announced.size != 0;
    JsonLine line("file-progress"); // short, as there are many
    line.text("file", file.name).flag("self", file.person.self);
    sized(line, "size", file.announced.size, known)
        .number("bytes", static_cast<std::int64_t>(file.done));
    print(sized(line, "percent", static_cast<std::uint64_t>(percentOf(file)), known).str());
}

void Report::fileEnds(const FileNews &file, FileEnd end, const FileSum &sum) const {
    JsonLine line = fileEvent("file-end", file);
    line.text("result", fileResults[static_cast<int>(end)])
        .text("announced", file.announced.sha256);
    sized(line, "bytes", sum.size, end != FileEnd::lost);
    tell(line.text("sha256", sum.sha256).text("path", file.path), endOf(file, end, sum));
}

std::string Report::endOf(const FileNews &file, FileEnd end, const FileSum &sum) const {
    const std::string name = printable(file.name, fileNameLimit);
    const std::string received = "Received " + name + " from " + nameOf(file.person);
    const std::string what = ": " + described(sum);
    const std::string where = ", in " + printable(file.path);
    switch (end) {
    case FileEnd::sent:
        return "Sent " + name + what;
    case FileEnd::notSent:
        return "Sent " + name + ", but NOT to everybody" + what;
    case FileEnd::received:
        return received + ", as announced" + what + where;
    case FileEnd::differs:
        return received + ", but it is NOT what was announced" + what + where +
               " (announced: " + described(file.announced) + ')';
    case FileEnd::unsure:
        return received + what + where + " (not compared: nothing was announced)";
    case FileEnd::lost:
        break;
    }
    return nameOf(file.person) + "'s file " + name +
           " has NOT arrived: it broke off or could not be stored, and nothing is kept of it.";
}

void Report::fileRefused(const FileNews &file, const std::string &reason) const {
    tell(fileEvent("file-refused", file).text("reason", reason),
         nameOf(file.person) + "'s file " + (file.name.empty() ? "" : titleOf(file) + ' ') +
             "is NOT stored here: " + printable(reason) + '.');
}

// ---- The run ----

void Report::help(const std::string &heading, const std::vector<CommandHelp> &commands) const {
    std::size_t width = 0;
    for (const CommandHelp &command : commands)
        width = std::max(width, command.usage.size());
    std::vector<JsonLine> list;
    std::string lines;
    for (const CommandHelp &command : commands) {
        list.push_back(JsonLine().text("usage", command.usage).text("meaning", command.meaning));
        const std::string blanks(width - command.usage.size(), ' ');
        lines += "\n  " + command.usage + blanks + "  " + command.meaning;
    }
    tell(JsonLine("help").list("commands", list), heading + lines);
}

void Report::notice(const Notice &notice) const {
    tell(JsonLine(notice.event).fields(notice.fields), printable(notice.sentence));
}

void Report::problem(const std::string &text) const {
    tell(JsonLine("problem").text("text", text), "");
    if (!m_json)
        complain(text);
}

void Report::ended(const std::string &reason) const {
    tell(JsonLine("ended").text("reason", reason), printable(reason));
}

void Report::failed(const std::string &reason) const {
    tell(JsonLine("error").text("reason", reason), "");
    complain(reason);
}

void complain(const std::string &text) {
    ProgressLine::clear();
    std::fputs(("vintok: " + printable(text) + '\n').c_str(), stderr);
    std::fflush(stderr); // not every runtime leaves it unbuffered when it is a pipe
}

} // namespace app
