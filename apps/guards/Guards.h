// How far a program trusts those whom it meets: what may wait for a member that is slow, and what
// strangers may cost. docs/guards.md tells what one sees when a guard acts.
#ifndef VINTOK_APP_GUARDS_H
#define VINTOK_APP_GUARDS_H

#include <vintok/ConferenceParticipant.h>

#include <cstdint>

namespace app {

struct Guards {
    unsigned int mostWaiting = 64; // megabytes for a member; an eighth of it may wait for a while
    unsigned int mostCallers = 64; // connections that have not joined; a quarter from one place
    unsigned int callerTime = 10;  // seconds for the hello, and again for the request to join
    unsigned int joinRate = 150;   // requests to join in a second; later ones wait
    unsigned int mostMembers = 900;
    unsigned int mostFrame = 64; // megabytes in one message of a member
    bool membersOnly = true;
    bool temporaryFiles = true;
    unsigned int largestClockStep = 604800; // seconds: a week
};

// For all numbers 0 is no limit.
void apply(const Guards &guards, vintok::ConferenceParticipant &participant);

// What a member may have waiting for a while.
std::uint64_t usuallyWaiting(const Guards &guards);

} // namespace app

#endif
