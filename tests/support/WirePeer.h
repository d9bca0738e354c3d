// A party made of raw bytes: it speaks frames over a plain socket, builds each by hand, can be old,
// rude, slow, half-closed or dead, and shows what really came over the wire.
#ifndef VINTOK_TESTS_SUPPORT_WIREPEER_H
#define VINTOK_TESTS_SUPPORT_WIREPEER_H

#include "support/Meeting.h"
#include "support/Wire.h"

#include <deque>
#include <string>
#include <vector>

namespace vintok::test {

class WirePeer {
public:
    WirePeer(Meeting &meeting, const std::string &name);
    ~WirePeer();
    WirePeer(const WirePeer &) = delete;
    WirePeer &operator=(const WirePeer &) = delete;

    // Who this peer says it is, in its hello and its join request.
    WireEntry entry;

    // Being called: listens on 127.0.0.1, and the address it announces becomes that one. Who
    // listens already has nothing to do.
    testing::AssertionResult listens();
    unsigned short port() const { return entry.address.port; }
    // Takes the connection of whoever called.
    testing::AssertionResult picksUp();

    // Calling somebody who listens on this machine.
    testing::AssertionResult connects(unsigned short port);
    // Calls, says hello and asks to join.
    testing::AssertionResult knocks(unsigned short port);
    // The calling side's whole road: awaits the hello, says its own, asks to join, is accepted.
    testing::AssertionResult joins(unsigned short port);

    // Each returns whether the bytes could be sent.
    bool sends(const Bytes &bytes);
    bool sends(unsigned char id, const Bytes &body = {0});
    bool saysHello() { return sends(id::rosterEntry, entry.encode()); }
    bool asksToJoin() { return sends(id::joinRequest, entry.encode()); }

    // Waits for a frame of this kind, and drops those that came before it.
    testing::AssertionResult receives(unsigned char id, WireFrame *frame = nullptr);
    // The frame of this kind that comes next; an empty one, and a failure, where none does.
    WireFrame next(unsigned char id);
    // Asks for an echo and waits for it: whatever was sent before has been handled then. `before`
    // gets what came ahead of the echo and was not yet received.
    testing::AssertionResult fences(std::vector<WireFrame> *before = nullptr);
    // What `fences` finds ahead of the echo, which must come.
    std::vector<WireFrame> gets();
    // Waits until the other side has ended the connection.
    testing::AssertionResult seesTheEnd();

    bool connected() const { return m_descriptor != -1; }
    bool ended() const { return m_ended; }
    // Bytes that have come and are no whole frame: HTTP text, or a frame cut short.
    const Bytes &rest() const { return m_bytes; }
    // Without this the bytes that come are cut into frames as they arrive.
    void readsText(bool on);
    // Waits for exactly this text, ahead of whatever else comes.
    testing::AssertionResult receivesText(const std::string &text);
    bool sendsText(const std::string &text) { return sends(Bytes(text.begin(), text.end())); }

    void closes();     // politely at the level of the stream, without a word at ours
    void resets();     // as a crashed machine would
    void halfCloses(); // goes on reading
    void hangsUp() { sends(id::hangup); } // as a party should
    // Gives the connection away as it stands: the caller reads and closes it from now on.
    int handsOver();

    // Reads what has come. True when there was something new. The meeting calls it in each turn.
    bool pump();

private:
    void cutFrames();

    Meeting &m_meeting;
    int m_listener = -1;
    int m_descriptor = -1;
    bool m_ended = false, m_text = false;
    std::uint32_t m_token = 0x5EED0000;
    Bytes m_bytes;
    std::deque<WireFrame> m_frames;
};

// The identifiers of frames, in their order.
std::vector<int> kinds(const std::vector<WireFrame> &frames);

// The frames of one kind, their bodies read as parties; and the first names in those.
std::vector<WireEntry> entries(const std::vector<WireFrame> &frames, unsigned char id);
std::vector<std::string> names(const std::vector<WireFrame> &frames, unsigned char id);
// The party that a body is; nobody where it is none.
WireEntry entryIn(const WireFrame &frame);

} // namespace vintok::test

#endif
