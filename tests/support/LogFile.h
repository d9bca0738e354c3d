// What the library logs meanwhile, in a file of its own. The library must be started.
#ifndef VINTOK_TESTS_SUPPORT_LOGFILE_H
#define VINTOK_TESTS_SUPPORT_LOGFILE_H

#include "support/Matchers.h"
#include "support/TemporaryFolder.h"
#include "vintok/TCPStream.h"

#include <string>

namespace vintok::test {

// What a text file holds, with its lines ending as everywhere.
std::string textOf(const std::string &path);

// How often the part is in the text.
int occurrences(const std::string &text, const std::string &part);

class LogFile {
public:
    explicit LogFile(LogLevel level = LOG_DEBUG);
    ~LogFile();
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    std::string text() const { return textOf(m_path); }
    // How many entries consist of exactly this message.
    int entries(const std::string &message) const {
        return occurrences(text(), "\n{\n" + message + "\n}\n");
    }
    bool has(const std::string &message) const { return entries(message) > 0; }

private:
    const TemporaryFolder m_folder;
    const std::string m_path = m_folder.path("log");
    LogLevel m_before;
};

} // namespace vintok::test

#endif
