#include "Seat.h"

#include "Send.h"

#include <vintok/ConferenceLink.h>

#include <algorithm>

namespace app::cluster {

namespace {

bool hasRoom(const vintok::ClusterHost &host) {
    return !host.self && (host.mostMembers == 0 || host.members < host.mostMembers);
}

// Groups for those who are at the hosts; the first of two of one name stands for both.
void put(std::vector<AtHost> &hosts, const std::string &name, const Place &party) {
    const auto found = std::find_if(hosts.begin(), hosts.end(),
                                    [&](const AtHost &host) { return host.name == name; });
    if (found != hosts.end())
        found->parties.push_back(party);
}

std::string encodeThoseWithParties(std::vector<AtHost> hosts) {
    std::erase_if(hosts, [](const AtHost &host) { return host.parties.empty(); });
    return hosts.empty() ? "" : encodeWhereabouts(hosts);
}

} // namespace

std::unique_ptr<Seat> Seat::take(vintok::ConferenceParticipant &host,
                                 const vintok::ClusterOptions &options, const Told &told,
                                 std::string &failure) {
    std::unique_ptr<Seat> seat(new Seat(host, options));
    seat->m_parties[placeOf(host.address())].address = host.address();
    Seat *const self = seat.get();
    const auto tell = [self, told](const vintok::ClusterEvent &event) {
        self->m_isNews = true;
        told(event);
    };
    seat->m_link = cluster::link(host, options, tell, failure);
    if (!seat->m_link)
        return nullptr;
    for (const vintok::ConferenceRosterEntry &entry : host.roster())
        seat->joined(entry);
    return seat;
}

// ---- Callers ----

bool Seat::admits(const vintok::TCPAddress &caller) {
    const bool isFull = m_options.mostMembers != 0 && m_members >= m_options.mostMembers;
    if (!isFull && !m_isDraining)
        return true;
    std::vector<vintok::ClusterHost> hosts = m_link->hosts();
    std::erase_if(
        hosts, [](const vintok::ClusterHost &host) { return !hasRoom(host); });
    const auto best = std::min_element(
        hosts.begin(), hosts.end(), [](const vintok::ClusterHost &a, const vintok::ClusterHost &b) {
            return a.members < b.members;
        });
    if (best == hosts.end() ||
        !vintok::LinkedMeeting::redirect(m_host, caller, best->advertised, best->port))
        m_host.rejectCall(caller);
    return false;
}

bool Seat::drain() {
    const std::vector<vintok::ClusterHost> hosts = m_link->hosts();
    if (std::none_of(hosts.begin(), hosts.end(), hasRoom))
        return false;
    m_isDraining = true;
    tellAll(moveMessage);
    return true;
}

bool Seat::decides() const {
    return decides(placeOf(m_host.address()));
}

bool Seat::decides(const Place &place) const {
    const std::vector<vintok::ClusterHost> hosts = m_link->hosts();
    return std::any_of(hosts.begin(), hosts.end(), [&](const vintok::ClusterHost &host) {
        return host.authority && placeOf(host.address) == place;
    });
}

// ---- Who is where ----

void Seat::joined(const vintok::ConferenceRosterEntry &entry) {
    Party &party = m_parties[placeOf(entry)];
    if (party.descriptor == -1 && entry.descriptor() != -1)
        ++m_members;
    party.address = entry;
    party.descriptor = entry.descriptor();
    party.isNew = party.descriptor != -1;
    m_areNew |= party.isNew;
    m_isNews = true;
}

void Seat::left(const vintok::ConferenceRosterEntry &entry) {
    const auto found = m_parties.find(placeOf(entry));
    if (found == m_parties.end() || found->second.descriptor != entry.descriptor())
        return;
    if (found->second.descriptor != -1)
        --m_members;
    m_parties.erase(found);
}

void Seat::settle() {
    if (!m_areNew)
        return;
    m_areNew = false;
    const std::string body = everything();
    for (auto &[place, party] : m_parties) {
        if (party.isNew && !body.empty())
            sendMessage(party.descriptor, messageIdentifier(), body);
        party.isNew = false;
    }
}

void Seat::tick() {
    if (!m_isNews)
        return;
    m_isNews = false;
    if (const std::string body = changes(); !body.empty())
        tellAll(body);
}

void Seat::tellAll(const std::string &body) {
    for (const auto &[place, party] : m_parties)
        if (party.descriptor != -1)
            sendMessage(party.descriptor, messageIdentifier(), body);
}

std::vector<AtHost> Seat::hosts() const {
    std::vector<AtHost> hosts;
    for (const vintok::ClusterHost &host : m_link->hosts())
        hosts.push_back({host.name, placeOf(host.address), {}});
    return hosts;
}

// Those who are at another host than the members were told.
std::string Seat::changes() {
    std::vector<AtHost> moved = hosts();
    for (auto &[place, party] : m_parties) {
        const std::string now = m_link->hostOf(party.address);
        if (now.empty() || now == party.host)
            continue;
        party.host = now;
        put(moved, now, place);
    }
    return encodeThoseWithParties(std::move(moved));
}

std::string Seat::everything() const {
    std::vector<AtHost> all = hosts();
    for (const auto &[place, party] : m_parties)
        put(all, party.host, place);
    return encodeThoseWithParties(std::move(all));
}

} // namespace app::cluster
