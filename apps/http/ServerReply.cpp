#include "ServerReply.h"

#include "HTTPHead.h"
#include "Text.h"

#include <sstream>
#include <vintok/HTTPText.h>

namespace app {

namespace {

// The value of a parameter of a challenge: realm="x", realm=x.
std::string parameter(const std::string &challenge, std::size_t from, const std::string &name) {
    std::size_t at = lowered(challenge).find(name + '=', from);
    if (at == std::string::npos)
        return "";
    at += name.size() + 1;
    if (at == challenge.size() || challenge[at] != '"')
        return challenge.substr(at, challenge.find_first_of(" ,", at) - at);
    std::string value;
    for (++at; at < challenge.size() && challenge[at] != '"'; ++at) {
        if (challenge[at] == '\\' && at + 1 < challenge.size())
            ++at;
        value += challenge[at];
    }
    return value;
}

void readChallenge(const std::string &value, ServerReply &reply) {
    if (reply.scheme.empty())
        reply.scheme = value.substr(0, value.find(' '));
    const std::size_t basic = lowered(value).find(vintok::http_basic);
    if (basic != std::string::npos && !reply.takesBasic) {
        reply.takesBasic = true;
        reply.realm = parameter(value, basic, "realm");
    }
}

void readHeader(const Header &header, ServerReply &reply) {
    const std::string name = lowered(header.name);
    const std::string value(header.value);
    if (name == vintok::http_proxyAuthenticate || name == vintok::http_wwwAuthenticate)
        readChallenge(value, reply);
    else if (name == "location")
        reply.location = value;
    else if (name == lowered(vintok::http_pLorMUX_Reason))
        reply.detail = value;
    else if (name == lowered(vintok::http_pLorMUX_Encrypt))
        reply.encryption = value;
}

} // namespace

std::string ServerReply::text() const {
    return std::to_string(status) + (reason.empty() ? "" : ' ' + reason) +
           (detail.empty() ? "" : " (" + detail + ')');
}

std::string ServerReply::challengeFault(bool answered) const {
    return answered ? " does not accept the user name or the password"
           : takesBasic
               ? ""
               : " asks for credentials by the scheme '" + scheme + "'; only 'basic' is known here";
}

ServerReply readServerReply(std::string_view text) {
    ServerReply reply;
    std::istringstream first{std::string(takeLine(text))};
    std::string protocol;
    if (first >> protocol >> reply.status) {
        std::getline(first, reply.reason);
        reply.reason = trimmed(reply.reason);
    }
    for (Header header; !text.empty();)
        if (splitHeader(takeLine(text), header))
            readHeader(header, reply);
    return reply;
}

} // namespace app
