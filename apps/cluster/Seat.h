// One host of several: it sends callers for whom there is no room to another one, and tells its
// members at which host everybody is.
#ifndef VINTOK_APP_SEAT_H
#define VINTOK_APP_SEAT_H

#include "ClusterLink.h"
#include "Whereabouts.h"

#include <vintok/ConferenceParticipant.h>

#include <map>
#include <memory>
#include <string>

namespace app::cluster {

class Seat {
public:
    // Links a host to the others; null, with the reason, when that cannot be. Takes five seconds at
    // most. The participant must outlive the seat, and lets in whom `admits` lets in: it has no
    // limit of its own on members.
    static std::unique_ptr<Seat> take(vintok::ConferenceParticipant &host,
                                      const vintok::ClusterOptions &options, const Told &told,
                                      std::string &failure);

    // False for a caller that waits for the answer and for whom there is no room: it has been sent
    // to another host, or refused where there is none.
    bool admits(const vintok::TCPAddress &caller);

    // What the participant's callbacks tell, of its own members and of the others.
    void joined(const vintok::ConferenceRosterEntry &entry);
    void left(const vintok::ConferenceRosterEntry &entry);
    void changed() { m_isNews = true; }

    // Behind each pass of the loop, and once a second: tells the members what they do not know.
    void settle();
    void tick();
    // Before the meeting ends here in order.
    void end() { tellAll(endMessage); }
    // From now on nobody is let in, and the members are told to call another host. False if there
    // is none.
    bool drain();

    const Link &link() const { return *m_link; }
    // Whether this is the host that decides for all, and whether that is.
    bool decides() const;
    bool decides(const Place &host) const;

private:
    struct Party {
        vintok::TCPAddress address;
        int descriptor = -1; // of a member here
        bool isNew = false;  // has been told nothing so far
        std::string host;    // as the members were told
    };

    Seat(vintok::ConferenceParticipant &host, const vintok::ClusterOptions &options)
        : m_host(host), m_options(options) {}

    void tellAll(const std::string &body);
    std::vector<AtHost> hosts() const;
    std::string changes();
    std::string everything() const;

    vintok::ConferenceParticipant &m_host;
    const vintok::ClusterOptions m_options;
    std::unique_ptr<Link> m_link;
    std::map<Place, Party> m_parties; // this host, too
    std::size_t m_members = 0;        // of these, connected here
    bool m_isNews = true;             // somebody may be at another host than was told
    bool m_areNew = false;            // some members have been told nothing
    bool m_isDraining = false;
};

} // namespace app::cluster

#endif
