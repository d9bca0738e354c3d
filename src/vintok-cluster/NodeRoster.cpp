// Who is where: the parties of the other hosts, and which of them this side is told of.
//
// A party that several hosts have counts where it came last, by the word of those hosts. When it
// leaves there, or the host goes, it is put back from another.
#include "vintok-cluster/Node.h"

#include <utility>

namespace vintok::cluster {

namespace {

constexpr std::size_t mostParties = 65536;

} // namespace

void Node::unsettle(const RemoteHost &host) {
    for (const auto &[key, party] : host.parties)
        m_unsettled.insert(key);
    m_carrier.wake();
}

void Node::settleAll() {
    while (!m_unsettled.empty())
        settle(m_unsettled.extract(m_unsettled.begin()).value());
}

const RemoteHost *Node::ownerOf(const Key &key) const {
    const RemoteHost *owner = nullptr;
    std::pair<std::uint64_t, std::uint64_t> latest;
    for (const auto &[incarnation, host] : m_hosts) {
        if (!host->isLive || host->isEnded)
            continue;
        const auto found = host->parties.find(key);
        if (found == host->parties.end())
            continue;
        const std::pair since(found->second.since, incarnation);
        if (owner == nullptr || latest < since) {
            owner = host.get();
            latest = since;
        }
    }
    return owner;
}

void Node::settle(const Key &key) {
    if (!takesPart() || m_local.contains(key)) {
        m_shown.erase(key);
        return;
    }
    const RemoteHost *const owner = ownerOf(key);
    const auto shown = m_shown.find(key);
    if (keyOf(m_leader) == key)
        m_leaderTaken = false;
    if (owner != nullptr) {
        const std::uint64_t incarnation = owner->beat.rank.incarnation;
        if ((shown == m_shown.end() || shown->second != incarnation) &&
            m_side.entry(owner->parties.at(key).entry))
            m_shown.insert_or_assign(key, incarnation);
    } else if (shown != m_shown.end()) {
        m_shown.erase(shown);
        m_side.left(addressOf(key));
    }
}

void Node::takeEntry(RemoteHost &host, View body) {
    Party party;
    if (!decode(body, party) || host.parties.size() >= mostParties) {
        ++m_counters.refused;
        return;
    }
    const Key key = keyOf(party.entry);
    std::erase_if(host.leaving, [&](const auto &leaving) { return leaving.party == key; });
    host.parties.insert_or_assign(key, party);
    const auto shown = m_shown.find(key);
    if (shown != m_shown.end() && shown->second == host.beat.rank.incarnation)
        shown->second = 0; // its data have changed
    settle(key);
}

void Node::takeLeft(RemoteHost &host, View body) {
    Reader reader(body);
    const Key key = keyOf(reader.address());
    const auto number = reader.number<std::uint64_t>();
    const Ordered::End end{number, reader.number<std::uint64_t>()};
    if (!reader.good())
        ++m_counters.refused;
    else if (m_options.ordered && !m_ordered.isTaken(host.beat.rank.incarnation, end))
        host.leaving.push_back({key, end, m_now});
    else if (host.parties.erase(key) != 0)
        settle(key);
}

// With one order the last words of a party come on another way than its leave.
void Node::letLeave() {
    for (const auto &[incarnation, host] : m_hosts)
        while (!host->leaving.empty()) {
            const auto &[key, end, since] = host->leaving.front();
            if (!m_ordered.isTaken(incarnation, end) && m_now - since < m_options.hostTimeout)
                break;
            if (host->parties.erase(key) != 0)
                m_unsettled.insert(key);
            host->leaving.pop_front();
        }
}

std::uint64_t Node::hostOf(const TCPAddress &party) const {
    const Key key = keyOf(party);
    if (m_local.contains(key))
        return m_rank.incarnation;
    const RemoteHost *const owner = ownerOf(key);
    return owner != nullptr ? owner->beat.rank.incarnation : 0;
}

// Hosts that have ended, and those that will not be waited for any longer.
void Node::forget() {
    for (auto at = m_hosts.begin(); at != m_hosts.end();) {
        const RemoteHost &host = *at->second;
        const bool isOver =
            host.isEnded ||
            (!host.isLive && m_now - host.heard > m_options.hostTimeout + m_options.retention);
        if (!isOver || host.isCounted) { // the application is told first
            ++at;
            continue;
        }
        unsettle(host);
        at = m_hosts.erase(at);
    }
}

} // namespace vintok::cluster
