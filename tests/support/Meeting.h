// Several parties on one thread. They share the thread's dispatch table, so one loop drives them
// all; the raw peers read what has come for them in the same turns.
#ifndef VINTOK_TESTS_SUPPORT_MEETING_H
#define VINTOK_TESTS_SUPPORT_MEETING_H

#include "support/Matchers.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <functional>
#include <string>
#include <vector>

namespace vintok::test {

class WirePeer;

// A port that parties of this process may begin their search at; another one each time.
unsigned short freshPort();

class Meeting {
public:
    Meeting() { init(); }
    ~Meeting() { fini(); }
    Meeting(const Meeting &) = delete;
    Meeting &operator=(const Meeting &) = delete;

    // One pass: dispatches what can be read, lets the raw peers read. Waits a moment when nothing
    // happened. True when something did.
    bool turn();

    // Turns until `condition` holds; fails, naming `what` was waited for, when it does not come.
    testing::AssertionResult until(const std::function<bool()> &condition, const std::string &what);

    // How many descriptors the loop waits for: those that listen, and those of connections.
    int watched() const { return m_select.numDescriptors(); }

    void add(WirePeer *peer) { m_peers.push_back(peer); }
    void remove(WirePeer *peer);

private:
    TCPSelect m_select;
    std::vector<WirePeer *> m_peers;
};

// A sentence as the test framework takes it in a name.
std::string caseName(const std::string &sentence);

// The name of a row of a table, which is its member `name`.
template <class Case>
std::string caseName(const testing::TestParamInfo<Case> &row) {
    return caseName(row.param.name);
}

} // namespace vintok::test

#endif
