#include "ServerReply.h"

#include <vintok/HTTPText.h>
#include <vintok/TCPAddress.h>

#include <sstream>
#include <string_view>

namespace app {

namespace {

std::string lowered(std::string text) {
    for (char &c : text) {
        vintok::TCPAddress::sf_lower(c);
    }
    return text;
}

std::string trimmed(const std::string &text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// The value of a parameter of a challenge: realm="x", realm=x.
std::string parameter(const std::string &challenge, std::size_t from, const std::string &name) {
    std::size_t at = lowered(challenge).find(name + '=', from);
    if (at == std::string::npos) {
        return "";
    }
    at += name.size() + 1;
    if (at == challenge.size() || challenge[at] != '"') {
        return challenge.substr(at, challenge.find_first_of(" ,", at) - at);
    }
    std::string value;
    for (++at; at < challenge.size() && challenge[at] != '"'; ++at) {
        if (challenge[at] == '\\' && at + 1 < challenge.size()) {
            ++at;
        }
        value += challenge[at];
    }
    return value;
}

void readChallenge(const std::string &value, ServerReply &reply) {
    if (reply.scheme.empty()) {
        reply.scheme = value.substr(0, value.find(' '));
    }
    const std::size_t basic = lowered(value).find(vintok::http_basic);
    if (basic != std::string::npos && !reply.takesBasic) {
        reply.takesBasic = true;
        reply.realm = parameter(value, basic, "realm");
    }
}

void readHeader(const std::string &line, ServerReply &reply) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) {
        return;
    }
    const std::string name = lowered(line.substr(0, colon));
    const std::string value = trimmed(line.substr(colon + 1));
    if (name == vintok::http_proxyAuthenticate || name == vintok::http_wwwAuthenticate) {
        readChallenge(value, reply);
    } else if (name == "location") {
        reply.location = value;
    } else if (name == lowered(vintok::http_pLorMUX_Reason)) {
        reply.detail = value;
    } else if (name == lowered(vintok::http_pLorMUX_Encrypt)) {
        reply.encryption = value;
    }
}

} // namespace

std::string ServerReply::text() const {
    return std::to_string(status) + (reason.empty() ? "" : ' ' + reason) +
           (detail.empty() ? "" : " (" + detail + ')');
}

ServerReply readServerReply(const std::string &text) {
    ServerReply reply;
    std::istringstream lines(text);
    std::string line;
    std::string protocol;
    std::getline(lines, line);
    std::istringstream first(line);
    if (first >> protocol >> reply.status) {
        std::getline(first, reply.reason);
        reply.reason = trimmed(reply.reason);
    }
    while (std::getline(lines, line)) {
        readHeader(line, reply);
    }
    return reply;
}

} // namespace app
