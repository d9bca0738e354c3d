// The colours of a meeting over its hosts: blocks of 64 that the host with authority gives away,
// each to one host, and none a second time while another is left.
#ifndef VINTOK_CLUSTER_COLORS_H
#define VINTOK_CLUSTER_COLORS_H

#include "vintok-cluster/Wire.h"

#include <bitset>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace vintok::cluster {

class Colors {
public:
    static constexpr std::uint16_t none = 65535;
    static constexpr std::uint16_t blockSize = 64;
    static constexpr std::uint16_t blocks = 65535 / blockSize;

    // ---- What this host has ----

    std::uint16_t take();
    // It will soon be without.
    bool wants() const { return m_fresh.size() < blockSize / 4; }
    // False for one that it has already.
    bool gain(const Block &block);
    const std::vector<Block> &own() const { return m_own; }

    // ---- What others have ----

    // Another host says that it has these. Where both have one, the older grantor's counts, and of
    // the same one the older host. True if this host has given one of its own up.
    bool compare(const Rank &self, const Rank &other, const std::vector<Block> &theirs);

    // ---- With authority ----

    // The block for this host: the one that was granted and that it does not list yet, or another.
    // Nothing when all are out.
    std::optional<std::uint16_t> grant(std::uint64_t host);
    // It lists it now.
    void confirm(std::uint64_t host, const std::vector<Block> &theirs);
    std::optional<std::uint16_t> unused();
    void forgetGrants() { m_grants.clear(); }
    const std::map<std::uint64_t, std::uint16_t> &grants() const { return m_grants; }

private:
    std::vector<Block> m_own;
    std::vector<std::uint16_t> m_fresh; // colours, the next one last
    std::bitset<blocks> m_seen;
    std::map<std::uint64_t, std::uint16_t> m_grants;
};

} // namespace vintok::cluster

#endif
