// Writes a record file of what was said in a meeting: see RecordReader.h.
#ifndef VINTOK_APP_RECORDWRITER_H
#define VINTOK_APP_RECORDWRITER_H

#include "RecordReader.h"

#include <cstddef>
#include <string>

namespace app {

class RecordWriter {
public:
    // Makes the file. False, with the reason in `errno`, when that does not work, and for a file
    // that holds something already, which it keeps.
    bool open(const std::string &path);
    bool isOpen() const { return m_file != nullptr; }

    // The body of a broadcast message, heard or said now. It is in the file when this returns.
    // False, with the reason in `errno`, when it is not: nothing that follows would make sense, so
    // the file is then closed.
    bool broadcast(const unsigned char *body, std::size_t length);

    void close() { m_file.reset(); }

private:
    File m_file;
};

} // namespace app

#endif
