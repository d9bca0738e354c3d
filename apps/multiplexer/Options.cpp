#include "Options.h"

#include "Endpoints.h"
#include "Target.h"

#include <CLI/CLI.hpp>

#include <fstream>
#include <limits>
#include <vintok/HTTPAddress.h>
#include <vintok/Version.h>

namespace mux {

namespace {

constexpr long long many = 1000000;

// A check that leaves its own words out of the help, where the name of the value says it better.
CLI::Validator between(long long least, long long most) {
    return CLI::Range(least, most).description("");
}

constexpr char ruleForm[] = "HOST, HOST:PORT, NETWORK/BITS or [NETWORK/BITS]:PORT";

[[noreturn]] void wrong(const std::string &text, const std::string &form) {
    throw CLI::ValidationError("'" + text + "' is not " + form);
}

Authority authorityOf(const std::string &text, const std::string &form) {
    Authority authority;
    if (!parseAuthority(text, authority))
        wrong(text, form);
    return authority;
}

using Setter = std::function<void(const std::string &)>;

// An option that may be given several times.
void addEach(CLI::App &app, const std::string &name, const Setter &set, const std::string &type,
             const std::string &help) {
    const auto setAll = [set](const std::vector<std::string> &texts) {
        for (const std::string &text : texts)
            set(text);
    };
    app.add_option_function<std::vector<std::string>>(name, setAll, help)
        ->type_name(type)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void addNumber(CLI::App &app, const std::string &name, std::size_t &value, long long least,
               const std::string &type, const std::string &help) {
    app.add_option(name, value, help + " (" + std::to_string(value) + ")")
        ->type_name(type)
        ->check(between(least, many));
}

void addSeconds(CLI::App &app, const std::string &name, std::chrono::seconds &value,
                long long least, const std::string &help) {
    const auto set = [&value](long long seconds) { value = std::chrono::seconds(seconds); };
    app.add_option_function<long long>(name, set, help + " (" + std::to_string(value.count()) + ")")
        ->type_name("SECONDS")
        ->check(between(least, many));
}

void addListening(CLI::App &app, Options &options) {
    const auto listen = [&options](const std::string &text) {
        Endpoint endpoint;
        if (!makeEndpoint(text, 1, endpoint))
            wrong(text, "an address");
        options.listen.push_back(text);
    };
    addEach(app, "--listen", listen, "ADDRESS",
            "Listen on this address; may be given several times (0.0.0.0)");
    app.add_option("--port", options.port,
                   "Listen on this port; 0 takes a free one (" + std::to_string(defaultPort) + ")")
        ->type_name("PORT")
        ->check(between(0, std::numeric_limits<std::uint16_t>::max()));
    const auto name = [&options](const std::string &text) {
        options.names.push_back(authorityOf(text, "HOST:PORT"));
    };
    addEach(app, "--name", name, "HOST:PORT",
            "Clients call this server by this name: it is no party to be called");
}

void addParties(CLI::App &app, Options &options) {
    const auto allow = [&options](const std::string &text) {
        if (!options.givenRules.add(text))
            wrong(text, ruleForm);
    };
    addEach(app, "--allow", allow, "HOST[:PORT]|NETWORK",
            "Clients may have this party called, or any of this network (none)");
    const auto read = [&options](const std::string &file) { options.ruleFiles.push_back(file); };
    addEach(app, "--allow-file", read, "FILE", "The same, one on each line of a file");
    const auto meeting = [&options](const std::string &text) {
        const std::size_t equals = text.rfind('=');
        std::optional<Authority> party;
        if (equals != std::string::npos)
            party = authorityOf(text.substr(equals + 1), "HOST:PORT");
        options.meetings[text.substr(0, equals)] = party;
    };
    addEach(app, "--meeting", meeting, "ID[=HOST:PORT]",
            "Whoever comes with this meeting identifier is joined with that party; without one, "
            "only with a party that offers to answer");
    const auto redirect = [&options](const std::string &text) {
        const std::size_t equals = text.rfind('=');
        if (equals == std::string::npos) {
            wrong(text, "ID=HOST:PORT or HOST:PORT=HOST:PORT");
        }
        const Authority target = authorityOf(text.substr(equals + 1), "HOST:PORT");
        vintok::HTTPAddress check;
        if (!check.setURL("http://" + target.text() + '/')) {
            wrong(text, "a place to be sent to");
        }
        options.redirects[text.substr(0, equals)] = target;
    };
    addEach(app, "--redirect", redirect, "ID|HOST:PORT=HOST:PORT",
            "Send clients that ask for this meeting, or this address, elsewhere");
}

void addCredentials(CLI::App &app, Options &options) {
    const auto add = [&options](const std::string &pair) {
        if (!options.givenCredentials.add(pair))
            wrong(pair.substr(0, 1) + "...", "NAME:PASSWORD");
    };
    addEach(app, "--credentials", add, "NAME:PASSWORD",
            "Let in who has these; others on this machine can see them in the list of processes");
    const auto read = [&options](const std::string &file) {
        options.credentialFiles.push_back(file);
    };
    addEach(app, "--credentials-file", read, "FILE", "The same, one on each line of a file");
    const auto open = [&options](const std::string &id) { options.openMeetings.push_back(id); };
    addEach(app, "--open-meeting", open, "ID",
            "Whoever knows this meeting identifier needs no credentials");
}

void addSecurity(CLI::App &app, Options &options) {
    CLI::Option *certificate =
        app.add_option("--tls-cert", options.certificateFile,
                       "Speak TLS with clients that begin it, with this certificate (PEM)")
            ->type_name("FILE");
    CLI::Option *key = app.add_option("--tls-key", options.keyFile, "The key of the certificate")
                           ->type_name("FILE");
    certificate->needs(key);
    key->needs(certificate);
    app.add_flag("--tls-only", options.secureOnly, "Refuse requests that come without TLS")
        ->needs(certificate);
    app.add_flag("--tls-until-open", options.plainTunnels,
                 "End TLS once the tunnel stands, so that the parties can begin it with each other")
        ->needs(certificate);
}

void addLimits(CLI::App &app, Options &options) {
    addNumber(app, "--max-tunnels", options.maxTunnels, 1, "COUNT", "Tunnels at once");
    addNumber(app, "--max-waiting", options.maxWaiting, 1, "COUNT", "Parties that wait at once");
    addNumber(app, "--max-requests", options.maxRequests, 1, "COUNT",
              "Clients at once that have no tunnel and do not wait");
    addNumber(app, "--max-header", options.maxHeader, 256, "BYTES", "The longest request");
    addSeconds(app, "--request-time", options.requestTime, 1, "How long a request may take");
    addSeconds(app, "--connect-time", options.connectTime, 1,
               "How long a call to a party may take");
    addSeconds(app, "--wait-time", options.waitTime, 1, "How long a client waits for the other");
    addSeconds(app, "--idle-time", options.idleTime, 0,
               "How long a tunnel may be silent, 0 for ever");
    addSeconds(app, "--silence-time", options.silenceTime, 0,
               "How long a system may show no sign of life, 0 for ever");
}

void addLog(CLI::App &app, Options &options) {
    app.add_option("--log-file", options.logFile, "Write the log here, behind what is there")
        ->type_name("FILE");
    app.add_flag("--quiet", options.quiet, "Write no log");
    app.add_flag("--hide-meetings", options.hideMeetings,
                 "Leave meeting identifiers out of the log");
}

const char footer[] =
    "Prints \"listening on ADDRESS port PORT\" and then its log. Ends on Ctrl-C or SIGTERM. On "
    "SIGHUP\n"
    "it opens its log file anew, and reads the files of credentials and rules again.\n\n"
    "Exit status: 0 fine, 1 the run failed (port taken, log not writable), 2 wrong usage.";

// Hands each line of a file to `take`, except blank ones and those that begin with '#', until one
// is not `form`.
bool readLines(const std::string &file, const std::string &form, std::string &failure,
               const std::function<bool(const std::string &)> &take) {
    std::ifstream lines(file);
    if (!lines) {
        failure = "cannot read " + file;
        return false;
    }
    std::string line;
    for (std::size_t number = 1; std::getline(lines, line); ++number) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line.front() != '#' && !take(line)) {
            failure = file + ", line " + std::to_string(number) + ": not " + form;
            return false;
        }
    }
    return true;
}

} // namespace

