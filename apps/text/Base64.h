// The form in which HTTP takes a user and a password (RFC 4648, section 4).
#ifndef VINTOK_APP_BASE64_H
#define VINTOK_APP_BASE64_H

#include <string>
#include <string_view>

namespace app {

std::string base64(std::string_view bytes);

} // namespace app

#endif
