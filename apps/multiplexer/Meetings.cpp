#include "Meetings.h"

#include "Session.h"

#include <algorithm>

namespace mux {

void Meetings::add(Session &session) {
    Waiting &waiting = m_meetings[session.meeting()];
    (session.offers() ? waiting.offers : waiting.callers).push_back(&session);
    ++m_waiting;
}

void Meetings::remove(Session &session) {
    const auto found = m_meetings.find(session.meeting());
    if (found == m_meetings.end())
        return;
    std::deque<Session *> &queue = session.offers() ? found->second.offers : found->second.callers;
    const auto place = std::find(queue.begin(), queue.end(), &session);
    if (place != queue.end()) {
        queue.erase(place);
        --m_waiting;
    }
    forgetIfEmpty(session.meeting());
}

void Meetings::ended(const std::string &meeting) {
    --m_meetings[meeting].answered;
    forgetIfEmpty(meeting);
}

bool Meetings::hasAnswerer(const std::string &meeting) const {
    const auto found = m_meetings.find(meeting);
    return found != m_meetings.end() &&
           (!found->second.offers.empty() || found->second.answered != 0);
}

void Meetings::forgetIfEmpty(const std::string &meeting) {
    const auto found = m_meetings.find(meeting);
    if (found != m_meetings.end() && found->second.offers.empty() &&
        found->second.callers.empty() && found->second.answered == 0)
        m_meetings.erase(found);
}

Session *Meetings::takeOffer(const Session &caller) {
    return take(caller, &Waiting::offers);
}

Session *Meetings::takeCaller(const Session &session) {
    return take(session, &Waiting::callers);
}

bool Meetings::hasUnfitOffer(const Session &session) const {
    return find(session, &Waiting::offers, false) != nullptr;
}

bool Meetings::hasUnfitCaller(const Session &session) const {
    return find(session, &Waiting::callers, false) != nullptr;
}

Session *Meetings::take(const Session &session, std::deque<Session *> Waiting::*queue) {
    Session *taken = find(session, queue, true);
    if (taken != nullptr)
        remove(*taken);
    return taken;
}

Session *Meetings::find(const Session &session, std::deque<Session *> Waiting::*queue,
                        bool fits) const {
    const auto found = m_meetings.find(session.meeting());
    if (found == m_meetings.end())
        return nullptr;
    const std::deque<Session *> &waiting = found->second.*queue;
    const auto other = std::find_if(waiting.begin(), waiting.end(), [&](const Session *each) {
        return (each->encrypts() == session.encrypts()) == fits;
    });
    return other == waiting.end() ? nullptr : *other;
}

} // namespace mux
