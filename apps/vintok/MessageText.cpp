// Each kind of body has a function that takes what it understands off the front of the bytes and
// tells it in fields. What it leaves is shown as bytes. A body that is not what its identifier
// promises keeps the fields that made sense.
#include "MessageText.h"

#include "FileAnnouncement.h"
#include "Saying.h"
#include "Text.h"

#include <vintok/BufferManager.h>
#include <vintok/ConferenceRosterEntry.h>

#include <iterator>

namespace app {

namespace {

// The bytes that are left of a body, and the address that its party hides.
class Body {
public:
    explicit Body(std::string_view bytes) : m_bytes(bytes) {}

    std::string_view rest() const { return m_bytes; }
    const unsigned char *data() const {
        return reinterpret_cast<const unsigned char *>(m_bytes.data());
    }
    void take(std::size_t count) { m_bytes.remove_prefix(count); }

    template <class Number>
    bool number(Number &value) {
        // A cursor that reads leaves the bytes alone.
        vintok::BufferManager cursor(const_cast<unsigned char *>(data()), m_bytes.size());
        const std::uint64_t count = cursor.read(value);
        take(static_cast<std::size_t>(count));
        return count != 0;
    }

    // A length that counts the zero byte behind the text, the text, the zero byte.
    bool text(std::string &value) {
        const Body before = *this;
        std::uint32_t length = 0;
        if (!number(length) || length == 0 || length > m_bytes.size()) {
            *this = before;
            return false;
        }
        value = m_bytes.substr(0, length - 1);
        take(length);
        return true;
    }

