// The guards that a participant can be given: what somebody gets who does what he may not, without
// the guard, as always, and with it.
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/TemporaryFolder.h"
#include "support/WirePeer.h"

namespace vintok::test {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t year = 365 * 86400;
constexpr std::uint32_t secureBit = 0x100, encryptBit = 0x40000;

const auto fileNamed = [](const std::string &name) { return wireTexts({"/from/" + name, name}); };
Bytes clockReply(std::int64_t ahead) {
    Bytes body = wireNumber(static_cast<std::uint64_t>(getTime()));
    WireWriter(body).number(static_cast<std::uint64_t>(getTime() + ahead), 4);
    return body;
}

WireEntry named(WireEntry entry, const std::string &name) {
    entry.firstName = name;
    return entry;
}

std::string gets(const std::string &who, int id) {
    return who + " gets " + std::to_string(id);
}

// A meeting of Ann, who is tried, and of Eve, who tries.
struct Scene {
    explicit Scene(bool on) : guarded(on) {
        ann->setMembersOnly(guarded);
        ann.decidesOnLead();
        eve.entry.email = "eve@example.org";
    }
    ~Scene() { zeroTime(); }

    // Ann hosts.
    bool begins() {
        const bool stands = ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()) &&
                            bob.fences() && cid.fences();
        ann.forgets();
        return stands;
    }
    // Ann is the guest of Host, and so is Bob.
    bool visits() {
        host.entry.state = state::meeting | state::host | state::leader;
        const bool stands = host.listens() && ann.meets(host) && host.receives(id::echoRequest32) &&
                            host.sends(id::rosterReply, bob.entry.encode()) && host.fences();
        ann.forgets();
        return stands;
    }
    bool calls() { return eve.connects(ann.port()) && eve.receives(id::rosterEntry); }

    bool sends(unsigned char id, const Bytes &body) {
        const WireAddress &origin = (forges ? bob : eve).entry.address;
        return eve.sends(WireFrame{.id = id, .origin = origin, .body = body}.encode());
    }
    bool isAskedBy(WirePeer &peer) {
        return peer.sends(id::leadRequest, peer.entry.encode()) && peer.fences();
    }
    bool beginsFile(WirePeer &peer) {
        return peer.sends(id::fileBegin, fileNamed("b")) &&
               peer.sends(id::fileData, letters("x")) && peer.fences();
    }
    // What a stranger has sent before has had its effect.
    bool isHandled(WirePeer &peer) {
        const std::uint64_t before = ann->refusedMessages();
        const auto refused = [&] { return ann->refusedMessages() > before; };
        return guarded ? peer.sends(id::rosterRequest) && meeting.until(refused, "it is read")
                       : static_cast<bool>(peer.fences());
    }
    // What Ann was told, what came for the others, and what has changed.
    std::vector<std::string> seen() const {
        std::vector<std::string> all = ann.events;
        for (const int id : kinds(toBob))
            all.push_back(gets("Bob", id));
        for (const int id : kinds(toEve))
            all.push_back(gets("Eve", id));
        if (fs::exists(folder.path("f")))
            all.push_back("stored");
        if (getAddTime() > year / 2)
            all.push_back("another year");
        return all;
    }

    const bool guarded;
    bool forges = false; // its origins
    TemporaryFolder folder;
    ScopedEnvironment root{"QOR_COLLAB_ROOT_LOCAL", folder.path("")};
    Meeting meeting;
    Party ann{meeting, "Ann"};
    WirePeer bob{meeting, "Bob"}, cid{meeting, "Cid"}, eve{meeting, "Eve"}, host{meeting, "Host"};
    std::vector<WireFrame> toEve, toBob; // what came meanwhile
};

// ---- Messages ----

// Who does it; one that has joined may do it in Bob's name.
enum As { silent = 1, greeted = 2, joined = 4, asBob = 8, stranger = silent | greeted };

struct Attack {
    const char *name;
    int as;
    unsigned char id;
    Bytes (*body)(Scene &);
    std::string effect; // what is seen if it works
    bool (*prepare)(Scene &) = [](Scene &) { return true; };
    unsigned messages = 1; // that are refused
};

