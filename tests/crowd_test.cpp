// Many parties, and things that happen at the same time: members that come and go at random, calls
// that cross, one who does not listen while others talk, many deaths at once, more descriptors than
// a classic wait can hold and fewer than are needed.
#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Thread.h"
#include "support/Stage.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <thread>

namespace vintok::test {
namespace {

class Crowd : public Stage {
protected:
    Crowd() { setLogLevel(LOG_NONE); }
};

// ---- Coming and going ----

// A member that keeps the roster as it is told, and knows what it should be told.
struct Member {
    Member(Meeting &meeting, const std::string &name) : peer(meeting, name) {}

    // Takes in what has come; the connection goes on being read.
    void listen() {
        for (const WireFrame &frame : peer.gets()) {
            const auto entry = WireEntry::decode(frame.body);
            if (frame.id == id::rosterReply && entry)
                roster[entry->address.port] = {entry->firstName, entry->color};
            else if (frame.id == id::leaveNotify && entry)
                roster.erase(entry->address.port);
        }
    }

    WirePeer peer;
    int color = 0;
    std::map<std::uint16_t, std::pair<std::string, int>>
        roster; // by port: no two members share one
};

// What must hold, kept beside the meeting: who is in it, under which name and colour.
class Oracle {
public:
    Oracle(Meeting &meeting, Party &host, unsigned seed)
        : m_meeting(meeting), m_host(host), m_random(seed) {}

    std::size_t size() const { return m_members.size(); }
    std::size_t below(std::size_t limit) { return m_random() % limit; }

    void joins(const std::string &name) {
        auto member = std::make_unique<Member>(m_meeting, name);
        ASSERT_TRUE(below(2) == 0 ? member->peer.joins(m_host.port()) : m_host.meets(member->peer));
        member->color = m_nextColor++;
        m_members.push_back(std::move(member));
    }
    void renames() {
        Member &member = any();
        member.peer.entry.firstName += "'";
        ASSERT_TRUE(member.peer.saysHello());
        member.listen();
        ASSERT_TRUE(m_host->sendRoster());
    }
    void speaks() { ASSERT_TRUE(any().peer.sends(id::broadcast, {'x'})); }
    void leaves() {
        const std::size_t which = below(m_members.size());
        WirePeer &peer = m_members[which]->peer;
        switch (below(4)) {
        case 0:
            ASSERT_TRUE(peer.sends(id::hangup) && peer.seesTheEnd());
            break;
        case 1:
            peer.closes();
            break;
        case 2:
            peer.resets();
            break;
        default:
            peer.halfCloses();
            ASSERT_TRUE(peer.seesTheEnd());
        }
        m_members.erase(m_members.begin() + static_cast<std::ptrdiff_t>(which));
        ASSERT_TRUE(m_host.sees(truth()));
    }
    // Everybody's roster is the true one.
    void check() {
        for (const auto &member : m_members) {
            member->listen();
            Roster told;
            for (const auto &[port, party] : member->roster)
                told.insert(party);
            Roster expected = truth();
            expected[m_host.name()] = 0;
            ASSERT_EQ(expected, told) << member->peer.entry.firstName;
        }
        ASSERT_EQ(truth(), m_host.roster());
    }

private:
    Member &any() { return *m_members[below(m_members.size())]; }
    Roster truth() const {
        Roster roster;
        for (const auto &member : m_members)
            roster[member->peer.entry.firstName] = member->color;
        return roster;
    }

    Meeting &m_meeting;
    Party &m_host;
    std::mt19937 m_random;
    std::vector<std::unique_ptr<Member>> m_members;
    int m_nextColor = 1;
};

TEST_F(Crowd, TwoHundredComeAndGoAndEverybodyKnowsWhoIsThere) {
    const char *fixed = std::getenv("VINTOK_TEST_SEED");
    const unsigned seed =
        fixed != nullptr ? static_cast<unsigned>(std::atoi(fixed)) : std::random_device()();
    SCOPED_TRACE("VINTOK_TEST_SEED=" + std::to_string(seed));
    ASSERT_TRUE(ann.hosts("Plan"));
    Oracle oracle(meeting, ann, seed);
    constexpr std::size_t room = 8;
    for (int came = 0; came < 200 && !HasFatalFailure();) {
        const std::size_t dice = oracle.below(10);
        if (oracle.size() < 2 || (dice < 5 && oracle.size() < room)) // alone, the host hangs up
            oracle.joins("Member" + std::to_string(++came));
        else if (dice < 8)
            oracle.leaves();
        else
            dice == 8 ? oracle.renames() : oracle.speaks();
        if (oracle.below(8) == 0)
            oracle.check();
    }
    oracle.check();
}

// ---- At the same moment ----

TEST_F(Crowd, AListedPartyMayKnockAsOftenAsItLikes) {
    ASSERT_TRUE(annHosts({&bob}));
    const int before = meeting.watched();
    cid.entry = bob.entry;
    for (int times = 0; times < 50; ++times)
        ASSERT_TRUE(cid.knocks(ann.port()) && cid.seesTheEnd());
    EXPECT_EQ(before, meeting.watched());
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}}));
    EXPECT_TRUE(ann.says("hello") && bob.receives(id::broadcast));
}

