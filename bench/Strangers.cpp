#include "Strangers.h"

#include "Child.h"
#include "Members.h"

#include <algorithm>
#include <unistd.h>

namespace bench {
namespace {

constexpr std::size_t together = 100;
constexpr std::int64_t second = 1'000'000'000;
constexpr std::size_t mostPerSecond = 1000;

} // namespace

Strangers::Strangers(unsigned short port, Manner manner)
    : m_port(port),
      m_manner(manner),
      m_begin(nanoseconds(CLOCK_MONOTONIC)),
      m_thread([this] { flood(); }) {}

Strangers::~Strangers() {
    m_ends = true;
    m_thread.join();
}

double Strangers::perSecond() const {
    return static_cast<double>(m_calls) * 1e9 /
           static_cast<double>(nanoseconds(CLOCK_MONOTONIC) - m_begin);
}

void Strangers::flood() {
    int descriptors[together] = {};
    for (std::size_t number = 0; !m_ends; ++number) {
        if (number >= together)
            close(descriptors[number % together]);
        descriptors[number % together] = connectTo(m_port);
        if (m_manner != Manner::silent)
            sayWho(descriptors[number % together], 1000 + number, m_manner == Manner::join);
        const std::int64_t due = m_begin + static_cast<std::int64_t>(++m_calls) *
                                               (second / static_cast<std::int64_t>(mostPerSecond));
        const std::int64_t left = due - nanoseconds(CLOCK_MONOTONIC);
        if (left > 0)
            usleep(static_cast<useconds_t>(left / 1000));
    }
    for (std::size_t i = 0; i < std::min<std::size_t>(together, m_calls); ++i)
        close(descriptors[i]);
}

} // namespace bench
