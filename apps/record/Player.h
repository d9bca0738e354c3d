// Plays a record file: gives out its broadcast messages, each at its time. The spacing is that of
// their time stamps, which count whole seconds.
//
// A player has no clock and never waits. Whoever runs it asks what is to be done at a time of a
// clock that never goes back:
//
//     while (player.look(now()) == Player::State::ready) {
//         say(player.message());
//         player.taken();
//     }
//     // waiting: look again at player.due()
#ifndef VINTOK_APP_PLAYER_H
#define VINTOK_APP_PLAYER_H

#include "RecordReader.h"

#include <chrono>
#include <cstdint>

namespace app {

// When each record is due. The first one is so at once.
class Pacing {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::int64_t aYear = std::int64_t{365} * 24 * 3600;

    // How many seconds of the recording pass in one second, above 0. Infinity waits for nothing. No
    // record is due more than `longestGap` seconds, up to a year, after the one before it.
    explicit Pacing(double speed, std::int64_t longestGap = aYear)
        : m_speed(speed), m_longestGap(longestGap) {}

    // The record that comes next and its time stamp. A stamp that goes back costs no time.
    void next(std::int64_t stamp, TimePoint now);
    // When it is due: counted from the first record, so that delays do not add up.
    TimePoint due() const { return m_start + m_position; }

    // The time between the two does not count.
    void pause(TimePoint now);
    void resume(TimePoint now);
    bool paused() const { return m_paused; }

private:
    double m_speed;
    std::int64_t m_longestGap; // of the recording's time
    bool m_begun = false;
    bool m_paused = false;
    std::int64_t m_stamp = 0; // of the record before
    TimePoint m_start{};      // when the first record was due, later by each pause
    TimePoint m_pausedAt{};
    TimePoint::duration m_position{};
};

class Player {
public:
    enum class State {
        waiting, // the next message is due later, or the player is paused
        ready,   // `message` is to be said now
        end,     // everything was given out
        damaged, // so is everything up to where the file stops making sense: see `reader`
    };

    Player(std::FILE *file, double speed, std::int64_t longestGap = Pacing::aYear)
        : m_reader(file), m_pacing(speed, longestGap) {}

    State look(Pacing::TimePoint now);

    // When `waiting` and not paused.
    Pacing::TimePoint due() const { return m_pacing.due(); }
    // When `ready`, and until `taken`, which makes the one after it the next. So does `skip`, for a
    // message that is better not said again.
    const vintok::TCPMessage &message() const { return m_message; }
    void taken();
    void skip();

    void pause(Pacing::TimePoint now) { m_pacing.pause(now); }
    void resume(Pacing::TimePoint now) { m_pacing.resume(now); }
    bool paused() const { return m_pacing.paused(); }

    std::uint64_t played() const { return m_played; }
    // Messages passed over, most because they are no broadcast.
    std::uint64_t skipped() const { return m_skipped; }
    const RecordReader &reader() const { return m_reader; }

private:
    RecordReader m_reader;
    Pacing m_pacing;
    vintok::TCPMessage m_message;
    RecordReader::Result m_result = RecordReader::Result::record;
    bool m_held = false; // m_message is a broadcast that was not taken
    std::uint64_t m_played = 0;
    std::uint64_t m_skipped = 0;
};

} // namespace app

#endif
