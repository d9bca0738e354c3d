#include "support/ControlEnd.h"

#include <vintok/ControlRequest.h>
#include <vintok/ControlText.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPStream.h>

#include <utility>

namespace vintok::test {

ControlEnd::~ControlEnd() {
    forgets();
}

void ControlEnd::watches(int descriptor) {
    m_descriptor = descriptor;
    m_ended = false;
    m_select.addSocketCallback(descriptor, dataCB, this, true, false);
}

int ControlEnd::forgets() {
    if (m_descriptor != -1 && !m_ended)
        m_select.removeCallback(m_descriptor, dataCB, this);
    return std::exchange(m_descriptor, -1);
}

void ControlEnd::dataCB(int descriptor, void *data, bool) {
    auto &me = *static_cast<ControlEnd *>(data);
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
    me.m_notifications.push_back(text);
}

bool ControlEnd::sends(const Bytes &bytes) const {
    return writeBytes(m_descriptor, bytes.data(), bytes.size(), nullptr) ==
           static_cast<std::int64_t>(bytes.size());
}

bool ControlEnd::asks(const std::string &text) const {
    return writeRequestString(m_descriptor, text);
}

testing::AssertionResult ControlEnd::isTold(const std::string &word) {
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

testing::AssertionResult ControlEnd::isTold(const std::string &word, bool outcome) {
    const auto result = isTold(word);
    return result && m_told.succeeded() != outcome ? testing::AssertionFailure()
                                                         << word << " has the other outcome\n"
                                                         << story()
                                                   : result;
}

testing::AssertionResult ControlEnd::isTold(const std::string &word, control::Field field,
                                            const std::string &value) {
    const auto result = isTold(word);
    return result && m_told.value(field) != value
               ? testing::AssertionFailure() << word << " of '" << m_told.value(field) << "'"
               : result;
}

testing::AssertionResult ControlEnd::isToldAll(const std::vector<std::string> &words) {
    auto result = testing::AssertionSuccess();
    for (auto word = words.begin(); word != words.end() && result; ++word)
        result = isTold(*word);
    return result;
}

testing::AssertionResult ControlEnd::fences(std::vector<std::string> *words) {
    requestResumePlayback(m_descriptor);
    const auto result = m_meeting.until(
        [&] {
            return !m_notifications.empty() && m_notifications.back().word() == "playbackResumed";
        },
        "the answer");
    for (; words != nullptr && m_notifications.size() > 1; m_notifications.pop_front())
        words->push_back(m_notifications.front().word());
    m_notifications.clear();
    return result;
}

testing::AssertionResult ControlEnd::isLeftAlone() {
    return m_meeting.until([this] { return m_ended; }, "the end of the control socket") << story();
}

} // namespace vintok::test
