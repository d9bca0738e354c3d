// Files, paths and the local calendar, where the systems differ.
#ifndef VINTOK_PLATFORM_FILE_H
#define VINTOK_PLATFORM_FILE_H

#include <cstdio>
#include <ctime>
#include <string>

namespace vintok::platform {

// As `fopen`; children do not inherit the stream.
std::FILE *openFile(const std::string &path, const char *mode);

// '/' or '\\'.
char pathSeparator();

// The broken-down local time of `time`; false when the system cannot tell.
bool localTime(std::time_t time, std::tm &result);

} // namespace vintok::platform

#endif
