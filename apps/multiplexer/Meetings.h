// Who waits for whom. A party that *offers* answers for its meeting: it waits to be joined with a
// caller and speaks first. Two callers are joined with each other only in a meeting for which
// nobody offers to answer. One whose end of a tunnel would be encrypted is joined only with one
// whose end would be too: neither can see what becomes of the bytes behind the server.
#ifndef MULTIPLEXER_MEETINGS_H
#define MULTIPLEXER_MEETINGS_H

#include <cstddef>
#include <deque>
#include <map>
#include <string>

namespace mux {

class Session;

class Meetings {
public:
    void add(Session &session);
    void remove(Session &session);

    // Takes the one that has waited longest and gets along with this one; null when there is none.
    Session *takeOffer(const Session &caller);
    Session *takeCaller(const Session &session);
    // An offer, or a caller, waits that does not get along with this one.
    bool hasUnfitOffer(const Session &session) const;
    bool hasUnfitCaller(const Session &session) const;

    std::size_t waiting() const { return m_waiting; }

    // Tunnels to a party that offered to answer, told as they come and go.
    void answered(const std::string &meeting) { ++m_meetings[meeting].answered; }
    void ended(const std::string &meeting);
    // Somebody answers for this meeting, or does so already for another caller.
    bool hasAnswerer(const std::string &meeting) const;

private:
    struct Waiting {
        std::deque<Session *> offers;
        std::deque<Session *> callers;
        std::size_t answered = 0;
    };
    void forgetIfEmpty(const std::string &meeting);
    Session *take(const Session &session, std::deque<Session *> Waiting::*queue);
    Session *find(const Session &session, std::deque<Session *> Waiting::*queue, bool fits) const;

    std::map<std::string, Waiting> m_meetings;
    std::size_t m_waiting = 0;
};

} // namespace mux

#endif
