// One line for each thing that happens to a client.
#ifndef MULTIPLEXER_LOG_H
#define MULTIPLEXER_LOG_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace mux {

// Text from outside: in double quotes, without anything that a terminal or a reader of logs could
// take for more than text, and cut when it is long.
std::string quoted(std::string_view text);

// Lines are written by a thread of the log's own, so that a full disk, or a pipe that nobody
// empties, stops no client. Lines that cannot be written, or wait when there are too many already,
// are left out, and the next line that can be written says how many.
class Log {
public:
    Log();
    ~Log();
    Log(const Log &) = delete;
    Log &operator=(const Log &) = delete;

    // Lines go to this file, behind what it holds. False when it cannot be opened. To be called
    // before the first line.
    bool open(const std::string &file);
    // Further lines go to a file that is opened anew by its name: the old one may have been moved
    // away. Where that fails they go to the old one.
    void reopen();
    void silence() { m_silent = true; }

    // Notes the time, `event`, the number of the client and what there is to tell.
    void line(std::string_view event, std::uint64_t client, const std::string &details);

    // Waits a moment for what is not written yet. False when it cannot be written now: the thread
    // then holds its file for as long as that lasts.
    bool finish();

private:
    struct Writer;
    std::shared_ptr<Writer> m_writer; // shared with the thread, which may outlive this object
    bool m_silent = false;
};

} // namespace mux

#endif
