// Internal. What stands behind the handles of the C interface, and how its functions keep what they
// promise: nothing throws, and every refusal leaves its reason.
#ifndef VINTOK_C_HANDLES_H
#define VINTOK_C_HANDLES_H

#include "vintok-c/Options.h"
#include "vintok-c/vintok.h"

#include "vintok/ConferenceParticipant.h"
#include "vintok/Log.h"
#include "vintok/TCPSelect.h"

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <type_traits>

namespace vintok::c {

// A callback of the application and its pointer.
template <class Callback>
struct Handler {
    Callback call = nullptr;
    void *user = nullptr;
};

} // namespace vintok::c

struct vintok_participant : vintok::ConferenceParticipant {
    using ConferenceParticipant::ConferenceParticipant;

    int callbacks = 0; // under way
    // Of the files that go out, by their numbers.
    std::map<std::uint32_t, std::unique_ptr<vintok::c::Handler<vintok_file_source>>> sources;
    vintok::c::Handler<vintok_entry_callback> callPending, join, leave, change, leadChange,
        leadRequest;
    vintok::c::Handler<vintok_security_callback> security;
    vintok::c::Handler<vintok_call_callback> accepted, busy, rejected, ringing, noAnswer, version;
    vintok::c::Handler<vintok_again_callback> proxy, redirect;
    vintok::c::Handler<vintok_response_callback> serverResponse;
    vintok::c::Handler<vintok_reply_callback> leadReply;
    vintok::c::Handler<vintok_data_callback> said, confidential;
    vintok::c::Handler<vintok_delivery_callback> delivery;
    vintok::c::Handler<vintok_message_callback> message;
    vintok::c::Handler<vintok_reason_callback> turnedAway;
    vintok::c::Handler<vintok_file_callback> file;
    vintok::c::Handler<vintok_file_sent_callback> fileSent;
    vintok::c::Handler<vintok_file_refused_callback> fileRefused;
    vintok::c::Handler<vintok_progress_callback> fileProgress;
    vintok::c::Handler<vintok_clock_callback> clock;
    vintok::c::Handler<vintok_slow_callback> slowMember;
    vintok::c::Handler<vintok_drop_callback> drop;
};

struct vintok_loop {
    vintok::TCPSelect select;
    vintok::c::Handler<vintok_wake_callback> wake;
};

namespace vintok::c {

// Keeps a participant from being destroyed while the application is called.
class Within {
public:
    explicit Within(vintok_participant &participant) : m_count(participant.callbacks) { ++m_count; }
    Within(const Within &) = delete;
    Within &operator=(const Within &) = delete;
    ~Within() { --m_count; }

private:
    int &m_count;
};

// The end of a file, for the participant and then for the application.
void fileSent(ConferenceParticipant *self, std::uint32_t number,
              ConferenceParticipant::FileOutcome outcome, void *userData);

// ---- Entries ----

// An entry of the interface is a party in either of its forms.
inline const vintok_entry *entryOf(const RosterBase &party) {
    return reinterpret_cast<const vintok_entry *>(&party);
}
inline const RosterBase &partyOf(const vintok_entry *entry) {
    return *reinterpret_cast<const RosterBase *>(entry);
}

// ---- Arguments ----

inline bool isInvalid(const std::string &what) {
    return refuse(TCP_ERROR_INVALID_ARGUMENT, what);
}

template <class Options>
bool takeOptions(const Options *given, Options &all) {
    return fillOptions(given, all) || isInvalid("options of another version, or without a size");
}

// ---- Functions ----

// The result of `does`, an int32_t in place of nothing and of a bool. Null handles, exceptions, and
// a bool or a pointer that says no are refusals; `operation` is the reason where there is no better
// one.
template <class Does, class... Handles>
auto attempt(const char *operation, Does does, const Handles *...handles) noexcept {
    using Given = decltype(does());
    constexpr bool isAnswer = std::is_void_v<Given> || std::is_same_v<Given, bool>;
    constexpr bool isRefusal = isAnswer || std::is_pointer_v<Given>; // where it is zero
    std::conditional_t<isAnswer, std::int32_t, Given> result{};
    const Reason reason;
    try {
        if ((!handles || ...))
            isInvalid(std::string(operation) + ": a null pointer");
        else if constexpr (std::is_void_v<Given>)
            does(), result = 1;
        else
            result = does();
        if (isRefusal && !result)
            reason.unless(false, TCP_ERROR_UNSPECIFIED_ERROR, std::string(operation));
    } catch (const std::bad_alloc &) {
        refuse(TCP_ERROR_OUT_OF_MEMORY, "no memory");
    } catch (const std::exception &) {
        refuse(TCP_ERROR_UNSPECIFIED_ERROR, "an exception");
    }
    return result;
}

} // namespace vintok::c

#endif
