#include "platform/File.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <direct.h>
#include <io.h>
#include <locale.h>
#include <string_view>
#include <sys/stat.h>
#include <time.h>

namespace vintok::platform {

namespace {

constexpr int readAccess = 4;

// Names that mean a device in every folder, with any ending.
constexpr std::array<std::string_view, 30> deviceNames = {
    "CON",     "PRN",     "AUX",     "NUL",     "CONIN$",  "CONOUT$", "COM1", "COM2",
    "COM3",    "COM4",    "COM5",    "COM6",    "COM7",    "COM8",    "COM9", "LPT1",
    "LPT2",    "LPT3",    "LPT4",    "LPT5",    "LPT6",    "LPT7",    "LPT8", "LPT9",
    "COM\xB9", "COM\xB2", "COM\xB3", "LPT\xB9", "LPT\xB2", "LPT\xB3"};

// What the system sees: it drops the ending, and dots and blanks at the end.
std::string deviceStem(const std::string &name) {
    std::string stem = name.substr(0, name.find('.'));
    while (!stem.empty() && stem.back() == ' ')
        stem.pop_back();
    std::transform(stem.begin(), stem.end(), stem.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return stem;
}

} // namespace

std::FILE *openFile(const std::string &path, const char *mode) {
    // "N" opens without inheritance.
    return std::fopen(path.c_str(), (std::string(mode) + "N").c_str());
}

char pathSeparator() {
    return '\\';
}

bool fileSize(std::FILE *stream, std::int64_t &size) {
    struct _stat64 status = {};
    if (_fstat64(_fileno(stream), &status) != 0 || (status.st_mode & _S_IFMT) != _S_IFREG)
        return false;
    size = status.st_size;
    return true;
}

bool canRead(const std::string &path) {
    return _access(path.c_str(), readAccess) == 0;
}

bool makeDirectory(const std::string &path) {
    return _mkdir(path.c_str()) == 0;
}

bool removeFile(const std::string &path) {
    return _unlink(path.c_str()) == 0;
}

bool isReservedName(const std::string &name) {
    // A colon names a drive, or a stream inside a file. A name of dots and blanks alone is "." or
    // ".." once the system has dropped what it drops.
    if (name.find(':') != std::string::npos)
        return true;
    if (!name.empty() && name != "." && name.find_first_not_of(". ") == std::string::npos)
        return true;
    const std::string stem = deviceStem(name);
    return std::find(deviceNames.begin(), deviceNames.end(), stem) != deviceNames.end();
}

struct EnvironmentLocale::State {
    int perThread;
    std::string before;
};

EnvironmentLocale::EnvironmentLocale() {
    const int perThread = _configthreadlocale(_ENABLE_PER_THREAD_LOCALE);
    const char *before = setlocale(LC_ALL, nullptr);
    m_state = std::make_unique<State>(State{perThread, before != nullptr ? before : "C"});
    setlocale(LC_ALL, "");
}

EnvironmentLocale::~EnvironmentLocale() {
    setlocale(LC_ALL, m_state->before.c_str());
    _configthreadlocale(m_state->perThread);
}

bool localTime(std::time_t time, std::tm &result) {
    return localtime_s(&result, &time) == 0;
}

} // namespace vintok::platform
