// Callbacks. Behind each event of a participant stands a function that translates its arguments for
// the application's, which is found by the member of the participant that keeps it.
#include "vintok-c/Handles.h"

#include "vintok/BufferManager.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

#include <array>
#include <cstring>

using namespace vintok;
using c::attempt;
using c::entryOf;
using P = vintok_participant;

namespace {

std::int32_t flag(bool value) {
    return value ? 1 : 0;
}

template <auto handler, class... Arguments>
auto tell(ConferenceParticipant *self, Arguments... arguments) {
    auto *const participant = static_cast<P *>(self);
    const auto called = participant->*handler;
    const c::Within within(*participant);
    return called.call(participant, arguments..., called.user);
}

// Keeps the callback, and has `event` called for it; nothing is where there is none.
template <auto handler, auto set, class Event, class Callback>
std::int32_t on(const char *operation, P *participant, Event event, Callback callback, void *user) {
    return attempt(
        operation,
        [=] {
            (participant->*set)(callback != nullptr ? event : nullptr);
            participant->*handler = {callback, user};
        },
        participant);
}

// Whoever has the address, or at least that.
template <class Tell>
void asEntry(const ConferenceParticipant *self, const TCPAddress &address, Tell tellsOf) {
    if (const ConferenceRosterEntry *party = self->party(address))
        tellsOf(entryOf(*party));
    else
        tellsOf(entryOf(RosterBase(address)));
}

template <auto handler>
void onParty(ConferenceParticipant *self, const ConferenceRosterEntry &party) {
    tell<handler>(self, entryOf(party));
}

template <auto handler>
void onCall(ConferenceParticipant *self, const std::string &name, const RosterBase &party) {
    tell<handler>(self, name.c_str(), entryOf(party));
}

template <auto handler>
void onAgain(ConferenceParticipant *self, const std::string &name, unsigned short port,
             const std::string &proxy, unsigned short proxyPort, const std::string &authentication,
             unsigned int retries, const std::string &meetingID) {
    const vintok_call_options options = {
        sizeof options,         retries, port, proxyPort, 0, proxy.c_str(), meetingID.c_str(),
        authentication.c_str(), nullptr};
    tell<handler>(self, name.c_str(), &options);
}

void onServerResponse(ConferenceParticipant *self, unsigned int status, const std::string &text) {
    tell<&P::serverResponse>(self, status, text.c_str());
}

void onSecurity(ConferenceParticipant *self, const ConfSecurityOptions &changed) {
    tell<&P::security>(self, (changed.hideIP ? VINTOK_STATE_HIDING_ADDRESS : 0) |
                                 (changed.FIPS ? VINTOK_STATE_FIPS_REQUIRED : 0) |
                                 (changed.SSLOnly ? VINTOK_STATE_SECURE_ONLY : 0));
}

void onLeadReply(ConferenceParticipant *self, unsigned char *answer, std::uint64_t) {
    tell<&P::leadReply>(self, flag(*answer != 0));
}

void onClock(ConferenceParticipant *self, unsigned char *block, std::uint64_t) {
    std::array<std::int64_t, 2> moved = {};
    std::memcpy(moved.data(), block, sizeof moved);
    tell<&P::clock>(self, moved[0], moved[1]);
}

void onSaid(ConferenceParticipant *self, const ConferenceRosterEntry *speaker,
            const unsigned char *data, std::uint64_t length, void *) {
    tell<&P::said>(self, speaker != nullptr ? entryOf(*speaker) : nullptr, data,
                   static_cast<std::size_t>(length));
}

void onPrivate(ConferenceParticipant *self, const ConferenceRosterEntry &speaker,
               const unsigned char *data, std::uint64_t length, void *) {
    tell<&P::confidential>(self, entryOf(speaker), data, static_cast<std::size_t>(length));
}

void onDelivery(ConferenceParticipant *self, std::uint32_t number, const TCPAddress &address,
                bool taken, void *) {
    asEntry(
        self, address,
        [=](const vintok_entry *party) { tell<&P::delivery>(self, number, party, flag(taken)); });
}

bool onMessage(ConferenceParticipant *self, const ConferenceRosterEntry &neighbour,
               TCPMessage &message, void *) {
    std::array<std::uint8_t, sizeof(TCPGUID)> identifier = {};
    BufferManager cursor(identifier.data(), identifier.size());
    cursor << message.messageID();
    return tell<&P::message>(self, entryOf(neighbour), identifier.data(), message.messageBuffer(),
                             static_cast<std::size_t>(message.messageBufferLength())) != 0;
}

void onFile(ConferenceParticipant *self, const TCPAddress &address, bool whole,
            const std::string &path) {
    asEntry(
        self, address,
        [&](const vintok_entry *neighbour) {
            tell<&P::file>(self, neighbour, flag(whole), path.c_str());
        });
}

void onFileProgress(ConferenceParticipant *self, const TCPAddress &address, std::uint64_t done,
                    std::uint64_t total, const std::string &path) {
    asEntry(
        self, address,
        [&](const vintok_entry *origin) {
            tell<&P::fileProgress>(self, origin, done, total, path.c_str());
        });
}

void onTurnedAway(ConferenceParticipant *self, const ConferenceRosterEntry &party, const char *why,
                  void *) {
    tell<&P::turnedAway>(self, entryOf(party), why);
}

void onFileRefused(ConferenceParticipant *self, std::uint32_t number,
                   const ConferenceRosterEntry &party, void *) {
    tell<&P::fileRefused>(self, number, entryOf(party));
}

void onSlowMember(ConferenceParticipant *self, const ConferenceRosterEntry &member,
                  std::uint64_t waiting, ConferenceParticipant::SlowMember why) {
    tell<&P::slowMember>(self, entryOf(member), waiting, std::int32_t{why});
}

bool onDrop(ConferenceParticipant *self, const ConferenceRosterEntry &member,
            const unsigned char *data, std::uint64_t length) {
    return tell<&P::drop>(self, entryOf(member), data, static_cast<std::size_t>(length)) != 0;
}

} // namespace

