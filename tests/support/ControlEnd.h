// The application's end of the socket to a control process: what it is told there, and requests of
// its own making. The library's request functions take `fd()`.
#ifndef VINTOK_TESTS_SUPPORT_CONTROLEND_H
#define VINTOK_TESTS_SUPPORT_CONTROLEND_H

#include "ControlParser.h"
#include "support/Meeting.h"
#include "support/Wire.h"

#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace vintok::test {

class ControlEnd {
public:
    explicit ControlEnd(Meeting &meeting) : m_meeting(meeting) {}
    virtual ~ControlEnd();
    ControlEnd(const ControlEnd &) = delete;
    ControlEnd &operator=(const ControlEnd &) = delete;

    // -1 before the control process has connected.
    int fd() const { return m_descriptor; }
    bool sends(const Bytes &bytes) const;
    // A request of any words.
    bool asks(const std::string &text) const;

    // Waits for the next notification of this word, and drops those that came before it. `told` is
    // then that one.
    testing::AssertionResult isTold(const std::string &word);
    // The same; it must have this outcome.
    testing::AssertionResult isTold(const std::string &word, bool outcome);
    // The same; this field must have this value.
    testing::AssertionResult isTold(const std::string &word, control::Field field,
                                    const std::string &value);
    // One after the other.
    testing::AssertionResult isToldAll(const std::vector<std::string> &words);
    // Waits for the answer to a request that every state answers: to resume a playback, which is
    // refused. Whatever was asked before has been dealt with, and `words` are what came of it.
    testing::AssertionResult fences(std::vector<std::string> *words = nullptr);
    const control::Text &told() const { return m_told; }
    // Waits until the control process has closed its end, or is gone.
    testing::AssertionResult isLeftAlone();

    // Between the two nothing is read.
    void pauses() { m_select.removeCallback(m_descriptor, dataCB, this); }
    void resumes() { m_select.addSocketCallback(m_descriptor, dataCB, this, true, false); }

    // What a failed assertion wants to show of the control process.
    virtual std::string story() const = 0;

protected:
    // Reads from the descriptor until its end or `forgets`; it stays the caller's.
    void watches(int descriptor);
    int forgets();
    Meeting &meeting() { return m_meeting; }

private:
    static void dataCB(int descriptor, void *data, bool hangup);

    Meeting &m_meeting;
    TCPSelect m_select;
    int m_descriptor = -1;
    bool m_ended = false;
    std::deque<control::Text> m_notifications;
    control::Text m_told;
};

} // namespace vintok::test

#endif
