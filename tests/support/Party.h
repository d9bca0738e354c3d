// A participant together with an application that keeps the roster as a person would see it,
// remembers what it was told, and can do something from inside a callback.
#ifndef VINTOK_TESTS_SUPPORT_PARTY_H
#define VINTOK_TESTS_SUPPORT_PARTY_H

#include "support/Meeting.h"
#include "support/WirePeer.h"
#include "vintok/ConferenceParticipant.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vintok::test {

// The others in a meeting: name and colour.
using Roster = std::map<std::string, int>;

TCPAddress addressOf(const WirePeer &peer);

class Party {
public:
    // Whom a party listens for, on a port of its own choice. By default for this machine, which
    // asks no name service for the machine's address; where that would leave it without an address,
    // because there is no IPv6, for everybody.
    enum class Reach { thisMachine, everybody };
    Party(Meeting &meeting, const std::string &name, Reach reach = Reach::thisMachine);
    ~Party() { dies(); }
    Party(const Party &) = delete;
    Party &operator=(const Party &) = delete;

    ConferenceParticipant *operator->() const { return m_participant.get(); }
    ConferenceParticipant &participant() const { return *m_participant; }
    const std::string &name() const { return m_name; }
    std::string ip() const;
    unsigned short port() const { return m_participant->address().hostByteOrderPort(); }

    // Calls are admitted at once unless the party screens them, and so with the other two.
    void screensCalls();
    void decidesOnLead();
    void decidesOnRedirects();

    bool hosts(const std::string &meetingName) { return m_participant->hostMeeting(meetingName); }
    bool calls(const Party &other);
    bool calls(const WirePeer &other);
    // Calls who listens for it, and is picked up.
    testing::AssertionResult reaches(WirePeer &other);
    // The called party has said hello and is asked to join.
    testing::AssertionResult asks(WirePeer &other);
    // Calls and waits until both are in the meeting.
    testing::AssertionResult meets(Party &other);
    testing::AssertionResult meets(WirePeer &other);
    bool accepts(const WirePeer &caller) { return m_participant->acceptCall(addressOf(caller)); }
    bool rejects(const WirePeer &caller) { return m_participant->rejectCall(addressOf(caller)); }
    bool says(const std::string &text);
    void leaves();
    // The participant is destroyed: its connections close without a goodbye.
    void dies();

    // Waits until the application is told `event`, such as "join Bob" or "ringing 127.0.0.1".
    testing::AssertionResult isTold(const std::string &event);
    testing::AssertionResult hears(const std::string &text) { return isTold("data " + text); }
    testing::AssertionResult sees(const Roster &roster);
    // How often the application was told it so far.
    int told(const std::string &event) const;
    void forgets() { events.clear(); }

    // Everybody else, as far as this application knows. Empty outside a meeting.
    Roster roster() const;

    // One line for each callback: its kind and whom it names, in order.
    std::vector<std::string> events;
    // What came with each "file" event.
    struct File {
        TCPAddress neighbour;
        std::string path;
    };
    std::vector<File> files;
    // Runs inside each callback, behind the note of it.
    std::function<void(const std::string &event)> inside;

    // For the callbacks.
    void note(const std::string &kind, const std::string &what);
    void know(const RosterBase &entry, bool present);

private:
    void forgetOldMeeting();

    Meeting &m_meeting;
    std::string m_name;
    std::unique_ptr<ConferenceParticipant> m_participant;
    std::map<std::string, Roster::value_type> m_known; // by address
};

// Makes everybody a member of one meeting that `host` hosts, and waits until all see all.
testing::AssertionResult gather(Party &host, const std::vector<Party *> &members);

} // namespace vintok::test

#endif
