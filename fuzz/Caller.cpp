#include "Caller.h"

#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "vintok/ByteOrder.h"

#include <array>
#include <cstring>

namespace vintok::fuzz {

using test::Bytes;
using test::WireEntry;
using test::WireFrame;
using test::WireWriter;

namespace {

platform::Endpoint loopback(std::uint32_t place, std::uint16_t port) {
    platform::Endpoint endpoint;
    const std::array<unsigned char, 4> bytes = {127, static_cast<unsigned char>(place >> 16),
                                                static_cast<unsigned char>(place >> 8),
                                                static_cast<unsigned char>(place)};
    std::memcpy(&endpoint.ipv4, bytes.data(), bytes.size());
    endpoint.port = networkOrder(port);
    return endpoint;
}

} // namespace

void Caller::connects(std::uint16_t port, std::uint32_t place) {
    ends();
    m_descriptor = platform::openSocket(platform::FAMILY_IPV4);
    if (m_descriptor != -1 && (!platform::bindSocket(m_descriptor, loopback(place, 0)) ||
                               !platform::connectSocket(m_descriptor, loopback(1, port))))
        ends();
    if (m_descriptor != -1)
        platform::setNoDelayOption(m_descriptor);
}

void Caller::takes(int descriptor) {
    ends();
    m_descriptor = descriptor;
}

void Caller::says(unsigned char id, const Bytes &body) {
    WireFrame frame;
    frame.id = id;
    frame.origin = entry.address;
    frame.body = body;
    says(frame.encode());
}

void Caller::letThrough(std::size_t count) {
    count = std::min(count, m_out.size());
    const std::int64_t sent =
        m_descriptor == -1 || count == 0 ? 0 : platform::sendNow(m_descriptor, m_out.data(), count);
    m_out.erase(m_out.begin(), m_out.begin() + std::max<std::int64_t>(sent, 0));
}

bool Caller::pump() {
    std::array<unsigned char, 16384> bytes;
    bool any = false;
    while (m_descriptor != -1 && !m_ended) {
        const std::int64_t count = platform::receiveNow(m_descriptor, bytes.data(), bytes.size());
        if (count < 0 && platform::socketError() == 10035)
            break;
        any = true;
        m_ended = count <= 0;
        if (count > 0)
            m_in.insert(m_in.end(), bytes.begin(), bytes.begin() + count);
    }
    if (!isText)
        cutFrames();
    return any;
}

void Caller::cutFrames() {
    while (const auto frame = WireFrame::take(m_in))
        take(*frame);
}

// What a host sends are whole frames of kinds that it knows, and the entries in them are entries.
void Caller::take(const WireFrame &frame) {
    require(frame.id != 0, "the host sends what the protocol has");
    if (frame.id == test::id::echoReply32)
        m_echoes.push_back(frame.body);
    const bool isTold = frame.id == test::id::rosterReply;
    if (!isTold && frame.id != test::id::rosterEntry && frame.id != test::id::leaveNotify)
        return;
    ConferenceRosterEntry party;
    require(party.read(frame.body.data(), frame.body.size()) == frame.body.size(),
            "the host sends whole entries");
    const TCPAddress &address = party;
    if (isTold || frame.id == test::id::leaveNotify)
        std::erase_if(m_roster, [&](const TCPAddress &known) { return known == address; });
    if (isTold)
        m_roster.push_back(party);
}

void Caller::halfCloses() {
    if (m_descriptor != -1)
        platform::shutdownSending(m_descriptor);
}

void Caller::ends() {
    if (m_descriptor != -1) {
        platform::resetOnClose(m_descriptor);
        platform::closeSocket(m_descriptor);
    }
    m_descriptor = -1;
    m_ended = isText = false;
    m_out.clear();
    m_in.clear();
    m_echoes.clear();
    m_roster.clear();
}

TCPAddress Caller::address() const {
    Bytes bytes;
    WireWriter writer(bytes);
    entry.address.write(writer);
    TCPAddress address;
    address.read(bytes.data(), bytes.size());
    return address;
}

// ---- What is said ----

Bytes Grammar::body(const Caller &sender) const {
    Bytes bytes;
    WireWriter writer(bytes);
    WireEntry entry = sender.entry;
    switch (input.below(10)) {
    case 0:
        return entry.encode();
    case 1:
        return parties[input.below(static_cast<unsigned>(parties.size()))]->encode();
    case 2:
        entry.state = input.word() << 8 | input.byte();
        return entry.encode();
    case 3:
        entry = *parties[input.below(static_cast<unsigned>(parties.size()))];
        entry.state = input.word();
        entry.color = static_cast<std::uint16_t>(input.word());
        entry.meetingName = input.text();
        return entry.encode();
    case 4:
        return {input.byte()};
    case 5:
        writer.number(input.word(), 4);
        return bytes;
    case 6:
        writer.text(input.text());
        writer.text(input.text());
        return bytes;
    case 7:
        writer.text(input.text());
        writer.number(input.byte(), 2);
        writer.raw(sender.entry.address.ip.data(), 4);
        return bytes;
    case 8:
        return Bytes(std::size_t{input.byte()} * 64, 'x');
    default: {
        const std::string text = input.text();
        return Bytes(text.begin(), text.end());
    }
    }
}

Bytes Grammar::frame(const Caller &sender) const {
    constexpr std::array<unsigned char, 20> ids = {
        test::id::broadcast,   test::id::joinRequest,   test::id::joinReply,
        test::id::leadRequest, test::id::leadChange,    test::id::rosterRequest,
        test::id::rosterReply, test::id::rosterEntry,   test::id::hangup,
        test::id::stopLead,    test::id::keepAlive,     test::id::fileBegin,
        test::id::fileData,    test::id::fileEnd,       test::id::leaveNotify,
        test::id::leadReply,   test::id::echoRequest32, test::id::echoReply32,
        test::id::colorIndex,  test::id::fileAck};
    const unsigned form = input.byte();
    WireFrame frame;
    frame.id = ids[input.below(ids.size())];
    frame.format = (form & 3) == 3 ? input.byte() : (form & 3) == 2 ? 1 : 2;
    frame.major = (form & 12) == 12 ? input.byte() : 4;
    frame.origin = (form & 16) != 0
                       ? parties[input.below(static_cast<unsigned>(parties.size()))]->address
                       : sender.entry.address;
    frame.body = body(sender);
    Bytes bytes = frame.encode();
    for (unsigned changes = (form & 32) != 0 ? 1 + input.below(4) : 0; changes > 0; --changes) {
        const std::size_t place = input.word() % bytes.size();
        bytes[place] = input.byte();
    }
    if ((form & 64) != 0)
        bytes.resize(bytes.size() - std::min<std::size_t>(bytes.size(), input.byte()));
    return bytes;
}

Bytes Grammar::reply(std::uint16_t port) const {
    constexpr std::array<const char *, 8> lines = {"HTTP/1.0 200 Connection established\r\n",
                                                   "HTTP/1.1 302 Found\r\n",
                                                   "HTTP/1.0 407 Proxy Authentication Required\r\n",
                                                   "HTTP/1.0 401 Unauthorized\r\n",
                                                   "HTTP/1.0 503 Service Unavailable\r\n",
                                                   "Proxy-Authenticate: Basic realm=\"x\"\r\n",
                                                   "pLorMUX_Encrypt: true\r\n",
                                                   "\r\n"};
    std::string text;
    for (unsigned count = input.below(8); count > 0; --count) {
        const unsigned which = input.below(12);
        text += which < lines.size() ? lines[which]
                : which == lines.size()
                    ? "Location: http://127.0.0.1:" + std::to_string(port) + "\r\n"
                    : input.text();
    }
    return Bytes(text.begin(), text.end());
}

} // namespace vintok::fuzz
