#include "Options.h"
#include "Server.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <platform/Signals.h>
#include <vintok/TCPStream.h>

namespace {

constexpr int failedRun = 1;
constexpr int wrongUsage = 2;

void complain(const std::string &text) {
    std::fputs(("multiplexer: " + text + '\n').c_str(), stderr);
}

extern "C" void endServer(int signal) {
    mux::Server::interrupt();
    // The next one ends the process: somebody is in a hurry.
    std::signal(signal, SIG_DFL);
}

extern "C" void reloadServer(int signal) {
    mux::Server::reload();
    std::signal(signal, reloadServer); // some systems forget it
}

int runServer(const mux::Options &options) {
    // False also when this machine's own name does not resolve, which is no reason to give up.
    vintok::init();
    vintok::platform::raiseDescriptorLimit();
    std::signal(SIGINT, endServer);
    std::signal(SIGTERM, endServer);
    for (const int signal : vintok::platform::hangupSignals())
        std::signal(signal, reloadServer);
    vintok::platform::ignoreBrokenPipes();
    std::string failure;
    int code = 0;
    mux::Server server(options);
    if (server.start(failure)) {
        server.run();
        if (!server.log().finish()) {
            complain("the log cannot be written");
            std::_Exit(failedRun); // its file cannot be flushed either
        }
    } else {
        complain(failure);
        code = failedRun;
    }
    return code;
}

} // namespace

int main(int count, char **arguments) {
    mux::Options options;
    std::string text;
    int code = 0;
    switch (mux::parseOptions(count, arguments, options, text)) {
    case mux::ParseResult::wrong:
        complain(text + " (see multiplexer --help)");
        code = wrongUsage;
        break;
    case mux::ParseResult::done:
        std::fputs((text + '\n').c_str(), stdout);
        break;
    case mux::ParseResult::run:
        code = runServer(options);
        break;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("cannot write to the standard output");
        code = code == 0 ? failedRun : code;
    }
    std::fflush(stderr);
    // A thread that looks a name up is still there.
    std::_Exit(code);
}
