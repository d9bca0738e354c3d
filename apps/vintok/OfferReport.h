// What the thread that offers has to tell, until the thread of the host tells it.
#ifndef VINTOK_APP_OFFERREPORT_H
#define VINTOK_APP_OFFERREPORT_H

#include "Report.h"

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace app {

class OfferReport {
public:
    // ---- On the thread that offers

    // This multiplexer has been asked, which is not told for each offer. `refused`: it has refused
    // the last one, and may refuse this one at once.
    void asked(const std::string &multiplexer, const std::string &meetingID, bool refused);
    // Its answer has come.
    void answered();
    // Another multiplexer is asked from now on.
    void moved() { m_told = false; }
    // Told once for all failures in a row, and where it is the last one.
    void failed(const std::string &reason, bool again);

    // ---- On the thread of the host, once a second and as often as it likes

    void tick();
    void tell(Report &report);

private:
    using Clock = std::chrono::steady_clock;

    void add(const Notice &notice);

    bool m_told = false;     // the last thing told is that the offer stands
    bool m_troubled = false; // a failure has been told since
    std::mutex m_mutex;      // for the rest
    std::deque<Notice> m_news;
    std::optional<Notice> m_held; // told once the offer has stood until then
    Clock::time_point m_heldUntil;
};

} // namespace app

#endif
