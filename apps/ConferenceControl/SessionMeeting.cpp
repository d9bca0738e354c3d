#include "Session.h"

#include "Readable.h"
#include "SecureTransport.h"

#include <vintok/ControlNotify.h>
#include <vintok/TCPGUID.h>
#include <vintok/TCPStream.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace control {

// ---- Meeting ----

std::string Session::conveneMeeting(const Text &text) {
    const bool renames = m_inMeeting;
    const std::string before =
        std::exchange(m_meetingName, text.has(Field::meetingName) ? text.value(Field::meetingName)
                                                                  : m_options.meetingName);
    if (!convene()) {
        m_meetingName = before;
        return "somebody else is here already";
    }
    m_convened = true;
    if (renames)
        vintok::replyNotifyBeginMeeting(fd(), m_participant->isHidingIPsRequired(), m_meetingName);
    return "";
}

bool Session::convene() {
    if (m_options.server)
        m_participant->setServerMode(true); // the end of a meeting takes that away
    const bool hosts = m_participant->hostMeeting(m_meetingName);
    observe();
    return hosts;
}

std::string Session::adjournMeeting(const Text &) {
    if (!m_participant->isHost())
        return "only the host can end the meeting";
    leave();
    return "";
}

std::string Session::hangup(const Text &) {
    leave();
    return "";
}

void Session::leave() {
    m_convened = false;
    m_callers.clear();
    for (const Text &call : std::exchange(m_calls, {}))
        vintok::replyNotifyCallNoAnswer(fd(), call.value(Field::machineName));
    if (m_seat)
        m_seat->end();
    m_participant->hangup();
    if (m_options.server)
        m_participant->setServerMode(true);
}

// ---- Calls ----

const std::string &Session::connectsTo(const Text &call) {
    const std::string &proxy = call.value(Field::proxyAddress);
    return proxy.empty() ? call.value(Field::machineName) : proxy;
}

std::string Session::placeCall(const Text &text) {
    const std::string &name = text.value(Field::machineName);
    vintok::replyNotifyDialing(fd(), name);
    if (!m_inbox.lookUp(connectsTo(text)))
        return callFails(name);
    m_calls.push_back(text);
    return "";
}

std::string Session::callFails(const std::string &name) {
    vintok::replyNotifyCallNoAnswer(fd(), name);
    return "'" + quote(name) + "' cannot be called";
}

// The name of one that waits for it has been looked up.
void Session::startCall(const std::string &lookedUp) {
    const std::vector<vintok::TCPAddress> addresses = m_inbox.takeAddresses(lookedUp);
    const auto call = std::find_if(m_calls.begin(), m_calls.end(), [&](const Text &waiting) {
        return connectsTo(waiting) == lookedUp;
    });
    if (call == m_calls.end())
        return; // hung up meanwhile
    const Text text = *call;
    m_calls.erase(call);
    const std::string &name = text.value(Field::machineName);
    const std::int64_t tries = text.number(Field::triesRemaining);
    const auto port = [&](Field field) { return static_cast<unsigned short>(text.number(field)); };
    secure::beginCall(name, text.has(Field::proxyAddress) || text.has(Field::meetingID));
    const bool started = m_participant->startCall(
        addresses, name, port(Field::port), text.value(Field::proxyAddress), port(Field::proxyPort),
        text.value(Field::meetingID), text.value(Field::authenticationString),
        static_cast<unsigned int>(std::max<std::int64_t>(tries, 0)));
    secure::endCall();
    if (!started)
        warn(callFails(name));
}

// Accepts or rejects, as the word says.
std::string Session::answerCall(const Text &text) {
    if (m_callers.empty())
        return "nobody calls";
    const vintok::RosterBase caller = m_callers.front();
    m_callers.pop_front();
    const bool accepts = text.word() == "acceptPendingCall" && admits(caller);
    const bool done =
        accepts ? m_participant->acceptCall(caller) : m_participant->rejectCall(caller);
    if (!m_callers.empty())
        vintok::replyNotifyCallPending(fd(), readable(m_callers.front()));
    return done ? "" : "the caller has gone";
}

// ---- Parties ----

vintok::RosterBase *Session::findParty(const vintok::TCPAddress &address) {
    const auto found =
        std::find_if(m_parties.begin(), m_parties.end(),
                     [&](const vintok::RosterBase &party) { return party == address; });
    return found == m_parties.end() ? nullptr : &*found;
}

// Whose record the request carries makes no difference: the answer is everybody.
std::string Session::roster(const Text &) {
    vintok::replyNotifyUserInMeeting(fd(), self());
    for (const vintok::RosterBase &party : m_parties)
        vintok::replyNotifyUserInMeeting(fd(), readable(party));
    return "";
}

// Enables or disables, as the word says.
std::string Session::enableUser(const Text &text) {
    if (findParty(text.address()) == nullptr)
        return "there is no such party";
    text.word() == "enableUser" ? m_participant->enableUser(text.address())
                                : m_participant->disableUser(text.address());
    return "";
}

// ---- Lead ----

std::string Session::startLeading(const Text &) {
    m_wantsLead = true;
    const bool asked = m_participant->requestStartLeading();
    if (m_participant->isLeader() || !asked)
        leadAnswered(asked); // nobody else will, unless the library has done so already
    return asked ? "" : "there is nobody to ask";
}

// Only a member can give the lead back, and it goes to the host.
std::string Session::stopLeading(const Text &) {
    if (!m_participant->isLeader())
        return "somebody else leads";
    if (m_participant->isHost() || m_host == -1)
        return "the host leads until somebody asks for the lead";
    vintok::TCPMessage message(m_host);
    message.setMessageMajorVersion(vintok::ConferenceParticipant::majorVersion());
    message.setMessageMinorVersion(vintok::ConferenceParticipant::minorVersion());
    message.setMessageID(vintok::TCP_stopLeadRequest);
    m_stopsLeading = message.allocateMessageBuffer(1) && message.write(-1, nullptr);
    return m_stopsLeading ? "" : "the host cannot be reached";
}

// Gives or keeps the lead, as the word says.
std::string Session::answerLead(const Text &text) {
    const bool done = text.word() == "acceptLeadChange" ? m_participant->acceptLeadChange()
                                                        : m_participant->rejectLeadChange();
    return done ? "" : "nobody waits for the lead, or has gone";
}

// ---- Files ----

std::string Session::transferFile(const Text &text) {
    const std::string &path = text.value(Field::filePath);
    if (path.empty())
        return "it names no file";
    const std::string relative = text.has(Field::relativePath)
                                     ? text.value(Field::relativePath)
                                     : std::filesystem::path(path).filename().string();
    vintok::replyNotifyFileTransfer(fd(), path);
    const bool sent = m_participant->transferFile(path, relative);
    vintok::replyNotifyFileTransferred(fd(), ownAddress(), sent ? 1 : 0, path);
    return sent ? "" : "'" + quote(path, 200) + "' was not sent to everybody";
}

} // namespace control
