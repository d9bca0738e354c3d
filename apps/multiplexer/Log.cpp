#include "Log.h"

#include "Text.h"

#include <chrono>
#include <ctime>

namespace mux {

namespace {

constexpr std::size_t LONGEST = 100;

std::string now() {
    const auto time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    char text[32] = "";
    // One thread alone writes lines, so nobody else uses the result of `gmtime` meanwhile.
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&time));
    return text;
}

} // namespace

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : app::printable(text, LONGEST)) {
        if (c == '"') {
            result += '\\';
        }
        result += c;
    }
    return result + '"';
}

Log::~Log() {
    if (m_owned != nullptr) {
        std::fclose(m_owned);
    }
}

bool Log::open(const std::string &file) {
    m_owned = std::fopen(file.c_str(), "a");
    m_file = m_owned;
    return m_owned != nullptr;
}

void Log::line(std::string_view event, std::uint64_t client, const std::string &details) {
    if (m_file == nullptr) {
        return;
    }
    std::string text = now();
    text.append(" ").append(event).append(" ").append(std::to_string(client));
    text.append(" ").append(details).append("\n");
    std::fputs(text.c_str(), m_file);
    std::fflush(m_file);
}

} // namespace mux
