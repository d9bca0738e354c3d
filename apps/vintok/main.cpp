#include "Control.h"
#include "Decode.h"
#include "Options.h"
#include "Party.h"
#include "PlainTransport.h"
#include "Relay.h"
#include "Report.h"

#include <vintok/TCPStream.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>

namespace {

constexpr int failedRun = 1;
constexpr int wrongUsage = 2;
constexpr unsigned int usualPatience = 20; // seconds for a connect

bool variableSet(const char *name) {
    const char *value = std::getenv(name);
    return value && *value;
}

// The standard output is a device, as a terminal is and a file or a pipe is not. Where devices have
// no names among the files it counts as none.
bool isDevice() {
    std::error_code error;
    return std::filesystem::is_character_file("/dev/stdout", error);
}

// A terminal says what it is in TERM; without that word one must not send it escape sequences.
bool onTerminal() {
    const char *terminal = std::getenv("TERM");
    return terminal && *terminal && std::string_view(terminal) != "dumb" && isDevice();
}

bool wanted(app::When when, bool otherwise) {
    return when == app::When::automatic ? otherwise : when == app::When::always;
}

int runRole(const app::Options &options, app::Report &report) {
    switch (options.role) {
    case app::Role::host:
    case app::Role::join:
        return app::Party(options, report).run();
    case app::Role::control:
        return app::runControl(options, report);
    case app::Role::relay:
        return app::runRelay(options, report);
    case app::Role::decode:
    case app::Role::tlsInit:
    case app::Role::relaySend:
    case app::Role::relayListen:
        break;
    }
    return app::runRelayClient(options, report);
}

int makeCertificates(const app::Options &options, app::Report &report) {
    const std::string &folder = options.tlsFolder;
    std::string failure;
    if (!app::secure::makeFolder(folder, options.tlsNames, failure)) {
        report.failed(failure);
        return failedRun;
    }
    app::Notice notice{"certificates",
                       "Made in " + folder +
                           ": ca.pem for everybody, host.pem and host.key for the "
                           "host, guest.pem and guest.key for a guest of a host that demands one; "
                           "ca.key stays here.",
                       {}};
    notice.fields.text("folder", folder);
    report.notice(notice);
    return 0;
}

int runLibrary(const app::Options &options) {
    app::Report report(options.json ? app::Report::Form::json : app::Report::Form::text,
                       wanted(options.colour, onTerminal() && !variableSet("NO_COLOR")),
                       !options.json && wanted(options.progress, onTerminal()));
    if (options.role == app::Role::decode) // needs no network
        return app::runDecode(options, report);
    if (options.role == app::Role::tlsInit)
        return makeCertificates(options, report);
    // False also when this machine's own name does not resolve, which is no reason to give up.
    vintok::init();
    if (!vintok::setLogLevel(options.logLevel.value_or(vintok::logLevel()))) {
        report.failed("the network cannot be used");
        return failedRun;
    }
    if (!options.logFile.empty())
        vintok::setLogFileName(options.logFile);
    vintok::setConnectTimeout((options.patience != 0 ? options.patience : usualPatience) * 1000);
    static app::PlainTransport plainTransport;
    std::string failure;
    if (options.secure.wanted()) {
        if (!app::secure::start(options.secure, failure)) {
            report.failed(failure);
            return failedRun;
        }
    } else if (options.tunnel.wanted() && options.role != app::Role::host) {
        vintok::setTransport(&plainTransport);
    }
    // No `fini` behind it: a thread that looks for callers may still be in the middle of a call.
    return runRole(options, report);
}

} // namespace

int main(int count, char **arguments) {
    app::Options options;
    std::string text;
    int code = 0;
    switch (app::parseOptions(count, arguments, options, text)) {
    case app::ParseResult::wrong:
        app::complain(text + " (see vintok --help)");
        code = wrongUsage;
        break;
    case app::ParseResult::done:
        std::fputs((text + '\n').c_str(), stdout);
        break;
    case app::ParseResult::run:
        code = runLibrary(options);
        break;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        app::complain("cannot write to the standard output");
        code = code == 0 ? failedRun : code;
    }
    std::fflush(stderr);
    // The thread that waits for the standard input is still there and holds its lock.
    std::_Exit(code);
}
