// Which addresses may be called.
#ifndef MULTIPLEXER_RULES_H
#define MULTIPLEXER_RULES_H

#include "Endpoints.h"
#include "Request.h"

#include <string>
#include <string_view>
#include <vector>

namespace mux {

class Rules {
public:
    // HOST, HOST:PORT, ADDRESS, NETWORK/BITS or NETWORK/BITS:PORT; IPv6 with a port stands in
    // brackets, "[2001:db8::/32]:7777". Without a port every port is meant. False, changing
    // nothing, for anything else.
    bool add(std::string_view text);

    // By the name that a party is called by, whatever it resolves to.
    bool allowsName(const Authority &authority) const;
    // By the address that would be connected to.
    bool allowsAddress(const Endpoint &endpoint) const;
    // Whether a name that is not allowed as such may be by what it resolves to.
    bool mayAllowPort(std::uint16_t port) const;

private:
    struct Rule {
        std::string host;                 // of a rule for a name
        std::vector<unsigned char> bytes; // of a rule for a network
        unsigned int bits = 0;
        std::uint16_t port = 0; // 0: every
    };
    std::vector<Rule> m_rules;
};

} // namespace mux

#endif
