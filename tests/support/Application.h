// The application at the other end of a control process: it listens on a local socket, starts
// ConferenceControl with that path, sends requests with the library's functions, or bytes of any
// kind, and reads what it is told.
//
//     Application app(meeting, {"-local", "-uf", "Ann"});
//     ASSERT_TRUE(app.connects()) << app.story();
//     requestConveneMeeting(app.fd(), "Budget");
//     ASSERT_TRUE(app.isTold("beginMeeting"));
#ifndef VINTOK_TESTS_SUPPORT_APPLICATION_H
#define VINTOK_TESTS_SUPPORT_APPLICATION_H

#include "ControlParser.h"
#include "support/ChildProcess.h"
#include "support/Meeting.h"
#include "support/TemporaryFolder.h"
#include "support/Wire.h"

#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace vintok::test {

class Application {
public:
    // Runs the control process with these options behind "-path" and the socket.
    Application(Meeting &meeting, std::vector<std::string> options);
    ~Application();
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    // Waits until the control process has connected.
    testing::AssertionResult connects();
    // The same, and starts it up on a port of its own; `port` is then where it listens.
    testing::AssertionResult startsUp();
    unsigned short port() const { return m_port; }

    int fd() const { return m_descriptor; }
    bool sends(const Bytes &bytes) const;
    // A request of any words.
    bool asks(const std::string &text) const;
    void closes();

    // Waits for the next notification of this word, and drops those that came before it. `told` is
    // then that one.
    testing::AssertionResult isTold(const std::string &word);
    // The same; it must have this outcome.
    testing::AssertionResult isTold(const std::string &word, bool outcome);
    // Waits for the answer to a request that every state answers: to resume a playback, which is
    // refused. Whatever was asked before has been dealt with, and `words` are what came of it.
    testing::AssertionResult fences(std::vector<std::string> *words = nullptr);
    const control::Text &told() const { return m_told; }

    ChildProcess &process() { return m_process; }
    std::string story() const { return m_process.story(); }

private:
    static void acceptCB(int listener, void *data, bool hangup);
    static void dataCB(int descriptor, void *data, bool hangup);

    Meeting &m_meeting;
    TCPSelect m_select;
    TemporaryFolder m_folder;
    int m_listener = -1;
    int m_descriptor = -1;
    unsigned short m_port = 0;
    std::deque<control::Text> m_notifications;
    control::Text m_told;
    ChildProcess m_process; // last: it connects to the socket
};

} // namespace vintok::test

#endif
