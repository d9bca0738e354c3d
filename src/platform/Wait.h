// Waiting until one of many descriptors can be read or written.
#ifndef VINTOK_PLATFORM_WAIT_H
#define VINTOK_PLATFORM_WAIT_H

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vintok::platform {

// An ordered set of at most `capacity` descriptors, of any number. No allocation.
class DescriptorSet {
public:
    static constexpr std::size_t capacity = 1024;

    // Neither clears nor copies what is behind the last: a set is made for every wait.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
    DescriptorSet() {}
    DescriptorSet(const DescriptorSet &other) { *this = other; }
    DescriptorSet &operator=(const DescriptorSet &other) {
        if (this != &other)
            std::copy(other.begin(), other.end(), m_items.begin());
        m_size = other.m_size;
        return *this;
    }

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
    std::array<int, capacity> m_items; // those behind `m_size` mean nothing
    std::size_t m_size = 0;
};

// What ends a wait besides a descriptor.
struct WaitLimit {
    static constexpr std::int32_t forever = -1;

    std::int32_t milliseconds = forever;
    // If not null: a wait is not begun while this is false. On systems with signals no handler gets
    // in between that look and the wait, so that one which clears it always ends the wait too.
    const std::atomic<bool> *running = nullptr;
};

// Waits until a descriptor of `readers` can be read, or one of `writers` written to, or one of
// either has ended or failed. Leaves in the sets those that can. Returns how many entries that are,
// 0 when the time is over, or -1 with `socketError()`; a signal handled meanwhile ends the wait
// with -1 and error 4, and so does `running`. After 0 and -1 both are empty. A descriptor that is
// closed counts as ended; two empty sets are invalid.
int waitReady(DescriptorSet &readers, DescriptorSet &writers, const WaitLimit &limit);

inline int waitReadable(DescriptorSet &set, const WaitLimit &limit) {
    DescriptorSet none;
    return waitReady(set, none, limit);
}

// For ever or, with `immediate`, not at all.
inline int waitReadable(DescriptorSet &set, bool immediate) {
    return waitReadable(set, WaitLimit{immediate ? 0 : WaitLimit::forever, nullptr});
}

// Waits for one descriptor alone. True when it can go on: when it can be read, or written, without
// waiting, or has ended or failed. False when the time (negative: for ever) is over or a signal was
// handled meanwhile.
enum class Await { readable, writable };
bool awaitSocket(int descriptor, Await what, std::int32_t milliseconds);

// Whether the peer has ended its side of the stream, though bytes from before may still be waiting.
// False when the system cannot tell.
bool endArrived(int descriptor);

} // namespace vintok::platform

#endif
