// The last line of a terminal, where it shows how far a file has come. It changes in place, and
// whatever else is printed takes it away first. There is one for the process, as there is one
// standard output.
#ifndef VINTOK_APP_PROGRESSLINE_H
#define VINTOK_APP_PROGRESSLINE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace app {

class ProgressLine {
public:
    // The whole line fits into 80 columns if the name is no longer.
    static constexpr std::size_t nameLimit = 20;

    // Bytes; `size` 0 is one that is not known. The name must be printable.
    static void show(const std::string &name, std::uint64_t done, std::uint64_t size);
    static void clear();

private:
    static bool s_shown;
};

} // namespace app

#endif
