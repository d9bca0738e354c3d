#include "Way.h"

#include <algorithm>

namespace app {

namespace {

bool hasControls(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

} // namespace

bool isHeaderText(std::string_view text) {
    return !text.empty() && text.front() != ' ' && text.back() != ' ' && !hasControls(text);
}

bool areCredentials(std::string_view text) {
    return text.find(':') != std::string_view::npos && !hasControls(text);
}

} // namespace app
