#include "Request.h"

#include "HTTPHead.h"
#include "Text.h"

#include <algorithm>

namespace mux {

namespace {

constexpr std::size_t longestHost = 255;

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(
                                text.begin(), text.end(),
                                [](unsigned char c) { return c > ' ' && c < 0x7F && c != ':'; });
}

bool parseRequestLine(std::string_view line, Request &request) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last)
        return false;
    const std::string_view version = line.substr(last + 1);
    const std::string_view target = line.substr(first + 1, last - first - 1);
    request.method = line.substr(0, first);
    request.target = target;
    return isToken(request.method) && !target.empty() &&
           target.find(' ') == std::string_view::npos &&
           (version == "HTTP/1.0" || version == "HTTP/1.1");
}

bool parseHeader(std::string_view line, Request &request) {
    app::Header header;
    if (!app::splitHeader(line, header) || !isToken(header.name))
        return false;
    request.headers.emplace_back(header.name, header.value);
    return true;
}

bool isControl(unsigned char c) {
    return (c < ' ' && c != '\t' && c != '\r' && c != '\n') || c == 0x7F;
}

// `head` ends with a blank line.
bool parseHead(std::string_view head, Request &request) {
    request = Request();
    if (!parseRequestLine(app::takeLine(head), request))
        return false;
    for (std::string_view line = app::takeLine(head); !line.empty(); line = app::takeLine(head))
        if (!parseHeader(line, request))
            return false;
    return true;
}

} // namespace

bool parseAuthority(std::string_view text, Authority &authority) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos)
        return false;
    std::string_view host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    int port = 0;
    if (!app::parseNumber(text.substr(colon + 1), port) || port == 0 || port < -32768 ||
        port > 65535)
        return false;
    if (host.size() > longestHost || !std::all_of(host.begin(), host.end(), [](unsigned char c) {
            return c > ' ' && c < 0x7F && c != '[' && c != ']' && c != '/';
        }))
        return false;
    authority.host = app::lowered(host);
    authority.port = static_cast<std::uint16_t>(port);
    return !host.empty();
}

std::string_view Request::header(std::string_view name) const {
    const std::string wanted = app::lowered(name);
    for (const auto &[key, value] : headers)
        if (app::lowered(key) == wanted)
            return value;
    return {};
}

RequestReader::Result RequestReader::read(std::string_view bytes, Request &request,
                                          std::size_t &length) {
    // What begins with anything but a method will not become a request.
    if (!bytes.empty() && (bytes.front() < 'A' || bytes.front() > 'Z'))
        return Result::bad;
    const std::string_view fresh = bytes.substr(m_seen);
    const auto end =
        std::find_if(fresh.begin(), fresh.end(), [this](char c) { return m_end.take(c); });
    const bool whole = end != fresh.end();
    length = static_cast<std::size_t>(end - fresh.begin()) + m_seen + (whole ? 1 : 0);
    if (std::any_of(fresh.begin(), end, isControl))
        return Result::bad;
    if (length > m_limit)
        return Result::tooLong;
    m_seen = whole ? 0 : length;
    if (!whole)
        return Result::more;
    m_end = vintok::HTTPHeadEnd();
    return parseHead(bytes.substr(0, length), request) ? Result::whole : Result::bad;
}

} // namespace mux
