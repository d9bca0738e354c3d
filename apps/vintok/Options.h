// The command line.
#ifndef VINTOK_APP_OPTIONS_H
#define VINTOK_APP_OPTIONS_H

#include "Guards.h"
#include "Secure.h"
#include "Target.h"
#include "TunnelOptions.h"

#include <vintok-cluster/Cluster.h>
#include <vintok/TCPStream.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace app {

enum class Role { host, join, relay, relaySend, relayListen, decode, control, tlsInit };
enum class Answer { yes, ask, no };
enum class When { automatic, always, never };

// The control process.
struct ControlOptions {
    std::string program; // as this program was started
    std::string install; // the folder where the process is; empty: looked for
    std::string socket;  // the path of the socket to it; empty: one is made
    bool waits = false;  // for one that is started by hand
    bool startup = true; // tell it who this is at once
    bool secure = false; // offer secure connections
    bool hideIP = false;
    std::string meetingID; // of calls through a multiplexing server
    bool debug = false;
    bool verbose = false;
};

struct Options {
    Role role = Role::host;

    // Whom to call: join, and the clients of a relay. By way of a multiplexer there may be none,
    // nor where a host of the meeting is found.
    Target target;
    TunnelOptions tunnel;
    vintok::ClusterOptions cluster; // of a meeting with several hosts; no servers: it has one

    bool isClustered() const { return !cluster.servers.empty(); }

    // Who this is.
    std::string firstName;
    std::string lastName;
    std::string email;
    std::string title;
    std::string phone;

    // Where to listen; port 0 is the usual one, and for who joins any that is free.
    unsigned short port = 0;
    bool exactPort = false;
    bool localOnly = false;
    bool listens = true; // a guest may do without

    std::string meeting;
    Answer answer = Answer::yes;
    bool stay = false;
    unsigned int keepAlive = 30; // seconds of silence that a connection survives, 0: any
    unsigned int patience = 0;   // seconds that a call may ring, 0: for ever

    Guards guards;

    secure::Options secure;
    std::string tlsFolder;
    std::vector<std::string> tlsNames; // that the host's certificate is for, too

    // A record file: what decode prints, and what a party plays.
    std::string file;
    bool full = false;            // decode shows all of a long body
    bool addresses = false;       // decode shows what parties hide
    double speed = 1;             // of playing: seconds of the recording in one second
    std::string recordFile;       // what a party records its meeting into
    std::string files;            // the folder for files that arrive; empty: the environment's
    bool fileLinks = false;       // links in it may be followed to other folders
    std::int64_t clockOffset = 0; // seconds that a host's clock is ahead of the machine's

    ControlOptions control;

    bool json = false;
    When colour = When::automatic;
    When progress = When::automatic;
    std::optional<vintok::LogLevel> logLevel; // none: as the environment says
    std::string logFile;
};

enum class ParseResult { run, done, wrong };

// `done`: what was asked for, help or the version, is in `text` and goes to the standard output.
// `wrong`: `text` says in one line what is wrong.
ParseResult parseOptions(int count, const char *const *arguments, Options &options,
                         std::string &text);

} // namespace app

#endif
