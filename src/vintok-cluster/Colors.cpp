#include "vintok-cluster/Colors.h"

#include <algorithm>
#include <utility>

namespace vintok::cluster {

std::uint16_t Colors::take() {
    if (m_fresh.empty())
        return none;
    const std::uint16_t color = m_fresh.back();
    m_fresh.pop_back();
    return color;
}

bool Colors::gain(const Block &block) {
    const auto isSame = [&](const Block &other) { return other.number == block.number; };
    if (block.number >= blocks || std::any_of(m_own.begin(), m_own.end(), isSame))
        return false;
    m_own.push_back(block);
    m_seen.set(block.number);
    std::vector<std::uint16_t> fresh;
    for (std::uint16_t color = blockSize; color-- > 0;)
        fresh.push_back(static_cast<std::uint16_t>(block.number * blockSize + color));
    fresh.insert(fresh.end(), m_fresh.begin(), m_fresh.end()); // older ones first
    m_fresh = std::move(fresh);
    return true;
}

bool Colors::compare(const Rank &self, const Rank &other, const std::vector<Block> &theirs) {
    bool lost = false;
    for (const Block &block : theirs) {
        if (block.number >= blocks)
            continue;
        m_seen.set(block.number);
        const auto isOlder = [&](const Block &mine) {
            return mine.number == block.number &&
                   std::pair(block.grantor, other) < std::pair(mine.grantor, self);
        };
        if (std::erase_if(m_own, isOlder) == 0)
            continue;
        lost = true;
        std::erase_if(m_fresh,
                      [&](std::uint16_t color) { return color / blockSize == block.number; });
    }
    return lost;
}

std::optional<std::uint16_t> Colors::unused() {
    for (std::uint16_t number = 0; number < blocks; ++number)
        if (!m_seen.test(number)) {
            m_seen.set(number);
            return number;
        }
    return std::nullopt;
}

std::optional<std::uint16_t> Colors::grant(std::uint64_t host) {
    const auto found = m_grants.find(host);
    if (found != m_grants.end())
        return found->second;
    const auto number = unused();
    if (number)
        m_grants.emplace(host, *number);
    return number;
}

void Colors::confirm(std::uint64_t host, const std::vector<Block> &theirs) {
    const auto found = m_grants.find(host);
    if (found != m_grants.end() &&
        std::any_of(theirs.begin(), theirs.end(),
                    [&](const Block &block) { return block.number == found->second; }))
        m_grants.erase(found);
}

} // namespace vintok::cluster
