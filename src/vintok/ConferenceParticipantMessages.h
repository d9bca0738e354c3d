// Internal. How a participant makes its messages, and takes over what a received entry says.
#ifndef VINTOK_CONFERENCEPARTICIPANTMESSAGES_H
#define VINTOK_CONFERENCEPARTICIPANTMESSAGES_H

#include <cstddef>
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

// What a whole frame says, without taking it apart: its identifier, and where its body begins.
TCPGUID identifierOf(const unsigned char *frame);
std::size_t headerSizeOf(const unsigned char *frame);

// Takes over what a party says of itself or of another, except how this end reaches that party: the
// descriptor, whether there is one at all, and what is awaited on it are not for the wire to say.
void takeEntry(ConferenceRosterEntry &known, const ConferenceRosterEntry &received);

// As the log writes it.
inline const char *boolText(bool value) {
    return value ? "true" : "false";
}
std::string logText(const ConferenceRosterEntry &entry);

} // namespace vintok

#endif
