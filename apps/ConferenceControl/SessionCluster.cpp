// A meeting with several hosts: while this party hosts it is linked to the others.
#include "Session.h"

#include "ClusterEvents.h"
#include "Guards.h"

#include <vintok/TCPStream.h>

namespace control {

unsigned int Session::mostMembers() const {
    return m_options.noGuards ? 0 : app::Guards().mostMembers;
}

void Session::link() {
    if (m_participant->isHost() && !m_isLinked)
        takeSeat();
    if (!m_participant->isHost())
        m_seat.reset();
    m_isLinked = m_participant->isHost();
    if (m_seat)
        m_seat->settle();
}

void Session::takeSeat() {
    vintok::ClusterOptions options;
    options.servers = m_options.cluster;
    options.meeting = m_participant->meetingID();
    options.credentials = m_options.clusterCreds;
    options.name = m_options.clusterName;
    options.mostMembers = mostMembers();
    const auto told = [](const vintok::ClusterEvent &event) {
        vintok::logMessage(app::cluster::sentenceOf(event).c_str(), vintok::SEVERITY_INFO);
    };
    std::string failure = "the meeting has no identifier";
    if (!options.meeting.empty())
        m_seat = app::cluster::Seat::take(*m_participant, options, told, failure);
    if (!m_seat)
        warn("this host is not linked to others: " + failure);
}

// Whether a caller is to be let in, and has not been sent to another host.
bool Session::admits(const vintok::TCPAddress &caller) {
    return !m_seat || m_seat->admits(caller);
}

} // namespace control
