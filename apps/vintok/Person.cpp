#include "Person.h"

#include <algorithm>

namespace app {

namespace {

std::string joined(const std::string &first, const std::string &last) {
    return first.empty() || last.empty() ? first + last : first + ' ' + last;
}

template <class List>
auto findIn(List &people, const std::string &address, unsigned short port) {
    return std::find_if(
        people.begin(), people.end(),
        [&](const Person &person) { return person.port == port && person.address == address; });
}

} // namespace

Person personAt(const Place &place, bool hides) {
    Person person;
    person.address = place.address;
    person.port = place.port;
    person.hidden = hides;
    person.name = person.shownAddress() + ' ' + std::to_string(person.port);
    return person;
}

Person personOf(const vintok::ConferenceRosterEntry &entry, bool hides) {
    Place place;
    entry.ipString(place.address);
    place.port = entry.hostByteOrderPort();
    Person person = personAt(place, hides || entry.isHidingIPsRequired());
    person.email = entry.email();
    person.title = entry.title();
    person.phone = entry.phone();
    person.colour = entry.colorIndex();
    person.host = entry.isHost();
    person.connection = entry.descriptor();
    const std::string name = joined(entry.firstName(), entry.lastName());
    if (!name.empty() || !person.email.empty())
        person.name = name.empty() ? person.email : name;
    return person;
}

void People::take(const Person &person) {
    const auto known = findIn(m_people, person.address, person.port);
    if (known == m_people.end())
        m_people.push_back(person);
    else
        *known = person;
}

void People::remove(const Person &person) {
    const auto known = findIn(m_people, person.address, person.port);
    if (known != m_people.end())
        m_people.erase(known);
}

void People::setLeader(const Person &person) {
    m_leaderAddress = person.address;
    m_leaderPort = person.port;
}

std::vector<Person> People::all() const {
    std::vector<Person> people = m_people;
    const auto leader = findIn(people, m_leaderAddress, m_leaderPort);
    if (leader != people.end())
        leader->leader = true;
    return people;
}

const Person *People::find(const Place &place) const {
    const auto known = findIn(m_people, place.address, place.port);
    return known == m_people.end() ? nullptr : &*known;
}

} // namespace app
