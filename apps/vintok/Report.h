// What a run tells the outside, event by event.
#ifndef VINTOK_APP_REPORT_H
#define VINTOK_APP_REPORT_H

#include "Command.h"
#include "Fields.h"
#include "FileNews.h"
#include "JsonLine.h"
#include "Person.h"

#include <vintok-cluster/Cluster.h>

#include <cstddef>
#include <string>
#include <vector>

namespace app {

// How an outgoing call goes on and ends.
enum class CallEvent { calling, ringing, accepted, rejected, busy, noAnswer, tooOld };

// Something that only one command of the program tells.
struct Notice {
    std::string event;    // for a script
    std::string sentence; // for a person; bytes as they come
    Fields fields;        // for a script
};

// Prints on the standard output, a line for each event, at once; `failed` and text's `problem` go
// to standard error. An event is one function in Report.cpp, which says both what a script is told
// and what a person is.
class Report {
public:
    // As JSON for a script, or as text for a person: with `colours` it has the escape sequences of
    // a terminal; with `progress` a file that is under way has a line that changes in place.
    enum class Form : unsigned char { text, json };
    explicit Report(Form form, bool colours = false, bool progress = false)
        : m_json(form == Form::json), m_colours(colours), m_progress(progress) {}

    // This party, or the relay, can be called.
    void listening(const std::string &address, unsigned short port) const;
    // A client has reached its relay.
    void connected(const std::string &whom) const;
    void hosting(const std::string &meeting) const;
    void call(CallEvent event, const std::string &whom) const;
    // Somebody waits for /accept or /reject.
    void asked(unsigned int call, const Person &caller) const;
    void joined(const Person &person) const;
    void left(const Person &person) const;
    // This is also how a party learns its own colour.
    void changed(const Person &person, const Person &before) const;
    // Somebody leads from now on; somebody asks this party for the lead; the answer to its own
    // question.
    void leads(const Person &person) const;
    void leadAsked(const Person &person) const;
    void leadAnswered(bool granted) const;
    void said(const Person &person, const std::string &text) const;
    // A line relayed without a speaker.
    void relayed(const std::string &text) const;
    // A broadcast whose body is no line.
    void strangeData(std::size_t bytes) const;
    // A file goes out or comes in, and how far it is: at each per cent, or less often.
    void fileBegins(const FileNews &file) const;
    void fileGoesOn(const FileNews &file) const;
    // With what there is of it here, if that is whole.
    void fileEnds(const FileNews &file, FileEnd end, const FileSum &sum) const;
    // Somebody's file is not stored.
    void fileRefused(const FileNews &file, const std::string &reason) const;
    void roster(const std::string &meeting, const std::vector<Person> &people) const;
    // The hosts of a meeting that has several, and what has crossed between them.
    void hosts(const std::string &meeting, const std::vector<vintok::ClusterHost> &hosts,
               const vintok::ClusterMetrics &metrics) const;
    void help(const std::string &heading, const std::vector<CommandHelp> &commands) const;
    void notice(const Notice &notice) const;
    // Something that was asked for did not work; the run goes on.
    void problem(const std::string &text) const;
    // The run ends well, and why.
    void ended(const std::string &reason) const;
    // The run fails.
    void failed(const std::string &reason) const;

private:
    // What a script is told of an event and what a person is; nothing, if the sentence is empty.
    void tell(const JsonLine &line, const std::string &sentence) const;
    std::string paint(const std::string &text, const Person &person) const;
    std::string nameOf(const Person &person) const;
    std::string rosterLine(const Person &person) const;
    std::string endOf(const FileNews &file, FileEnd end, const FileSum &sum) const;

    bool m_json;
    bool m_colours;
    bool m_progress;
};

// One line on standard error, in the program's name.
void complain(const std::string &text);

} // namespace app

#endif
