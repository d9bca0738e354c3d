// The connections of a standing offer: the one that waits for an answer, and those of the guests
// who have come. They end with the offer, which waits for threads here.
#ifndef VINTOK_APP_OFFERPASSAGES_H
#define VINTOK_APP_OFFERPASSAGES_H

#include "Passage.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace app {

class OfferPassages {
public:
    // ---- On the thread that offers. All are false once the offer ends.

    // Waits while there are as many guests as there may be.
    bool awaitRoom();
    bool pause(std::chrono::seconds time);
    // From now on it waits for an answer, and is woken when none has come in that time.
    bool await(const std::shared_ptr<Passage> &passage, std::chrono::seconds time);
    // The one that has waited is a guest's from now on.
    bool take(const std::shared_ptr<Passage> &passage);

    // On a guest's thread, which has let go of its passage.
    void left();

    // ---- On the thread of the host

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

} // namespace app

#endif
