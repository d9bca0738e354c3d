#include "platform/File.h"

#include <SystemSockets.h>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <direct.h>
#include <fcntl.h>
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

// Waits, for a second at most, until nobody else appends to the file: what a stream holds may take
// several writes. The lock, on a byte that no file has, goes with the handle.
void awaitTurn(HANDLE file) {
    for (int tries = 0; tries < 1000; ++tries) {
        OVERLAPPED place = {};
        place.OffsetHigh = 0x7FFFFFFF;
        if (LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place))
            return;
        Sleep(1);
    }
}

// The runtime's own way to append looks for the end first and then writes there, over what others
// have written meanwhile. Here the system finds the end with each write. Null on failure, and then
// `errno` is not set.
std::FILE *openAppending(const std::string &path, const char *mode) {
    const HANDLE handle = CreateFileA(path.c_str(), FILE_APPEND_DATA | GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return nullptr;
    awaitTurn(handle);
    const int text = std::strchr(mode, 'b') == nullptr ? _O_TEXT : _O_BINARY;
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle), text);
    if (descriptor == -1) {
        CloseHandle(handle);
        return nullptr;
    }
    std::FILE *stream = _fdopen(descriptor, mode);
    if (stream == nullptr)
        _close(descriptor);
    return stream;
}

} // namespace

std::FILE *openFile(const std::string &path, const char *mode) {
    const bool appending = mode[0] == 'a' && std::strchr(mode, '+') == nullptr;
    if (std::FILE *stream = appending ? openAppending(path, mode) : nullptr; stream != nullptr)
        return stream;
    // "N" opens without inheritance.
    return std::fopen(path.c_str(), (std::string(mode) + "N").c_str());
}

std::size_t writeFile(std::FILE *stream, const unsigned char *bytes, std::size_t length) {
    return std::fwrite(bytes, 1, length, stream);
}

bool closeFile(std::FILE *stream) {
    return std::fclose(stream) == 0;
}

std::FILE *createPrivateFile(const std::string &path) {
    return createFile(path);
}

std::FILE *createFile(const std::string &path) {
    const int flags = _O_WRONLY | _O_CREAT | _O_EXCL | _O_NOINHERIT | _O_BINARY;
    const int descriptor = _open(path.c_str(), flags, _S_IREAD | _S_IWRITE);
    std::FILE *stream = descriptor == -1 ? nullptr : _fdopen(descriptor, "wb");
    if (descriptor != -1 && stream == nullptr)
        _close(descriptor);
    return stream;
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

bool isReadableFile(const std::string &path) {
    struct _stat64 status = {};
    return canRead(path) && _stat64(path.c_str(), &status) == 0 &&
           (status.st_mode & _S_IFMT) != _S_IFDIR && (status.st_mode & _S_IFMT) != _S_IFCHR;
}

bool isOrdinary(const std::string &path) {
    constexpr DWORD standsForAnother = 0x20000000; // of the tags of links, and not of other points
    WIN32_FIND_DATAA found = {};
    const HANDLE search = FindFirstFileA(path.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return true;
    FindClose(search);
    return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 ||
           (found.dwReserved0 & standsForAnother) == 0;
}

bool isFolder(const std::string &path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool makeDirectory(const std::string &path) {
    return _mkdir(path.c_str()) == 0;
}

bool removeFile(const std::string &path) {
    return _unlink(path.c_str()) == 0;
}

bool replaceFile(const std::string &path, const std::string &name) {
    return MoveFileExA(path.c_str(), name.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
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
