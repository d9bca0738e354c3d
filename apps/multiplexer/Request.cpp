#include "Request.h"

#include <algorithm>
#include <charconv>

namespace mux {

namespace {

constexpr std::size_t LONGEST_HOST = 255;
constexpr std::string_view BLANKS = " \t";

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalInAnyCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](char x, char y) { return lower(x) == lower(y); });
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return c > ' ' && c < 0x7F && c != ':';
    });
}

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(BLANKS);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(BLANKS) - begin + 1);
}

// Takes the first line of `text`, its end excluded.
std::string_view takeLine(std::string_view &text) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

bool parseRequestLine(std::string_view line, Request &request) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last) {
        return false;
    }
    const std::string_view version = line.substr(last + 1);
    const std::string_view target = line.substr(first + 1, last - first - 1);
    request.method = line.substr(0, first);
    request.target = target;
    return isToken(request.method) && !target.empty() &&
           target.find(' ') == std::string_view::npos &&
           (version == "HTTP/1.0" || version == "HTTP/1.1");
}

bool parseHeader(std::string_view line, Request &request) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || !isToken(line.substr(0, colon))) {
        return false;
    }
    request.headers.emplace_back(line.substr(0, colon), trimmed(line.substr(colon + 1)));
    return true;
}

bool isControl(unsigned char c) {
    return (c < ' ' && c != '\t' && c != '\r' && c != '\n') || c == 0x7F;
}

// `head` ends with a blank line.
bool parseHead(std::string_view head, Request &request) {
    request = Request();
    if (!parseRequestLine(takeLine(head), request)) {
        return false;
    }
    for (std::string_view line = takeLine(head); !line.empty(); line = takeLine(head)) {
        if (!parseHeader(line, request)) {
            return false;
        }
    }
    return true;
}

// Where the head ends whose bytes before `from` are known to hold no end; npos when it does not.
std::size_t endOfHead(std::string_view bytes, std::size_t from) {
    for (std::size_t at = bytes.find('\n', from); at != std::string_view::npos;
         at = bytes.find('\n', at + 1)) {
        const std::string_view rest = bytes.substr(at + 1, 2);
        if (rest.substr(0, 1) == "\n") {
            return at + 2;
        }
        if (rest == "\r\n") {
            return at + 3;
        }
    }
    return std::string_view::npos;
}

} // namespace

std::string Authority::text() const {
    const bool literal = host.find(':') != std::string::npos;
    return (literal ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

bool parseAuthority(std::string_view text, Authority &authority) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        return false;
    }
    std::string_view host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    const std::string_view digits = text.substr(colon + 1);
    int port = 0;
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (parsed.ec != std::errc() || parsed.ptr != digits.data() + digits.size() || port == 0 ||
        port < -32768 || port > 65535) {
        return false;
    }
    if (host.size() > LONGEST_HOST || !std::all_of(host.begin(), host.end(), [](unsigned char c) {
            return c > ' ' && c < 0x7F && c != '[' && c != ']' && c != '/';
        })) {
        return false;
    }
    authority.host.assign(host.size(), ' ');
    std::transform(host.begin(), host.end(), authority.host.begin(), lower);
    authority.port = static_cast<std::uint16_t>(port);
    return !host.empty();
}

std::string_view Request::header(std::string_view name) const {
    for (const auto &[key, value] : headers) {
        if (equalInAnyCase(key, name)) {
            return value;
        }
    }
    return {};
}

RequestReader::Result RequestReader::read(std::string_view bytes, Request &request,
                                          std::size_t &length) {
    // What begins with anything but a method will not become a request.
    if (!bytes.empty() && (bytes.front() < 'A' || bytes.front() > 'Z')) {
        return Result::bad;
    }
    const std::size_t end = endOfHead(bytes, m_seen < 2 ? 0 : m_seen - 2);
    const std::string_view head = bytes.substr(0, end);
    const std::string_view fresh = head.substr(std::min(m_seen, head.size()));
    if (std::any_of(fresh.begin(), fresh.end(), isControl)) {
        return Result::bad;
    }
    if (head.size() > m_limit) {
        return Result::tooLong;
    }
    m_seen = end == std::string_view::npos ? bytes.size() : 0;
    if (end == std::string_view::npos) {
        return Result::more;
    }
    length = end;
    return parseHead(head, request) ? Result::whole : Result::bad;
}

} // namespace mux
