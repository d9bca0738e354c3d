// The application at the other end of a control process: it listens on a local socket, starts
// ConferenceControl with that path, sends requests in their words, or bytes of any kind, and reads
// what it is told.
//
//     Application app(meeting, {"-local", "-uf", "Ann"});
//     ASSERT_TRUE(app.startsUp()) << app.story();
//     ASSERT_TRUE(app.asks("conveneMeeting", "beginMeeting"));
//     ASSERT_TRUE(app.isTold("rosterChanged change=join firstName=Bob"));
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
    Application(Meeting &meeting, const std::vector<std::string> &options);
    ~Application();
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    // Waits until the control process has connected.
    testing::AssertionResult connects();
    // The same, and starts it up on a port of its own.
    testing::AssertionResult startsUp();
    // Where it listens, as it told last.
    unsigned short port() const { return m_port; }

    bool sends(const Bytes &bytes) const;
    // A request of these lines; the end of the last one is added.
    bool asks(const std::string &text) const;

    // Waits for the next notification of a word, and drops those that came before it: the word
    // first, then the fields that it must have, such as "ok=true". `told` is then that one.
    testing::AssertionResult isTold(const std::string &notification);
    const control::Text &told() const { return m_told; }
    // Waits for the answer to a request that every state answers: to resume a playback, which is
    // refused. Whatever was asked before has been dealt with, and `words` are what came of it.
    testing::AssertionResult fences(std::vector<std::string> *words = nullptr);
    // Waits until the control process has closed its end, or is gone.
    testing::AssertionResult isLeftAlone();

    // Between the two nothing is read.
    void pauses() { m_select.removeCallback(m_descriptor, dataCB, this); }
    void resumes() { m_select.addSocketCallback(m_descriptor, dataCB, this, true, false); }
    void closes();

    ChildProcess &process() { return m_process; }
    std::string story() const { return m_process.story(); }

private:
    static void acceptCB(int listener, void *data, bool hangup);
    static void dataCB(int descriptor, void *data, bool hangup);
    testing::AssertionResult awaits(const std::string &word);

    Meeting &m_meeting;
    TCPSelect m_select;
    TemporaryFolder m_folder;
    int m_listener = -1;
    int m_descriptor = -1;
    bool m_ended = false;
    unsigned short m_port = 0;
    std::deque<control::Text> m_notifications;
    control::Text m_told;
    ChildProcess m_process; // last: it connects to the socket
};

} // namespace vintok::test

#endif