TEST_F(Crowd, ACallerThatGivesUpInTheQueueTakesNobodyElseWithIt) {
    ASSERT_TRUE(ann.hosts("Plan"));
    for (WirePeer *next : {&cid, &dan, &host}) {
        next->entry.state = 0;
        ASSERT_TRUE(bob.connects(ann.port()) && next->connects(ann.port()));
        bob.resets();
        EXPECT_TRUE(next->receives(id::rosterEntry));
        EXPECT_TRUE(next->saysHello() && next->asksToJoin() && next->receives(id::joinReply));
    }
}

// ---- One who does not listen ----

// Owns a connection and does not read from it until `enough` bytes wait there: the host is stuck by
// then, or will be. Then a thread reads everything, or resets the connection.
class Deaf {
public:
    enum class Then { reads, dies };
    Deaf(int descriptor, Then then)
        : m_descriptor(descriptor), m_thread([this, then] { run(then); }) {}
    ~Deaf() {
        m_stop = true;
        m_thread.join();
        platform::closeSocket(m_descriptor);
    }
    Deaf(const Deaf &) = delete;
    Deaf &operator=(const Deaf &) = delete;

    std::size_t heard() const { return m_heard; }

private:
    void run(Then then) {
        constexpr std::size_t enough = 30000;
        std::vector<unsigned char> buffer(65536);
        std::size_t waiting = 0;
        while (!m_stop && waiting < enough) {
            platform::sleepMilliseconds(1);
            platform::bytesWaiting(m_descriptor, waiting);
        }
        if (then == Then::dies) {
            platform::resetOnClose(m_descriptor);
            platform::closeSocket(m_descriptor);
            m_descriptor = -1;
            return;
        }
        while (!m_stop) {
            if (platform::bytesWaiting(m_descriptor, waiting) && waiting > 0) {
                const auto count = platform::receive(m_descriptor, buffer.data(), buffer.size());
                m_heard += count > 0 ? static_cast<std::size_t>(count) : 0;
            } else {
                platform::sleepMilliseconds(1);
            }
        }
    }

    int m_descriptor; // the thread's, as long as that runs
    std::atomic<bool> m_stop = false;
    std::atomic<std::size_t> m_heard = 0;
    std::thread m_thread;
};

TEST_F(Crowd, OneWhoIsDeafForAWhileHoldsTheOthersUpAndLosesNothing) {
    ASSERT_TRUE(annHosts({&bob, &cid}));
    constexpr int times = 400;
    const std::string text(5000, 'x');
    const Deaf deaf(bob.handsOver(), Deaf::Then::reads);
    for (int said = 0; said < times; ++said) {
        ASSERT_TRUE(ann.says(text));
        ASSERT_TRUE(cid.receives(id::broadcast));
    }
    EXPECT_TRUE(meeting.until([&] { return deaf.heard() == times * (60 + text.size()); },
                              "the deaf one catches up"));
}

TEST_F(Crowd, OneWhoDiesDeafIsDroppedAndTheOthersHearEverything) {
    ASSERT_TRUE(annHosts({&bob, &cid}));
    const std::string text(5000, 'x');
    {
        const Deaf deaf(bob.handsOver(), Deaf::Then::dies);
        for (int said = 0; said < 400; ++said) {
            ann.says(text);
            ASSERT_TRUE(cid.receives(id::broadcast));
        }
    }
    EXPECT_EQ(1, ann.told("leave Bob"));
    EXPECT_TRUE(ann.says("at last") && cid.receives(id::broadcast));
}

// ---- Many deaths ----

TEST_F(Crowd, AHostSurvivesTheDeathOfMostOfItsMembersAtOnce) {
    std::vector<std::unique_ptr<WirePeer>> others;
    ASSERT_TRUE(ann.hosts("Plan"));
    for (int number = 0; number < 40; ++number) {
        others.push_back(std::make_unique<WirePeer>(meeting, "Member" + std::to_string(number)));
        ASSERT_TRUE(others.back()->joins(ann.port()));
        if (number == 20) {
            ASSERT_TRUE(bob.joins(ann.port()));
        }
    }
    ASSERT_TRUE(bob.fences());
    const int before = meeting.watched();
    for (const auto &member : others)
        member->resets();
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 22}}));
    EXPECT_EQ(before - 40, meeting.watched());
    const auto gone = names(bob.gets(), id::leaveNotify);
    EXPECT_EQ(40u, std::set(gone.begin(), gone.end()).size()) << "each departure is told";
    EXPECT_TRUE(ann.says("again"));
}

