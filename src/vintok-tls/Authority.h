// A certificate authority in memory: makes keys and signs certificates.
#ifndef VINTOK_TLS_AUTHORITY_H
#define VINTOK_TLS_AUTHORITY_H

#include "vintok-tls/OpenSSL.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vintok::tls {

// Both as PEM text.
struct Issued {
    std::string certificate;
    std::string key;
};

struct Request {
    std::string commonName;
    std::vector<std::string> names; // DNS names and IP addresses that it is for
    std::int64_t from = 0;          // seconds since 1970, UTC
    std::int64_t until = 0;
};

class Authority {
public:
    // A key and the root that is signed with it. Each failure leaves its words.
    bool create(const std::string &commonName, std::int64_t from, std::int64_t until,
                std::string &words);

    // A certificate for either side of a connection, with a key of its own.
    bool issue(const Request &request, Issued &issued, std::string &words) const;

    const Issued &own() const { return m_own; }

private:
    Certificate m_certificate;
    Key m_key;
    Issued m_own;
};

} // namespace vintok::tls

#endif
