#include "support/Application.h"

#include <vintok/ControlText.h>
#include <vintok/ControlWords.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPStream.h>

#include <sstream>
#include <utility>

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

std::string valueOf(const control::Text &text, const std::string &field) {
    for (const words::FieldRow &row : words::fieldRows)
        if (row.name == field)
            return text.value(row.field);
    return "no such field";
}

} // namespace

Application::Application(Meeting &meeting, const std::vector<std::string> &options)
    : m_meeting(meeting),
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
    if (m_descriptor != -1 && !m_ended)
        m_select.removeCallback(m_descriptor, dataCB, this);
    shutdownSocket(std::exchange(m_descriptor, -1));
}

void Application::acceptCB(int, void *data, bool) {
    auto &me = *static_cast<Application *>(data);
    me.m_select.removeCallback(me.m_listener, acceptCB, data);
    me.m_descriptor = acceptAndCloseBoundSocket(me.m_listener);
    me.resumes();
}

void Application::dataCB(int descriptor, void *data, bool) {
    auto &me = *static_cast<Application *>(data);
    TCPMessage message(descriptor);
    if (!message.read(-1, nullptr)) {
        // At the end there is nothing to be read, as in between; a look at the next byte tells.
        unsigned char byte = 0;
        if (peekBytes(descriptor, &byte, 1) != 1 && lastError() != TCP_ERROR_WOULD_BLOCK) {
            me.m_ended = true;
            me.m_select.removeCallback(descriptor, dataCB, data);
        }
        return;
    }
    control::Text text;
    std::string complaint;
    EXPECT_EQ(control::ParseError::none, control::parse(message, text, complaint)) << complaint;
    EXPECT_EQ(control::Direction::notification, text.direction());
    if (text.word() == "startup")
        me.m_port = text.address().hostByteOrderPort();
    me.m_notifications.push_back(text);
}

testing::AssertionResult Application::connects() {
    return m_meeting.until([this] { return m_descriptor != -1; }, "the control process connects");
}

testing::AssertionResult Application::startsUp() {
    auto result = connects();
    asks("startup\nport\n" + std::to_string(freshPort()));
    if (result)
        result = isTold("startup");
    return result && m_port == 0 ? testing::AssertionFailure() << "no port" : result;
}

bool Application::sends(const Bytes &bytes) const {
    return writeBytes(m_descriptor, bytes.data(), bytes.size(), nullptr) ==
           static_cast<std::int64_t>(bytes.size());
}

bool Application::asks(const std::string &text) const {
    return writeRequestString(m_descriptor, text + '\n');
}

testing::AssertionResult Application::awaits(const std::string &word) {
    std::string others;
    return m_meeting.until(
               [&] {
                   while (!m_notifications.empty()) {
                       m_told = m_notifications.front();
                       m_notifications.pop_front();
                       if (m_told.word() == word)
                           return true;
                       others += " " + m_told.word();
                   }
                   return false;
               },
               "told " + word)
           << " told otherwise:" << others << "\n"
           << story();
}

testing::AssertionResult Application::isTold(const std::string &notification) {
    std::istringstream parts(notification);
    std::string word, part;
    parts >> word;
    auto result = awaits(word);
    while (result && parts >> part) {
        const std::size_t equals = part.find('=');
        const std::string value = valueOf(m_told, part.substr(0, equals));
        if (value != part.substr(equals + 1))
            result = testing::AssertionFailure() << notification << " has '" << value << "'\n"
                                                 << story();
    }
    return result;
}

testing::AssertionResult Application::fences(std::vector<std::string> *words) {
    asks("resumePlayback");
    auto result = m_meeting.until(
        [&] {
            return !m_notifications.empty() && m_notifications.back().word() == "playbackResumed";
        },
        "the answer");
    for (; words != nullptr && m_notifications.size() > 1; m_notifications.pop_front())
        words->push_back(m_notifications.front().word());
    m_notifications.clear();
    return result << story();
}

testing::AssertionResult Application::isLeftAlone() {
    return m_meeting.until([this] { return m_ended; }, "the end of the control socket") << story();
}

} // namespace vintok::test
