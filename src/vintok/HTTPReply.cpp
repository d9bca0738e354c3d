#include "vintok/HTTPReply.h"

#include "vintok/HTTPAddress.h"
#include "vintok/HTTPText.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace vintok {

namespace {

constexpr int unauthorized = 401;
constexpr int forbidden = 403;
constexpr int proxyAuthentication = 407;
constexpr std::size_t longestValue = 1023;

std::size_t findEither(const std::string &text, const char *first, const char *second,
                       std::size_t from = 0) {
    const std::size_t place = text.find(first, from);
    return place != std::string::npos ? place : text.find(second, from);
}

// Whether a challenge in lower case names a scheme that can be answered behind its header.
bool canAnswer(const std::string &reply, const char *header) {
    std::size_t place = reply.find(header);
    if (place != std::string::npos)
        place = reply.find(':', place);
    return place != std::string::npos &&
           findEither(reply, http_basic, http_ntlm, place) != std::string::npos;
}

} // namespace

std::optional<int> replyStatus(const std::string &reply) {
    const std::size_t start = findEither(reply, "HTTP", "http");
    if (start == std::string::npos)
        return std::nullopt;
    std::string text = reply.substr(start);
    for (char &c : text)
        TCPAddress::sf_lower(c);

    std::istringstream words(text);
    std::string protocol;
    int status = 0;
    if (!(words >> protocol >> status))
        return std::nullopt;
    if ((status == proxyAuthentication && !canAnswer(text, http_proxyAuthenticate)) ||
        (status == unauthorized && !canAnswer(text, http_wwwAuthenticate)))
        return forbidden;
    return status;
}

std::string headerValue(const std::string &reply, const std::string &name) {
    std::size_t place = reply.find(name);
    if (place == std::string::npos)
        return std::string();
    place += name.size();
    if (place == reply.size() || reply[place] != ':')
        return std::string();
    const auto isBlank = [](unsigned char c) { return std::isspace(c) != 0; };
    const auto begin = std::find_if_not(reply.begin() + static_cast<std::ptrdiff_t>(place) + 1,
                                        reply.end(), isBlank);
    const auto end =
        std::find_if(begin, reply.end(), [](char c) { return c == '\r' || c == '\n'; });
    return std::string(begin, end).substr(0, longestValue);
}

bool redirectTarget(const std::string &reply, HTTPAddress &target) {
    const std::size_t header = reply.find("Location:");
    if (header == std::string::npos)
        return false;
    const std::size_t url = findEither(reply, "http", "HTTP", header);
    // The URL ends with its line: what other headers say is no part of it.
    return url != std::string::npos &&
           target.setURL(reply.substr(url, reply.find_first_of("\r\n", url) - url));
}

} // namespace vintok
