// What a participant does: its life, calls, roster, lead, what is said, files.
#include "vintok-c/Handles.h"

#include "vintok/BufferManager.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPStream.h"
#include "vintok/messageUtil.h"

#include <algorithm>
#include <array>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

using namespace vintok;
using c::attempt;
using c::entryOf;
using c::isInvalid;
using c::partyOf;
using c::takeOptions;
using c::textOf;
using P = vintok_participant;

namespace {

const unsigned char *bytesOf(const void *data) {
    return static_cast<const unsigned char *>(data);
}

// ---- The own entry ----

using SetText = void (ConferenceParticipant::*)(const std::string &);
constexpr SetText textSetters[] = {
    &P::setFirstName, &P::setLastName, &P::setTitle, &P::setEmail, &P::setPhone,
};

using SetState = void (ConferenceParticipant::*)(bool);
constexpr std::pair<std::int32_t, SetState> stateSetters[] = {
    {VINTOK_STATE_SERVER, &P::setServerMode},
    {VINTOK_STATE_SECURE_ABLE, &P::setSecureAble},
    {VINTOK_STATE_SECURE_ONLY, &P::setSSLOnly},
    {VINTOK_STATE_FIPS_REQUIRED, &P::setFIPSSecureRequired},
    {VINTOK_STATE_HIDING_ADDRESS, &P::setHidingIPsRequired},
    {VINTOK_STATE_MUX_ENCRYPT, &P::setMUXEncrypt},
    {VINTOK_STATE_MUX_REDIRECTED, &P::setMUXRedirected},
};

bool setText(P &participant, std::int32_t field, const std::string &text) {
    if (field == VINTOK_MEETING_NAME)
        return participant.setMeetingName(text);
    if (field == VINTOK_MEETING_ID)
        participant.setMeetingID(text);
    else if (field >= 0 && field < VINTOK_MEETING_NAME)
        (participant.*textSetters[field])(text);
    else
        return isInvalid("vintok_set_text: no such field");
    return true;
}

bool setState(P &participant, std::int32_t state, bool on) {
    if (state == VINTOK_STATE_SECURE_PREFERRED)
        return participant.setSecurePreferred(on);
    for (const auto &[settable, set] : stateSetters) {
        if (settable != state)
            continue;
        (participant.*set)(on);
        return true;
    }
    return isInvalid("vintok_set_state: not one that can be set");
}

// ---- Calls ----

// The literals in a text, with blanks in between. False for anything else, and for none.
bool readAddresses(const std::string &text, std::vector<TCPAddress> &addresses) {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        TCPAddress &address = addresses.emplace_back();
        address.setName(word);
        if (!address.isIPv4() && !address.isIPv6())
            return refuse(TCP_ERROR_INVALID_ADDRESS, "vintok_start_call: no IP address: " + word);
    }
    return true;
}

bool startCall(P &participant, const std::string &name, const vintok_call_options &options) {
    std::vector<TCPAddress> addresses;
    if (!readAddresses(textOf(options.addresses), addresses))
        return false;
    if (addresses.empty())
        return participant.startCall(name, options.port, textOf(options.proxy), options.proxy_port,
                                     textOf(options.meeting_id), textOf(options.authentication),
                                     options.retries);
    return participant.startCall(addresses, name, options.port, textOf(options.proxy),
                                 options.proxy_port, textOf(options.meeting_id),
                                 textOf(options.authentication), options.retries);
}

bool placeCall(P &participant, const std::string &name, const vintok_call_options &options) {
    if (options.addresses != nullptr)
        return isInvalid("vintok_call: addresses are for vintok_start_call");
    return participant.placeCall(name, options.port, textOf(options.proxy), options.proxy_port,
                                 textOf(options.meeting_id), textOf(options.authentication),
                                 options.retries);
}

// ---- Life ----

// Its end would take the reason along.
void keepReason(std::unique_ptr<P> participant) {
    const TCPError code = lastError();
    const std::string text = lastErrorString();
    participant.reset();
    const bool isTold = code != TCP_ERROR_NO_ERROR;
    setLastError(isTold ? code : TCP_ERROR_UNSPECIFIED_ERROR,
                 isTold ? text : "vintok_participant_create: cannot listen");
}

