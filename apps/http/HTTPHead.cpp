#include "HTTPHead.h"

#include "Text.h"

#include <algorithm>

namespace app {

std::string_view takeLine(std::string_view &text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

bool splitHeader(std::string_view line, Header &header) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return false;
    header = {line.substr(0, colon), trimmed(line.substr(colon + 1))};
    return true;
}

} // namespace app
