#include "TunnelOffer.h"

#include <utility>

namespace app {

namespace {

constexpr std::chrono::seconds standingTime(1);

} // namespace

void OfferReport::asked(const std::string &multiplexer, const std::string &meetingID,
                        bool refused) {
    if (m_told)
        return;
    Notice notice;
    notice.event = "offering";
    notice.sentence =
        "Asking the multiplexer " + multiplexer + " for callers of the meeting " + meetingID + '.';
    notice.fields.text("whom", multiplexer).text("id", meetingID);
    if (m_troubled && refused) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_held = notice;
        m_heldUntil = Clock::now() + standingTime;
        return;
    }
    m_told = true;
    m_troubled = false;
    add(notice);
}

// What has not been told by now was not true for long enough.
void OfferReport::answered() {
    if (m_told)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_told = !m_held;
    m_troubled = m_troubled && !m_told;
    m_held.reset();
}

void OfferReport::failed(const std::string &reason, bool again) {
    m_told = false;
    if (m_troubled && again)
        return;
    m_troubled = true;
    Notice notice;
    notice.event = "offer-failed";
    notice.sentence = "Nobody can come by way of the multiplexer: " + reason +
                      (again ? ". Trying again from time to time." : ". It is not tried again.");
    notice.fields.text("reason", reason).flag("again", again);
    add(notice);
}

void OfferReport::tick() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_held && Clock::now() >= m_heldUntil)
        m_news.push_back(*std::exchange(m_held, std::nullopt));
}

void OfferReport::tell(Report &report) {
    std::deque<Notice> news;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        news.swap(m_news);
    }
    for (const Notice &notice : news)
        report.notice(notice);
}

void OfferReport::add(const Notice &notice) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_news.push_back(notice);
}

} // namespace app