P *create(const vintok_participant_options *given) {
    constexpr std::uint32_t known =
        VINTOK_LOCAL_ONLY | VINTOK_EXACT_PORT | VINTOK_ANY_PORT | VINTOK_NOWHERE;
    vintok_participant_options options;
    if (!takeOptions(given, options))
        return nullptr;
    if ((options.flags & ~known) != 0 || options.reserved != 0)
        return isInvalid("vintok_participant_create: an unknown flag"), nullptr;
    const auto has = [&](std::uint32_t flag) { return (options.flags & flag) != 0; };
    auto participant = std::make_unique<P>(ConferenceParticipant::Listening{
        options.port, has(VINTOK_EXACT_PORT), has(VINTOK_LOCAL_ONLY), has(VINTOK_ANY_PORT),
        has(VINTOK_NOWHERE)});
    participant->setFileSentCB(c::fileSent);
    if (participant->address().port() != 0)
        return participant.release();
    keepReason(std::move(participant));
    return nullptr;
}

// ---- Files ----

std::uint64_t readSource(ConferenceParticipant *self, std::uint64_t offset, unsigned char *buffer,
                         std::uint64_t room, void *source) {
    const auto own = *static_cast<c::Handler<vintok_file_source> *>(source);
    const c::Within within(*static_cast<P *>(self));
    return own.call(static_cast<P *>(self), offset, buffer, static_cast<std::size_t>(room),
                    own.user);
}

} // namespace

// ---- Life ----

vintok_participant *vintok_participant_create(const vintok_participant_options *given) {
    return attempt(
        __func__, [=] { return create(given); });
}

std::int32_t vintok_participant_destroy(P *participant) {
    return attempt(
        __func__,
        [=] {
            if (participant != nullptr && participant->callbacks != 0)
                return refuse(TCP_ERROR_UNSPECIFIED_ERROR,
                              "vintok_participant_destroy: inside a callback of the participant");
            delete participant;
            return true;
        });
}

const vintok_entry *vintok_self(const P *participant) {
    return attempt(
        __func__, [=] { return entryOf(participant->ownEntry()); }, participant);
}

std::int32_t vintok_set_text(P *participant, std::int32_t field, const char *text) {
    return attempt(
        __func__, [=] { return setText(*participant, field, textOf(text)); }, participant);
}

std::int32_t vintok_set_color(P *participant, std::uint16_t color) {
    return attempt(
        __func__, [=] { participant->setColorIndex(color); }, participant);
}

std::int32_t vintok_set_state(P *participant, std::int32_t state, std::int32_t on) {
    return attempt(
        __func__, [=] { return setState(*participant, state, on != 0); }, participant);
}

// ---- Calls ----

std::int32_t vintok_host(P *participant, const char *name) {
    return attempt(
        __func__, [=] { return participant->hostMeeting(textOf(name)); }, participant);
}

std::int32_t vintok_call(P *participant, const char *name, const vintok_call_options *given) {
    vintok_call_options options;
    return attempt(
        __func__,
        [&] {
            return takeOptions(given, options) && placeCall(*participant, textOf(name), options);
        },
        participant);
}

std::int32_t vintok_start_call(P *participant, const char *name, const vintok_call_options *given) {
    vintok_call_options options;
    return attempt(
        __func__,
        [&] {
            return takeOptions(given, options) && startCall(*participant, textOf(name), options);
        },
        participant);
}

std::int32_t vintok_accept_call(P *participant, const vintok_entry *caller) {
    return attempt(
        __func__, [=] { return participant->acceptCall(partyOf(caller)); }, participant, caller);
}

std::int32_t vintok_reject_call(P *participant, const vintok_entry *caller) {
    return attempt(
        __func__, [=] { return participant->rejectCall(partyOf(caller)); }, participant, caller);
}

std::int32_t vintok_hangup(P *participant) {
    return attempt(
        __func__, [=] { participant->hangup(); }, participant);
}

// ---- Roster and lead ----

std::int32_t vintok_send_roster(P *participant) {
    return attempt(
        __func__, [=] { return participant->sendRoster(); }, participant);
}

std::int32_t vintok_request_roster(P *participant) {
    return attempt(
        __func__, [=] { return participant->requestRoster(); }, participant);
}

std::uint32_t vintok_visit_roster(const P *participant, vintok_visitor visitor, void *user) {
    return attempt(
        __func__,
        [=] {
            std::uint32_t shown = 0;
            for (const ConferenceRosterEntry &party : participant->roster()) {
                ++shown;
                if (visitor(entryOf(party), user) == 0)
                    break;
            }
            return shown;
        },
        participant);
}

std::int32_t vintok_request_lead(P *participant) {
    return attempt(
        __func__, [=] { return participant->requestStartLeading(); }, participant);
}

std::int32_t vintok_accept_lead(P *participant) {
    return attempt(
        __func__, [=] { return participant->acceptLeadChange(); }, participant);
}

std::int32_t vintok_reject_lead(P *participant) {
    return attempt(
        __func__, [=] { return participant->rejectLeadChange(); }, participant);
}

