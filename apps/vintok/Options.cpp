#include "Options.h"

#include "ClusterArguments.h"
#include "TunnelArguments.h"

#include <CLI/CLI.hpp>

#include <limits>
#include <map>
#include <optional>
#include <vintok/Version.h>

namespace app {

namespace {

const std::map<std::string, std::optional<vintok::LogLevel>> logLevels = {
    {"none", vintok::LOG_NONE},       {"fatal", vintok::LOG_FATAL}, {"error", vintok::LOG_ERROR},
    {"warning", vintok::LOG_WARNING}, {"info", vintok::LOG_INFO},   {"debug", vintok::LOG_DEBUG},
    {"trace", vintok::LOG_TRACE}};
const std::map<std::string, Answer> answers = {
    {"yes", Answer::yes}, {"ask", Answer::ask}, {"no", Answer::no}};
const std::map<std::string, When> whens = {
    {"auto", When::automatic}, {"always", When::always}, {"never", When::never}};

// A check that leaves its own words out of the help, where the name of the value says it better.
CLI::Validator silent(CLI::Validator check) {
    return check.description("");
}

CLI::Validator between(unsigned int least, unsigned int most) {
    return silent(CLI::Range(least, most));
}

// An option whose value is one of the words of `table`.
template <class Value>
CLI::Option *addWord(CLI::App &app, const std::string &name, Value &value,
                     const std::map<std::string, Value> &table, const std::string &help) {
    std::vector<std::string> words;
    words.reserve(table.size());
    for (const auto &row : table)
        words.push_back(row.first);
    const auto set = [&value, &table](const std::string &word) { value = table.at(word); };
    return app.add_option_function<std::string>(name, set, help)
        ->check(silent(CLI::IsMember(words)));
}

void addName(CLI::App &app, Options &options) {
    const auto setName = [&options](const std::string &name) {
        const std::size_t blank = name.find(' ');
        options.firstName = name.substr(0, blank);
        options.lastName = blank == std::string::npos ? "" : name.substr(blank + 1);
    };
    app.add_option_function<std::string>("--name", setName,
                                         "Your name: the first word is the first name")
        ->type_name("NAME");
    app.add_option("--email", options.email, "Your e-mail address")->type_name("TEXT");
    app.add_option("--title", options.title, "Your title")->type_name("TEXT");
    app.add_option("--phone", options.phone, "Your telephone number")->type_name("TEXT");
}

void addListening(CLI::App &app, Options &options, const std::string &usualPort) {
    app.add_option("--port", options.port,
                   "Listen on this port, or the first free one after it (" + usualPort + ")")
        ->type_name("PORT")
        ->check(between(1, 65535));
    app.add_flag("--exact-port", options.exactPort, "Fail if the port is taken");
    app.add_flag("--local", options.localOnly, "Be reachable from this machine only");
}

void addOutput(CLI::App &app, Options &options) {
    app.add_flag("--json", options.json,
                 "Print one JSON object for each event, on a line of its own. Skip lines that do "
                 "not begin with '{': the library announces its port in plain text");
    addWord(app, "--color", options.colour, whens, "Use colours (auto: on a terminal)")
        ->type_name("auto|always|never");
    addWord(app, "--log-level", options.logLevel, logLevels,
            "What the library logs to standard error (none, or VINTOK_ERROR_LOG_LEVEL)")
        ->type_name("none|fatal|error|warning|info|debug|trace");
    app.add_option("--log-file", options.logFile, "Log to this file instead")->type_name("FILE");
}

CLI::Option *addTarget(CLI::App &app, Options &options, const std::string &help) {
    const auto setTarget = [&options](const std::string &text) {
        if (!parseTarget(text, options.target))
            throw CLI::ValidationError("'" + text +
                                       "' is not HOST, HOST:PORT, ADDRESS or [IPv6-ADDRESS]:PORT");
    };
    return app.add_option_function<std::string>("target", setTarget, help)
        ->type_name("HOST[:PORT]");
}

void addMeeting(CLI::App &app, Options &options) {
    app.add_flag("--stay", options.stay, "Stay in the meeting when the standard input ends");
    app.add_option("--keep-alive", options.keepAlive,
                   "Seconds in which the other side of a connection must show a sign of life, 0 "
                   "for\nno limit (30)")
        ->type_name("SECONDS")
        ->check(between(0, 86400));
    app.add_option("--record", options.recordFile,
                   "Write everything that is said into this file, which must be new or empty")
        ->type_name("FILE");
    app.add_option("--files", options.files,
                   "Store the files that others send in this folder, in place of what is there "
                   "under their names (QOR_COLLAB_ROOT_LOCAL; without either they are refused)")
        ->type_name("DIR")
        ->check(silent(!CLI::ExistingFile));
    app.add_flag("--files-links", options.fileLinks,
                 "Follow links in that folder to folders elsewhere (QOR_COLLAB_ROOT_LINKS=True)");
    addWord(app, "--progress", options.progress, whens,
            "Show how far a file has come (auto: on a terminal)")
        ->type_name("auto|always|never");
}

void addLimits(CLI::App &app, Options &options) {
    constexpr unsigned int most = 1 << 20;
    const auto add = [&](const char *name, unsigned int &value, const char *help,
                         const char *unit) {
        app.add_option(name, value, help)->type_name(unit)->check(between(0, most));
    };
    Guards &guards = options.guards;
    add("--most-waiting", guards.mostWaiting,
        "Hang up a guest for whom more than this waits to be sent, or an eighth of it for ten "
        "seconds; 0: wait for guests that are slow (64)",
        "MEGABYTES");
    add("--most-callers", guards.mostCallers,
        "Connections that have not joined, a quarter of them from one address; the oldest makes "
        "room; 0: any (64)",
        "COUNT");
    add("--caller-time", guards.callerTime,
        "Time for a caller to say who it is, and again to ask to join; 0: any (10)", "SECONDS");
    add("--join-rate", guards.joinRate,
        "Callers that may ask to join in a second, the others wait; 0: any (150)", "COUNT");
    add("--most-members", guards.mostMembers, "Guests in the meeting; 0: any (900)", "COUNT");
    add("--most-message", guards.mostFrame, "The longest message of a guest; 0: any (64)",
        "MEGABYTES");
}

void addTrust(CLI::App &app, Options &options) {
    app.add_flag_callback(
        "--no-members-only", [&options] { options.guards.membersOnly = false; },
        "Take every message from whoever is connected, as older versions do");
    app.add_flag_callback(
        "--no-temporary-files", [&options] { options.guards.temporaryFiles = false; },
        "Write files that arrive in their place, over what is there");
}

void addClockStep(CLI::App &app, Options &options) {
    app.add_option("--clock-step", options.guards.largestClockStep,
                   "Seconds by which the host may move this party's clock at most, 0 for any "
                   "(604800, a week)")
        ->type_name("SECONDS")
        ->check(between(0, std::numeric_limits<unsigned int>::max()));
}

void addSecure(CLI::App &app, Options &options) {
    secure::Options &secure = options.secure;
    app.add_option("--tls-cert", secure.certificate,
                   "Encrypt connections, and show this certificate (PEM, its chain behind it; read "
                   "once, at the start)")
        ->type_name("FILE");
    app.add_option("--tls-key", secure.key, "The key of that certificate (PEM)")->type_name("FILE");
    app.add_option("--tls-ca", secure.roots, "Trust certificates that lead to one of these (PEM)")
        ->type_name("FILE");
    app.add_flag("--tls-system-ca", secure.systemRoots, "Trust whom this machine trusts");
    app.add_flag("--tls-require", secure.required,
                 "Break off connections without TLS, instead of going on plain");
    app.add_flag("--tls-fips", secure.approvedOnly, "Use algorithms that FIPS 140 approves only");
}

void addWait(CLI::App &app, Options &options, const std::string &help) {
    app.add_option("--tls-wait", options.secure.wait, help)
        ->type_name("MILLISECONDS")
        ->check(between(0, 60000));
}

// What only the calling side needs; without a name the certificate must be for the host called.
void addSecureCall(CLI::App &app, Options &options) {
    addSecure(app, options);
    addWait(app, options, "Wait so long for a host that speaks without TLS (200)");
    app.add_option("--tls-name", options.secure.name,
                   "The name that the host's certificate must be for (the host as called)")
        ->type_name("NAME");
}

bool finishHost(Options &options, std::string &text) {
    if (!finishOfferOptions(options, text))
        return false;
    options.secure.required |= options.secure.demandsCertificate; // without TLS none is shown
    text = "a host takes --tls-cert and --tls-key to encrypt";
    return !options.secure.wanted() || !options.secure.certificate.empty();
}

CLI::App *addHost(CLI::App &program, Options &options) {
    CLI::App *app = program.add_subcommand("host", "Hold a meeting that others can join");
    app->add_option("--meeting", options.meeting, "The name of the meeting")->type_name("NAME");
    addWord(*app, "--answer", options.answer, answers, "Let callers in (yes)")
        ->type_name("yes|ask|no");
    app->add_option("--clock-offset", options.clockOffset,
                    "Run the meeting's clock so far ahead of this machine's, to try out how "
                    "guests follow it (0)")
        ->type_name("SECONDS")
        ->check(silent(CLI::Range(-1000000000, 1000000000)));
    addOfferOptions(*app, options);
    addLinkOptions(*app, options);
    addMeeting(*app, options);
    addLimits(*app, options);
    addTrust(*app, options);
    addSecure(*app, options);
    addWait(*app, options, "Wait so long for a caller to begin with TLS (600)");
    app->add_flag("--tls-demand-cert", options.secure.demandsCertificate,
                  "Let in only who shows a certificate that leads to --tls-ca");
    addName(*app, options);
    addListening(*app, options, "the configured port, normally 7777");
    addOutput(*app, options);
    return app;
}

void addPatience(CLI::App &app, Options &options) {
    app.add_option("--patience", options.patience,
                   "Seconds to wait for a connection and for the answer; 0: 20 for a connection, "
                   "and as long as it takes for the answer (0)")
        ->type_name("SECONDS")
        ->check(between(0, 86400));
}

// Where nobody needs to call, a port of its own keeps two guests with one address apart.
void addGuestListening(CLI::App &app, Options &options) {
    static const std::map<std::string, bool> places = {{"any", true}, {"none", false}};
    addListening(app, options, "any that is free, above 49151");
    addWord(app, "--listen", options.listens, places,
            "none: listen nowhere, so that nobody can call (any)")
        ->type_name("any|none");
}

CLI::App *addJoin(CLI::App &program, Options &options) {
    CLI::App *app = program.add_subcommand("join", "Join the meeting of a host");
    addTarget(*app, options, "Whom to call; with --mux or --cluster it may be left out");
    addTunnelOptions(*app, options);
    addClusterOptions(*app, options);
    addPatience(*app, options);
    addMeeting(*app, options);
    addTrust(*app, options);
    addClockStep(*app, options);
    addSecureCall(*app, options);
    addName(*app, options);
    addGuestListening(*app, options);
    addOutput(*app, options);
    return app;
}

CLI::App *addReplay(CLI::App &program, Options &options) {
    CLI::App *app = program.add_subcommand(
        "replay", "Join a meeting, say again what a record file holds, leave");
    app->add_option("file", options.file, "The record file")->type_name("FILE")->required();
    addTarget(*app, options, "Whom to call; with --mux it may be left out");
    addTunnelOptions(*app, options);
    app->add_option("--speed", options.speed, "How many times faster than it was recorded (1)")
        ->type_name("FACTOR")
        ->check(silent(CLI::Range(0.001, 1e6)));
    app->add_flag_callback(
        "--no-wait", [&options] { options.speed = std::numeric_limits<double>::infinity(); },
        "Do not wait between the messages");
    addPatience(*app, options);
    addTrust(*app, options);
    addClockStep(*app, options);
    addSecureCall(*app, options);
    addName(*app, options);
    addGuestListening(*app, options);
    addOutput(*app, options);
    return app;
}

CLI::App *addRelay(CLI::App &program, Options &options) {
    CLI::App *app = program.add_subcommand(
        "relay", "Pass every broadcast message of a client on to the other clients");
    addListening(*app, options, "8787");
    addOutput(*app, options);
    return app;
}

CLI::App *addRelayClient(CLI::App &program, Options &options, const std::string &name,
                         const std::string &help) {
    CLI::App *app = program.add_subcommand(name, help);
    addTarget(*app, options, "Where the relay is; its port is 8787 unless given")->required();
    addOutput(*app, options);
    return app;
}

CLI::App *addControl(CLI::App &program, Options &options) {
    CLI::App *app = program.add_subcommand(
        "control", "Hold meetings through a control process: a prompt for its requests");
    app->add_option("--install", options.control.install,
                    "The folder where ConferenceControl is (as QOR_INSTALL or PROOT say, or the "
                    "folder of this program)")
        ->type_name("FOLDER");
    app->add_option("--socket", options.control.socket,
                    "The path of the socket to the control process, which must not exist (in a "
                    "folder that is made for it)")
        ->type_name("PATH");
    app->add_flag("--wait", options.control.waits,
                  "Wait for a control process that is started by hand instead of starting one");
    app->add_flag_callback(
        "--no-startup", [&options] { options.control.startup = false; },
        "Do not tell the control process at once who you are: /startup does it");
    app->add_option("--port", options.port, "Where the control process listens (its usual port)")
        ->type_name("PORT")
        ->check(between(1, 65535));
    app->add_option("--meeting-id", options.control.meetingID,
                    "Be found under this identifier by a multiplexing server")
        ->type_name("ID");
    app->add_flag("--secure", options.control.secure, "Offer secure connections");
    app->add_flag("--hide-ip", options.control.hideIP,
                  "Hide your address from the users of others");
    app->add_flag("--debug", options.control.debug, "Let the control process log what it does");
    app->add_flag("--verbose", options.control.verbose, "Let it log even more");
    app->add_flag("--stay", options.stay, "Go on when the standard input ends");
    addName(*app, options);
    addOutput(*app, options);
    return app;
}

CLI::App *addDecode(CLI::App &program, Options &options) {
    CLI::App *app = program.add_subcommand("decode", "Print the messages of a record file");
    app->add_option("file", options.file, "The file; - is the standard input")
        ->type_name("FILE")
        ->required();
    app->add_flag("--full", options.full, "Show long bodies to their end");
    app->add_flag("--addresses", options.addresses, "Show addresses that parties hide, too");
    app->add_flag("--json", options.json, "Print one JSON object for each message");
    return app;
}

CLI::App *addTlsInit(CLI::App &program, Options &options) {
    CLI::App *app = program.add_subcommand(
        "tls-init", "Make a small authority of your own, and certificates for host and guest");
    app->add_option("folder", options.tlsFolder, "Where; nothing there is overwritten")
        ->type_name("DIR")
        ->required();
    app->add_option("--host", options.tlsNames,
                    "A name or address by which guests call the host; may be given several times")
        ->type_name("NAME");
    app->add_flag("--json", options.json, "Print one JSON object");
    return app;
}

const char footer[] =
    "In a meeting, a line typed is said to everybody; /help lists the commands. The end of the\n"
    "input leaves the meeting, and so does Ctrl-C.\n\n"
    "Exit status: 0 fine (also when the host ends the meeting), 1 the run failed (no connection,\n"
    "port taken, call refused), 2 wrong usage.";

} // namespace

ParseResult parseOptions(int count, const char *const *arguments, Options &options,
                         std::string &text) {
    CLI::App program("Meetings over TCP, from the command line.", "vintok");
    program.footer(footer);
    program.set_version_flag("--version", "vintok " VINTOK_VERSION_TEXT);
    program.set_help_all_flag("--help-all", "Print the help of every command");
    program.require_subcommand(
        -1); // at most one; that one is needed is said below, in better words
    const std::pair<CLI::App *, Role> roles[] = {
        {addHost(program, options), Role::host},
        {addJoin(program, options), Role::join},
        {addRelay(program, options), Role::relay},
        {addRelayClient(program, options, "relay-send",
                        "Send the lines of the standard input through a relay"),
         Role::relaySend},
        {addRelayClient(program, options, "relay-listen", "Print what comes through a relay"),
         Role::relayListen},
        {addReplay(program, options), Role::join},
        {addControl(program, options), Role::control},
        {addDecode(program, options), Role::decode},
        {addTlsInit(program, options), Role::tlsInit},
    };
    options.control.program = count > 0 ? arguments[0] : "";
    try {
        program.parse(count, arguments);
    } catch (const CLI::CallForVersion &version) {
        text = version.what();
        return ParseResult::done;
    } catch (const CLI::CallForAllHelp &) {
        text = program.help("", CLI::AppFormatMode::All);
        return ParseResult::done;
    } catch (const CLI::CallForHelp &) {
        text = program.help();
        return ParseResult::done;
    } catch (const CLI::ParseError &error) {
        text = error.what();
        return ParseResult::wrong;
    }
    for (const auto &[app, role] : roles) {
        if (app->parsed()) {
            options.role = role;
            options.secure.accepts = role == Role::host;
            const bool meets = role == Role::join || role == Role::host;
            return (meets && !finishClusterOptions(options, text)) ||
                           (role == Role::join && !finishTunnelOptions(options, text)) ||
                           (role == Role::host && !finishHost(options, text))
                       ? ParseResult::wrong
                       : ParseResult::run;
        }
    }
    text = "a command is needed";
    return ParseResult::wrong;
}

} // namespace app
