#include "Target.h"

#include "Text.h"

#include <algorithm>

namespace app {

std::string Target::text() const {
    std::string result = host.find(':') == std::string::npos ? host : '[' + host + ']';
    return port == 0 ? result : result + ':' + std::to_string(port);
}

bool splitPort(std::string_view text, std::string_view &host, unsigned short &port) {
    host = text;
    port = 0;
    std::string_view rest;
    if (!text.empty() && text.front() == '[') {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos)
            return false;
        host = text.substr(1, end - 1);
        rest = text.substr(end + 1);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        host = text.substr(0, text.find(':'));
        rest = text.substr(host.size());
    }
    return !host.empty() && (rest.empty() || (rest.front() == ':' &&
                                              parseNumber(rest.substr(1), port) && port != 0));
}

bool parseTarget(std::string_view text, Target &target) {
    std::string_view host;
    unsigned short port = 0;
    if (!splitPort(text, host, port) || std::any_of(host.begin(), host.end(), [](unsigned char c) {
            return c <= ' ' || c == 0x7F || c == '/' || c == '[' || c == ']';
        }))
        return false;
    target.host = host;
    target.port = port;
    return true;
}

} // namespace app
