// A party of the meeting as the person at the screen gets to see it, and the list of them.
#ifndef VINTOK_APP_PERSON_H
#define VINTOK_APP_PERSON_H

#include "BodyHead.h"

#include <vintok/ConferenceRosterEntry.h>

#include <optional>
#include <string>
#include <vector>

namespace app {

// What stands for an address that is to be shown to nobody.
inline constexpr char hiddenAddress[] = "hidden";

// The colour of a party to which the meeting has given none.
inline constexpr unsigned short noColour = 65535;

struct Person {
    std::string name; // first and last name, or the e-mail, or the place
    std::string email;
    std::string title;
    std::string phone;
    std::string address; // to know the party by; `shownAddress` is what is told of it
    unsigned short port = 0;
    bool hidden = false; // its address is to be shown to nobody
    unsigned short colour = noColour;
    bool host = false;
    bool self = false;
    int connection = -1; // its descriptor; none: it is reached through somebody else
    // In lists only: whether it leads; how the own connection to it is encrypted, empty when it is
    // plain.
    bool leader = false;
    std::optional<std::string> channel;
    std::string at; // the host, where the meeting has several

    std::string shownAddress() const { return hidden ? hiddenAddress : address; }

    bool operator==(const Person &other) const = default;
};

// `hides`: the meeting hides all addresses, not only those of parties that demand it.
Person personOf(const vintok::ConferenceRosterEntry &entry, bool hides);
// Somebody of whom nothing else is known.
Person personAt(const Place &place, bool hides);

// Who is in the meeting, this party first, in the order in which they were heard of. A party is
// known by its address and port.
class People {
public:
    // Adds a person or takes the new data of one.
    void take(const Person &person);
    void remove(const Person &person);
    const Person *find(const Place &place) const;
    // The one who leads from now on.
    void setLeader(const Person &person);
    bool alone() const { return m_people.size() <= 1; }
    // With the leader marked.
    std::vector<Person> all() const;

private:
    std::vector<Person> m_people;
    std::string m_leaderAddress;
    unsigned short m_leaderPort = 0;
};

} // namespace app

#endif