const auto zero = [](Scene &) { return Bytes{0}; };
const auto yes = [](Scene &) { return Bytes{1}; };
const auto size = [](Scene &) { return wireNumber(1); };
const auto word = [](Scene &) { return letters("evil"); };
const auto phantom = [](Scene &) { return WireEntry::party("Pha", 99).encode(); };
const auto asBobIs = [](Scene &s) { return s.bob.entry.encode(); };
const auto asSheIs = [](Scene &s) { return s.eve.entry.encode(); };
const auto renamed = [](Scene &s) { return named(s.bob.entry, "Mal").encode(); };
const auto inAYear = [](Scene &) { return clockReply(year); };
const auto begun = [](Scene &s) {
    return s.sends(id::fileBegin, fileNamed("f")) && s.sends(id::fileData, letters("x"));
};
const auto invented = [](Scene &s) { return s.sends(id::rosterReply, phantom(s)); };
const auto bobBegins = [](Scene &s) { return s.beginsFile(s.bob); };
const auto cidAsks = [](Scene &s) { return s.isAskedBy(s.cid); };
const auto bobLeads = [](Scene &s) { return s.isAskedBy(s.bob) && s.ann->acceptLeadChange(); };

const Attack atTheHost[] = {
    {"says", stranger, id::broadcast, word, "data evil"},
    {"says as Bob", joined | asBob, id::broadcast, word, gets("Bob", id::broadcast)},
    {"stores", stranger, id::fileEnd, size, "stored", begun, 3},
    {"stores as Bob", joined | asBob, id::fileEnd, size, "stored", begun, 3},
    {"ends a file", stranger, id::fileEnd, size, "file whole", bobBegins},
    {"acknowledges", stranger, id::fileAck, size, gets("Bob", id::fileAck)},
    {"reads the roster", stranger, id::rosterRequest, zero, gets("Eve", id::rosterReply)},
    {"invents", stranger | joined, id::rosterReply, phantom, "join Pha"},
    {"buries", stranger | joined, id::leaveNotify, phantom, "leave Pha", invented, 2},
    {"renames", stranger | joined, id::rosterReply, renamed, "user Mal"},
    {"moves the clock", stranger | joined, id::echoReply32, inAYear, "another year"},
    {"asks for the lead", greeted, id::leadRequest, asSheIs, "leadRequest Eve"},
    {"asks about Bob", joined, id::leadRequest, asBobIs, "leadRequest Eve"},
    {"answers", stranger | joined, id::leadReply, yes, gets("Bob", id::leadChange), cidAsks},
    {"takes the lead", stranger | joined, id::leadChange, asBobIs, "leader Bob"},
    {"stops Bob", stranger | joined, id::stopLead, zero, gets("Bob", id::leadRequest), bobLeads},
};

const Attack atAMember[] = {
    {"says", stranger | joined, id::broadcast, word, "data evil"},
    {"buries", stranger | joined, id::leaveNotify, asBobIs, "leave Bob"},
    {"grants the lead", stranger | joined, id::leadReply, yes, "leadReply 1"},
    {"names a leader", stranger | joined, id::leadChange, asSheIs, "leader Eve"},
};

void tries(const Attack &attack, As as, bool atHost, bool guarded) {
    SCOPED_TRACE(attack.name + std::string(guarded ? ", guarded" : "") +
                 (as == silent    ? ", silent"
                  : as == greeted ? ", greeted"
                                  : ", joined"));
    Scene s(guarded);
    ASSERT_TRUE(atHost ? s.begins() : s.visits());
    ASSERT_TRUE(as == joined ? s.eve.joins(s.ann.port()) : s.calls());
    ASSERT_TRUE(as != greeted || s.eve.saysHello());
    ASSERT_TRUE(!atHost || as != joined || (s.eve.fences() && s.bob.fences() && s.cid.fences()));
    s.forges = (attack.as & asBob) != 0;
    ASSERT_TRUE(attack.prepare(s) && s.sends(attack.id, attack.body(s)));
    const auto handled = [&] { return s.ann->refusedMessages() == attack.messages; };
    ASSERT_TRUE(guarded ? s.meeting.until(handled, "it is refused") : s.eve.fences(&s.toEve));
    ASSERT_TRUE(atHost ? s.bob.fences(&s.toBob) : s.host.fences());
    EXPECT_EQ(!guarded, testing::Value(s.seen(), testing::Contains(attack.effect)));
}

