#include "Credentials.h"

#include "Base64.h"
#include "Text.h"

#include <vintok/HTTPText.h>

namespace mux {

namespace {

// Always walks the whole of `given`.
bool equalInConstantTime(std::string_view given, std::string_view secret) {
    unsigned int difference = given.size() == secret.size() ? 0 : 1;
    for (std::size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i]) ^
                      static_cast<unsigned char>(secret[i % secret.size()]);
    }
    return difference == 0;
}

} // namespace

bool Credentials::add(std::string_view pair) {
    if (pair.find(':') == std::string_view::npos)
        return false;
    m_accepted.push_back(app::base64(pair));
    return true;
}

bool Credentials::accept(std::string_view authorization) const {
    const std::size_t blank = authorization.find(' ');
    if (blank == std::string_view::npos)
        return false;
    const std::string scheme = app::lowered(authorization.substr(0, blank));
    const std::string_view given = authorization.substr(blank + 1);
    bool good = false;
    for (const std::string &accepted : m_accepted) // all of them, whichever matches
        good = equalInConstantTime(given, accepted) || good;
    return good && scheme == vintok::http_basic;
}

} // namespace mux