std::int32_t vintok_on_call_pending(P *participant, vintok_entry_callback callback, void *user) {
    return on<&P::callPending, &P::setCallPendingCB>(__func__, participant,
                                                     onParty<&P::callPending>, callback, user);
}

std::int32_t vintok_on_join(P *participant, vintok_entry_callback callback, void *user) {
    return on<&P::join, &P::setJoinCB>(__func__, participant, onParty<&P::join>, callback, user);
}

std::int32_t vintok_on_leave(P *participant, vintok_entry_callback callback, void *user) {
    return on<&P::leave, &P::setLeaveCB>(__func__, participant, onParty<&P::leave>, callback, user);
}

std::int32_t vintok_on_change(P *participant, vintok_entry_callback callback, void *user) {
    return on<&P::change, &P::setUserDataCB>(__func__, participant, onParty<&P::change>, callback,
                                             user);
}

std::int32_t vintok_on_lead_change(P *participant, vintok_entry_callback callback, void *user) {
    return on<&P::leadChange, &P::setLeadChangeCB>(__func__, participant, onParty<&P::leadChange>,
                                                   callback, user);
}

std::int32_t vintok_on_lead_request(P *participant, vintok_entry_callback callback, void *user) {
    return on<&P::leadRequest, &P::setLeadRequestCB>(__func__, participant,
                                                     onParty<&P::leadRequest>, callback, user);
}

std::int32_t vintok_on_security(P *participant, vintok_security_callback callback, void *user) {
    return on<&P::security, &P::setSecurityCB>(__func__, participant, onSecurity, callback, user);
}

std::int32_t vintok_on_accepted(P *participant, vintok_call_callback callback, void *user) {
    return on<&P::accepted, &P::setAcceptedCB>(__func__, participant, onCall<&P::accepted>,
                                               callback, user);
}

std::int32_t vintok_on_busy(P *participant, vintok_call_callback callback, void *user) {
    return on<&P::busy, &P::setBusyCB>(__func__, participant, onCall<&P::busy>, callback, user);
}

std::int32_t vintok_on_rejected(P *participant, vintok_call_callback callback, void *user) {
    return on<&P::rejected, &P::setRejectedCB>(__func__, participant, onCall<&P::rejected>,
                                               callback, user);
}

std::int32_t vintok_on_ringing(P *participant, vintok_call_callback callback, void *user) {
    return on<&P::ringing, &P::setRingingCB>(__func__, participant, onCall<&P::ringing>, callback,
                                             user);
}

