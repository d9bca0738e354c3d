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

#include "support/ChildProcess.h"
#include "support/ControlEnd.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace vintok::test {

class Application : public ControlEnd {
public:
    // Runs the control process with these options behind "-path" and the socket.
    Application(Meeting &meeting, std::vector<std::string> options);
    ~Application() override;

    // Waits until the control process has connected.
    testing::AssertionResult connects();
    // The same, and starts it up on a port of its own; `port` is then where it listens.
    testing::AssertionResult startsUp();
    unsigned short port() const { return m_port; }

    void closes();

    ChildProcess &process() { return m_process; }
    std::string story() const override { return m_process.story(); }

private:
    static void acceptCB(int listener, void *data, bool hangup);

    TCPSelect m_select;
    TemporaryFolder m_folder;
    int m_listener = -1;
    unsigned short m_port = 0;
    ChildProcess m_process; // last: it connects to the socket
};

} // namespace vintok::test

#endif
