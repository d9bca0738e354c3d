#include "support/LogFile.h"

#include <fstream>
#include <iterator>

namespace vintok::test {

LogFile::LogFile(LogLevel level) : m_before(logLevel()) {
    setLogFileName(m_path);
    setLogLevel(level);
}

LogFile::~LogFile() {
    setLogLevel(m_before);
    setLogFileName("");
}

std::string textOf(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

int occurrences(const std::string &text, const std::string &part) {
    int count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

} // namespace vintok::test
