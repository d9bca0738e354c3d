#include "Options.h"
#include "Session.h"

#include <vintok/ConferenceParticipant.h>
#include <vintok/TCPStream.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int failedRun = 1;
constexpr int wrongUsage = 2;
constexpr std::uint32_t connectTimeout = 20000;     // milliseconds
constexpr std::uint32_t longestPeerTimeout = 86400; // seconds

// What is refused or goes wrong is in the log even where nobody has asked for one.
void setLog(const control::Options &options) {
    vintok::LogLevel level = std::max(vintok::logLevel(), vintok::LOG_WARNING);
    if (options.verbose)
        level = std::max(level, vintok::LOG_INFO);
    if (options.debug || options.roster)
        level = std::max(level, vintok::LOG_DEBUG);
    vintok::setLogLevel(level);
    vintok::ConferenceParticipant::setPrintDebug(options.debug);
    vintok::ConferenceParticipant::setPrintVerboseDebug(options.verbose);
    vintok::ConferenceParticipant::setPrintRosterDebug(options.roster);
}

int runSession(const control::Options &options) {
    // False also when this machine's own name does not resolve, which is no reason to give up.
    vintok::init();
    vintok::setConnectTimeout(connectTimeout);
    vintok::setPeerTimeout(std::min(options.alarm, longestPeerTimeout) * 1000);
    setLog(options);
    // No `fini` behind it: the inbox's threads may still use the library.
    return control::Session(options).run();
}

} // namespace

int main(int count, char **arguments) {
    control::Options options;
    std::string complaint;
    int code = 0;
    if (!control::readOptions(count, arguments, options, complaint)) {
        std::fprintf(stderr, "ConferenceControl: %s (see ConferenceControl -h)\n",
                     complaint.c_str());
        code = wrongUsage;
    } else if (options.help) {
        std::fputs(control::helpText().c_str(), stdout);
    } else {
        code = runSession(options);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        code = code == 0 ? failedRun : code;
    std::fflush(stderr);
    // The thread that watches signals and time is still there.
    std::_Exit(code);
}
