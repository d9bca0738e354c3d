// Internal. What a proxy or multiplexing server answered, apart from how its bytes came.
#ifndef VINTOK_HTTPREPLY_H
#define VINTOK_HTTPREPLY_H

#include <optional>
#include <string>

namespace vintok {

class HTTPAddress;

// The status of a reply (RFC 9110). A challenge, 401 or 407, that asks for neither basic nor NTLM
// authentication cannot be met and counts as 403. Nothing for a text that is no reply.
std::optional<int> replyStatus(const std::string &reply);

// The value of a header, which is found by its name as it is written here; empty when there is
// none. At most 1023 characters.
std::string headerValue(const std::string &reply, const std::string &name);

// Where a reply of status 302 sends the caller. False when it does not say.
bool redirectTarget(const std::string &reply, HTTPAddress &target);

} // namespace vintok

#endif
