// An address that was given as a URL: a proxy's or multiplexing server's. Schemes are http and
// https; the host is a name, an IPv4 literal, or an IPv6 literal in brackets, which may be
// percent-encoded (RFC 3986).
//
// A plain value, as its base. Nothing here resolves a name, blocks, logs or sets a `TCPError`.
#ifndef VINTOK_HTTPADDRESS_H
#define VINTOK_HTTPADDRESS_H

#include "vintok/Export.h"
#include "vintok/TCPAddress.h"

#include <string>

namespace vintok {

class VINTOK_API HTTPAddress : public TCPAddress {
public:
    HTTPAddress() = default;
    // Without a URL and without TLS.
    explicit HTTPAddress(const TCPAddress &address);
    HTTPAddress(const HTTPAddress &) = default;
    HTTPAddress &operator=(const HTTPAddress &) = default;

    // Takes the address; there is then no URL and no TLS.
    HTTPAddress &operator=(const TCPAddress &address);

    // By address, as the base compares, and by TLS. The texts of the URLs have no say.
    bool operator==(const HTTPAddress &other) const;

    // Empties address and URL. Whether TLS is meant stays as it was, and `empty` does not ask it.
    void clear() override;
    bool empty() const override;

    // Whether TLS is meant: the scheme was https.
    bool isSSL() const { return m_isSSL; }
    void setSSL(bool on) { m_isSSL = on; }

    // Takes host, port and TLS from a URL. A host that is a literal sets the address, any other is
    // kept as the name, in lower case. No port, port 0 or a port that is no number means 443 with
    // TLS and 80 without. False, with the object unchanged, for any other scheme.
    bool setURL(const std::string &url);

    // The URL as it was given; false, with an empty text, when there is none.
    bool url(std::string &text) const;

    // What follows the slash behind the host, query and fragment included, without that slash.
    // False, with an empty text, when there is no URL.
    bool path(std::string &text) const;

private:
    std::string m_url;
    bool m_isSSL = false;
};

} // namespace vintok

#endif
