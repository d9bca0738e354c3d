#include "vintok/Version.h"

namespace vintok {

const char *version() noexcept {
    return VINTOK_VERSION_TEXT;
}

std::uint32_t versionNumber() noexcept {
    return VINTOK_VERSION;
}

} // namespace vintok
