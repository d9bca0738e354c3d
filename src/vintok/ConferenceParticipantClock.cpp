#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ClockCorrection.h"
#include "vintok/TCPStream.h"
#include "vintok/messageUtil.h"

#include <array>
#include <cstring>

namespace vintok {

namespace {

// Deliberately not that of every other message: replies of the clock have always said 4.4.
constexpr unsigned short replyMinorVersion = 4;

} // namespace

void ConferenceParticipant::Clock::ask(ConferenceRosterEntry *peer) {
    if (sendEchoRequest(peer->descriptor(), s_majorVersion, s_minorVersion, true))
        ++peer->m_echoesAwaited;
}

void ConferenceParticipant::_handleEchoRequest(ConferenceRosterEntry *peer, unsigned char *body,
                                               std::uint64_t length) {
    if (!_isListed(peer) || body == nullptr || length == 0)
        return;
    std::uint64_t sendTime = 0;
    if (!decodeEchoRequest(body, length, sendTime, true))
        return;
    if (!sendEchoReply(peer->descriptor(), sendTime, s_majorVersion, replyMinorVersion, true))
        return;
    Clock::tellSynchTime(*this, 0, 0); // this clock has not moved, but an exchange took place
}

void ConferenceParticipant::_handleEchoReply(ConferenceRosterEntry *peer, unsigned char *body,
                                             std::uint64_t length) {
    if (!_isListed(peer) || body == nullptr || length == 0)
        return;
    if (takeEchoReply(body, length, true, _largestClockStep))
        Clock::tellSynchTime(*this, getAddTime(), getSubtractTime());
}

void ConferenceParticipant::Clock::tellSynchTime(ConferenceParticipant &owner, std::int64_t added,
                                                 std::int64_t subtracted) {
    if (owner._synchTimeCB == nullptr)
        return;
    const std::array<std::uint64_t, 2> times = {static_cast<std::uint64_t>(added),
                                                static_cast<std::uint64_t>(subtracted)};
    std::array<unsigned char, sizeof times> block = {};
    std::memcpy(block.data(), times.data(), block.size());
    owner._synchTimeCB(&owner, block.data(), block.size());
}

} // namespace vintok