TEST_F(Crowd, AHostSurvivesTheDeathOfAllItsMembersInTheLoop) {
    ASSERT_TRUE(ann.hosts("Plan"));
    const int before = meeting.watched();
    {
        std::vector<std::unique_ptr<WirePeer>> members;
        for (int number = 0; number < 20; ++number) {
            members.push_back(std::make_unique<WirePeer>(meeting, "Member"));
            ASSERT_TRUE(members.back()->joins(ann.port()));
        }
    }
    EXPECT_TRUE(meeting.until([&] { return !ann->isMeeting(); }, "nobody is left"));
    EXPECT_EQ(20, ann.told("leave Member"));
    EXPECT_EQ(before, meeting.watched());
}

// ---- Descriptors ----

// Sockets that only take up numbers.
class Ballast {
public:
    ~Ballast() { drop(m_descriptors.size()); }
    // Stops where the system gives no more. Returns how many there are.
    std::size_t fill(std::size_t count) {
        while (m_descriptors.size() < count) {
            const int descriptor = platform::openSocket(platform::FAMILY_IPV4);
            if (descriptor == -1)
                break;
            m_descriptors.push_back(descriptor);
        }
        return m_descriptors.size();
    }
    void drop(std::size_t count) {
        for (; count > 0 && !m_descriptors.empty(); --count) {
            platform::closeSocket(m_descriptors.back());
            m_descriptors.pop_back();
        }
    }

private:
    std::vector<int> m_descriptors;
};

// Another limit on descriptors for the length of a test.
class Limit {
public:
    explicit Limit(std::size_t count) : m_holds(platform::setDescriptorLimit(count)) {}
    ~Limit() { platform::setDescriptorLimit(m_before); }
    Limit(const Limit &) = delete;
    Limit &operator=(const Limit &) = delete;

    // False where the system has no limit, or does not let it be set to this.
    bool holds() const { return m_holds; }

private:
    const std::size_t m_before = platform::descriptorLimit();
    const bool m_holds;
};

TEST_F(Crowd, AHostWorksInAProcessWithManyDescriptors) {
    constexpr std::size_t wanted = 1100;
    const Limit limit(std::max(platform::descriptorLimit(), wanted + 50));
    if (!limit.holds() && platform::descriptorLimit() != 0) {
        GTEST_SKIP() << "this process may not have " << wanted << " descriptors";
    }
    Ballast ballast;
    const std::size_t got = ballast.fill(wanted);
    if (got < wanted) {
        GTEST_SKIP() << "this system gives " << got << " sockets, not " << wanted;
    }
    Party eve(meeting, "Eve"), fay(meeting, "Fay"), guy(meeting, "Guy");
    ASSERT_TRUE(gather(eve, {&fay, &guy}));
    EXPECT_TRUE(fay.says("hello") && eve.hears("hello") && guy.hears("hello"));
    fay.leaves();
    EXPECT_TRUE(eve.sees({{"Guy", 2}}) && guy.sees({{"Eve", 0}}));
}

// A listener whose connection cannot be accepted stays readable; a host that only noted that would
// spin.
TEST_F(Crowd, AHostWithoutDescriptorsTurnsCallersAwayAndServesItsMembers) {
    ASSERT_TRUE(annHosts({&bob}));
    constexpr std::size_t room = 200;
    const Limit limit(room);
    if (!limit.holds()) {
        GTEST_SKIP() << "this system sets no limit on descriptors";
    }
    Ballast ballast;
    ASSERT_LT(ballast.fill(room), room);
    for (int times = 0; times < 3; ++times) {
        ballast.drop(1);
        ASSERT_TRUE(cid.connects(ann.port()));
        EXPECT_TRUE(cid.seesTheEnd());
        EXPECT_TRUE(ann.says("hello"));
        ASSERT_TRUE(bob.fences());
        cid.closes();
        ballast.fill(room);
    }
    int busyTurns = 0;
    for (int turns = 0; turns < 20; ++turns)
        busyTurns += meeting.turn() ? 1 : 0;
    EXPECT_LT(busyTurns, 5) << "nothing is left to do";
    ballast.drop(20);
    EXPECT_TRUE(cid.joins(ann.port())) << "as soon as there is room";
}

} // namespace
} // namespace vintok::test
