#include "Party.h"

#include "Saying.h"

#include <string_view>

namespace app {

namespace {

constexpr std::size_t mostCallers = 64; // that wait for an answer

} // namespace

Party &Party::of(vintok::ConferenceParticipant *participant) {
    return static_cast<Participant *>(participant)->party;
}

void Party::setCallbacks() {
    using Library = vintok::ConferenceParticipant;
    using Entry = vintok::ConferenceRosterEntry;
    using Called = vintok::RosterBase;
    m_participant.setCallPendingCB([](Library *p, const Entry &e) { of(p).callPending(e); });
    m_participant.setJoinCB([](Library *p, const Entry &e) { of(p).joined(e); });
    m_participant.setLeaveCB([](Library *p, const Entry &e) { of(p).left(e); });
    m_participant.setUserDataCB([](Library *p, const Entry &e) { of(p).changed(e); });
    m_participant.setBroadcastDataCB([](Library *p, unsigned char *data, std::uint64_t length) {
        of(p).heard(data, static_cast<std::size_t>(length));
    });
    m_participant.setFileProgressCB(
        [](Library *p, const vintok::TCPAddress &origin, std::uint64_t done, std::uint64_t,
           const std::string &path) { of(p).m_files.goesOn(origin, done, path); });
    m_participant.setFileTransferCB(
        [](Library *p, const vintok::TCPAddress &, bool whole, const std::string &path) {
            of(p).m_files.ends(whole, path);
        });
    m_participant.setFileSentCB([](Library *p, std::uint32_t, Library::FileOutcome outcome,
                                   void *) { of(p).m_files.sent(outcome == Library::FILE_SENT); });
    m_participant.setSlowMemberCB([](Library *p, const Entry &e, std::uint64_t waiting,
                                     Library::SlowMember) { of(p).isSlow(e, waiting); });
    m_participant.setLeadChangeCB([](Library *p, const Entry &e) { of(p).leads(e); });
    m_participant.setLeadRequestCB([](Library *p, const Entry &e) { of(p).leadAsked(e); });
    m_participant.setLeadReplyCB([](Library *p, unsigned char *answer, std::uint64_t length) {
        of(p).leadAnswered(length != 0 && *answer != 0);
    });
    m_participant.setRingingCB([](Library *p, const std::string &, const Called &) {
        if (!of(p).m_hosts || !of(p).m_hosts->isAgain())
            of(p).m_report.call(CallEvent::ringing, of(p).whom());
    });
    m_participant.setAcceptedCB(
        [](Library *p, const std::string &, const Called &) { of(p).accepted(); });
    m_participant.setRejectedCB([](Library *p, const std::string &, const Called &) {
        of(p).callEnds(CallEvent::rejected, "has rejected the call");
    });
    m_participant.setBusyCB([](Library *p, const std::string &, const Called &) {
        of(p).callEnds(CallEvent::busy, "is busy: in a meeting that somebody else hosts");
    });
    m_participant.setNoAnswerCB(
        [](Library *p, const std::string &, const Called &) { of(p).callBreaks(); });
    m_participant.setTurnedAwayCB(
        [](Library *p, const Entry &e, const char *why, void *) { of(p).turnedAway(e, why); });
    m_participant.setMessageCB([](Library *p, const Entry &e, vintok::TCPMessage &message, void *) {
        return of(p).told(e, message);
    });
    setTunnelCallbacks();
    m_participant.setVersionCB([](Library *p, const std::string &, const Called &) {
        // A stranger that calls us with an old version is turned away without a word.
        of(p).callEnds(CallEvent::tooOld, "speaks too old a version");
    });
}

void Party::setTunnelCallbacks() {
    using Library = vintok::ConferenceParticipant;
    m_participant.setServerResponseCB([](Library *p, unsigned int status, const std::string &text) {
        if (of(p).m_tunnelCall)
            of(p).m_tunnelCall->answered(status, text);
    });
    m_participant.setProxyCB([](Library *p, const std::string &, unsigned short,
                                const std::string &, unsigned short, const std::string &,
                                unsigned int retries, const std::string &) {
        if (of(p).m_tunnelCall)
            of(p).m_tunnelCall->challenged(retries);
    });
    m_participant.setRedirectCB([](Library *p, const std::string &name, unsigned short port,
                                   const std::string &, unsigned short, const std::string &,
                                   unsigned int retries, const std::string &) {
        if (!of(p).m_tunnelCall)
            return of(p).sentOn(name, port, retries);
        p->setMUXRedirected(true); // from now on each one costs a retry
        of(p).m_tunnelCall->redirected(name, port, retries);
    });
}

Person Party::self() const {
    vintok::ConferenceRosterEntry entry(
        static_cast<const vintok::TCPAddress &>(m_participant.address()));
    entry.setFirstName(m_participant.firstName());
    entry.setLastName(m_participant.lastName());
    entry.setEmail(m_participant.email());
    entry.setTitle(m_participant.title());
    entry.setPhone(m_participant.phone());
    entry.setColorIndex(m_participant.colorIndex());
    entry.setHost(m_participant.isHost());
    Person person = personOf(entry, m_participant.isHidingIPsRequired());
    person.self = true;
    return person;
}

void Party::callPending(const vintok::ConferenceRosterEntry &entry) {
    // Only a host has a meeting to let somebody into, and a meeting has one host: a caller that
    // reached us while we were none has made itself one.
    if (!m_participant.isHost() || entry.isHost() || m_options.answer == Answer::no) {
        m_participant.rejectCall(entry);
        return;
    }
    if (m_seat && !m_seat->admits(entry))
        return;
    if (m_options.answer == Answer::yes) {
        m_participant.acceptCall(entry);
        return;
    }
    // Nobody tells when a caller gives up. One that calls again takes the place of its last call,
    // and of too many the oldest is turned away.
    std::erase_if(m_callers, [&](const auto &waiting) { return waiting.second == entry; });
    if (m_callers.size() == mostCallers) {
        m_participant.rejectCall(m_callers.begin()->second);
        m_callers.erase(m_callers.begin());
    }
    m_callers.emplace(++m_lastCall, entry);
    m_report.asked(m_lastCall, personOf(entry, m_participant.isHidingIPsRequired()));
}

void Party::joined(const vintok::ConferenceRosterEntry &entry) {
    const Person person = personOf(entry, m_participant.isHidingIPsRequired());
    m_people.take(person);
    // A guest has one connection. Whoever else claims to host is a name in the roster.
    if (m_options.role == Role::join && person.host && person.connection != -1)
        m_host = person.connection;
    if (m_seat)
        m_seat->joined(entry);
    if (!wasThere(person))
        m_report.joined(person);
    tellSecurity(person);
}

void Party::left(const vintok::ConferenceRosterEntry &entry) {
    const Person person = personOf(entry, m_participant.isHidingIPsRequired());
    m_people.remove(person);
    m_files.left(person);
    m_whereabouts.left({person.address, person.port});
    if (m_seat)
        m_seat->left(entry);
    if (m_stage == Stage::leaving)
        return; // it is this party that leaves
    m_report.left(person);
    if (m_host != -1 && person.connection == m_host) {
        tellBreak();
        if (comesBack())
            return; // `goOn` sees to it
        if (!m_hostBreak.empty())
            return fail("the connection to the host was broken off: " + m_hostBreak);
        meetingEnds("The host has left: the meeting is over.");
    }
}

// A guest or a caller, which is hung up.
void Party::isSlow(const vintok::ConferenceRosterEntry &entry, std::uint64_t waiting) {
    if (!entry.doBroadcast())
        return;
    const Person person = personOf(entry, m_participant.isHidingIPsRequired());
    Notice notice{"slow",
                  person.name + " takes too slowly what is sent: " + std::to_string(waiting) +
                      " bytes wait.",
                  {}};
    notice.fields.text("name", person.name);
    notice.fields.number("waiting", static_cast<std::int64_t>(waiting));
    m_report.notice(notice);
}

void Party::changed(const vintok::ConferenceRosterEntry &entry) {
    const Person me = self();
    Person person = personOf(entry, m_participant.isHidingIPsRequired());
    if (person.address == me.address && person.port == me.port)
        person = me;
    if (m_seat)
        m_seat->changed();
    const Person *known = m_people.find({person.address, person.port});
    if (known && !(*known == person)) {
        const Person before = *known;
        m_people.take(person);
        m_report.changed(person, before);
    }
}

void Party::heard(const unsigned char *data, std::size_t length) {
    const std::string body(reinterpret_cast<const char *>(data), length);
    if (m_files.heard(body))
        return;
    record(body);
    Saying saying;
    if (!decodeSaying(body, saying)) {
        m_report.strangeData(length);
        return;
    }
    Person speaker;
    if (const Person *known = m_people.find(saying.place)) {
        speaker = *known;
        speaker.self = false; // whoever speaks in our name is to be heard
    } else {
        speaker = personAt(saying.place, m_participant.isHidingIPsRequired());
        speaker.name = saying.name;
    }
    m_report.said(speaker, saying.text);
}

void Party::leads(const vintok::ConferenceRosterEntry &entry) {
    const Person me = self();
    Person person = personOf(entry, m_participant.isHidingIPsRequired());
    if (person.address == me.address && person.port == me.port) {
        person = me;
        m_wantsLead = false;
    } else {
        m_leadAsked = false;
    }
    m_people.setLeader(person);
    m_report.leads(person);
}

void Party::leadAsked(const vintok::ConferenceRosterEntry &entry) {
    m_leadAsked = true;
    m_report.leadAsked(personOf(entry, m_participant.isHidingIPsRequired()));
}

// A member hears the answer of another member twice.
void Party::leadAnswered(bool granted) {
    if (m_wantsLead) {
        m_wantsLead = false;
        m_report.leadAnswered(granted);
    }
}

// With TLS in use a person is told of every connection how it stands.
void Party::tellSecurity(const Person &person) {
    if (m_options.secure.wanted() && person.connection != -1)
        m_report.notice(secure::describe(person.connection, person.name, secureServer()));
}

// The server on the way at which the encryption ends; empty when it ends at the host.
std::string Party::secureServer() const {
    return m_tunnelCall ? m_tunnelCall->secureServer() : "";
}

std::vector<Person> Party::people() const {
    std::vector<Person> people = m_people.all();
    for (Person &person : people) {
        person.hidden |= m_participant.isHidingIPsRequired(); // also of who came before that
        if (person.connection != -1) {
            person.channel = secure::channelOf(person.connection);
            if (!person.channel.value_or("").empty() && !secureServer().empty())
                *person.channel += " to " + secureServer();
        }
        person.at = hostOf(person);
    }
    return people;
}

void Party::callEnds(CallEvent event, const std::string &reason) {
    callFails(event, whom() + ' ' + reason);
}

void Party::callFails(CallEvent event, const std::string &failure) {
    if (m_stage != Stage::calling)
        return;
    m_report.call(event, whom());
    if (!m_hosts)
        return fail(failure);
    m_hosts->failed(failure);
    m_isUnderWay = false;
    m_turnedAway.clear();
}

// The connection of the call is gone.
void Party::callBreaks() {
    std::string failure = m_tunnelCall ? m_tunnelCall->failure() : "";
    const std::string insecure = tellBreak();
    if (failure.empty()) {
        failure = whom() + (!m_turnedAway.empty() ? " turns this party away: " + m_turnedAway
                            : insecure.empty()    ? " has hung up without an answer"
                                                  : " cannot be reached securely: " + insecure);
    }
    callFails(CallEvent::noAnswer, failure);
}

// The own call, or one of somebody else.
void Party::turnedAway(const vintok::ConferenceRosterEntry &entry, const std::string &why) {
    if (m_stage == Stage::calling) {
        m_turnedAway = why;
        return;
    }
    const Person person = personOf(entry, m_participant.isHidingIPsRequired());
    Notice notice{"turned-away", person.name + " was turned away: " + why + '.', {}};
    notice.fields.text("name", person.name);
    notice.fields.text("reason", why);
    m_report.notice(notice);
}

// Why a connection was broken off that was to be secure; empty when none was.
std::string Party::tellBreak() {
    const secure::Break broken = secure::takeBreak();
    if (!broken.reason.empty()) {
        Notice notice{"broken-off", "A connection was broken off: " + broken.reason + '.', {}};
        notice.fields.text("reason", broken.reason);
        m_report.notice(notice);
    }
    if (m_host != -1 && broken.descriptor == m_host)
        m_hostBreak = broken.reason;
    return broken.reason;
}

void Party::giveUp(const std::string &reason) {
    m_hosts.reset();
    callEnds(CallEvent::noAnswer, reason);
    m_participant.hangup();
}

} // namespace app