TEST(MembersOnly, WhatIsSaidByWhomItCannotComeFromDoesNothing) {
    for (const bool guarded : {false, true})
        for (const As as : {silent, greeted, joined}) {
            for (const Attack &attack : atTheHost)
                if ((attack.as & as) != 0)
                    tries(attack, as, true, guarded);
            for (const Attack &attack : atAMember)
                if ((attack.as & as) != 0)
                    tries(attack, as, false, guarded);
        }
}

TEST(MembersOnly, WhoIsRefusedIsLoggedOnceAndCounted) {
    Scene s(true);
    ASSERT_TRUE(s.begins() && s.calls() && s.eve.saysHello());
    const LogFile log(LOG_WARNING);
    ASSERT_TRUE(s.eve.sends(id::rosterRequest) && begun(s));
    ASSERT_TRUE(s.meeting.until([&] { return s.ann->refusedMessages() == 3; }, "three messages"));
    const std::string line = "Refused TCP_rosterRequest from eve@example.org at 10.77.";
    const std::string told = log.text();
    EXPECT_THAT(told, testing::HasSubstr(line));
    EXPECT_EQ(told.find("Refused"), told.rfind("Refused"));
}

// ---- Files of two senders ----

TEST(MembersOnly, AnEndEndsTheFileOfItsSender) {
    for (const bool guarded : {false, true}) {
        Scene s(guarded);
        ASSERT_TRUE(s.begins() && s.beginsFile(s.bob) && s.cid.sends(id::fileEnd, wireNumber(1)));
        ASSERT_TRUE(s.cid.fences());
        EXPECT_EQ(guarded ? 0 : 1, s.ann.told("file whole"));
        ASSERT_TRUE(s.bob.fences(&s.toBob));
        EXPECT_THAT(s.seen(), testing::Contains(gets("Bob", id::fileEnd))) << "it is passed on";
        ASSERT_TRUE(s.beginsFile(s.bob) && s.bob.sends(id::fileEnd, wireNumber(1)) &&
                    s.bob.fences());
        EXPECT_EQ(guarded ? 1 : 2, s.ann.told("file whole"));
        EXPECT_EQ(guarded ? 1 : 0, s.ann.told("file failed")) << "begun anew";
        EXPECT_EQ(0u, s.ann->refusedMessages());
    }
}

// ---- What an entry says ----

// How Bob sees Eve, who says that of herself as she joins, or afterwards.
TEST(MembersOnly, NobodyGivesHimselfARole) {
    for (const bool guarded : {false, true})
        for (const std::uint32_t bit :
             {state::host, state::leader, state::server, state::joinPending, secureBit})
            for (const bool later : {false, true}) {
                SCOPED_TRACE(std::to_string(bit) + (guarded ? ", guarded" : "") +
                             (later ? ", later" : ""));
                if (!later && (bit == state::host || bit == state::joinPending))
                    continue; // it joins nobody as a host, and asking is what this bit says
                Scene s(guarded);
                s.eve.entry.state = later ? 0 : bit;
                ASSERT_TRUE(s.begins() && s.eve.joins(s.ann.port()) && s.eve.fences());
                s.eve.entry.state = bit;
                ASSERT_TRUE(!later || (s.eve.saysHello() && s.eve.fences()));
                ASSERT_TRUE(s.bob.fences() && s.bob.sends(id::rosterRequest));
                ASSERT_TRUE(s.bob.fences(&s.toBob));
                std::optional<WireEntry> seen;
                for (const WireEntry &entry : entries(s.toBob, id::rosterReply))
                    if (entry.address == s.eve.entry.address)
                        seen = entry;
                const bool taken = !seen || (seen->state & bit) != 0;
                const bool local = later && bit == secureBit;
                EXPECT_EQ(!guarded && !local, taken);
                EXPECT_EQ(!taken || bit != state::server || later, s.ann.told("join Eve") == 1);
            }
}

