#include "Command.h"
#include "JsonLine.h"
#include "Report.h"

#include <cstdio>

namespace app {

namespace {

// By CallEvent.
const char *const callEvents[] = {"calling", "ringing",   "accepted", "rejected",
                                  "busy",    "no-answer", "too-old"};

void print(const JsonLine &line) {
    std::fputs((line.str() + '\n').c_str(), stdout);
    std::fflush(stdout);
}

JsonLine &describe(JsonLine &line, const Person &person) {
    line.text("name", person.name)
        .text("address", person.shownAddress())
        .number("port", person.port);
    if (person.colour == NO_COLOUR) {
        line.nothing("colour");
    } else {
        line.number("colour", person.colour);
    }
    return line.flag("host", person.host).flag("self", person.self);
}

JsonLine personEvent(const char *event, const Person &person) {
    JsonLine line(event);
    return describe(line, person);
}

// By FileEnd.
const char *const fileResults[] = {"sent", "not-sent", "received", "differs", "unsure", "lost"};

JsonLine &sized(JsonLine &line, const char *key, std::uint64_t bytes, bool known) {
    return known ? line.number(key, static_cast<std::int64_t>(bytes)) : line.nothing(key);
}

JsonLine fileEvent(const char *event, const FileNews &file) {
    JsonLine line = personEvent(event, file.person);
    line.text("file", file.name);
    return sized(line, "size", file.announced.size, file.announced.size != 0);
}

class JsonReport : public Report {
public:
    void listening(const std::string &address, unsigned short port) override {
        print(JsonLine("port").text("address", address).number("port", port));
    }
    void connected(const std::string &whom) override {
        print(JsonLine("connected").text("whom", whom));
    }
    void hosting(const std::string &meeting) override {
        print(JsonLine("hosting").text("meeting", meeting));
    }
    void call(CallEvent event, const std::string &whom) override {
        print(JsonLine(callEvents[static_cast<int>(event)]).text("whom", whom));
    }
    void asked(unsigned int call, const Person &caller) override {
        print(personEvent("asked", caller).text("email", caller.email).number("call", call));
    }
    void joined(const Person &person) override { print(personEvent("joined", person)); }
    void left(const Person &person) override { print(personEvent("left", person)); }
    void changed(const Person &person, const Person &) override {
        print(personEvent("changed", person));
    }
    void leads(const Person &person) override { print(personEvent("leader", person)); }
    void leadAsked(const Person &person) override { print(personEvent("lead-asked", person)); }
    void leadAnswered(bool granted) override {
        print(JsonLine("lead-answer").flag("granted", granted));
    }
    void said(const Person &person, const std::string &text) override {
        print(personEvent("said", person).text("text", text));
    }
    void relayed(const std::string &text) override {
        print(JsonLine("relayed").text("text", text));
    }
    void strangeData(std::size_t bytes) override {
        print(JsonLine("data").number("bytes", static_cast<std::int64_t>(bytes)));
    }
    void fileBegins(const FileNews &file) override {
        print(fileEvent("file-begin", file)
                  .text("sha256", file.announced.sha256)
                  .text("path", file.path));
    }
    void fileGoesOn(const FileNews &file) override {
        JsonLine line("file-progress"); // short, as there are many
        line.text("file", file.name).flag("self", file.person.self);
        sized(line, "size", file.announced.size, file.announced.size != 0)
            .number("bytes", static_cast<std::int64_t>(file.done));
        print(sized(line, "percent", static_cast<std::uint64_t>(percentOf(file)),
                    file.announced.size != 0));
    }
    void fileEnds(const FileNews &file, FileEnd end, const FileSum &sum) override {
        JsonLine line = fileEvent("file-end", file);
        line.text("result", fileResults[static_cast<int>(end)])
            .text("announced", file.announced.sha256);
        sized(line, "bytes", sum.size, end != FileEnd::lost);
        print(line.text("sha256", sum.sha256).text("path", file.path));
    }
    void fileRefused(const FileNews &file, const std::string &reason) override {
        print(fileEvent("file-refused", file).text("reason", reason));
    }
    void roster(const std::string &meeting, const std::vector<Person> &people) override {
        std::vector<JsonLine> parties;
        for (const Person &person : people) {
            JsonLine party;
            describe(party, person)
                .flag("leader", person.leader)
                .text("email", person.email)
                .text("title", person.title)
                .text("phone", person.phone);
            if (!person.channel) {
                party.nothing("encrypted");
            } else {
                party.flag("encrypted", !person.channel->empty()).text("channel", *person.channel);
            }
            parties.push_back(party);
        }
        print(JsonLine("roster").text("meeting", meeting).list("parties", parties));
    }
    void help(const std::string &, const std::vector<CommandHelp> &commands) override {
        std::vector<JsonLine> lines;
        for (const CommandHelp &command : commands) {
            lines.push_back(
                JsonLine().text("usage", command.usage).text("meaning", command.meaning));
        }
        print(JsonLine("help").list("commands", lines));
    }
    void notice(const Notice &notice) override {
        print(JsonLine(notice.event).fields(notice.fields));
    }
    void problem(const std::string &text) override {
        print(JsonLine("problem").text("text", text));
    }
    void ended(const std::string &reason) override {
        print(JsonLine("ended").text("reason", reason));
    }
    void failed(const std::string &reason) override {
        print(JsonLine("error").text("reason", reason));
        complain(reason);
    }
};

} // namespace

std::unique_ptr<Report> makeJsonReport() {
    return std::make_unique<JsonReport>();
}

} // namespace app
