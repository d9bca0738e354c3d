// What a run tells the outside, event by event: as text for a person or as JSON for a script.
#ifndef VINTOK_APP_REPORT_H
#define VINTOK_APP_REPORT_H

#include "Command.h"
#include "Fields.h"
#include "FileNews.h"
#include "Person.h"

#include <cstddef>
#include <memory>
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

class Report {
public:
    virtual ~Report() = default;

    // This party, or the relay, can be called.
    virtual void listening(const std::string &address, unsigned short port) = 0;
    // A client has reached its relay.
    virtual void connected(const std::string &whom) = 0;
    virtual void hosting(const std::string &meeting) = 0;
    virtual void call(CallEvent event, const std::string &whom) = 0;
    // Somebody waits for /accept or /reject.
    virtual void asked(unsigned int call, const Person &caller) = 0;
    virtual void joined(const Person &person) = 0;
    virtual void left(const Person &person) = 0;
    // This is also how a party learns its own colour.
    virtual void changed(const Person &person, const Person &before) = 0;
    // Somebody leads from now on; somebody asks this party for the lead; the answer to its own
    // question.
    virtual void leads(const Person &person) = 0;
    virtual void leadAsked(const Person &person) = 0;
    virtual void leadAnswered(bool granted) = 0;
    virtual void said(const Person &person, const std::string &text) = 0;
    // A line relayed without a speaker.
    virtual void relayed(const std::string &text) = 0;
    // A broadcast whose body is no line.
    virtual void strangeData(std::size_t bytes) = 0;
    // A file goes out or comes in, and how far it is: at each per cent, or less often.
    virtual void fileBegins(const FileNews &file) = 0;
    virtual void fileGoesOn(const FileNews &file) = 0;
    // With what there is of it here, if that is whole.
    virtual void fileEnds(const FileNews &file, FileEnd end, const FileSum &sum) = 0;
    // Somebody's file is not stored.
    virtual void fileRefused(const FileNews &file, const std::string &reason) = 0;
    virtual void roster(const std::string &meeting, const std::vector<Person> &people) = 0;
    virtual void help(const std::string &heading, const std::vector<CommandHelp> &commands) = 0;
    virtual void notice(const Notice &notice) = 0;
    // Something that was asked for did not work; the run goes on.
    virtual void problem(const std::string &text) = 0;
    // The run ends well, and why.
    virtual void ended(const std::string &reason) = 0;
    // The run fails.
    virtual void failed(const std::string &reason) = 0;
};

// Both print on the standard output, a line for each event, at once; `failed` and text's `problem`
// go to standard error. With `colours` the text has the escape sequences of a terminal; with
// `progress` a file that is under way has a line that changes in place.
std::unique_ptr<Report> makeTextReport(bool colours, bool progress);
std::unique_ptr<Report> makeJsonReport();

// One line on standard error, in the program's name.
void complain(const std::string &text);

} // namespace app

#endif
