#include "support/LogFile.h"

#include "platform/Thread.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace vintok::test {

LogFile::LogFile(LogLevel level) : m_before(logLevel()) {
    static int number = 0;
    const std::string name = "vintok-test-" + std::to_string(platform::currentProcessId()) + "-" +
                             std::to_string(++number) + ".log";
    m_path = (std::filesystem::temp_directory_path() / name).string();
    std::filesystem::remove(m_path);
    setLogFileName(m_path);
    setLogLevel(level);
}

LogFile::~LogFile() {
    setLogLevel(m_before);
    setLogFileName("");
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

std::string LogFile::text() const {
    std::ostringstream text;
    text << std::ifstream(m_path).rdbuf();
    return text.str();
}

int LogFile::entries(const std::string &message) const {
    const std::string all = text();
    const std::string wanted = "\n{\n" + message + "\n}\n";
    int count = 0;
    for (auto at = all.find(wanted); at != std::string::npos; at = all.find(wanted, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace vintok::test