// What a host says of others is taken, except that they host.
TEST(MembersOnly, AHostIsBelieved) {
    static bool hosts;
    Scene s(true);
    ASSERT_TRUE(s.visits());
    s.ann->setUserDataCB([](ConferenceParticipant *, const ConferenceRosterEntry &entry) {
        hosts = entry.isHost();
    });
    s.cid.entry.state = state::leader | state::host;
    EXPECT_TRUE(s.host.sends(id::rosterReply, s.cid.entry.encode()));
    EXPECT_TRUE(s.host.sends(id::leaveNotify, s.bob.entry.encode()) && s.host.fences());
    EXPECT_THAT(s.ann.events, testing::IsSupersetOf({"join Cid", "leader Cid", "leave Bob"}));
    EXPECT_FALSE(hosts);
}

TEST(MembersOnly, WhoIsCalledByAHostMayBeAServerAndNoHost) {
    Scene s(true);
    s.eve.entry.state = state::host | state::leader | state::server;
    ASSERT_TRUE(s.ann.hosts("Plan") && s.ann.asks(s.eve) && s.eve.sends(id::joinReply, {1}));
    ASSERT_TRUE(s.eve.fences(&s.toEve));
    const auto roster = entries(s.toEve, id::rosterReply);
    ASSERT_LE(2u, roster.size());
    EXPECT_EQ(state::server, roster[1].state & s.eve.entry.state);
}

// Without a transport nobody gets in who is to be secure.
TEST(MembersOnly, NobodyGetsAroundTheSecureTransportByHisOwnWord) {
    for (const bool guarded : {false, true})
        for (const bool leftToServer : {false, true}) {
            Scene s(guarded);
            ASSERT_TRUE(s.ann.hosts("Plan"));
            s.ann->setSecureAble(true);
            s.ann->setMUXEncrypt(leftToServer);
            ASSERT_TRUE(s.ann->setSecurePreferred(true));
            s.eve.entry.state = encryptBit;
            ASSERT_TRUE(s.calls() && s.eve.saysHello() && s.eve.asksToJoin());
            EXPECT_TRUE(guarded && !leftToServer ? s.eve.seesTheEnd() : s.eve.fences());
        }
}

// ---- Addresses ----

TEST(MembersOnly, AnAddressIsTakenByWhoHasJoinedWithIt) {
    for (const bool guarded : {false, true}) {
        Scene s(guarded);
        WirePeer dan(s.meeting, "Dan"), again(s.meeting, "Again");
        dan.entry.address = again.entry.address = s.eve.entry.address;
        ASSERT_TRUE(s.begins() && s.calls() && s.eve.saysHello() && s.isHandled(s.eve));
        ASSERT_TRUE(dan.connects(s.ann.port()) && dan.saysHello() && dan.asksToJoin());
        EXPECT_TRUE(guarded ? dan.receives(id::joinReply) : dan.seesTheEnd());
        EXPECT_TRUE(!guarded || s.eve.seesTheEnd());
        ASSERT_TRUE(again.connects(s.ann.port()) && again.saysHello());
        EXPECT_TRUE(again.seesTheEnd()) << "a second connection";
    }
}

// By the address at which he is called, and by another one that he tells.
TEST(MembersOnly, WhoIsCalledIsNotWhoeverCallsWithHisAddress) {
    for (const bool guarded : {false, true})
        for (const bool another : {false, true}) {
            Scene s(guarded);
            WirePeer dan(s.meeting, "Dan");
            ASSERT_TRUE(dan.listens());
            if (another)
                dan.entry.address = WireAddress::ipv4(0x0A4D0007, dan.port());
            s.eve.entry.address = dan.entry.address;
            ASSERT_TRUE(s.calls() && s.eve.saysHello() && s.isHandled(s.eve));
            ASSERT_EQ(guarded || another, s.ann.calls(dan));
            if (!guarded && !another)
                continue;
            ASSERT_TRUE(dan.picksUp() && dan.saysHello());
            EXPECT_TRUE(guarded ? dan.receives(id::joinRequest) : dan.seesTheEnd());
            const bool first = s.ann->address() < addressOf(dan); // the own call stands
            EXPECT_TRUE(!guarded || !another || !first || s.eve.seesTheEnd());
            EXPECT_TRUE(!guarded || (dan.sends(id::joinReply, {1}) && s.eve.seesTheEnd()));
        }
}

