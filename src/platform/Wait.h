// Waiting until one of many descriptors can be read.
#ifndef VINTOK_PLATFORM_WAIT_H
#define VINTOK_PLATFORM_WAIT_H

#include <array>
#include <cstddef>

namespace vintok::platform {

// An ordered set of at most `capacity` descriptors, of any number. No allocation.
class DescriptorSet {
public:
    static constexpr std::size_t capacity = 1024;

    // False when the set is full or holds the descriptor already.
    bool insert(int descriptor);
    // False when the set does not hold it.
    bool erase(int descriptor);
    bool contains(int descriptor) const;
    void clear() { m_size = 0; }
    std::size_t size() const { return m_size; }

    // Ascending order.
    const int *begin() const { return m_items.data(); }
    const int *end() const { return m_items.data() + m_size; }

private:
    std::array<int, capacity> m_items = {};
    std::size_t m_size = 0;
};

// Waits until a descriptor of `set` can be read or has ended, for ever or, with `immediate`, not at
// all. One that is closed counts as ended; an empty set is invalid. Leaves in `set` those that can.
// Returns their number, 0 when there is none, or -1 with `socketError()`; a signal handled
// meanwhile ends the wait with -1 and error 4. After 0 and -1 `set` is empty.
int waitReadable(DescriptorSet &set, bool immediate);

} // namespace vintok::platform

#endif
