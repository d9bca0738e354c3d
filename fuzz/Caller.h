// A party made of raw bytes that says what a fuzzer makes it say, to a host in the same process. It
// lets through as many of its bytes as it likes, and checks what comes from the host.
#ifndef VINTOK_FUZZ_CALLER_H
#define VINTOK_FUZZ_CALLER_H

#include "Fuzz.h"

#include "support/Wire.h"
#include "vintok/ConferenceRosterEntry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vintok::fuzz {

class Caller {
public:
    explicit Caller(const std::string &name, unsigned number)
        : entry(test::WireEntry::party(name, number)) {}
    ~Caller() { ends(); }
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;

    test::WireEntry entry;
    bool reads = true;
    bool isText = false; // what comes is HTTP, or the end of it

    // From an address of its own, 127.<place>; likewise with a connection that it was given.
    void connects(std::uint16_t port, std::uint32_t place);
    void takes(int descriptor);
    bool isConnected() const { return m_descriptor != -1; }
    bool hasEnded() const { return m_ended; }

    // What it has to say, in the order of the calls, of which so many bytes go now.
    void says(const test::Bytes &bytes) { m_out.insert(m_out.end(), bytes.begin(), bytes.end()); }
    void says(unsigned char id, const test::Bytes &body);
    void saysHello() { says(test::id::rosterEntry, entry.encode()); }
    void asksToJoin() { says(test::id::joinRequest, entry.encode()); }
    void letThrough(std::size_t count);
    void letThroughAll() { letThrough(m_out.size()); }

    // Takes in what has come. True when there was something.
    bool pump();
    // What it has been told by the host: echoes, and who is in the meeting.
    const std::vector<test::Bytes> &echoes() const { return m_echoes; }
    const std::vector<ConferenceRosterEntry> &roster() const { return m_roster; }

    void halfCloses();
    void ends(); // with a reset, and forgets what it had to say

    TCPAddress address() const;

private:
    void cutFrames();
    void take(const test::WireFrame &frame);

    int m_descriptor = -1;
    bool m_ended = false;
    test::Bytes m_out;
    test::Bytes m_in;
    std::vector<test::Bytes> m_echoes;
    std::vector<ConferenceRosterEntry> m_roster;
};

// A frame as the input says it: of any kind and form, about anybody, with bytes of it changed.
struct Grammar {
    Input &input;
    const std::vector<const test::WireEntry *> &parties;

    test::Bytes frame(const Caller &sender) const;
    test::Bytes body(const Caller &sender) const;
    // Of a proxy or a multiplexing server, which may send the caller on to the port.
    test::Bytes reply(std::uint16_t port) const;
};

} // namespace vintok::fuzz

#endif
