#include "TunnelOffer.h"

namespace app {

namespace {

using std::chrono::seconds;

constexpr std::size_t mostGuests = 100; // each takes five descriptors
constexpr seconds flushTime(2);
constexpr seconds endTime(1);

void wake(const std::weak_ptr<Passage> &passage) {
    if (const std::shared_ptr<Passage> alive = passage.lock())
        alive->wake();
}

} // namespace

bool OfferPassages::awaitRoom() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_ending || guests() < mostGuests; });
    return !m_ending;
}

bool OfferPassages::pause(seconds time) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_changed.wait_for(lock, time, [this] { return m_ending; });
}

bool OfferPassages::await(const std::shared_ptr<Passage> &passage, seconds time) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_asking = passage;
    m_deadline = Clock::now() + time;
    return !m_ending;
}

bool OfferPassages::take(const std::shared_ptr<Passage> &passage) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_ending) {
        m_asking.reset();
        m_guests.push_back(passage);
    }
    return !m_ending;
}

void OfferPassages::left() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_changed.notify_all();
}

void OfferPassages::tick() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (Clock::now() >= m_deadline)
        wake(m_asking);
}

void OfferPassages::end() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_ending)
        return;
    m_ending = true;
    wake(m_asking);
    m_changed.notify_all();
    if (!awaitGuests(lock, flushTime)) {
        for (const auto &each : m_guests)
            wake(each);
        awaitGuests(lock, endTime);
    }
}

// Under the lock.
std::size_t OfferPassages::guests() {
    std::erase_if(m_guests, [](const auto &each) { return each.expired(); });
    return m_guests.size();
}

bool OfferPassages::awaitGuests(std::unique_lock<std::mutex> &lock, seconds time) {
    return m_changed.wait_for(
        lock, time, [this] { return guests() == 0; });
}

} // namespace app
