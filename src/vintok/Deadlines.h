// Internal. What is to be done at a certain time in a thread's loop: the loop's wait ends in time
// for the next of them. Only the loop's own thread uses it.
#ifndef VINTOK_DEADLINES_H
#define VINTOK_DEADLINES_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vintok {

class Deadlines {
public:
    using Clock = std::chrono::steady_clock;
    // Called once, when the time has come. May do anything, also to the loop.
    using Function = void (*)(int descriptor, void *data);

    // One for each descriptor, function and data: a later one takes the place of the earlier.
    void set(int descriptor, Function function, void *data, std::chrono::milliseconds in);
    void clear(int descriptor, Function function, void *data);
    void clearAll(const void *data);

    // Calls those whose time has come. `isOver` ends the round: the owner has gone.
    template <class IsOver>
    void run(IsOver isOver);

    // How long a wait may last that would last so long (negative: for ever).
    std::int32_t within(std::int32_t milliseconds) const;
    static std::int32_t within(std::int32_t milliseconds, Clock::time_point end);

private:
    struct Deadline {
        int descriptor;
        Function function;
        void *data;
        Clock::time_point time;
    };

    std::vector<Deadline> m_deadlines;
};

template <class IsOver>
void Deadlines::run(IsOver isOver) {
    for (std::size_t i = 0; i < m_deadlines.size();) {
        const Deadline deadline = m_deadlines[i];
        if (deadline.time > Clock::now()) {
            ++i;
            continue;
        }
        m_deadlines.erase(m_deadlines.begin() + static_cast<std::ptrdiff_t>(i));
        deadline.function(deadline.descriptor, deadline.data);
        if (isOver())
            return;
        i = 0; // they may be others now
    }
}

} // namespace vintok

#endif
