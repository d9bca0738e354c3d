#include "Options.h"

#include "ControlParser.h"
#include "Text.h"

#include <vintok/ConferenceControl.h>

#include <algorithm>
#include <cstring>
#include <variant>
#include <vector>

namespace control {

namespace {

using Member = std::variant<bool Options::*, std::string Options::*, unsigned short Options::*,
                            unsigned int Options::*>;

struct Row {
    const char *name;
    const char *value; // what the help calls it; null for an option without one
    Member member;
    const char *help;
};

const std::vector<Row> &rows() {
    static const std::vector<Row> rows = {
        {vintok::a_help, nullptr, &Options::help, "Print this and end"},
        {vintok::a_callBackPath, "SOCKET", &Options::path,
         "The application's socket. Without it: host alone"},
        {vintok::a_clientPort, "PORT", &Options::port,
         "Listen here, or on the first free port after it"},
        {vintok::a_local, nullptr, &Options::local, "Be reachable from this machine only"},
        {vintok::a_serverMode, nullptr, &Options::server,
         "Relay for the others, without a user here"},
        {vintok::a_hideIP, nullptr, &Options::hideIP, "Demand that addresses are hidden"},
        {vintok::a_sslAuto, nullptr, &Options::sslAuto, "Secure connections where possible"},
        {vintok::a_sslFIPS, nullptr, &Options::sslFIPS, "Demand FIPS-grade security"},
        {vintok::a_sslMUX, nullptr, &Options::sslMUX,
         "Leave encryption to the multiplexing server"},
        {vintok::a_userFirstName, "TEXT", &Options::firstName, "The user's first name"},
        {vintok::a_userLastName, "TEXT", &Options::lastName, "The user's last name"},
        {vintok::a_userTitle, "TEXT", &Options::title, "The user's title"},
        {vintok::a_userEmail, "TEXT", &Options::email, "The user's e-mail address"},
        {vintok::a_userPhone, "TEXT", &Options::phone, "The user's telephone number"},
        {vintok::a_meetingID, "TEXT", &Options::meetingID, "The meeting's identifier"},
        {vintok::a_meetingName, "TEXT", &Options::meetingName, "The meeting's name"},
        {"-cluster", "URL", &Options::cluster,
         "Be one of several hosts of the meeting, linked over NATS"},
        {"-clusterName", "TEXT", &Options::clusterName, "What this host is called (its address)"},
        {"-clusterCreds", "FILE", &Options::clusterCreds, "Credentials for NATS"},
        {vintok::a_alarmDelta, "SECONDS", &Options::alarm,
         "Between tests of the connections, 0 for none (30)"},
        {"-noGuards", nullptr, &Options::noGuards,
         "Wait for members that are slow, and let strangers connect without limit"},
        {vintok::a_background, nullptr, &Options::background,
         "Run on when the terminal interrupts or goes"},
        {vintok::a_verbose, nullptr, &Options::verbose, "Log what happens"},
        {vintok::a_debug, nullptr, &Options::debug, "Log in detail"},
        {vintok::a_roster, nullptr, &Options::roster, "Log the roster in detail"},
    };
    return rows;
}

// What each kind of option does with its value.
struct Setter {
    Options &options;
    const char *value;

    bool operator()(bool Options::*member) const { return options.*member = true; }
    bool operator()(std::string Options::*member) const {
        options.*member = value;
        return true;
    }
    bool operator()(unsigned short Options::*member) const {
        return app::parseNumber(value, options.*member);
    }
    bool operator()(unsigned int Options::*member) const {
        constexpr unsigned int aDay = 86400;
        return app::parseNumber(value, options.*member) && options.*member <= aDay;
    }
};

} // namespace

bool readOptions(int count, const char *const *arguments, Options &options,
                 std::string &complaint) {
    for (int i = 1; i < count; ++i) {
        const char *name = arguments[i];
        const auto row = std::find_if(rows().begin(), rows().end(), [&](const Row &candidate) {
            return std::strcmp(candidate.name, name) == 0;
        });
        if (row == rows().end()) {
            complaint = "'" + quote(name) + "' is no option";
            return false;
        }
        const char *value = "";
        if (row->value != nullptr && ++i >= count) {
            complaint = std::string(name) + " needs a value";
            return false;
        }
        if (row->value != nullptr)
            value = arguments[i];
        if (!std::visit(Setter{options, value}, row->member)) {
            complaint = std::string(name) + ": '" + quote(value) + "' cannot be used";
            return false;
        }
    }
    return true;
}

std::string helpText() {
    constexpr std::size_t column = 18;
    std::string text = "usage: ConferenceControl [OPTION [VALUE]] ...\n\n"
                       "A party of a meeting that an application drives over a local socket.\n\n";
    for (const Row &row : rows()) {
        std::string line = std::string("  ") + row.name;
        if (row.value != nullptr)
            line += std::string(" ") + row.value;
        line.resize(std::max(line.size(), column), ' ');
        text += line + "  " + row.help + "\n";
    }
    return text + "\nExit status: 0 fine (also when the application has gone), 1 the run failed, "
                  "2 wrong usage.\n";
}

} // namespace control
