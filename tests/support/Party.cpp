#include "support/Party.h"

#include "platform/Socket.h"

#include <algorithm>

namespace vintok::test {

namespace {

// Callbacks are plain functions: they find their party by the participant that calls.
std::map<const ConferenceParticipant *, Party *> &parties() {
    static std::map<const ConferenceParticipant *, Party *> all;
    return all;
}

void note(ConferenceParticipant *who, const std::string &kind, const std::string &what) {
    parties().at(who)->note(kind, what);
}

// The kind of an event, as a callback is made for it.
template <std::size_t size>
struct Kind {
    constexpr Kind(const char (&literal)[size]) { std::copy_n(literal, size, text); }
    char text[size];
};

template <Kind kind>
void onEntry(ConferenceParticipant *me, const ConferenceRosterEntry &entry) {
    note(me, kind.text, entry.firstName());
}

// Names what is known of the called party; as it was called when it has not introduced itself.
template <Kind kind>
void onCall(ConferenceParticipant *me, const std::string &name, const RosterBase &party) {
    note(me, kind.text, party.firstName().empty() ? name : party.firstName());
}

// Of which the roster is told, too.
template <Kind kind, bool present>
void onChange(ConferenceParticipant *me, const ConferenceRosterEntry &entry) {
    parties().at(me)->know(entry, present);
    note(me, kind.text, entry.firstName());
}

void onBroadcast(ConferenceParticipant *me, unsigned char *data, std::uint64_t length) {
    note(me, "data", std::string(data, data + length));
}

void onLeadReply(ConferenceParticipant *me, unsigned char *data, std::uint64_t length) {
    note(me, "leadReply", length == 1 ? std::to_string(*data) : "?");
}

void onSynchTime(ConferenceParticipant *me, unsigned char *, std::uint64_t length) {
    note(me, "synch", std::to_string(length));
}

void onFile(ConferenceParticipant *me, const TCPAddress &neighbour, bool whole,
            const std::string &path) {
    parties().at(me)->files.push_back({neighbour, path});
    note(me, "file", whole ? "whole" : "failed");
}

void onSecurity(ConferenceParticipant *me, const ConfSecurityOptions &options) {
    note(me, "security",
         options.hideIP    ? "hideIP"
         : options.FIPS    ? "FIPS"
         : options.SSLOnly ? "SSLOnly"
                           : "none");
}

void onProxy(ConferenceParticipant *me, const std::string &name, unsigned short,
             const std::string &, unsigned short, const std::string &, unsigned int retries,
             const std::string &) {
    note(me, "proxy", name + " " + std::to_string(retries));
}

void onServerResponse(ConferenceParticipant *me, unsigned int status, const std::string &) {
    note(me, "response", std::to_string(status));
}

void onRedirect(ConferenceParticipant *me, const std::string &name, unsigned short port,
                const std::string &, unsigned short, const std::string &, unsigned int,
                const std::string &) {
    note(me, "redirect", name + ":" + std::to_string(port));
}

std::string key(const TCPAddress &address) {
    std::string ip;
    address.ipString(ip, false);
    return ip + " " + std::to_string(address.hostByteOrderPort());
}

bool hasIPv6() {
    static const bool has = [] {
        platform::Endpoint loopback;
        loopback.family = platform::FAMILY_IPV6;
        reinterpret_cast<unsigned char *>(loopback.ipv6.data())[15] = 1;
        const int descriptor = platform::openSocket(platform::FAMILY_IPV6);
        const bool bound = descriptor != -1 && platform::bindSocket(descriptor, loopback);
        if (descriptor != -1)
            platform::closeSocket(descriptor);
        return bound;
    }();
    return has;
}

std::string describe(const Roster &roster) {
    std::string text = "{";
    for (const auto &[name, color] : roster)
        text += " " + name + ":" + std::to_string(color);
    return text + " }";
}

} // namespace

Party::Party(Meeting &meeting, const std::string &name, Reach reach)
    : m_meeting(meeting),
      m_name(name),
      m_participant(std::make_unique<ConferenceParticipant>(
          reach == Reach::thisMachine && hasIPv6(), freshPort())) {
    parties()[m_participant.get()] = this;
    ConferenceParticipant &me = *m_participant;
    me.setFirstName(name);
    me.setEmail(name + "@example.org");
    me.setSecurityCB(onSecurity);
    me.setJoinCB(onChange<"join", true>);
    me.setLeaveCB(onChange<"leave", false>);
    me.setUserDataCB(onChange<"user", true>);
    me.setLeadChangeCB(onEntry<"leader">);
    me.setBroadcastDataCB(onBroadcast);
    me.setFileTransferCB(onFile);
    me.setLeadReplyCB(onLeadReply);
    me.setSynchTimeCB(onSynchTime);
    me.setAcceptedCB(onCall<"accepted">);
    me.setBusyCB(onCall<"busy">);
    me.setRejectedCB(onCall<"rejected">);
    me.setRingingCB(onCall<"ringing">);
    me.setBadAddressCB(onCall<"badAddress">);
    me.setNoAnswerCB(onCall<"noAnswer">);
    me.setVersionCB(onCall<"version">);
    me.setProxyCB(onProxy);
    me.setServerResponseCB(onServerResponse);
}

std::string Party::ip() const {
    std::string text;
    m_participant->address().ipString(text, false);
    return text;
}

void Party::screensCalls() {
    m_participant->setCallPendingCB(onEntry<"pending">);
}

void Party::decidesOnLead() {
    m_participant->setLeadRequestCB(onEntry<"leadRequest">);
}

void Party::decidesOnRedirects() {
    m_participant->setRedirectCB(onRedirect);
}

bool Party::calls(const Party &other) {
    return m_participant->placeCall(other.ip(), other.port(), "", 0, "", "", 0);
}

bool Party::calls(const WirePeer &other) {
    return m_participant->placeCall("127.0.0.1", other.port(), "", 0, "", "", 0);
}

testing::AssertionResult Party::meets(Party &other) {
    const std::string joinsMe = "join " + other.name(), joinsOther = "join " + m_name;
    const int before = told(joinsMe), beforeOther = other.told(joinsOther);
    if (!calls(other))
        return testing::AssertionFailure() << m_name << " cannot call " << other.name();
    const auto met = [&] { return told(joinsMe) > before && other.told(joinsOther) > beforeOther; };
    return m_meeting.until(met, m_name + " meets " + other.name());
}

testing::AssertionResult Party::reaches(WirePeer &other) {
    if (!other.listens() || !calls(other))
        return testing::AssertionFailure() << m_name << " cannot call " << other.entry.firstName;
    return other.picksUp();
}

testing::AssertionResult Party::asks(WirePeer &other) {
    const auto reached = reaches(other);
    return reached && other.saysHello() ? other.receives(id::joinRequest) : reached;
}

testing::AssertionResult Party::meets(WirePeer &other) {
    const std::string joins = "join " + other.entry.firstName;
    const int before = told(joins);
    const auto asked = asks(other);
    if (!asked || !other.sends(id::joinReply, {1}))
        return asked;
    return m_meeting.until([&] { return told(joins) > before; }, m_name + " hears " + joins);
}

bool Party::says(const std::string &text) {
    return m_participant->sendBroadcastData(reinterpret_cast<const unsigned char *>(text.data()),
                                            text.size());
}

void Party::leaves() {
    m_participant->hangup();
    forgetOldMeeting();
}

void Party::dies() {
    if (m_participant) {
        parties().erase(m_participant.get());
        m_participant.reset();
    }
}

testing::AssertionResult Party::isTold(const std::string &event) {
    const auto result =
        m_meeting.until([&] { return told(event) > 0; }, m_name + " is told \"" + event + "\"");
    return result ? result
                  : testing::AssertionResult(result)
                        << "; was told: " << testing::PrintToString(events);
}

testing::AssertionResult Party::sees(const Roster &expected) {
    const auto result = m_meeting.until([&] { return roster() == expected; },
                                        m_name + " sees " + describe(expected));
    return result ? result : testing::AssertionResult(result) << ", not " << describe(roster());
}

int Party::told(const std::string &event) const {
    return static_cast<int>(std::count(events.begin(), events.end(), event));
}

Roster Party::roster() const {
    Roster roster;
    if (m_participant && m_participant->isMeeting()) {
        for (const auto &[address, party] : m_known)
            roster.insert(party);
    }
    return roster;
}

void Party::note(const std::string &kind, const std::string &what) {
    forgetOldMeeting();
    const std::string event = kind + " " + what;
    events.push_back(event);
    if (inside)
        inside(event);
}

void Party::know(const RosterBase &entry, bool present) {
    forgetOldMeeting();
    const std::string address = key(entry);
    m_known.erase(address);
    if (present && address != key(m_participant->address()))
        m_known.emplace(address, Roster::value_type(entry.firstName(), entry.colorIndex()));
}

void Party::forgetOldMeeting() {
    if (!m_participant->isMeeting())
        m_known.clear();
}

testing::AssertionResult gather(Party &host, const std::vector<Party *> &members) {
    Roster everybody = {{host.name(), 0}};
    int color = 0;
    for (Party *member : members) {
        const auto met = host.meets(*member);
        if (!met)
            return met;
        everybody[member->name()] = ++color;
    }
    std::vector<Party *> all = members;
    all.push_back(&host);
    for (Party *party : all) {
        Roster others = everybody;
        others.erase(party->name());
        const auto seen = party->sees(others);
        if (!seen)
            return seen;
    }
    return testing::AssertionSuccess();
}

TCPAddress addressOf(const WirePeer &peer) {
    const WireAddress &wire = peer.entry.address;
    unsigned int ipv4 = 0;
    std::copy_n(wire.ip.data() + 12, 4, reinterpret_cast<unsigned char *>(&ipv4));
    TCPAddress address;
    address.setIPv4(ipv4);
    address.setHostByteOrderPort(wire.port);
    return address;
}

} // namespace vintok::test
