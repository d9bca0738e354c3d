// What is told of a file that goes through a meeting.
#ifndef VINTOK_APP_FILENEWS_H
#define VINTOK_APP_FILENEWS_H

#include "Person.h"
#include "Sha256.h"

#include <cstdint>
#include <string>

namespace app {

struct FileNews {
    Person person; // who sends it; `self`: this party does
    std::string name;
    std::string path;       // where it is here
    FileSum announced;      // by the sender; size 0: it has announced nothing
    std::uint64_t done = 0; // bytes that have gone out or come in
};

enum class FileEnd {
    sent,     // to everybody
    notSent,  // not all of it to everybody
    received, // as announced
    differs,  // from what was announced
    unsure,   // nothing was announced that it could be compared with
    lost,     // did not come to its end, or could not be stored: nothing is kept of it
};

// 0 to 100; 100 also for more bytes than were announced, 0 when nothing was.
int percentOf(const FileNews &file);

} // namespace app

#endif
