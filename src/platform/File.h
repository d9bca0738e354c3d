// Files, paths and the local calendar, where the systems differ.
#ifndef VINTOK_PLATFORM_FILE_H
#define VINTOK_PLATFORM_FILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

namespace vintok::platform {

// As `fopen`; children do not inherit the stream.
std::FILE *openFile(const std::string &path, const char *mode);

struct CloseFile {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// As `fwrite` and `fclose`. A file that has become as big as the system lets it is an error like
// any other, and no signal.
std::size_t writeFile(std::FILE *stream, const unsigned char *bytes, std::size_t length);
bool closeFile(std::FILE *stream);

// Create a file and open it for writing bytes. Null, with `errno`, when the path exists, whatever
// it is. The private one its owner alone may read; where files have no modes it is like any other.
std::FILE *createFile(const std::string &path);
std::FILE *createPrivateFile(const std::string &path);

// '/' or '\\'.
char pathSeparator();

// The size in bytes of an open file, wherever it stands; false for what has none.
bool fileSize(std::FILE *stream, std::int64_t &size);

bool canRead(const std::string &path);
// Can be read, and is neither a folder nor a character device.
bool isReadableFile(const std::string &path);
// Whether the path names a file or folder itself, or nothing yet: no link to another place, no
// device, no pipe.
bool isOrdinary(const std::string &path);
bool isFolder(const std::string &path); // also by a link
bool makeDirectory(const std::string &path);
bool removeFile(const std::string &path);
// Gives a file another name in the same folder, in place of a file that has it.
bool replaceFile(const std::string &path, const std::string &name);

// Whether a name in a path stands for something other than a file of that name: a device, a drive,
// a stream inside another file.
bool isReservedName(const std::string &name);

// While it lives this thread reads multi-byte text as the environment says.
class EnvironmentLocale {
public:
    EnvironmentLocale();
    ~EnvironmentLocale();
    EnvironmentLocale(const EnvironmentLocale &) = delete;
    EnvironmentLocale &operator=(const EnvironmentLocale &) = delete;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// The broken-down local time of `time`; false when the system cannot tell.
bool localTime(std::time_t time, std::tm &result);

} // namespace vintok::platform

#endif
