#include "support/Application.h"

#include <vintok/ControlRequest.h>
#include <vintok/TCPStream.h>

namespace vintok::test {

namespace {

std::vector<std::string> command(const std::string &path, const std::vector<std::string> &options) {
    std::vector<std::string> arguments = {VINTOK_CONFERENCE_CONTROL, "-path", path};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return arguments;
}

// What the machine's owner may have set for runs by hand.
const ChildProcess::Environment cleanEnvironment = {{"VINTOK_ERROR_LOG_LEVEL", std::nullopt},
                                                    {"VINTOK_ERROR_LOG_FILE", std::nullopt},
                                                    {"CONFERENCE_PARTICIPANT_DEBUG", std::nullopt},
                                                    {"QOR_INSTALL", std::nullopt}};

} // namespace

Application::Application(Meeting &meeting, std::vector<std::string> options)
    : ControlEnd(meeting),
      m_listener(createUnixSocket(m_folder.path("control"), 1, true)),
      m_process(command(m_folder.path("control"), options), cleanEnvironment) {
    m_select.addSocketCallback(m_listener, acceptCB, this, false, false);
}

Application::~Application() {
    closes();
    if (m_listener != -1) {
        m_select.removeCallback(m_listener, acceptCB, this);
        shutdownSocket(m_listener);
    }
}

void Application::closes() {
    shutdownSocket(forgets());
}

void Application::acceptCB(int, void *data, bool) {
    auto &me = *static_cast<Application *>(data);
    me.m_select.removeCallback(me.m_listener, acceptCB, data);
    me.watches(acceptAndCloseBoundSocket(me.m_listener));
}

testing::AssertionResult Application::connects() {
    return meeting().until([this] { return fd() != -1; }, "the control process connects");
}

testing::AssertionResult Application::startsUp() {
    auto result = connects();
    if (!result)
        return result;
    requestStartup(fd(), freshPort(), false, false, "", "", "", "", "", "");
    result = isTold("startup");
    m_port = told().address().hostByteOrderPort();
    return result && m_port == 0 ? testing::AssertionFailure() << "no port" : result;
}

} // namespace vintok::test
