// Who is let in: names and passwords of the `Basic` scheme (RFC 7617).
#ifndef MULTIPLEXER_CREDENTIALS_H
#define MULTIPLEXER_CREDENTIALS_H

#include <string>
#include <string_view>
#include <vector>

namespace mux {

class Credentials {
public:
    // "name:password". False when there is no colon.
    bool add(std::string_view pair);

    // Nobody is asked for any.
    bool empty() const { return m_accepted.empty(); }

    // Whether the value of an authorization header is good. How long that takes tells nothing about
    // how near a wrong one came.
    bool accept(std::string_view authorization) const;

private:
    std::vector<std::string> m_accepted; // in the form that is sent
};

} // namespace mux

#endif
