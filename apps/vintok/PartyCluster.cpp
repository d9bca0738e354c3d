// A meeting with several hosts: what a host does beside hosting, and what a guest does whose host
// is lost.
#include "Party.h"

#include "ClusterText.h"
#include "Text.h"

namespace app {

namespace {

constexpr std::chrono::milliseconds searchInterval(50);
// By then the hosts know who has not come back.
constexpr unsigned int backSeconds = 5;

std::string bodyOf(const vintok::TCPMessage &message) {
    return std::string(reinterpret_cast<const char *>(message.messageBuffer()),
                       static_cast<std::size_t>(message.messageBufferLength()));
}

} // namespace

// ---- At a host ----

bool Party::takeSeat() {
    std::string failure;
    const auto told = [this](const vintok::ClusterEvent &event) {
        m_report.notice(noticeOf(event));
    };
    m_seat = cluster::Seat::take(m_participant, m_options.cluster, told, failure);
    if (!m_seat) {
        m_participant.hangup();
        fail("cannot link this host to the others: " + failure);
        return false;
    }
    m_files.setTurns([this] { return m_seat->decides(); },
                     [this](const Place &place) { return m_seat->decides(place); });
    return true;
}

void Party::tellCluster() {
    if (!m_seat)
        return m_report.problem("this party is not one of several hosts");
    m_report.hosts(m_options.cluster.meeting, m_seat->link().hosts(), m_seat->link().metrics());
}

void Party::drain() {
    if (!m_seat)
        return m_report.problem("this party is not one of several hosts");
    if (!m_seat->drain())
        return m_report.problem("no other host has room");
    m_report.notice({"draining", "The guests of this host are sent to the others.", {}});
}

// ---- At a guest ----

bool Party::told(const vintok::ConferenceRosterEntry &neighbour,
                 const vintok::TCPMessage &message) {
    if (m_host == -1 || neighbour.descriptor() != m_host ||
        message.messageID() != cluster::messageIdentifier())
        return false;
    const std::string body = bodyOf(message);
    std::vector<cluster::AtHost> hosts;
    if (body == cluster::endMessage)
        m_isOver = true;
    else if (body == cluster::moveMessage)
        m_moves = m_hosts != nullptr;
    else if (cluster::decodeWhereabouts(body, hosts))
        m_whereabouts.take(hosts);
    return false;
}

// The name of the host that somebody is at; empty where the meeting has one, or it is not known.
std::string Party::hostOf(const Person &person) const {
    const Place place = {person.address, person.port};
    vintok::TCPAddress address;
    if (!m_seat)
        return m_whereabouts.of(place);
    address.setName(person.address);
    address.setHostByteOrderPort(person.port);
    return m_seat->link().hostOf(address);
}

// Those who were there are not told of again, unless they do not come back.
void Party::losesHost(const std::string &how) {
    m_missing = m_people.all();
    std::erase_if(m_missing, [](const Person &person) { return person.self; });
    for (const Person &person : m_missing)
        m_people.remove(person);
    m_files.meetsAnew();
    m_whereabouts.forget();
    m_host = -1;
    m_hostBreak.clear();
    m_turnedAway.clear();
    m_wantsLead = m_leadAsked = m_moves = false;
    m_isUnderWay = false;
    m_stage = Stage::calling;
    m_callBegan = m_seconds;
    m_participant.setBackgroundHandshakes(false);
    m_participant.setMUXRedirected(false);
    m_hosts->beginAgain(ClusterCall::Clock::now());
    m_report.notice({"reconnecting", how + ": looking for another one ...",
                     Fields().text("meeting", m_options.cluster.meeting)});
    m_inbox.wakeAt(ClusterCall::Clock::now() + searchInterval);
}

// To another host, as this one has asked.
void Party::move() {
    m_participant.hangup();
    losesHost("The host sends its guests away");
}

void Party::callHost() {
    switch (m_hosts->step(ClusterCall::Clock::now())) {
    case ClusterCall::Step::wait:
        return m_inbox.wakeAt(ClusterCall::Clock::now() + searchInterval);
    case ClusterCall::Step::giveUp:
        return fail(m_hosts->failure());
    case ClusterCall::Step::call:
        break;
    }
    CallPlan plan;
    plan.remote = m_hosts->target();
    plan.retries = mostSentOn;
    m_called = plan.remote;
    m_report.call(CallEvent::calling, whom());
    place(plan);
    m_inbox.wakeAt(ClusterCall::Clock::now()); // the next one, if that has failed at once
}

void Party::sentOn(const std::string &name, unsigned short port, unsigned int retries) {
    m_participant.setMUXRedirected(true); // from now on each one costs a retry
    const Target to{name, port};
    m_report.notice({"redirected", "It sends the call on to " + to.text() + '.',
                     Fields().text("from", "host").text("whom", whom()).text("to", to.text())});
    m_sentOn.emplace();
    m_sentOn->remote = to;
    m_sentOn->retries = retries;
}

void Party::accepted() {
    const bool isAgain = m_hosts && m_hosts->isAgain();
    enter(Stage::meeting);
    if (!isAgain)
        return m_report.call(CallEvent::accepted, whom());
    m_backSince = m_seconds;
    m_report.notice(
        {"back", "Back in the meeting, by way of " + whom() + '.', Fields().text("whom", whom())});
}

// Whether it was there before the host was lost.
bool Party::wasThere(const Person &person) {
    return std::erase_if(
               m_missing,
               [&](const Person &missing) {
                   return missing.address == person.address && missing.port == person.port;
               }) != 0;
}

void Party::tellMissing() {
    if (m_missing.empty() || m_stage != Stage::meeting || m_seconds < m_backSince + backSeconds)
        return;
    for (const Person &person : m_missing)
        m_report.left(person);
    m_missing.clear();
}

} // namespace app
