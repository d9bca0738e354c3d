#include "TunnelArguments.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace app {

namespace {

bool hasControls(std::string_view text) {
    return std::any_of(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

// Whether the text can stand in a line of a request.
bool isHeaderText(std::string_view text) {
    return !text.empty() && text.front() != ' ' && text.back() != ' ' && !hasControls(text);
}

// USER:PASSWORD (RFC 7617): the first colon divides.
bool areCredentials(std::string_view text) {
    return text.find(':') != std::string_view::npos && !hasControls(text);
}

constexpr char variableName[] = "VINTOK_PROXY_AUTH";

CLI::Option *addServer(CLI::App &app, const std::string &name, Target &server,
                       unsigned short usualPort, const std::string &help) {
    const auto set = [&server, usualPort](const std::string &text) {
        if (!parseTarget(text, server))
            throw CLI::ValidationError("'" + text + "' is not HOST or HOST:PORT");
        server.port = server.port == 0 ? usualPort : server.port;
    };
    return app
        .add_option_function<std::string>(name, set,
                                          help + " (port " + std::to_string(usualPort) + ")")
        ->type_name("HOST[:PORT]");
}

// Says nothing of what it was given: that is a secret.
void setCredentials(TunnelOptions &tunnel, const std::string &text, const std::string &where) {
    if (!areCredentials(text))
        throw CLI::ValidationError(where + " is not USER:PASSWORD");
    tunnel.credentials = text;
}

void readCredentials(TunnelOptions &tunnel, const std::string &file) {
    std::ifstream input(file);
    std::string line;
    if (!std::getline(input, line))
        throw CLI::ValidationError("cannot read a line of '" + file + "'");
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    setCredentials(tunnel, line, "the first line of '" + file + "'");
}

void addCredentials(CLI::App &app, TunnelOptions &tunnel, CLI::Option *multiplexer) {
    const auto take = [&tunnel](const std::string &text) {
        setCredentials(tunnel, text, "the value of --auth");
    };
    CLI::Option *given =
        app.add_option_function<std::string>(
               "--auth", take,
               "For the server on the way that asks for a user name and a password. Others on this "
               "machine can see it in the list of processes")
            ->type_name("USER:PASSWORD")
            ->needs(multiplexer);
    const auto read = [&tunnel](const std::string &file) { readCredentials(tunnel, file); };
    app.add_option_function<std::string>(
           "--auth-file", read,
           std::string(
               "The same, as the first line of a file; without either it is the value of ") +
               variableName)
        ->type_name("FILE")
        ->needs(multiplexer)
        ->excludes(given);
}

void addServers(CLI::App &app, TunnelOptions &tunnel, const std::string &multiplexerHelp,
                const std::string &proxyHelp) {
    CLI::Option *multiplexer =
        addServer(app, "--mux", tunnel.multiplexer, multiplexerPort, multiplexerHelp);
    const auto setMeeting = [&tunnel](const std::string &text) {
        if (!isHeaderText(text)) {
            throw CLI::ValidationError("--meeting-id: neither empty, nor with control characters, "
                                       "nor with blanks at its ends");
        }
        tunnel.meetingID = text;
    };
    app.add_option_function<std::string>("--meeting-id", setMeeting,
                                         "The meeting, as the multiplexer knows it, or its hosts")
        ->type_name("ID");
    addServer(app, "--proxy", tunnel.proxy, proxyPort, proxyHelp)->needs(multiplexer);
    addCredentials(app, tunnel, multiplexer);
}

// Where the command line gives no credentials.
bool takeVariable(TunnelOptions &tunnel, std::string &text) {
    const char *variable = std::getenv(variableName);
    if (!tunnel.credentials.empty() || variable == nullptr || *variable == '\0')
        return true;
    if (!areCredentials(variable)) {
        text = std::string("the value of ") + variableName + " is not USER:PASSWORD";
        return false;
    }
    tunnel.credentials = variable;
    return true;
}

} // namespace

void addTunnelOptions(CLI::App &app, Options &options) {
    addServers(app, options.tunnel,
               "Call by way of this multiplexer, which knows the meeting by its identifier",
               "Reach the multiplexer through this HTTP proxy; the target is then left out");
}

void addOfferOptions(CLI::App &app, Options &options) {
    addServers(app, options.tunnel,
               "Let in also who asks this multiplexer for the meeting, without being called",
               "Reach the multiplexer through this HTTP proxy");
}

bool finishTunnelOptions(Options &options, std::string &text) {
    TunnelOptions &tunnel = options.tunnel;
    secure::Options &secure = options.secure;
    secure.namesCalled = secure.name.empty() && !tunnel.wanted();
    if (secure.name.empty())
        secure.name = tunnel.wanted() ? tunnel.multiplexer.host : options.target.host;
    secure.plainFirst = !tunnel.proxy.host.empty();
    if (!tunnel.wanted()) {
        text = "a target is required: whom to call, a multiplexer with --mux, or --cluster";
        return !options.target.host.empty() || !options.cluster.servers.empty();
    }
    if (!tunnel.proxy.host.empty() && !options.target.host.empty()) {
        text = "through a proxy a multiplexer learns the meeting identifier alone: leave '" +
               options.target.text() + "' out";
        return false;
    }
    return takeVariable(tunnel, text);
}

bool finishOfferOptions(Options &options, std::string &text) {
    if (!options.tunnel.wanted())
        return true;
    if (options.secure.wanted()) {
        text = "a host that is reached by way of a multiplexer cannot encrypt: leave out --mux or "
               "the options that begin with --tls-";
        return false;
    }
    return takeVariable(options.tunnel, text);
}

} // namespace app
