#include "vintok/Deadlines.h"

#include <algorithm>
#include <limits>

namespace vintok {

void Deadlines::set(int descriptor, Function function, void *data, std::chrono::milliseconds in) {
    clear(descriptor, function, data);
    m_deadlines.push_back({descriptor, function, data, Clock::now() + in});
}

void Deadlines::clear(int descriptor, Function function, void *data) {
    std::erase_if(
        m_deadlines,
        [&](const Deadline &deadline) {
            return deadline.descriptor == descriptor && deadline.function == function &&
                   deadline.data == data;
        });
}

void Deadlines::clearAll(const void *data) {
    std::erase_if(
        m_deadlines, [&](const Deadline &deadline) { return deadline.data == data; });
}

std::int32_t Deadlines::within(std::int32_t milliseconds) const {
    for (const Deadline &deadline : m_deadlines)
        milliseconds = within(milliseconds, deadline.time);
    return milliseconds;
}

std::int32_t Deadlines::within(std::int32_t milliseconds, Clock::time_point end) {
    constexpr std::int64_t longest = std::numeric_limits<std::int32_t>::max();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    const auto wait = static_cast<std::int32_t>(std::clamp<std::int64_t>(left, 0, longest));
    return milliseconds < 0 ? wait : std::min(milliseconds, wait);
}

} // namespace vintok
