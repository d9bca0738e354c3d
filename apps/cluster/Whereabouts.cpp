#include "Whereabouts.h"

#include <algorithm>

namespace app::cluster {

namespace {

constexpr std::string_view mark = "where 1\n";
constexpr std::size_t longestName = 256;

bool takeHost(std::string_view &body, AtHost &host) {
    std::string_view name;
    if (!takeLine(body, longestName, name) || !takePlace(body, host.host))
        return false;
    host.name = name;
    while (body.substr(0, 1) != "\n") {
        Place party;
        if (!takePlace(body, party))
            return false;
        host.parties.push_back(party);
    }
    body.remove_prefix(1);
    return true;
}

} // namespace

const vintok::TCPGUID &messageIdentifier() {
    return vintok::TCP_messageID_48;
}

Place placeOf(const vintok::TCPAddress &address) {
    Place place;
    address.ipString(place.address);
    place.port = address.hostByteOrderPort();
    return place;
}

std::string encodeWhereabouts(const std::vector<AtHost> &hosts) {
    std::string body(mark);
    for (const AtHost &host : hosts) {
        std::string name(cut(host.name, longestName));
        std::replace(name.begin(), name.end(), '\n', ' ');
        body += name + '\n' + placeLine(host.host);
        for (const Place &party : host.parties)
            body += placeLine(party);
        body += '\n';
    }
    return body;
}

bool decodeWhereabouts(std::string_view body, std::vector<AtHost> &hosts) {
    if (body.substr(0, mark.size()) != mark)
        return false;
    body.remove_prefix(mark.size());
    std::vector<AtHost> decoded;
    while (!body.empty()) {
        decoded.emplace_back();
        if (!takeHost(body, decoded.back()))
            return false;
    }
    hosts = std::move(decoded);
    return true;
}

void Whereabouts::take(const std::vector<AtHost> &hosts) {
    for (const AtHost &host : hosts) {
        m_hosts.insert(host.host);
        for (const Place &party : host.parties)
            m_parties[party] = host.name;
    }
}

void Whereabouts::left(const Place &party) {
    m_parties.erase(party);
    m_hosts.erase(party);
}

void Whereabouts::forget() {
    m_parties.clear();
    m_hosts.clear();
}

std::string Whereabouts::of(const Place &party) const {
    const auto found = m_parties.find(party);
    return found == m_parties.end() ? "" : found->second;
}

} // namespace app::cluster
