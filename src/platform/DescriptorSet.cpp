#include "platform/Wait.h"

#include <algorithm>

namespace vintok::platform {

bool DescriptorSet::insert(int descriptor) {
    const auto last = m_items.begin() + static_cast<std::ptrdiff_t>(m_size);
    const auto place = std::lower_bound(m_items.begin(), last, descriptor);
    if (m_size == capacity || (place != last && *place == descriptor))
        return false;
    std::move_backward(place, last, last + 1);
    *place = descriptor;
    ++m_size;
    return true;
}

bool DescriptorSet::erase(int descriptor) {
    const auto last = m_items.begin() + static_cast<std::ptrdiff_t>(m_size);
    const auto place = std::lower_bound(m_items.begin(), last, descriptor);
    if (place == last || *place != descriptor)
        return false;
    std::move(place + 1, last, place);
    --m_size;
    return true;
}

bool DescriptorSet::contains(int descriptor) const {
    return std::binary_search(begin(), end(), descriptor);
}

} // namespace vintok::platform