TEST(MembersOnly, NobodyHasTheAddressOfTheHost) {
    Scene s(true);
    ASSERT_TRUE(s.begins() && s.eve.connects(s.ann.port()));
    s.eve.entry.address = entryIn(s.eve.next(id::rosterEntry)).address;
    if (s.eve.entry.address.type == 0)
        GTEST_SKIP() << "this machine has no IPv6: the host is not reachable by it";
    ASSERT_TRUE(s.eve.saysHello() && s.eve.asksToJoin());
    EXPECT_TRUE(s.eve.seesTheEnd());
}

// ---- The clock ----

TEST(ClockStep, IsAsLongAsTheApplicationSays) {
    for (const auto &[limit, moves] : {std::pair{0, true}, {1000, true}, {900, false}}) {
        Scene s(true);
        s.ann->setLargestClockStep(limit);
        ASSERT_TRUE(s.visits());
        const LogFile log(LOG_WARNING);
        ASSERT_TRUE(s.host.sends(id::echoReply32, clockReply(950)) && s.host.fences());
        EXPECT_EQ(moves, getAddTime() > 900) << limit;
        EXPECT_EQ(moves, log.text().empty());
        zeroTime();
        ASSERT_TRUE(s.host.sends(id::echoReply32, clockReply(950)) && s.host.fences());
        EXPECT_EQ(0, getAddTime()) << "one reply was asked for";
    }
}

// ---- Files under a temporary name ----

struct Ending {
    const char *name;
    std::function<void(Scene &)> end;
    const char *left; // of what was there, with the guard
};

const Ending endings[] = {
    {"whole", [](Scene &s) { s.bob.sends(id::fileEnd, wireNumber(1)); }, "x"},
    {"another size", [](Scene &s) { s.bob.sends(id::fileEnd, wireNumber(2)); }, "before"},
    {"the sender dies", [](Scene &s) { s.bob.resets(); }, "before"},
    {"the receiver leaves", [](Scene &s) { s.ann.leaves(); }, "before"},
};

TEST(TemporaryFiles, LeaveWhatIsThereUntilTheNewOneIsWhole) {
    for (const bool guarded : {false, true})
        for (const Ending &row : endings) {
            SCOPED_TRACE(row.name + std::string(guarded ? ", guarded" : ""));
            Scene s(true);
            s.ann->setTemporaryFiles(guarded);
            s.folder.holding("b", "before");
            ASSERT_TRUE(s.begins() && s.beginsFile(s.bob));
            EXPECT_EQ(guarded ? "before" : "", s.folder.content("b"));
            const auto told = [&] { return s.ann.files.size() == 1; };
            row.end(s);
            ASSERT_TRUE(s.meeting.until(told, "the end of the file"));
            EXPECT_EQ(fs::path(s.folder.path("b")), fs::path(s.ann.files[0].path));
            EXPECT_EQ(*row.left == 'x' ? "x" : guarded ? "before" : "", s.folder.content("b"));
            EXPECT_EQ(guarded || *row.left == 'x' ? 1 : 0,
                      std::distance(fs::directory_iterator(s.folder.path("")), {}))
                << "nothing else";
        }
}

TEST(TemporaryFiles, AreNotBegunWhereNoFileCanBe) {
    Scene s(true);
    s.ann->setTemporaryFiles(true);
    fs::create_directory(s.folder.path("b"));
    ASSERT_TRUE(s.begins() && s.beginsFile(s.bob));
    EXPECT_TRUE(s.bob.sends(id::fileEnd, wireNumber(1)) && s.bob.fences());
    EXPECT_TRUE(s.ann.files.empty() && fs::is_empty(s.folder.path("b")));
}

} // namespace
} // namespace vintok::test