// ---- What is said ----

std::int32_t vintok_broadcast(P *participant, const void *data, std::size_t length) {
    return attempt(
        __func__, [=] { return participant->sendBroadcastData(bytesOf(data), length); },
        participant);
}

std::uint32_t vintok_send_private(P *participant, const vintok_entry *party, const void *data,
                                  std::size_t length) {
    return attempt(
        __func__,
        [=] { return participant->sendPrivateData(partyOf(party), bytesOf(data), length); },
        participant, party);
}

std::int32_t vintok_send_message(P *participant, const std::uint8_t *identifier, const void *data,
                                 std::size_t length) {
    return attempt(
        __func__,
        [=] {
            std::array<std::uint8_t, sizeof(TCPGUID)> bytes;
            std::copy_n(identifier, bytes.size(), bytes.begin());
            BufferManager cursor(bytes.data(), bytes.size());
            TCPGUID read = {};
            cursor >> read;
            return participant->sendMessage(read, bytesOf(data), length);
        },
        participant, identifier);
}

// The number stands in the second part as its two decimal digits.
std::int32_t vintok_message_identifier(std::int32_t number, std::uint8_t *identifier) {
    return attempt(
        __func__,
        [=] {
            if (number < 48 || number > 99)
                return isInvalid("vintok_message_identifier: not one for applications");
            TCPGUID made = TCP_messageID_48;
            made.Data2 = static_cast<std::uint16_t>(number / 10 * 16 + number % 10);
            BufferManager cursor(identifier, sizeof made);
            cursor << made;
            return true;
        },
        identifier);
}

std::int32_t vintok_send_keep_alive(P *participant) {
    return attempt(
        __func__, [=] { return participant->sendAllKeepAlive(); }, participant);
}

std::int32_t vintok_enable(P *participant, const vintok_entry *party, std::int32_t on) {
    return attempt(
        __func__,
        [=] {
            on != 0 ? participant->enableUser(partyOf(party))
                    : participant->disableUser(partyOf(party));
        },
        participant, party);
}

// ---- Files and the clock ----

std::uint32_t vintok_start_file(P *participant, const char *path, const char *name) {
    return attempt(
        __func__, [=] { return participant->startFile(textOf(path), textOf(name)); }, participant);
}

std::uint32_t vintok_start_file_bytes(P *participant, const void *data, std::size_t length,
                                      const char *name) {
    return attempt(
        __func__, [=] { return participant->startFile(bytesOf(data), length, textOf(name)); },
        participant);
}

std::uint32_t vintok_start_file_from(P *participant, vintok_file_source source, void *user,
                                     std::uint64_t length, const char *name) {
    return attempt(
        __func__,
        [=]() -> std::uint32_t {
            if (source == nullptr)
                return isInvalid("vintok_start_file_from: no source"), 0;
            auto own = std::make_unique<c::Handler<vintok_file_source>>();
            *own = {source, user};
            const std::uint32_t number =
                participant->startFile(readSource, own.get(), length, textOf(name));
            if (number != 0)
                participant->sources[number] = std::move(own);
            return number;
        },
        participant);
}

std::int32_t vintok_cancel_file(P *participant, std::uint32_t number) {
    return attempt(
        __func__, [=] { return participant->cancelFile(number); }, participant);
}

std::int32_t vintok_refuse_file(P *participant, const vintok_entry *origin) {
    return attempt(
        __func__, [=] { return participant->refuseFile(partyOf(origin)); }, participant, origin);
}

std::int32_t vintok_set_file_progress_interval(P *participant, std::uint32_t milliseconds) {
    return attempt(
        __func__, [=] { participant->setFileProgressInterval(milliseconds); }, participant);
}

std::int32_t vintok_set_file_folder(P *participant, const char *folder) {
    return attempt(
        __func__, [=] { participant->setFileFolder(textOf(folder)); }, participant);
}

std::int32_t vintok_send_file(P *participant, const char *path, const char *relativePath) {
    return attempt(
        __func__, [=] { return participant->transferFile(textOf(path), textOf(relativePath)); },
        participant);
}

std::int32_t vintok_request_time(P *participant, const vintok_entry *entry) {
    return attempt(
        __func__,
        [=] {
            const ConferenceRosterEntry *party = participant->party(partyOf(entry));
            if (party == nullptr || party->descriptor() == -1)
                return refuse(TCP_ERROR_INVALID_ADDRESS,
                              "vintok_request_time: no connection to that party");
            return sendEchoRequest(party->descriptor(), P::s_majorVersion, P::s_minorVersion, true);
        },
        participant, entry);
}
