#include "Guards.h"

namespace app {

namespace {

constexpr std::uint64_t megabyte = std::uint64_t{1} << 20;
constexpr unsigned int usualShare = 8;         // of what may wait: so much for a while
constexpr std::uint32_t usualTime = 10000;     // milliseconds
constexpr unsigned int placeShare = 4;         // of the callers may come from one place
constexpr std::uint64_t callerFrame = 1 << 16; // before a join, bytes; an entry is shorter
constexpr std::uint32_t longestEntry = 1 << 14;

} // namespace

std::uint64_t usuallyWaiting(const Guards &guards) {
    return guards.mostWaiting * megabyte / usualShare;
}

void apply(const Guards &guards, vintok::ConferenceParticipant &participant) {
    participant.setSlowMemberLimits(
        {usuallyWaiting(guards), usualTime, guards.mostWaiting * megabyte});
    const std::uint32_t callerTime = guards.callerTime * 1000;
    participant.setCallerLimits({guards.mostCallers,
                                 (guards.mostCallers + placeShare - 1) / placeShare, callerTime,
                                 callerTime, callerFrame, guards.joinRate});
    participant.setMeetingLimits({guards.mostMembers, guards.mostFrame * megabyte, longestEntry});
    participant.setRosterByDifferences(true);
    participant.setMembersOnly(guards.membersOnly);
    participant.setTemporaryFiles(guards.temporaryFiles);
    participant.setLargestClockStep(guards.largestClockStep);
}

} // namespace app
