// One line for each thing that happens to a client.
#ifndef MULTIPLEXER_LOG_H
#define MULTIPLEXER_LOG_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace mux {

// Text from outside: in double quotes, without anything that a terminal or a reader of logs could
// take for more than text, and cut when it is long.
std::string quoted(std::string_view text);

class Log {
public:
    Log() = default;
    ~Log();
    Log(const Log &) = delete;
    Log &operator=(const Log &) = delete;

    // Lines go to this file, behind what it holds. False when it cannot be opened.
    bool open(const std::string &file);
    void silence() { m_file = nullptr; }

    // Writes the time, `event`, the number of the client and what there is to tell.
    void line(std::string_view event, std::uint64_t client, const std::string &details);

private:
    std::FILE *m_file = stdout;
    std::FILE *m_owned = nullptr;
};

} // namespace mux

#endif
