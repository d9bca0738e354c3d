#include "platform/File.h"

#include <time.h>

namespace vintok::platform {

std::FILE *openFile(const std::string &path, const char *mode) {
    // "e" opens close-on-exec.
    return std::fopen(path.c_str(), (std::string(mode) + "e").c_str());
}

char pathSeparator() {
    return '/';
}

bool localTime(std::time_t time, std::tm &result) {
    return localtime_r(&time, &result) != nullptr;
}

} // namespace vintok::platform
