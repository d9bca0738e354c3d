#include "Failure.h"

#include <platform/SocketErrors.h>
#include <vintok/TCPStream.h>

namespace app {

std::string withLastFailure(const std::string &text) {
    // The context: the operation, then a line with the headline, then lines that explain.
    const std::string context = vintok::lastErrorString();
    const std::size_t begin = context.find('\n');
    if (begin == std::string::npos)
        return text;
    std::string headline = context.substr(begin + 1, context.find('\n', begin + 1) - begin - 1);
    while (!headline.empty() && headline.back() == '.')
        headline.pop_back();
    return headline.empty() ? text : text + ": " + headline;
}

bool lastFailureIsTakenPort() {
    const auto says = [context = vintok::lastErrorString()](int error) {
        return context.find(vintok::sysErrorString(error)) != std::string::npos;
    };
    // Windows has two ways to say it.
    return says(vintok::socketErrors::addressInUse) || says(vintok::socketErrors::accessDenied);
}

} // namespace app
