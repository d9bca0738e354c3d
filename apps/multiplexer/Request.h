// What a client asks: the head of an HTTP request (RFC 9112), apart from how its bytes came.
#ifndef MULTIPLEXER_REQUEST_H
#define MULTIPLEXER_REQUEST_H

#include "Target.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <vintok/HTTPText.h>

namespace mux {

// A host and its port as a request names them: lower case, without brackets, and no port is 0.
using Authority = app::Target;

// "host:port", "[v6]:port" or "v6:port". Participants print the port behind CONNECT with a sign:
// one above 32767 is negative there. False for port 0, and for a host with blanks or brackets.
bool parseAuthority(std::string_view text, Authority &authority);

struct Request {
    std::string method;
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;

    // The value of the first header of that name, in whatever case; empty when there is none.
    std::string_view header(std::string_view name) const;
    bool says(std::string_view name, std::string_view value) const { return header(name) == value; }
};

// Collects a head from bytes that come in pieces of any size.
class RequestReader {
public:
    // A head is refused as soon as more bytes than this have come without its end.
    explicit RequestReader(std::size_t limit) : m_limit(limit) {}

    enum class Result { more, whole, bad, tooLong };

    // Looks at all the bytes that have come so far, of which the earlier ones are the same as the
    // last time. After `whole` the request is in `request` and its head was `length` bytes long.
    Result read(std::string_view bytes, Request &request, std::size_t &length);

private:
    std::size_t m_limit;
    std::size_t m_seen = 0;
    vintok::HTTPHeadEnd m_end;
};

} // namespace mux

#endif
