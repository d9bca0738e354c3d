// What the library logs meanwhile, in a file of its own. The library must be started.
#ifndef VINTOK_TESTS_SUPPORT_LOGFILE_H
#define VINTOK_TESTS_SUPPORT_LOGFILE_H

#include "vintok/TCPStream.h"

#include <string>

namespace vintok::test {

class LogFile {
public:
    explicit LogFile(LogLevel level = LOG_DEBUG);
    ~LogFile();
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    std::string text() const;
    // How many entries consist of exactly this message.
    int entries(const std::string &message) const;
    bool has(const std::string &message) const { return entries(message) > 0; }

private:
    std::string m_path;
    LogLevel m_before;
};

} // namespace vintok::test

#endif
