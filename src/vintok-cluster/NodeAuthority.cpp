// Which hosts are there, which of them has authority, and what it decides: who leads, and which
// colours each host gives away.
//
// Authority has the host of the smallest rank among those that are in the meeting. As long as one
// of them is settled, only settled ones count: who comes waits a moment before it takes part in
// this, and ranks itself behind whom it finds.
#include "vintok-cluster/Node.h"

#include <utility>

namespace vintok::cluster {

namespace {

constexpr std::uint64_t longestTurn = 1000; // milliseconds; more means that this host stood still

} // namespace

// The time that this host stood still does not count: what the others said meanwhile is yet to be
// read.
void Node::lookForSilence() {
    const std::uint64_t pause = m_now - std::exchange(m_lastTurn, m_now);
    for (const auto &[incarnation, host] : m_hosts) {
        if (pause > longestTurn && host->isLive)
            host->heard = std::min(m_now, host->heard + pause);
        if (host->isLive && !host->isEnded && m_now - host->heard > m_options.hostTimeout) {
            host->isLive = false;
            ++m_counters.hostsLost;
            unsettle(*host);
        }
        const bool counts = host->isLive && !host->isEnded;
        if (counts != std::exchange(host->isCounted, counts)) {
            m_beatWanted = true;
            m_side.happened(counts ? Side::Event::came : Side::Event::went, incarnation);
        }
    }
}

void Node::lookForAuthority() {
    // Settled ones first, and then by rank.
    std::pair<bool, Rank> best(true, {});
    bool isAnybody = false;
    const auto consider = [&](bool isSettled, const Rank &rank) {
        const std::pair candidate(!isSettled, rank);
        if (!isAnybody || candidate < best)
            best = candidate;
        isAnybody = true;
    };
    for (const auto &[incarnation, host] : m_hosts)
        if (host->isLive && !host->isEnded && host->beat.has(Beat::takesPart))
            consider(host->beat.has(Beat::settled), host->beat.rank);
    const bool isSettled = m_now >= m_claimsFrom;
    if (takesPart() && (isSettled || isAnybody))
        consider(isSettled, m_rank);
    const std::uint64_t authority = isAnybody ? best.second.incarnation : 0;
    if (authority == m_authority)
        return;
    m_authority = authority;
    m_authoritySince = m_now;
    m_leaderTaken = false;
    m_colors.forgetGrants();
    m_beatWanted = true;
    if (takesPart())
        m_side.authorityChanged();
    if (hasAuthority())
        m_leader = m_side.leader();
    m_side.happened(Side::Event::authority, authority);
}

void Node::takeLeader() {
    const auto found = m_hosts.find(m_authority);
    if (found == m_hosts.end() || !takesPart())
        return;
    const TCPAddress &leader = found->second->beat.leader;
    if (keyOf(leader) != keyOf(m_leader)) {
        m_leader = leader;
        m_leaderTaken = false;
    }
    if (!m_leaderTaken && !leader.empty())
        m_leaderTaken = m_side.leader(TCPAddress(leader));
}

// A new authority hears first which blocks are out.
void Node::giveBlocks() {
    if (!hasAuthority() || (!m_hosts.empty() && m_now - m_authoritySince < 2 * m_beatTime))
        return;
    if (m_colors.wants())
        if (const auto number = m_colors.unused())
            m_colorsGained = m_colors.gain({*number, m_rank}) || m_colorsGained;
    for (const auto &[incarnation, host] : m_hosts) {
        if (!host->isLive || host->isEnded || !host->beat.has(Beat::wantsColors))
            continue;
        const std::size_t before = m_colors.grants().size();
        m_colors.grant(incarnation);
        m_beatWanted = m_beatWanted || m_colors.grants().size() != before;
    }
}

void Node::takeBlocks(const RemoteHost &host) {
    m_colors.confirm(host.beat.rank.incarnation, host.beat.blocks);
    m_colorsLost = m_colors.compare(m_rank, host.beat.rank, host.beat.blocks) || m_colorsLost;
    if (host.beat.rank.incarnation != m_authority)
        return;
    for (const auto &[to, number] : host.beat.grants)
        if (to == m_rank.incarnation && m_colors.gain({number, host.beat.rank})) {
            m_colorsGained = true;
            m_beatWanted = true;
        }
}

void Node::takeColors() {
    const bool lost = std::exchange(m_colorsLost, false);
    const bool gained = std::exchange(m_colorsGained, false);
    if ((lost || gained) && takesPart())
        m_side.giveColors(lost);
}

} // namespace vintok::cluster
