// Entries. In most callbacks they are whole; in those about calls they are a party's own data
// alone.
#include "vintok-c/Handles.h"

#include <iterator>

using namespace vintok;
using c::attempt;
using c::entryOf;
using c::partyOf;

namespace {

using Whole = ConferenceRosterEntry;

const Whole *wholeOf(const vintok_entry *entry) {
    return entry != nullptr ? dynamic_cast<const Whole *>(&partyOf(entry)) : nullptr;
}

// In the order of the bits of VINTOK_STATE_MEETING and so on.
constexpr bool (Whole::*states[])() const = {
    &Whole::isMeeting,
    &Whole::isHost,
    &Whole::isLeader,
    &Whole::isServer,
    &Whole::isJoinPending,
    &Whole::isShadow,
    &Whole::isLeadPending,
    &Whole::isSecure,
    &Whole::isSecureAble,
    &Whole::isSecurePreferred,
    &Whole::isSecureRequired,
    &Whole::isSSLOnly,
    &Whole::isFIPSSecureRequired,
    &Whole::isHidingIPsRequired,
    &Whole::isMUXEncrypt,
    &Whole::isMUXRedirected,
};
static_assert(VINTOK_STATE_MUX_REDIRECTED == 1 << (std::size(states) - 1));

// In the order of VINTOK_FIRST_NAME and so on.
constexpr const std::string &(UserInfo::*texts[])() const = {
    &UserInfo::firstName, &UserInfo::lastName, &UserInfo::title, &UserInfo::email, &UserInfo::phone,
};
static_assert(VINTOK_MEETING_NAME == std::size(texts));

} // namespace

vintok_entry *vintok_entry_copy(const vintok_entry *entry) {
    return attempt(
        __func__,
        [=] {
            const Whole *whole = wholeOf(entry);
            Whole *copy = whole != nullptr ? new Whole(*whole) : new Whole(partyOf(entry));
            return const_cast<vintok_entry *>(entryOf(*copy));
        },
        entry);
}

void vintok_entry_free(vintok_entry *copy) {
    delete wholeOf(copy);
}

std::int32_t vintok_entry_same(const vintok_entry *one, const vintok_entry *other) {
    return one != nullptr && other != nullptr && partyOf(one) == partyOf(other) ? 1 : 0;
}

const char *vintok_entry_text(const vintok_entry *entry, std::int32_t field) {
    const Whole *whole = wholeOf(entry);
    if (whole != nullptr && field == VINTOK_MEETING_NAME)
        return whole->meetingName().c_str();
    if (whole != nullptr && field == VINTOK_MEETING_ID)
        return whole->meetingID().c_str();
    if (entry == nullptr || field < 0 || field >= VINTOK_MEETING_NAME)
        return "";
    return (partyOf(entry).*texts[field])().c_str();
}

std::size_t vintok_entry_address(const vintok_entry *entry, char *buffer, std::size_t size) {
    return attempt(
        __func__,
        [=] {
            std::string text;
            static_cast<void>(partyOf(entry).ipString(text));
            if (buffer != nullptr && size != 0)
                buffer[text.copy(buffer, size - 1)] = '\0';
            return text.size();
        },
        entry);
}

std::uint16_t vintok_entry_port(const vintok_entry *entry) {
    return entry != nullptr ? partyOf(entry).hostByteOrderPort() : std::uint16_t{0};
}

std::uint16_t vintok_entry_color(const vintok_entry *entry) {
    return entry != nullptr ? partyOf(entry).colorIndex() : RosterBase::s_noColor;
}

std::uint32_t vintok_entry_version(const vintok_entry *entry) {
    if (entry == nullptr)
        return 0;
    return std::uint32_t{partyOf(entry).majorVersion()} << 16 | partyOf(entry).minorVersion();
}

std::int32_t vintok_entry_state(const vintok_entry *entry) {
    std::int32_t result = 0;
    if (const Whole *whole = wholeOf(entry))
        for (std::size_t i = 0; i < std::size(states); ++i)
            result |= static_cast<std::int32_t>((whole->*states[i])()) << i;
    return result;
}
