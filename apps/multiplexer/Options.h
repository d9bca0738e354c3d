// The command line.
#ifndef MULTIPLEXER_OPTIONS_H
#define MULTIPLEXER_OPTIONS_H

#include "Credentials.h"
#include "Request.h"
#include "Rules.h"
#include "Target.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace mux {

inline constexpr std::uint16_t defaultPort = app::multiplexerPort;

struct Options {
    std::vector<std::string> listen; // literals
    std::uint16_t port = defaultPort;

    // What clients must show, and may call: of the command line, and with that of the files.
    Credentials givenCredentials;
    Credentials credentials;
    std::vector<std::string> credentialFiles;
    Rules givenRules;
    Rules allowed;
    std::vector<std::string> ruleFiles;
    std::vector<std::string> openMeetings;                    // need none
    std::vector<Authority> names;                             // what this server is called by
    std::map<std::string, std::optional<Authority>> meetings; // who answers; nothing: who offers to
    std::map<std::string, Authority> redirects; // by meeting identifier or "host:port"

    std::string certificateFile;
    std::string keyFile;
    bool secureOnly = false;   // no request in the open
    bool plainTunnels = false; // TLS ends with the request

    std::size_t maxTunnels = 10000;
    std::size_t maxWaiting = 1000;
    std::size_t maxRequests = 1000;
    std::size_t maxHeader = 8192; // bytes
    std::chrono::seconds requestTime{10};
    std::chrono::seconds connectTime{10};
    std::chrono::seconds waitTime{60};
    std::chrono::seconds idleTime{3600};   // 0: for ever
    std::chrono::seconds silenceTime{120}; // without a sign of life of a system, 0: for ever

    std::string logFile;
    bool quiet = false;
    bool hideMeetings = false;
};

enum class ParseResult { run, done, wrong };

// `done`: what was asked for, help or the version, is in `text` and goes to the standard output.
// `wrong`: `text` says in one line what is wrong.
ParseResult parseOptions(int count, const char *const *arguments, Options &options,
                         std::string &text);

// Reads the files of credentials and rules anew. False, with the reason in one line and nothing
// changed, when one of them cannot be used.
bool readFiles(Options &options, std::string &failure);

} // namespace mux

#endif
