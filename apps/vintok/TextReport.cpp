#include "Command.h"
#include "Palette.h"
#include "ProgressLine.h"
#include "Report.h"
#include "Text.h"

#include <algorithm>
#include <cstdio>

namespace app {

namespace {

constexpr std::size_t NAME_LIMIT = 64;
constexpr std::size_t FILE_NAME_LIMIT = 200;
constexpr std::size_t LONGEST_PADDED_NAME = 24;

void print(const std::string &line) {
    ProgressLine::clear();
    std::fputs((line + '\n').c_str(), stdout);
    std::fflush(stdout);
}

std::string bytes(std::uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string described(const FileSum &sum) {
    return sum.sha256.empty() ? "it cannot be read here"
                              : bytes(sum.size) + ", SHA-256 " + sum.sha256;
}

class TextReport : public Report {
public:
    TextReport(bool colours, bool progress) : m_colours(colours), m_progress(progress) {}

    void listening(const std::string &address, unsigned short port) override {
        print("Listening on " + address + " port " + std::to_string(port) + '.');
    }

    // The output is for the lines alone.
    void connected(const std::string &) override {}

    void hosting(const std::string &meeting) override {
        print("Hosting the meeting" + quotedMeeting(meeting) + ". /help tells what can be typed.");
    }

    void call(CallEvent event, const std::string &whom) override {
        switch (event) {
        case CallEvent::calling:
            return print("Calling " + printable(whom) + " ...");
        case CallEvent::ringing:
            return print("Ringing ...");
        case CallEvent::accepted:
            return print("The call was accepted. /help tells what can be typed.");
        default:
            return; // the others end the run, which says why
        }
    }

    void asked(unsigned int call, const Person &caller) override {
        const std::string number = std::to_string(call);
        print("Call " + number + ": " + nameOf(caller) + " (" + caller.shownAddress() + " port " +
              std::to_string(caller.port) + ") wants to join. /accept " + number + " or /reject " +
              number + '?');
    }

    void joined(const Person &person) override {
        print(nameOf(person) + " is in the meeting, in " + colourText(person.colour) + '.');
    }
    void left(const Person &person) override { print(nameOf(person) + " has left the meeting."); }

    void changed(const Person &person, const Person &before) override {
        if (person.self && person.colour != before.colour) {
            print(paint("You are in " + colourText(person.colour) + '.', person));
        } else if (person.name != before.name) {
            print(nameOf(before) + " is now " + nameOf(person) + '.');
        }
    }

    void leads(const Person &person) override {
        print(person.self ? paint("You lead the meeting.", person)
                          : nameOf(person) + " leads the meeting.");
    }
    void leadAsked(const Person &person) override {
        print(nameOf(person) + " asks for the lead. /give or /keep?");
    }
    void leadAnswered(bool granted) override {
        if (!granted) { // the other answer is followed by the news
            print("The lead was not given to you.");
        }
    }

    void said(const Person &person, const std::string &text) override {
        // On a terminal the own line stands there already, as it was typed.
        if (!person.self) {
            print(paint(printable(person.name, NAME_LIMIT) + ": " + printable(text), person));
        }
    }

    void relayed(const std::string &text) override { print(printable(text)); }

    void strangeData(std::size_t bytes) override {
        print("(" + std::to_string(bytes) + " bytes arrived that are no line)");
    }

    void fileBegins(const FileNews &file) override {
        if (file.person.self) {
            print("Sending " + titleOf(file) + " to everybody; what others say shows afterwards.");
        } else {
            print(nameOf(file.person) + " sends " + titleOf(file) + '.');
        }
    }
    void fileGoesOn(const FileNews &file) override {
        if (m_progress) {
            ProgressLine::show(printable(file.name, ProgressLine::NAME_LIMIT), file.done,
                               file.announced.size);
        }
    }
    void fileEnds(const FileNews &file, FileEnd end, const FileSum &sum) override {
        const std::string name = printable(file.name, FILE_NAME_LIMIT);
        const std::string received = "Received " + name + " from " + nameOf(file.person);
        const std::string what = ": " + described(sum);
        const std::string where = ", in " + printable(file.path);
        switch (end) {
        case FileEnd::sent:
            return print("Sent " + name + what);
        case FileEnd::notSent:
            return print("Sent " + name + ", but NOT to everybody" + what);
        case FileEnd::received:
            return print(received + ", as announced" + what + where);
        case FileEnd::differs:
            return print(received + ", but it is NOT what was announced" + what + where +
                         " (announced: " + described(file.announced) + ')');
        case FileEnd::unsure:
            return print(received + what + where + " (not compared: nothing was announced)");
        case FileEnd::lost:
            return print(nameOf(file.person) + "'s file " + name +
                         " has NOT arrived: it broke off or could not be stored, and nothing is "
                         "kept of it.");
        }
    }
    void fileRefused(const FileNews &file, const std::string &reason) override {
        print(nameOf(file.person) + "'s file " + (file.name.empty() ? "" : titleOf(file) + ' ') +
              "is NOT stored here: " + printable(reason) + '.');
    }

    void roster(const std::string &meeting, const std::vector<Person> &people) override {
        print("In the meeting" + quotedMeeting(meeting) + ':');
        for (const Person &person : people) {
            print(rosterLine(person));
        }
    }

    void help(const std::string &heading, const std::vector<CommandHelp> &commands) override {
        print(heading);
        std::size_t width = 0;
        for (const CommandHelp &command : commands) {
            width = std::max(width, command.usage.size());
        }
        for (const CommandHelp &command : commands) {
            std::string usage = command.usage;
            usage.resize(width, ' ');
            print("  " + usage + "  " + command.meaning);
        }
    }

    void notice(const Notice &notice) override { print(printable(notice.sentence)); }
    void problem(const std::string &text) override { complain(text); }
    void ended(const std::string &reason) override { print(printable(reason)); }
    void failed(const std::string &reason) override { complain(reason); }

private:
    std::string paint(const std::string &text, const Person &person) const {
        return m_colours ? coloured(text, person.colour) : text;
    }

    std::string nameOf(const Person &person) const {
        return paint(printable(person.name, NAME_LIMIT), person);
    }

    static std::string titleOf(const FileNews &file) {
        const std::uint64_t size = file.announced.size;
        return printable(file.name, FILE_NAME_LIMIT) + " (" +
               (size == 0 ? "of a size that was not announced" : bytes(size)) + ')';
    }

    static std::string quotedMeeting(const std::string &meeting) {
        return meeting.empty() ? "" : " \"" + printable(meeting, NAME_LIMIT) + '"';
    }

    std::string rosterLine(const Person &person) const {
        std::string name = printable(person.name, NAME_LIMIT);
        name.resize(std::max(name.size(), LONGEST_PADDED_NAME), ' ');
        return "  " + paint(name, person) + "  " + colourText(person.colour) + "  " +
               person.shownAddress() + " port " + std::to_string(person.port) +
               (person.host ? "  host" : "") + (person.leader ? "  leader" : "") +
               (person.self ? "  you" : "") +
               (person.channel && !person.channel->empty()
                    ? "  encrypted: " + printable(*person.channel)
                    : "");
    }

    bool m_colours;
    bool m_progress;
};

} // namespace

std::unique_ptr<Report> makeTextReport(bool colours, bool progress) {
    return std::make_unique<TextReport>(colours, progress);
}

void complain(const std::string &text) {
    ProgressLine::clear();
    std::fputs(("vintok: " + printable(text) + '\n').c_str(), stderr);
    std::fflush(stderr); // not every runtime leaves it unbuffered when it is a pipe
}

} // namespace app
