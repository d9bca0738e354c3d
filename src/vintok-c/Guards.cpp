// The guards of a participant.
#include "vintok-c/Handles.h"

using namespace vintok;
using c::attempt;
using c::takeOptions;
using P = vintok_participant;

std::int32_t vintok_set_call_timeouts(P *participant, std::uint32_t hello, std::uint32_t answer) {
    return attempt(
        __func__, [=] { participant->setCallTimeouts(hello, answer); }, participant);
}

std::int32_t vintok_set_slow_member_limits(P *participant, const vintok_slow_member_limits *given) {
    return attempt(
        __func__,
        [=] {
            vintok_slow_member_limits limits;
            if (!takeOptions(given, limits))
                return false;
            participant->setSlowMemberLimits(
                {limits.bytes, limits.milliseconds, limits.most_bytes});
            return true;
        },
        participant);
}

std::uint64_t vintok_waiting_bytes(const P *participant) {
    return attempt(
        __func__, [=] { return participant->waitingBytes(); }, participant);
}

std::int32_t vintok_set_caller_limits(P *participant, const vintok_caller_limits *given) {
    return attempt(
        __func__,
        [=] {
            vintok_caller_limits limits;
            if (!takeOptions(given, limits))
                return false;
            participant->setCallerLimits({limits.connections, limits.per_address, limits.hello_time,
                                          limits.join_time, limits.frame_bytes, limits.joins});
            return true;
        },
        participant);
}

std::int32_t vintok_set_meeting_limits(P *participant, const vintok_meeting_limits *given) {
    return attempt(
        __func__,
        [=] {
            vintok_meeting_limits limits;
            if (!takeOptions(given, limits))
                return false;
            participant->setMeetingLimits({limits.members, limits.frame_bytes, limits.entry_bytes});
            return true;
        },
        participant);
}

std::int32_t vintok_set_roster_by_differences(P *participant, std::int32_t on) {
    return attempt(
        __func__, [=] { participant->setRosterByDifferences(on != 0); }, participant);
}

std::int32_t vintok_set_members_only(P *participant, std::int32_t on) {
    return attempt(
        __func__, [=] { participant->setMembersOnly(on != 0); }, participant);
}

std::uint64_t vintok_refused_messages(const P *participant) {
    return attempt(
        __func__, [=] { return participant->refusedMessages(); }, participant);
}

std::int32_t vintok_set_largest_clock_step(P *participant, std::int64_t seconds) {
    return attempt(
        __func__, [=] { participant->setLargestClockStep(seconds); }, participant);
}

std::int32_t vintok_set_temporary_files(P *participant, std::int32_t on) {
    return attempt(
        __func__, [=] { participant->setTemporaryFiles(on != 0); }, participant);
}

std::int32_t vintok_set_background_handshakes(P *participant, std::int32_t on) {
    return attempt(
        __func__, [=] { participant->setBackgroundHandshakes(on != 0); }, participant);
}
