// The options of ConferenceControl: what an application puts on its command line, or a person.
#ifndef VINTOK_CONTROL_OPTIONS_H
#define VINTOK_CONTROL_OPTIONS_H

#include <string>

namespace control {

struct Options {
    bool help = false;
    bool verbose = false;
    bool debug = false;
    bool roster = false;
    std::string path;        // of the application's socket; empty: there is no application
    unsigned short port = 0; // to listen on, unless the application names one
    bool server = false;
    bool background = false;
    unsigned int alarm = 30; // seconds between tests of the connections, 0 for none
    bool noGuards = false;   // none of the usual limits on who is slow, and on strangers
    bool hideIP = false;
    bool local = false;
    bool sslAuto = false;
    bool sslFIPS = false;
    bool sslMUX = false;
    std::string firstName;
    std::string lastName;
    std::string title;
    std::string email;
    std::string phone;
    std::string meetingID;
    std::string meetingName;
    std::string cluster;     // of a meeting with several hosts: the servers that link them
    std::string clusterName; // what this one is called
    std::string clusterCreds;
};

// Single-dash words, each with its value as the next argument where it takes one; the last one of a
// kind counts. False, with `complaint` saying why, for an argument that is none of them, a value
// that is missing or out of range.
bool readOptions(int count, const char *const *arguments, Options &options, std::string &complaint);

std::string helpText();

} // namespace control

#endif
