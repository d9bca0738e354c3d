// Everything happens on one thread, inside the passes of the loop. The participant and the inbox
// share that loop. What may happen depends on the stage of the party (`Party::Stage`); once it is
// done the participant goes down with it.
//
// The library does not tell when the connection of a call that was not yet answered breaks. The
// loop then has as many descriptors as before the call, which `awaitAnswer` looks for.
#include "Party.h"

#include "Failure.h"
#include "Send.h"

#include <vintok/TCPAddress.h>

#include <utility>

namespace app {

namespace {

constexpr unsigned int partingSeconds = 3; // that a host has to hang up

// One of several hosts counts its members itself: it sends whom it has no room for to another one.
Guards guards(const Options &options) {
    Guards guards = options.guards;
    if (options.role == Role::host && options.isClustered())
        guards.mostMembers = 0;
    return guards;
}

} // namespace

Party::Party(const Options &options, Report &report)
    : m_options(options),
      m_report(report),
      m_participant(options, *this),
      m_inbox(m_loop),
      m_files(m_participant, m_people, report, options.files) {
    m_listeners = m_loop.numDescriptors();
}

int Party::run() {
    if (m_options.listens && (m_listeners == 0 || (m_options.exactPort && m_listeners == 1 &&
                                                   lastFailureIsTakenPort()))) {
        const std::string port =
            m_options.port == 0 ? "the usual port" : "port " + std::to_string(m_options.port);
        fail(withLastFailure("cannot listen on " + port));
        return m_exitCode;
    }
    if (!openFiles())
        return m_exitCode;
    introduce();
    setCallbacks();
    m_files.setTurns(nullptr, [this](const Place &place) { return m_whereabouts.isHost(place); });
    apply(guards(m_options), m_participant);
    vintok::addTime(m_options.clockOffset);
    m_participant.setFileFolder(m_options.files);
    m_participant.setFileProgressInterval(100);
    if (m_options.fileLinks)
        Participant::setFileLinks(true);
    if (!m_inbox.open([this](Inbox::Kind kind, const std::string &text) { take(kind, text); })) {
        fail(withLastFailure("cannot make sockets on the loopback address"));
        return m_exitCode;
    }
    vintok::setPeerTimeout(m_options.keepAlive * 1000); // not for the connections of the inbox
    const Person me = self();
    m_people.take(me);
    m_report.listening(me.address, m_options.listens ? me.port : 0);
    if (m_options.role == Role::host ? host() : call())
        loop();
    if (m_offer)
        m_offer->passages.end();
    return m_exitCode;
}

// Until it is in a meeting the party has nothing to do but wait for its own call.
void Party::enter(Stage stage) {
    m_stage = std::max(m_stage, stage);
    m_participant.setBackgroundHandshakes(m_stage >= Stage::meeting);
}

void Party::introduce() {
    m_participant.setFirstName(m_options.firstName);
    m_participant.setLastName(m_options.lastName);
    m_participant.setEmail(m_options.email);
    m_participant.setTitle(m_options.title);
    m_participant.setPhone(m_options.phone);
}

bool Party::host() {
    enter(Stage::meeting);
    m_report.hosting(m_options.meeting);
    if (!m_participant.hostMeeting(m_options.meeting))
        return false;
    if (m_options.isClustered() && !takeSeat())
        return false;
    if (m_options.tunnel.wanted()) {
        m_offer = TunnelOffer::start(m_options.tunnel, m_participant.address().hostByteOrderPort());
        if (!m_offer) {
            fail("cannot start a thread");
            return false;
        }
    }
    return true;
}

bool Party::call() {
    CallPlan plan;
    plan.remote = m_called = m_options.target;
    plan.retries = mostSentOn;
    if (m_options.isClustered() && !m_options.tunnel.wanted()) {
        m_hosts = std::make_unique<ClusterCall>(m_options.cluster, m_options.target);
        enter(Stage::calling);
        if (m_options.target.host.empty())
            m_report.notice(
                {"searching",
                 "Looking for a host of the meeting " + m_options.cluster.meeting + " ...",
                 Fields().text("meeting", m_options.cluster.meeting)});
        callHost();
        return m_stage != Stage::done;
    }
    if (m_options.tunnel.wanted()) {
        m_tunnelCall = std::make_unique<TunnelCall>(m_options.tunnel, m_options.target,
                                                    m_options.secure.required, m_report);
        if (const std::string fault = m_tunnelCall->fault(); !fault.empty()) {
            fail(fault);
            return false;
        }
        plan = m_tunnelCall->plan();
    }
    m_report.call(CallEvent::calling, whom());
    enter(Stage::calling);
    return place(plan);
}

// Until the connection stands, Ctrl-C ends the process in the usual way: nobody is to be told.
bool Party::place(const CallPlan &plan) {
    if (!m_tunnelCall)
        m_called = plan.remote;
    secure::expect(m_options.secure, plan.remote.host);
    m_isUnderWay =
        m_participant.placeCall(plan.remoteName(), plan.remote.port, plan.proxy.host,
                                plan.proxy.port, plan.meetingID, plan.authentication, plan.retries);
    if (m_isUnderWay)
        return true;
    // The library shuts such a connection down, and its last error tells of that.
    const std::string insecure = tellBreak();
    const std::string failure =
        insecure.empty() ? callFailure(plan.connectsTo())
                         : plan.connectsTo().text() + " cannot be reached securely: " + insecure;
    if (m_hosts)
        m_hosts->failed(failure);
    else
        fail(failure);
    return m_hosts != nullptr;
}

std::string Party::callFailure(const Target &target) {
    std::string failure = withLastFailure("cannot reach " + target.text());
    vintok::TCPAddress address;
    if (!address.resolve(target.host))
        return "cannot find the host '" + target.host + "'";
    address.setHostByteOrderPort(target.port == 0 ? partyPort : target.port);
    if (m_participant.address() == address)
        return target.text() + " is this very party";
    return failure;
}

// Who is called: a party, or by way of a multiplexer perhaps nobody but a meeting.
std::string Party::whom() const {
    const Target &target = m_tunnelCall ? m_options.target : m_called;
    return target.host.empty() ? "the meeting " + m_options.tunnel.meetingID : target.text();
}

void Party::loop() {
    m_inbox.watch();
    if (!m_player)
        m_inbox.readStandardInput();
    while (m_stage != Stage::done) {
        if (m_playsNow)
            m_loop.pollDescriptors(true);
        else
            m_inbox.pass();
        afterPass();
    }
}

void Party::afterPass() {
    if (m_stage == Stage::calling)
        awaitAnswer();
    else if (m_stage != Stage::done)
        goOn();
}

void Party::awaitAnswer() {
    if (m_tunnelCall && m_tunnelCall->takeNext())
        place(m_tunnelCall->plan());
    else if (m_sentOn)
        place(*std::exchange(m_sentOn, std::nullopt));
    else if (m_hosts && !m_isUnderWay)
        callHost();
    else if (m_loop.numDescriptors() <= m_listeners + 1) // one more is the inbox
        callBreaks();
    else
        tellBreak();
}

void Party::goOn() {
    if (m_saidMuch) {
        m_saidMuch = m_participant.waitingBytes() > usuallyWaiting(m_options.guards) / 2;
        m_inbox.holdLines(m_saidMuch);
    }
    if (m_offer)
        m_offer->report.tell(m_report);
    tellBreak();
    if (m_options.role == Role::host && !m_participant.isHost()) {
        // The library ends a meeting when the last guest has gone. This one goes on.
        m_participant.hostMeeting(m_options.meeting);
    }
    if (m_options.role == Role::join && !m_participant.isMeeting()) {
        return m_stage == Stage::leaving ? part()
               : comesBack()             ? losesHost("The host is lost")
                                         : meetingEnds("The meeting is over.");
    }
    if (m_moves && m_stage == Stage::meeting)
        return move();
    if (m_seat)
        m_seat->settle();
    while (m_stage != Stage::done && !m_unsaid.empty()) {
        const Command command = m_unsaid.front();
        m_unsaid.pop_front();
        obey(command);
    }
    if (m_stage == Stage::meeting && m_player)
        play();
    if (m_stage == Stage::meeting)
        m_files.sendNext();
    if (m_inputEnded && !m_options.stay && m_files.allSent())
        leave();
}

void Party::finish(const std::string &reason) {
    enter(Stage::done);
    m_report.ended(reason);
}

void Party::fail(const std::string &reason) {
    enter(Stage::done);
    m_exitCode = 1;
    m_report.failed(reason);
}

// Not by this party's own will.
void Party::meetingEnds(const std::string &reason) {
    if (m_player)
        return fail("the meeting has ended before the recording did");
    finish(reason);
}

void Party::leave() {
    if (m_stage >= Stage::leaving)
        return;
    // A guest waits for the host to close the connection, so that its last lines arrive.
    if (m_participant.isMeeting() && m_host != -1 && sendHangup(m_host)) {
        enter(Stage::leaving);
        m_patience = partingSeconds;
        return;
    }
    part();
}

void Party::part() {
    if (m_stage == Stage::calling)
        enter(Stage::leaving); // that the call ends is no news then
    if (m_seat)
        m_seat->end();
    m_participant.hangup();
    if (!m_failure.empty())
        return fail(m_failure);
    finish("Left the meeting.");
}

} // namespace app
