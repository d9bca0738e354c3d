#include "platform/File.h"

#include "platform/posix/HeldSignal.h"

#include <fcntl.h>
#include <locale.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace vintok::platform {

namespace {

std::FILE *create(const std::string &path, mode_t mode) {
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    std::FILE *stream = descriptor == -1 ? nullptr : fdopen(descriptor, "w");
    if (descriptor != -1 && stream == nullptr)
        close(descriptor);
    return stream;
}

} // namespace

std::FILE *openFile(const std::string &path, const char *mode) {
    // "e" opens close-on-exec.
    return std::fopen(path.c_str(), (std::string(mode) + "e").c_str());
}

std::size_t writeFile(std::FILE *stream, const unsigned char *bytes, std::size_t length) {
    // What only goes to the stream's buffer raises no signal.
    if (__fpending(stream) + length < __fbufsize(stream))
        return std::fwrite(bytes, 1, length, stream);
    HeldSignal tooBig(SIGXFSZ);
    const std::size_t written = std::fwrite(bytes, 1, length, stream);
    if (written < length && errno == EFBIG)
        tooBig.takeOut();
    return written;
}

bool closeFile(std::FILE *stream) {
    HeldSignal tooBig(SIGXFSZ);
    const bool closed = std::fclose(stream) == 0;
    if (!closed && errno == EFBIG)
        tooBig.takeOut();
    return closed;
}

std::FILE *createFile(const std::string &path) {
    return create(path, 0666);
}

std::FILE *createPrivateFile(const std::string &path) {
    return create(path, 0600);
}

char pathSeparator() {
    return '/';
}

bool fileSize(std::FILE *stream, std::int64_t &size) {
    struct stat status = {};
    if (fstat(fileno(stream), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    size = status.st_size;
    return true;
}

bool canRead(const std::string &path) {
    return access(path.c_str(), R_OK) == 0;
}

bool isReadableFile(const std::string &path) {
    struct stat status = {};
    return canRead(path) && stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode) &&
           !S_ISCHR(status.st_mode);
}

bool isOrdinary(const std::string &path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

bool isFolder(const std::string &path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool makeDirectory(const std::string &path) {
    return mkdir(path.c_str(), 0777) == 0;
}

bool removeFile(const std::string &path) {
    return unlink(path.c_str()) == 0;
}

bool replaceFile(const std::string &path, const std::string &name) {
    return rename(path.c_str(), name.c_str()) == 0;
}

bool isReservedName(const std::string &) {
    return false; // devices have their own folder, and ".." is the caller's to see
}

struct EnvironmentLocale::State {
    locale_t ours;
    locale_t before;
};

EnvironmentLocale::EnvironmentLocale() : m_state(std::make_unique<State>()) {
    m_state->ours = newlocale(LC_ALL_MASK, "", locale_t{});
    if (m_state->ours == locale_t{})
        m_state.reset();
    else
        m_state->before = uselocale(m_state->ours);
}

EnvironmentLocale::~EnvironmentLocale() {
    if (m_state == nullptr)
        return;
    uselocale(m_state->before);
    freelocale(m_state->ours);
}

bool localTime(std::time_t time, std::tm &result) {
    return localtime_r(&time, &result) != nullptr;
}

} // namespace vintok::platform