bool readFiles(Options &options, std::string &failure) {
    Credentials credentials = options.givenCredentials;
    for (const std::string &file : options.credentialFiles) {
        if (!readLines(file, "NAME:PASSWORD", failure,
                       [&](const std::string &line) { return credentials.add(line); }))
            return false;
        if (credentials.empty()) { // or everybody would be let in
            failure = file + " holds no credentials";
            return false;
        }
    }
    Rules rules = options.givenRules;
    for (const std::string &file : options.ruleFiles)
        if (!readLines(file, ruleForm, failure,
                       [&](const std::string &line) { return rules.add(line); }))
            return false;
    options.credentials = credentials;
    options.allowed = rules;
    return true;
}

ParseResult parseOptions(int count, const char *const *arguments, Options &options,
                         std::string &text) {
    CLI::App program("Joins parties of meetings that cannot reach each other.", "multiplexer");
    program.footer(footer);
    program.set_version_flag("--version", "multiplexer " VINTOK_VERSION_TEXT);
    addListening(program, options);
    addParties(program, options);
    addCredentials(program, options);
    addSecurity(program, options);
    addLimits(program, options);
    addLog(program, options);
    try {
        program.parse(count, arguments);
    } catch (const CLI::CallForVersion &version) {
        text = version.what();
        return ParseResult::done;
    } catch (const CLI::CallForHelp &) {
        text = program.help();
        return ParseResult::done;
    } catch (const CLI::ParseError &error) {
        text = error.what();
        return ParseResult::wrong;
    }
    if (!readFiles(options, text))
        return ParseResult::wrong;
    if (options.listen.empty())
        options.listen.emplace_back("0.0.0.0");
    return ParseResult::run;
}

} // namespace mux