std::int32_t vintok_on_no_answer(P *participant, vintok_call_callback callback, void *user) {
    return on<&P::noAnswer, &P::setNoAnswerCB>(__func__, participant, onCall<&P::noAnswer>,
                                               callback, user);
}

std::int32_t vintok_on_version(P *participant, vintok_call_callback callback, void *user) {
    return on<&P::version, &P::setVersionCB>(__func__, participant, onCall<&P::version>, callback,
                                             user);
}

std::int32_t vintok_on_proxy(P *participant, vintok_again_callback callback, void *user) {
    return on<&P::proxy, &P::setProxyCB>(__func__, participant, onAgain<&P::proxy>, callback, user);
}

std::int32_t vintok_on_redirect(P *participant, vintok_again_callback callback, void *user) {
    return on<&P::redirect, &P::setRedirectCB>(__func__, participant, onAgain<&P::redirect>,
                                               callback, user);
}

std::int32_t vintok_on_server_response(P *participant, vintok_response_callback callback,
                                       void *user) {
    return on<&P::serverResponse, &P::setServerResponseCB>(__func__, participant, onServerResponse,
                                                           callback, user);
}

std::int32_t vintok_on_lead_reply(P *participant, vintok_reply_callback callback, void *user) {
    return on<&P::leadReply, &P::setLeadReplyCB>(__func__, participant, onLeadReply, callback,
                                                 user);
}

std::int32_t vintok_on_said(P *participant, vintok_data_callback callback, void *user) {
    return on<&P::said, &P::setSaidCB>(__func__, participant, onSaid, callback, user);
}

std::int32_t vintok_on_private(P *participant, vintok_data_callback callback, void *user) {
    return on<&P::confidential, &P::setPrivateDataCB>(__func__, participant, onPrivate, callback,
                                                      user);
}

std::int32_t vintok_on_delivery(P *participant, vintok_delivery_callback callback, void *user) {
    return on<&P::delivery, &P::setDeliveryCB>(__func__, participant, onDelivery, callback, user);
}

std::int32_t vintok_on_message(P *participant, vintok_message_callback callback, void *user) {
    return on<&P::message, &P::setMessageCB>(__func__, participant, onMessage, callback, user);
}

std::int32_t vintok_on_file(P *participant, vintok_file_callback callback, void *user) {
    return on<&P::file, &P::setFileTransferCB>(__func__, participant, onFile, callback, user);
}

std::int32_t vintok_on_file_progress(P *participant, vintok_progress_callback callback,
                                     void *user) {
    return on<&P::fileProgress, &P::setFileProgressCB>(__func__, participant, onFileProgress,
                                                       callback, user);
}

std::int32_t vintok_on_turned_away(P *participant, vintok_reason_callback callback, void *user) {
    return on<&P::turnedAway, &P::setTurnedAwayCB>(__func__, participant, onTurnedAway, callback,
                                                   user);
}

std::int32_t vintok_on_file_refused(P *participant, vintok_file_refused_callback callback,
                                    void *user) {
    return on<&P::fileRefused, &P::setFileRefusedCB>(__func__, participant, onFileRefused, callback,
                                                     user);
}

// The event itself is always there: the end of a file is the end of its source.
std::int32_t vintok_on_file_sent(P *participant, vintok_file_sent_callback callback, void *user) {
    return attempt(
        __func__,
        [=] {
            participant->fileSent = {callback, user};
        },
        participant);
}

void c::fileSent(ConferenceParticipant *self, std::uint32_t number,
                 ConferenceParticipant::FileOutcome outcome, void *) {
    static_cast<P *>(self)->sources.erase(number);
    if (static_cast<P *>(self)->fileSent.call != nullptr)
        tell<&P::fileSent>(self, number, std::int32_t{outcome});
}

std::int32_t vintok_on_clock(P *participant, vintok_clock_callback callback, void *user) {
    return on<&P::clock, &P::setSynchTimeCB>(__func__, participant, onClock, callback, user);
}

std::int32_t vintok_on_slow_member(P *participant, vintok_slow_callback callback, void *user) {
    return on<&P::slowMember, &P::setSlowMemberCB>(__func__, participant, onSlowMember, callback,
                                                   user);
}

std::int32_t vintok_on_drop(P *participant, vintok_drop_callback callback, void *user) {
    return on<&P::drop, &P::setDropCB>(__func__, participant, onDrop, callback, user);
}
