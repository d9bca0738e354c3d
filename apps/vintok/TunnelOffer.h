// A host's standing offer at a multiplexer: callers of the meeting get to this host by way of it,
// with no call from outside. Asking is in TunnelOffer.cpp.
#ifndef VINTOK_APP_TUNNELOFFER_H
#define VINTOK_APP_TUNNELOFFER_H

#include "Passage.h"
#include "Report.h"
#include "TunnelOptions.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>
#include <vintok/TCPStream.h>

namespace app {

// The connections: the one that waits for an answer, and those of the guests who have come.
class OfferPassages {
public:
    // ---- On the thread that offers. All are false once the offer ends. ----

    // Waits while there are as many guests as there may be.
    bool awaitRoom();
    bool pause(std::chrono::seconds time);
    // From now on it waits for an answer, and is woken when none has come in that time.
    bool await(const std::shared_ptr<Passage> &passage, std::chrono::seconds time);
    // The one that has waited is a guest's from now on.
    bool take(const std::shared_ptr<Passage> &passage);

    // On a guest's thread, which has let go of its passage.
    void left();

    // ---- On the thread of the host ----

    void tick();
    // Lets the guests hear what has been said to them, for a few seconds at most.
    void end();

private:
    using Clock = std::chrono::steady_clock;

    std::size_t guests();
    bool awaitGuests(std::unique_lock<std::mutex> &lock, std::chrono::seconds time);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ending = false;
    std::weak_ptr<Passage> m_asking;
    Clock::time_point m_deadline; // of the answer
    std::vector<std::weak_ptr<Passage>> m_guests;
};

// What there is to tell, until the thread of the host tells it.
class OfferReport {
public:
    // ---- On the thread that offers ----

    // This multiplexer has been asked, which is not told for each offer. `refused`: it has refused
    // the last one, and may refuse this one at once.
    void asked(const std::string &multiplexer, const std::string &meetingID, bool refused);
    // Its answer has come.
    void answered();
    // Another multiplexer is asked from now on.
    void moved() { m_told = false; }
    // Told once for all failures in a row, and where it is the last one.
    void failed(const std::string &reason, bool again);

    // ---- On the thread of the host, once a second and as often as it likes ----

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

// Shared with the threads, which may outlive the host.
struct TunnelOffer {
    // Starts the thread that offers, for the host that listens on this port of the machine. Null
    // when there is none to be had.
    static std::shared_ptr<TunnelOffer> start(const TunnelOptions &tunnel, unsigned short port);

    // Keeps the library open for the threads that are still at work when the program closes it.
    TunnelOffer() { vintok::init(); }
    ~TunnelOffer() { vintok::fini(); }
    TunnelOffer(const TunnelOffer &) = delete;
    TunnelOffer &operator=(const TunnelOffer &) = delete;

    OfferPassages passages;
    OfferReport report;
};

} // namespace app

#endif
