// At which host of a meeting somebody is. A host tells its own members, each on its connection, by
// messages with an identifier of their own:
//
//     where 1\n
//     <name of a host>\n
//     <address> <port>\n     of that host
//     <address> <port>\n     of each party at it
//     \n
//     <name of the next host>\n
//     ...
//
// Who joins is told of everybody, and from then on only of those who are somewhere else than it was
// told. Before a host ends the meeting for its members in order it says "end 1\n", and to members
// that are to call another host "move 1\n".
#ifndef VINTOK_APP_WHEREABOUTS_H
#define VINTOK_APP_WHEREABOUTS_H

#include "BodyHead.h"

#include <vintok/TCPAddress.h>
#include <vintok/TCPGUID.h>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace app::cluster {

inline constexpr char endMessage[] = "end 1\n";
inline constexpr char moveMessage[] = "move 1\n";
// Of all of these.
const vintok::TCPGUID &messageIdentifier();

// Where a party listens, as rosters and messages have it.
Place placeOf(const vintok::TCPAddress &address);

struct AtHost {
    std::string name;
    Place host;
    std::vector<Place> parties;
};

// A line end in a name becomes a blank.
std::string encodeWhereabouts(const std::vector<AtHost> &hosts);
// False, with `hosts` as they were, for a body of any other form.
bool decodeWhereabouts(std::string_view body, std::vector<AtHost> &hosts);

// What a member knows.
class Whereabouts {
public:
    void take(const std::vector<AtHost> &hosts);
    void left(const Place &party);
    void forget();
    // The name of the host; empty when it is not known.
    std::string of(const Place &party) const;
    bool isHost(const Place &party) const { return m_hosts.contains(party); }

private:
    std::map<Place, std::string> m_parties;
    std::set<Place> m_hosts;
};

} // namespace app::cluster

#endif
