// Internal. What goes on inside a participant, besides what it knows of the meeting.
#ifndef VINTOK_CONFERENCEPARTICIPANTWORKINGS_H
#define VINTOK_CONFERENCEPARTICIPANTWORKINGS_H

#include "vintok/AcceptGuard.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/RelayRun.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace vintok {

// When something was said to everybody, and whether its sender's address is nobody's business.
struct ConferenceParticipant::Said {
    std::int64_t time = 0;
    bool hidden = false;
};

// An entry that leaves its list is retired, and destroyed when the outermost operation ends.
// Until then a pointer or reference to it stays good, across callbacks too, and no new entry
// takes its place in memory: after a callback the one question is whether it is still listed.
struct ConferenceParticipant::Workings {
    std::vector<std::unique_ptr<ConferenceRosterEntry>> retiredEntries;
    std::vector<std::unique_ptr<TempRosterEntry>> retiredCalls;
    int operations = 0;       // how deep operations and dispatch are nested
    int hangups = 0;          // how deep `hangup` is nested
    int sweeps = 0;           // how deep `_bringOutYerDead` is nested
    bool hostsByCall = false; // the meeting was begun by a call, not by `hostMeeting`
    AcceptGuard acceptGuard;
    const ConferenceRosterEntry *fileNeighbour = nullptr; // whose connection brings the file
    bool sendsFile = false;                               // inside `transferFile`
    std::unique_ptr<char[]> fileBuffer;                   // of `_fileTransferStream`
    std::uint64_t listChanges = 0;                        // of `_attendees`
    std::unique_ptr<RelayRun> relay;                      // see `_relay`
    Said relayed;                                         // the run's first
};

// Stands in every operation that can fire a callback or drop a party.
class ConferenceParticipant::Operation {
public:
    explicit Operation(ConferenceParticipant &participant);
    ~Operation();
    Operation(const Operation &) = delete;
    Operation &operator=(const Operation &) = delete;

private:
    Workings &m_workings;
};

// What became of the secure transport in a join.
struct ConferenceParticipant::SecureStep {
    bool wanted = false;      // by either side
    bool multiplexed = false; // the multiplexer encrypts: nothing to do
    bool failed = false;
};

// What becomes of a party that asks to join.
enum class ConferenceParticipant::Admission { granted, decidesAnew, refused };

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

template <class Visit>
void ConferenceParticipant::_forEachAttendee(Visit visit) {
    const std::vector<ConferenceRosterEntry *> listed = _attendees;
    const std::uint64_t changes = _workings->listChanges;
    for (ConferenceRosterEntry *entry : listed)
        if (entry != nullptr && (_workings->listChanges == changes || _isListed(entry)))
            visit(entry);
}

} // namespace vintok

#endif