    std::string hides;

private:
    std::string_view m_bytes;
};

// False when the body is malformed.
using Reader = bool (*)(Body &, Fields &);

struct StateWord {
    bool (vintok::ConferenceRosterEntry::*is)() const;
    const char *word;
};

// In the order of the bits.
const StateWord stateWords[] = {
    {&vintok::ConferenceRosterEntry::isMeeting, "meeting"},
    {&vintok::ConferenceRosterEntry::isHost, "host"},
    {&vintok::ConferenceRosterEntry::isLeader, "leader"},
    {&vintok::ConferenceRosterEntry::isServer, "server"},
    {&vintok::ConferenceRosterEntry::isJoinPending, "join-pending"},
    {&vintok::ConferenceRosterEntry::isShadow, "shadow"},
    {&vintok::ConferenceRosterEntry::isLeadPending, "lead-pending"},
    {&vintok::ConferenceRosterEntry::isSecure, "secure"},
    {&vintok::ConferenceRosterEntry::isSecureAble, "secure-able"},
    {&vintok::ConferenceRosterEntry::isSecureRequired, "secure-required"},
    {&vintok::ConferenceRosterEntry::isProxy, "proxy"},
    {&vintok::ConferenceRosterEntry::isProxyPending, "proxy-pending"},
    {&vintok::ConferenceRosterEntry::isProxyConnection, "proxy-connection"},
    {&vintok::ConferenceRosterEntry::isMUXPending, "mux-pending"},
    {&vintok::ConferenceRosterEntry::isMUXEncrypt, "mux-encrypt"},
    {&vintok::ConferenceRosterEntry::isSecurePreferred, "secure-preferred"},
    {&vintok::ConferenceRosterEntry::isMUXRedirected, "mux-redirected"},
    {&vintok::ConferenceRosterEntry::isFIPSSecureRequired, "fips-required"},
    {&vintok::ConferenceRosterEntry::isHidingIPsRequired, "hiding-ips"},
    {&vintok::ConferenceRosterEntry::isSSLOnly, "ssl-only"},
};

void tellEntry(const vintok::ConferenceRosterEntry &entry, const std::string &address,
               Fields &fields) {
    std::string name = entry.firstName();
    name += (name.empty() || entry.lastName().empty() ? "" : " ") + entry.lastName();
    std::string state;
    for (const StateWord &one : stateWords)
        if ((entry.*one.is)())
            state += (state.empty() ? "" : " ") + std::string(one.word);
    fields.text("name", name)
        .text("title", entry.title())
        .text("email", entry.email())
        .text("phone", entry.phone())
        .address("address", address)
        .number("port", entry.hostByteOrderPort())
        .text("version", versionText(entry.majorVersion(), entry.minorVersion()));
    if (entry.colorIndex() == vintok::RosterBase::s_noColor)
        fields.nothing("colour");
    else
        fields.number("colour", entry.colorIndex());
    fields.text("state", state)
        .text("meeting", entry.meetingName())
        .text("meeting-id", entry.meetingID());
}

bool readEntry(Body &body, Fields &fields) {
    vintok::ConferenceRosterEntry entry;
    const std::uint64_t count = entry.read(body.data(), body.rest().size());
    if (count == 0)
        return false;
    std::string address;
    entry.ipString(address);
    tellEntry(entry, address, fields);
    if (entry.isHidingIPsRequired())
        body.hides = address;
    body.take(static_cast<std::size_t>(count));
    return true;
}

bool readAnswer(Body &body, Fields &fields) {
    unsigned char answer = 0;
    if (!body.number(answer))
        return false;
    fields.flag("granted", answer != 0);
    return true;
}

// One byte that nobody reads.
bool readNothing(Body &body, Fields &) {
    if (body.rest() == std::string_view("\0", 1))
        body.take(1);
    return true;
}

// Whether every character can be shown as it is, line ends and tabs included.
bool isPlainText(std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        const char32_t character = nextCharacter(text, position);
        if (character == malformedCharacter ||
            (isHostileToTerminals(character) && character != '\n' && character != '\r' &&
             character != '\t'))
            return false;
    }
    return !text.empty();
}

// A text, with or without a zero byte at the end, or bytes.
bool readBytes(Body &body, Fields &fields) {
    std::string_view text = body.rest();
    if (!text.empty() && text.back() == '\0')
        text.remove_suffix(1);
    if (isPlainText(text)) {
        fields.text("text", std::string(text));
        body.take(body.rest().size());
    }
    return true;
}

// What the program itself says around a file.
bool readAboutFile(std::string_view body, Fields &fields) {
    FileAnnouncement file;
    FileTurn turn;
    FileClosing closing;
    const auto tellPlace = [&fields](const Place &place) -> Fields & {
        return fields.address("address", place.address).number("port", place.port);
    };
    if (decodeAnnouncement(body, file)) {
        tellPlace(file.place)
            .text("file", file.name)
            .number("size", static_cast<std::int64_t>(file.sum.size))
            .text("sha256", file.sum.sha256);
    } else if (decodeTurn(body, turn)) {
        tellPlace(turn.place)
            .address("turn-address", turn.whose.address)
            .number("turn-port", turn.whose.port)
            .flag("turn", turn.yes);
    } else if (decodeClosing(body, closing)) {
        tellPlace(closing.place).flag("sent", closing.sent);
    } else {
        return false;
    }
    return true;
}

bool readBroadcast(Body &body, Fields &fields) {
    Saying saying;
    if (!decodeSaying(body.rest(), saying)) {
        if (!readAboutFile(body.rest(), fields))
            return readBytes(body, fields);
        body.take(body.rest().size());
        return true;
    }
    fields.text("name", saying.name)
        .address("address", saying.place.address)
        .number("port", saying.place.port)
        .text("text", saying.text);
    body.take(body.rest().size());
    return true;
}

bool readFileBegin(Body &body, Fields &fields) {
    std::string path;
    std::string relative;
    if (!body.text(path))
        return false;
    fields.text("path", path);
    if (!body.text(relative))
        return false;
    fields.text("relative", relative);
    return true;
}

bool readFileEnd(Body &body, Fields &fields) {
    std::uint32_t size = 0;
    if (!body.number(size))
        return false;
    fields.number("size", size);
    return true;
}

bool readFileAck(Body &body, Fields &fields) {
    unsigned char address[4] = {};
    std::uint32_t success = 0;
    for (unsigned char &part : address)
        if (!body.number(part))
            return false;
    if (!body.number(success))
        return false;
    const std::string name(body.rest().substr(0, body.rest().find('\0')));
    fields
        .address("address",
                 versionText(address[0], address[1]) + '.' + versionText(address[2], address[3]))
        .flag("success", success != 0)
        .text("name", name);
    body.take(body.rest().size());
    return true;
}

template <class Time>
bool readTime(Body &body, Fields &fields, const char *key) {
    Time time = 0;
    if (!body.number(time))
        return false;
    fields.time(key, static_cast<std::int64_t>(time));
    return true;
}

template <class Time>
bool readEchoRequest(Body &body, Fields &fields) {
    return readTime<Time>(body, fields, "sent");
}

template <class Time>
bool readEchoReply(Body &body, Fields &fields) {
    return readTime<Time>(body, fields, "sent") && readTime<Time>(body, fields, "received");
}

bool readControlText(Body &body, Fields &fields) {
    if (body.rest().empty() || body.rest().back() != '\0')
        return false;
    std::string_view text = body.rest().substr(0, body.rest().find('\0'));
    body.take(text.size() + 1);
    while (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    fields.text("text", std::string(text));
    return true;
}

// What the messages to one party have in common.
bool readLetter(Body &body, Fields &fields) {
    std::uint32_t number = 0;
    vintok::TCPAddress party;
    if (!body.number(number))
        return false;
    const std::uint64_t count = party.read(body.data(), body.rest().size());
    if (count == 0)
        return false;
    body.take(static_cast<std::size_t>(count));
    std::string address;
    party.ipString(address);
    fields.number("number", number)
        .address("to", address)
        .number("port", party.hostByteOrderPort());
    return true;
}

bool readPrivateMessage(Body &body, Fields &fields) {
    return readLetter(body, fields) && readBytes(body, fields);
}

bool readPrivateAnswer(Body &body, Fields &fields) {
    unsigned char taken = 0;
    if (!readLetter(body, fields) || !body.number(taken))
        return false;
    fields.flag("taken", taken != 0);
    return true;
}

bool readTurnedAway(Body &body, Fields &fields) {
    unsigned char reason = 0;
    if (!body.number(reason))
        return false;
    fields.number("reason", reason);
    return true;
}

bool readElsewhere(Body &body, Fields &fields) {
    std::uint16_t port = 0;
    if (!body.number(port) || body.rest().empty())
        return false;
    fields.text("to", std::string(body.rest())).number("port", port);
    body.take(body.rest().size());
    return true;
}

// By MessageBody.
const Reader readers[] = {
    readControlText,
    readBroadcast,
    readEntry,
    readAnswer,
    readNothing,
    readFileBegin,
    readBytes,
    readFileEnd,
    readFileAck,
    readEchoRequest<std::uint32_t>,
    readEchoReply<std::uint32_t>,
    readEchoRequest<std::uint64_t>,
    readEchoReply<std::uint64_t>,
    readPrivateMessage,
    readPrivateAnswer,
    readPrivateMessage,
    readTurnedAway,
    readElsewhere,
    readBytes,
};
static_assert(std::size(readers) == static_cast<std::size_t>(vintok::MessageBody::reserved) + 1);

} // namespace

std::string versionText(unsigned int major, unsigned int minor) {
    return std::to_string(major) + '.' + std::to_string(minor);
}

std::string hexadecimal(std::string_view bytes, std::string_view between) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text.append(text.empty() ? "" : between);
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::string identifierName(const vintok::TCPGUID &identifier) {
    if (const vintok::MessageKind *kind = vintok::findMessageKind(identifier))
        return std::string(kind->name);
    // The identifiers 46 to 99 carry their number in two decimal digits.
    vintok::TCPGUID family = vintok::TCP_messageID_99;
    family.Data2 = identifier.Data2;
    const unsigned int tens = identifier.Data2 >> 4;
    const unsigned int ones = identifier.Data2 & 0xF;
    const unsigned int number = tens * 10 + ones;
    if (family == identifier && tens <= 9 && ones <= 9 && number >= 46)
        return "TCP_messageID_" + std::to_string(number);
    unsigned char bytes[sizeof(identifier)];
    vintok::BufferManager cursor(bytes, sizeof(bytes));
    identifier.write(cursor);
    return hexadecimal(std::string_view(reinterpret_cast<const char *>(bytes), sizeof(bytes)));
}

BodyText readBody(const vintok::TCPMessageBase &message) {
    BodyText text;
    Body body(std::string_view(reinterpret_cast<const char *>(message.messageBuffer()),
                               static_cast<std::size_t>(message.messageBufferLength())));
    const vintok::MessageKind *kind = vintok::findMessageKind(message.messageID());
    const Reader read = kind ? readers[static_cast<std::size_t>(kind->body)] : readBytes;
    text.malformed = !read(body, text.fields);
    text.rest = body.rest();
    text.hides = body.hides;
    return text;
}

} // namespace app
