// Reads a record file: messages as they go over the wire, back to back, with nothing in front. Both
// forms of frame are taken, as they come.
//
// A file that was damaged is read up to the place where it stops making sense. Memory is asked for
// as bytes arrive, never because a length claims them.
#ifndef VINTOK_APP_RECORDREADER_H
#define VINTOK_APP_RECORDREADER_H

#include <vintok/TCPMessage.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace app {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

class RecordReader {
public:
    enum class Result { record, end, damaged };

    // Reads from where `file` stands, which must be open for reading in binary and outlive this.
    explicit RecordReader(std::FILE *file) : m_file(file) {}

    // `record`: `message` holds the next one. `end`: there is none, and the last one was whole.
    // `damaged`: `fault` says why; the message is of no use, and every further call says the same.
    Result next(vintok::TCPMessage &message);

    // Where the record begins that the last call was about, in bytes from the first.
    std::uint64_t offset() const { return m_offset; }

    // What does not make sense at `offset`, or why the file cannot be read: part of a sentence.
    const std::string &fault() const { return m_fault; }

private:
    Result damaged(const std::string &fault);
    Result shortOf(std::uint64_t length);

    std::FILE *m_file;
    std::uint64_t m_offset = 0;
    std::uint64_t m_got = 0; // bytes taken of the record at m_offset
    std::string m_fault;
};

} // namespace app

#endif
