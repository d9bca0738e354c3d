// Everything happens on one thread, inside the passes of the loop: the control socket, the
// participant and the inbox share it. A request is parsed, looked up in a table and handed to its
// function, unless it comes too early; whatever it says, the session goes on. What the participant
// tells is passed on in the callbacks. Changes that it does not tell (a meeting that began or
// ended, the lead that came or went) are found by comparing its state with what the application was
// told last, before every notification that depends on it and after every pass.
#include "Session.h"

#include "Guards.h"
#include "SecureTransport.h"
#include "Variables.h"

#include <vintok/ControlNotify.h>
#include <vintok/TCPStream.h>

#include <algorithm>
#include <iterator>
#include <limits>

namespace control {

namespace {

constexpr int patience = 2000; // milliseconds, for an application to take the last of it

} // namespace

// A refusal is answered where there is a notification with an outcome; otherwise the log tells.
struct Session::Request {
    std::string_view word;
    Handler handler;
    Needs needs;
    bool (*answer)(int descriptor, bool ok) = nullptr;
};

const Session::Request *Session::findRequest(const std::string &word) {
    static constexpr auto nothing = Needs::nothing;
    static constexpr auto started = Needs::startup;
    static constexpr auto meeting = Needs::meeting;
    static const Request requests[] = {
        {"startup", &Session::startup, nothing},
        {"putenv", &Session::putenv, nothing},
        {"time", &Session::time, nothing},
        {"keepAlive", &Session::keepAlive, nothing},
        {"shutdown", &Session::shutdown, nothing},
        {"conveneMeeting", &Session::conveneMeeting, started},
        {"placeCall", &Session::placeCall, started},
        {"acceptPendingCall", &Session::answerCall, started},
        {"rejectPendingCall", &Session::answerCall, started},
        {"hangup", &Session::hangup, started},
        {"adjournMeeting", &Session::adjournMeeting, meeting},
        {"meetingRoster", &Session::roster, meeting},
        {"disableUser", &Session::enableUser, meeting},
        {"enableUser", &Session::enableUser, meeting},
        {"startLeading", &Session::startLeading, started},
        {"stopLeading", &Session::stopLeading, meeting},
        {"acceptLeadChange", &Session::answerLead, meeting},
        {"rejectLeadChange", &Session::answerLead, meeting},
        {"transferFile", &Session::transferFile, meeting},
        {"startRecording", &Session::startRecording, meeting, vintok::replyNotifyRecordingStarted},
        {"stopRecording", &Session::stopRecording, nothing, vintok::replyNotifyRecordingStopped},
        {"startPlayback", &Session::startPlayback, meeting, vintok::replyNotifyPlaybackStarted},
        {"stopPlayback", &Session::stopPlayback, nothing, vintok::replyNotifyPlaybackStopped},
        {"pausePlayback", &Session::pausePlayback, nothing, vintok::replyNotifyPlaybackPaused},
        {"resumePlayback", &Session::resumePlayback, nothing, vintok::replyNotifyPlaybackResumed},
    };
    static_assert(std::size(requests) == std::size(vintok::words::requests));
    const auto *found = std::find_if(std::begin(requests), std::end(requests),
                                     [&](const Request &row) { return row.word == word; });
    return found == std::end(requests) ? nullptr : found;
}

Session::Session(const Options &options)
    : m_options(options),
      m_socket(m_loop, "control socket", maxBody,
               [this](const vintok::TCPMessage &message) { take(message); }),
      m_inbox(m_loop),
      m_meetingName(options.meetingName) {}

Session::~Session() = default;

void Session::warn(const std::string &text) {
    vintok::logMessage(text.c_str(), vintok::SEVERITY_WARNING);
}

// ---- Life and loop ----

int Session::run() {
    const auto handler = [this](app::Inbox::Kind kind, const std::string &text) {
        takeEvent(kind, text);
    };
    if (!m_inbox.open(handler)) {
        warn("cannot make sockets on the loopback address");
        return 1;
    }
    m_inbox.watch();
    if (m_options.background)
        app::Inbox::ignoreTerminal();
    if (!(m_options.path.empty() ? hostAlone() : connect()))
        return 1;
    loop();
    if (m_participant) {
        leave();
        observe();
    }
    vintok::awaitSent(m_socket.descriptor(), patience);
    return 0;
}

bool Session::connect() {
    if (m_socket.connect(m_options.path))
        return true;
    warn("cannot connect to '" + quote(m_options.path, 200) + "': " + vintok::lastErrorString());
    return false;
}

// Without an application everybody is let in, and nobody is told of anything.
bool Session::hostAlone() {
    if (!openParticipant(m_options.port)) {
        warn("cannot listen");
        return false;
    }
    introduce(Text());
    if (m_options.sslFIPS && vintok::transport() == nullptr)
        return false; // nobody could ever join
    setCallbacks();
    m_participant->setCallPendingCB(nullptr);
    if (isClustered()) {
        m_participant->setCallPendingCB(
            [](vintok::ConferenceParticipant *p, const vintok::ConferenceRosterEntry &e) {
                if (of(p).admits(e))
                    p->acceptCall(e);
            });
    }
    m_convened = true;
    return convene();
}

void Session::loop() {
    while (!m_done) {
        if (m_playsOn)
            m_loop.pollDescriptors(true); // what has come gets its turn between two messages
        else
            m_inbox.pass();
        settle();
    }
}

// What is to be done after a pass, whatever happened in it.
void Session::settle() {
    m_done = m_done || m_socket.ended();
    if (m_done || !m_participant)
        return;
    // The library ends a meeting when the last guest has gone. A convened one goes on.
    if (m_convened && !m_participant->isMeeting())
        convene();
    observe();
    if (isClustered())
        link();
    if (m_player)
        play();
}

void Session::takeEvent(app::Inbox::Kind kind, const std::string &text) {
    if (kind == app::Inbox::Kind::interrupt)
        m_done = true;
    if (kind == app::Inbox::Kind::addresses)
        startCall(text);
    if (kind == app::Inbox::Kind::tick && m_seat)
        m_seat->tick();
    if (kind != app::Inbox::Kind::tick || m_options.alarm == 0 || ++m_seconds < m_options.alarm)
        return;
    m_seconds = 0;
    keepAlive(Text());
}

// ---- Requests ----

void Session::take(const vintok::TCPMessage &message) {
    if (m_done)
        return;
    Text text;
    std::string complaint;
    if (parse(message, text, complaint) != ParseError::none)
        return warn(complaint);
    const Request *request =
        text.direction() == Direction::request ? findRequest(text.word()) : nullptr;
    if (request == nullptr)
        return warn("control text '" + quote(text.word()) + "': no request");
    if (request->needs != Needs::nothing && !m_participant)
        return refuse(*request, "before startup");
    if (request->needs == Needs::meeting && !m_participant->isMeeting())
        return refuse(*request, "not in a meeting");
    const std::string reason = (this->*request->handler)(text);
    if (!reason.empty())
        refuse(*request, reason);
    else if (request->answer != nullptr)
        request->answer(fd(), true);
}

void Session::refuse(const Request &request, const std::string &reason) {
    warn("request '" + std::string(request.word) + "' is refused: " + reason);
    if (request.answer != nullptr)
        request.answer(fd(), false);
}

// ---- The process itself ----

// The first one opens the party. A later one changes who it is; its port stays.
std::string Session::startup(const Text &text) {
    const auto asked = static_cast<unsigned short>(text.number(Field::port));
    if (!m_participant && !openParticipant(asked != 0 ? asked : m_options.port)) {
        vintok::replyNotifyStarted(fd(), vintok::TCPAddress(), false);
        return "cannot listen on port " + std::to_string(asked) + " or those after it";
    }
    introduce(text);
    setCallbacks();
    setCallCallbacks();
    vintok::replyNotifyStarted(fd(), ownAddress(), vintok::transport() != nullptr);
    vintok::replyNotifyHideIP(fd(), m_participant->isHidingIPsRequired());
    if (m_participant->isMeeting())
        m_participant->sendRoster();
    return "";
}

bool Session::openParticipant(unsigned short port) {
    const int before = m_loop.numDescriptors();
    m_participant = std::make_unique<Participant>(m_options, port, *this);
    if (m_loop.numDescriptors() == before) {
        m_participant.reset();
        return false;
    }
    app::Guards guards;
    if (isClustered())
        guards.mostMembers = 0; // the seat counts them
    if (!m_options.noGuards)
        app::apply(guards, *m_participant);
    return true;
}

void Session::introduce(const Text &text) {
    Participant &me = *m_participant;
    const auto pick = [&](Field field, const std::string &otherwise) {
        return text.has(field) ? text.value(field) : otherwise;
    };
    me.setFirstName(pick(Field::firstName, m_options.firstName));
    me.setLastName(pick(Field::lastName, m_options.lastName));
    me.setTitle(pick(Field::title, m_options.title));
    me.setEmail(pick(Field::email, m_options.email));
    me.setPhone(pick(Field::phoneNumber, m_options.phone));
    me.setMeetingID(pick(Field::meetingID, m_options.meetingID));
    me.setServerMode(m_options.server);
    me.setMUXEncrypt(m_options.sslMUX);
    me.setFIPSSecureRequired(m_options.sslFIPS);
    me.setHidingIPsRequired(text.has(Field::hideIP) || m_options.hideIP);
    secureCalls(text.has(Field::isSecure) || m_options.sslFIPS);
}

// What is demanded and cannot be had is never dropped: every call then fails, as the library hangs
// up whom it cannot talk to securely. The application sees it by the flag that its answer lacks.
void Session::secureCalls(bool demanded) {
    std::string failure;
    if ((demanded || m_options.sslAuto || vintok::transport() != nullptr) &&
        !secure::start(demanded, m_options.sslFIPS, failure))
        warn("no secure transport: " + failure);
    m_participant->setBackgroundHandshakes(!m_options.noGuards);
    m_participant->setSecureAble(demanded || vintok::transport() != nullptr);
    if (demanded != m_participant->isSecurePreferred())
        m_participant->setSecurePreferred(demanded);
}

std::string Session::putenv(const Text &text) {
    const std::string &name = text.value(Field::variableName);
    if (name.empty())
        return "it names no variable";
    return app::setVariable(name, text.value(Field::variableValue)) ? "" : "the system refuses";
}

std::string Session::time(const Text &) {
    tellTime();
    return "";
}

void Session::tellTime() const {
    const std::int64_t offset = vintok::getAddTime() - vintok::getSubtractTime();
    constexpr std::int64_t most = std::numeric_limits<unsigned int>::max();
    const std::int64_t seconds = std::clamp(offset, -most, most);
    vintok::replyNotifySetTime(fd(), seconds >= 0,
                               static_cast<unsigned int>(seconds < 0 ? -seconds : seconds));
}

std::string Session::keepAlive(const Text &) {
    if (m_participant && m_participant->isMeeting())
        m_participant->sendAllKeepAlive();
    return "";
}

std::string Session::shutdown(const Text &) {
    m_done = true;
    return "";
}

} // namespace control
