#include "Rules.h"

#include "Target.h"
#include "Text.h"

#include <algorithm>

namespace mux {

namespace {

bool covers(std::uint16_t rulePort, std::uint16_t port) {
    return rulePort == 0 || rulePort == port;
}

bool inNetwork(const std::vector<unsigned char> &address, const std::vector<unsigned char> &network,
               unsigned int bits) {
    if (address.size() != network.size())
        return false;
    for (std::size_t i = 0; i < address.size() && i * 8 < bits; ++i) {
        const std::size_t left = bits - i * 8;
        const unsigned int mask = left >= 8 ? 0xFFu : 0xFF00u >> left & 0xFFu;
        if (((address[i] ^ network[i]) & mask) != 0)
            return false;
    }
    return true;
}

} // namespace

bool Rules::add(std::string_view text) {
    Rule rule;
    std::string_view host;
    if (!app::splitPort(text, host, rule.port))
        return false;
    const std::size_t slash = host.find('/');
    Endpoint endpoint;
    if (makeEndpoint(std::string(host.substr(0, slash)), 0, endpoint)) {
        rule.bytes = addressBytes(endpoint);
        const auto most = static_cast<unsigned short>(rule.bytes.size() * 8);
        unsigned short bits = most;
        if (slash != std::string_view::npos &&
            (!app::parseNumber(host.substr(slash + 1), bits) || bits > most))
            return false;
        rule.bits = bits;
    } else {
        Authority named;
        if (slash != std::string_view::npos || !parseAuthority(std::string(host) + ":1", named))
            return false;
        rule.host = named.host;
    }
    m_rules.push_back(rule);
    return true;
}

bool Rules::allowsName(const Authority &authority) const {
    return std::any_of(
        m_rules.begin(), m_rules.end(),
        [&](const Rule &rule) {
            return !rule.host.empty() && rule.host == authority.host &&
                   covers(rule.port, authority.port);
        });
}

bool Rules::allowsAddress(const Endpoint &endpoint) const {
    const std::vector<unsigned char> bytes = addressBytes(endpoint);
    return std::any_of(m_rules.begin(), m_rules.end(), [&](const Rule &rule) {
        return rule.host.empty() && inNetwork(bytes, rule.bytes, rule.bits) &&
               covers(rule.port, portOf(endpoint));
    });
}

bool Rules::mayAllowPort(std::uint16_t port) const {
    return std::any_of(
        m_rules.begin(), m_rules.end(),
        [&](const Rule &rule) { return rule.host.empty() && covers(rule.port, port); });
}

} // namespace mux
