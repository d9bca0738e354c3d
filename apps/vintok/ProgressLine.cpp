#include "ProgressLine.h"

#include <algorithm>
#include <cstdio>

namespace app {

namespace {

constexpr std::uint64_t width = 24;
constexpr char cleared[] = "\r\x1b[K"; // back to the first column, and the rest of the line erased

} // namespace

bool ProgressLine::s_shown = false;

void ProgressLine::show(const std::string &name, std::uint64_t done, std::uint64_t size) {
    std::string line = name + ' ';
    if (size != 0) {
        const std::uint64_t part = std::min(done, size);
        const auto filled = static_cast<std::size_t>(part * width / size);
        const std::string percent = std::to_string(part * 100 / size);
        line += '[' + std::string(filled, '#') + std::string(width - filled, '.') + "] " +
                std::string(3 - percent.size(), ' ') + percent + "% of " + std::to_string(size);
    } else {
        line += std::to_string(done);
    }
    std::fputs((cleared + line + " bytes").c_str(), stdout);
    std::fflush(stdout);
    s_shown = true;
}

void ProgressLine::clear() {
    if (s_shown) {
        std::fputs(cleared, stdout);
        std::fflush(stdout);
        s_shown = false;
    }
}

} // namespace app
