// Internal. What the sources of ConferenceParticipant share beside the class: how a participant
// makes its messages, how it takes over what a received entry says, and how a call ends.
#ifndef VINTOK_CONFERENCEMESSAGE_H
#define VINTOK_CONFERENCEMESSAGE_H

#include <cstdint>
#include <string>

namespace vintok {

class ConferenceRosterEntry;
class TCPMessageBase;
struct TCPGUID;

// Gives `message` the participant's version, the identifier and a body of `length` bytes, which are
// for the caller to fill. False where there is no memory.
bool openMessage(TCPMessageBase &message, const TCPGUID &identifier, std::uint64_t length);

// The same with an entry as the body; false also when it could not be written.
bool openMessage(TCPMessageBase &message, const TCPGUID &identifier,
                 const ConferenceRosterEntry &entry);

// Sends a message whose body is one byte. True when it went out.
bool sendByte(int descriptor, const TCPGUID &identifier, unsigned char value);

// Takes over what a party says of itself or of another, except how this end reaches that party: the
// descriptor, whether there is one at all, and what is awaited on it are not for the wire to say.
void takeEntry(ConferenceRosterEntry &known, const ConferenceRosterEntry &received);

// As the log writes it.
inline const char *boolText(bool value) {
    return value ? "true" : "false";
}
std::string logText(const ConferenceRosterEntry &entry);

// Counts how deep something is nested.
class Nested {
public:
    explicit Nested(int &depth) : m_depth(depth) { ++m_depth; }
    ~Nested() { --m_depth; }
    Nested(const Nested &) = delete;
    Nested &operator=(const Nested &) = delete;

private:
    int &m_depth;
};

// How a pending call is to end when it hangs up. 4 and 6 are not used; they end like noAnswer.
enum CallOutcome : int {
    OUTCOME_COMPLETING = 0, // the pre-join check refused, and the application is being told
    OUTCOME_NO_ANSWER = 1,
    OUTCOME_REFUSED = 2,
    OUTCOME_TOLD = 3, // the application knows: of an old version, or of the end that is under way
    OUTCOME_AUTHENTICATE = 5,
    OUTCOME_REDIRECTED = 7,
    OUTCOME_SERVER_ERROR = 8
};

} // namespace vintok

#endif
