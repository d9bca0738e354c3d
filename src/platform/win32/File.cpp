#include "platform/File.h"

#include <time.h>

namespace vintok::platform {

std::FILE *openFile(const std::string &path, const char *mode) {
    // "N" opens without inheritance.
    return std::fopen(path.c_str(), (std::string(mode) + "N").c_str());
}

char pathSeparator() {
    return '\\';
}

bool localTime(std::time_t time, std::tm &result) {
    return localtime_s(&result, &time) == 0;
}

} // namespace vintok::platform
