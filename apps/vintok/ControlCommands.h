// What a person types at `vintok control`: one command for each request to the control process.
#ifndef VINTOK_APP_CONTROLCOMMANDS_H
#define VINTOK_APP_CONTROLCOMMANDS_H

#include "Command.h"
#include "Options.h"

#include "ControlParser.h"

#include <vintok/RosterBase.h>

#include <string>
#include <string_view>
#include <vector>

namespace app {

// A call as it was asked for, so that it can be placed again.
struct ControlCall {
    std::string machine;
    unsigned short port = 0;
    std::string proxy;
    unsigned short proxyPort = 0;
    std::string meetingID;
    std::string authentication; // as HTTP takes it
    int tries = 1;
};

// The end of the control socket from which requests are sent, and what they need to know of what
// the control process has told.
class ControlClient {
public:
    explicit ControlClient(const Options &options) : m_options(options) {}

    void setDescriptor(int descriptor) { m_descriptor = descriptor; }

    // Learns from a notification.
    void note(const control::Text &text);
    // Whether addresses are to be shown to nobody.
    bool hides() const { return m_hides; }

    // Sends what a line asks for; nothing for a line of blanks. Empty when it was sent, and
    // otherwise why not.
    std::string obey(std::string_view line);

    // Who this is, from the options of the command line.
    std::string startup(const std::string &port = "");
    bool shutdown();

private:
    friend struct ControlCommand;

    std::string convene(const std::string &name);
    std::string call(const std::string &argument);
    std::string login(const std::string &credentials);
    std::string roster(const std::string &);
    std::string sendFile(const std::string &argument);
    std::string record(const std::string &path);
    std::string play(const std::string &path);
    std::string stop(const std::string &what);
    std::string putenv(const std::string &assignment);
    std::string place();
    const vintok::RosterBase *find(const std::string &who, std::string &complaint) const;

    const Options &m_options;
    int m_descriptor = -1;
    ControlCall m_call;
    std::vector<vintok::RosterBase> m_people;
    bool m_hides = false;
    bool m_recording = false;
    bool m_playing = false;
};

std::vector<CommandHelp> controlHelp();

} // namespace app

#endif
