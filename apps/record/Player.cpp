#include "Player.h"

#include <algorithm>

namespace app {

namespace {

// Well inside what a time point can hold.
constexpr double longestPlay = 100.0 * Pacing::aYear;

// Stamps come from a file: their difference may be out of all range.
std::int64_t gapBetween(std::int64_t earlier, std::int64_t later, std::int64_t longest) {
    if (later <= earlier)
        return 0;
    const std::uint64_t gap =
        static_cast<std::uint64_t>(later) - static_cast<std::uint64_t>(earlier);
    return static_cast<std::int64_t>(
        std::min<std::uint64_t>(gap, static_cast<std::uint64_t>(longest)));
}

} // namespace

void Pacing::next(std::int64_t stamp, TimePoint now) {
    if (!m_begun) {
        m_begun = true;
        m_start = now;
        m_pausedAt = now; // before the first record there is nothing to delay
        m_stamp = stamp;
        return;
    }
    using Seconds = std::chrono::duration<double>;
    const auto gap = static_cast<double>(gapBetween(m_stamp, stamp, m_longestGap));
    const double position = Seconds(m_position).count() + gap / m_speed;
    m_stamp = stamp;
    m_position =
        std::chrono::duration_cast<TimePoint::duration>(Seconds(std::min(position, longestPlay)));
}

void Pacing::pause(TimePoint now) {
    if (!m_paused) {
        m_paused = true;
        m_pausedAt = now;
    }
}

void Pacing::resume(TimePoint now) {
    if (m_paused) {
        m_paused = false;
        m_start += now - m_pausedAt;
    }
}

Player::State Player::look(Pacing::TimePoint now) {
    while (!m_held) {
        m_result = m_reader.next(m_message);
        if (m_result != RecordReader::Result::record)
            return m_result == RecordReader::Result::end ? State::end : State::damaged;
        m_held = m_message.messageID() == vintok::TCP_broadcastMessage &&
                 m_message.messageBufferLength() != 0;
        if (m_held)
            m_pacing.next(m_message.timeStamp(), now);
        else
            ++m_skipped;
    }
    return paused() || now < due() ? State::waiting : State::ready;
}

void Player::skip() {
    m_held = false;
    ++m_skipped;
}

void Player::taken() {
    m_held = false;
    ++m_played;
}

} // namespace app
