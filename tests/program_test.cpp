// Runs of the real program: as a person or a script starts it, with real processes, real signals
// and real deaths.
#include "support/Party.h"
#include "support/Program.h"

#include "platform/Socket.h"
#include "vintok/TCPStream.h"

#include <algorithm>

#include <gmock/gmock.h>

using namespace vintok::test;
using testing::HasSubstr;
using namespace vintok;

namespace {

// A port of this machine on which every call is refused: somebody holds it and does not listen.
class RefusingPort {
public:
    RefusingPort() {
        vintok::platform::Endpoint endpoint;
        m_socket = vintok::platform::openSocket(vintok::platform::FAMILY_IPV4);
        TCPAddress loopback;
        loopback.setLoopbackIPv4();
        loopback.IPv4(endpoint.ipv4);
        for (unsigned short port = 20000; port < 60000 && m_port == 0; ++port) {
            loopback.setHostByteOrderPort(port);
            endpoint.port = loopback.port();
            m_port = vintok::platform::bindSocket(m_socket, endpoint) ? port : 0;
        }
    }
    ~RefusingPort() { vintok::platform::closeSocket(m_socket); }

    std::string target() const { return "127.0.0.1:" + std::to_string(m_port); }

private:
    int m_socket = -1;
    unsigned short m_port = 0;
};

// Somebody who takes calls and has nothing to say.
class SilentListener {
public:
    SilentListener() { m_socket = vintok::createLocalIPv4Socket(m_port, 0, 255, true); }
    ~SilentListener() {
        vintok::shutdownSocket(m_socket);
        for (const int call : m_calls) {
            vintok::shutdownSocket(call);
        }
    }

    std::string target() const { return "127.0.0.1:" + std::to_string(m_port); }
    void takeCall() { m_calls.push_back(vintok::acceptBoundSocket(m_socket)); }
    void say(const std::string &bytes) {
        vintok::writeBytes(m_calls.back(), reinterpret_cast<const unsigned char *>(bytes.data()),
                           bytes.size(), nullptr);
    }
    void hangUp() {
        vintok::closeDescriptor(m_calls.back());
        m_calls.pop_back();
    }

private:
    unsigned short m_port = 21000;
    int m_socket = -1;
    std::vector<int> m_calls;
};

class ProgramTest : public testing::Test {
protected:
    void SetUp() override { vintok::init(); }
    void TearDown() override { vintok::fini(); }
};

// Failed in the way that tools do: the code, one line that says why in the program's name.
void expectFailure(ChildProcess &run, int code, const std::string &why) {
    EXPECT_EQ(code, run.exitCode()) << run.story();
    EXPECT_EQ(0u, run.errors().find("vintok: ")) << run.story();
    EXPECT_THAT(run.errors(), HasSubstr(why)) << run.story();
    EXPECT_EQ(1, std::count(run.errors().begin(), run.errors().end(), '\n')) << run.story();
}

std::string portOf(const std::string &target) {
    return target.substr(target.find(':') + 1);
}

// Ann hosts, Bob and Cid have joined, and all three know all three.
class MeetingTest : public ProgramTest {
protected:
    MeetingTest()
        : ann({"host", "--meeting", "Budget", "--name", "Ann Lee"}),
          target(ann.target()),
          bob({"join", target, "--name", "Bob"}) {
        EXPECT_TRUE(ann.tells("joined", {named("Bob"), colour(1)})) << ann.story();
        cid = std::make_unique<Program>(
            std::vector<std::string>{"join", target, "--name", "Cid", "--email", "cid@x"});
        EXPECT_TRUE(ann.tells("joined", {named("Cid"), colour(2)})) << ann.story();
        EXPECT_TRUE(bob.tells("joined", {named("Cid"), colour(2)})) << bob.story();
        EXPECT_TRUE(cid->tells("joined", {named("Bob"), colour(1)})) << cid->story();
        EXPECT_TRUE(cid->tells("changed", {named("Cid"), colour(2), {"self", "true"}}))
            << cid->story();
    }

    Program ann;
    std::string target;
    Program bob;
    std::unique_ptr<Program> cid;
};

TEST_F(ProgramTest, WrongUsageEndsWithTwoAndALine) {
    const std::pair<std::vector<std::string>, const char *> cases[] = {
        {{}, "a command is needed"},
        {{"hots"}, "hots"},
        {{"join"}, "target"},
        {{"join", "host:0"}, "host:0"},
        {{"host", "--port", "65536"}, "65536"},
        {{"host", "--colour"}, "--colour"},
    };
    for (const auto &[arguments, why] : cases) {
        ChildProcess run = Program::plain(arguments);
        expectFailure(run, 2, why);
        EXPECT_EQ("", run.output());
    }
}

TEST_F(ProgramTest, HelpAndVersionEndWithZero) {
    const std::pair<std::vector<std::string>, const char *> cases[] = {
        {{"--help"}, "relay-listen"},
        {{"join", "--help"}, "--patience"},
        {{"--version"}, "vintok 4."}};
    for (const auto &[arguments, what] : cases) {
        ChildProcess run = Program::plain(arguments);
        EXPECT_EQ(0, run.exitCode()) << run.story();
        EXPECT_THAT(run.output(), HasSubstr(what));
        EXPECT_EQ("", run.errors());
    }
}

TEST_F(ProgramTest, ACallThatCannotBePlacedEndsWithOneAndALine) {
    const RefusingPort refusing;
    for (const char *role : {"join", "relay-listen", "relay-send"}) {
        Program refused({role, refusing.target()});
        expectFailure(refused, 1, "cannot reach " + refusing.target() + ": Connection refused");
        Program unknown({role, "nowhere.invalid"});
        expectFailure(unknown, 1, "cannot find the host 'nowhere.invalid'");
    }
}

TEST_F(ProgramTest, ATakenPortIsAFailureOnlyWhenItMustBeThatOne) {
    Program first({"host"});
    const std::string port = portOf(first.target());
    Program third({"host", "--port", port});
    EXPECT_NE(port, portOf(third.target())) << third.story();
    unsigned short ipv4 = freshPort();
    unsigned short ipv6 = freshPort();
    const int squatters[] = {vintok::createLocalIPv4Socket(ipv4, 0, 255, true),
                             vintok::createLocalIPv6Socket(ipv6, 0, 255, true)};
    for (const char *role : {"host", "relay"}) {
        for (const std::string &taken : {port, std::to_string(ipv4), std::to_string(ipv6)}) {
            if (squatters[1] == -1 && taken == std::to_string(ipv6)) {
                continue; // this machine has no IPv6
            }
            Program exact({role, "--port", taken, "--exact-port"});
            expectFailure(exact, 1, "cannot listen on port " + taken + ": Address already in use");
        }
    }
    for (const int squatter : squatters) {
        vintok::platform::closeSocket(squatter);
    }
}

TEST_F(ProgramTest, ACallThatNobodyAnswersEnds) {
    SilentListener silent;
    Program dropped({"join", silent.target()});
    silent.takeCall();
    silent.hangUp();
    expectFailure(dropped, 1, silent.target() + " has hung up without an answer");

    Program impatient({"join", silent.target(), "--patience", "1"});
    silent.takeCall();
    expectFailure(impatient, 1, silent.target() + " did not answer in time");

    Program interrupted({"join", silent.target()});
    silent.takeCall();
    ASSERT_TRUE(interrupted.tells("calling")) << interrupted.story();
    interrupted.type("/leave");
    EXPECT_EQ(0, interrupted.exitCode()) << interrupted.story();
}

TEST_F(MeetingTest, EachKnowsTheOthersByNameAndColour) {
    for (Program *party : {&ann, &bob, cid.get()}) {
        std::string roster;
        party->type("/who");
        ASSERT_TRUE(party->tells("roster", {text("meeting", "Budget")}, &roster)) << party->story();
        for (const char *part : {R"("name":"Ann Lee",)", R"("name":"Bob",)", R"("name":"Cid",)",
                                 R"("colour":0,"host":true,)", R"("colour":1,"host":false,)",
                                 R"("colour":2,"host":false,)", R"("email":"cid@x")"}) {
            EXPECT_THAT(roster, HasSubstr(part));
        }
    }
}

TEST_F(MeetingTest, ALineReachesTheOthersInTheSpeakersColour) {
    const std::string hard = "\"quoted\" \\ \x1b[31m \xff end";
    const std::string inJson = R"(\"quoted\" \\ \u001b[31m \ufffd end)";
    const struct {
        Program &speaker;
        const char *name;
        int index;
        Program &first;
        Program &second;
    } turns[] = {
        {ann, "Ann Lee", 0, bob, *cid}, {bob, "Bob", 1, ann, *cid}, {*cid, "Cid", 2, ann, bob}};
    for (const auto &turn : turns) {
        turn.speaker.type(hard);
        for (Program *listener : {&turn.first, &turn.second}) {
            EXPECT_TRUE(listener->tells(
                "said",
                {named(turn.name), colour(turn.index), text("text", inJson), {"self", "false"}}))
                << listener->story();
        }
        EXPECT_TRUE(turn.speaker.tells("said", {text("text", inJson), {"self", "true"}}));
    }
}

TEST_F(MeetingTest, LeavingInOrderIsToldToTheOthers) {
    bob.type("/leave");
    EXPECT_EQ(0, bob.exitCode()) << bob.story();
    EXPECT_TRUE(ann.tells("left", {named("Bob"), colour(1)})) << ann.story();
    EXPECT_TRUE(cid->tells("left", {named("Bob"), colour(1)})) << cid->story();
    cid->endInput();
    EXPECT_EQ(0, cid->exitCode()) << cid->story();
    EXPECT_TRUE(ann.tells("left", {named("Cid")})) << ann.story();
}

TEST_F(MeetingTest, AnInterruptLeavesInOrder) {
    if (!bob.interrupt()) {
        GTEST_SKIP() << "no console to send an interrupt through";
    }
    EXPECT_EQ(0, bob.exitCode()) << bob.story();
    EXPECT_TRUE(bob.tells("ended")) << bob.story();
    EXPECT_TRUE(ann.tells("left", {named("Bob")})) << ann.story();
    EXPECT_TRUE(cid->tells("left", {named("Bob")})) << cid->story();
    EXPECT_TRUE(ann.interrupt());
    EXPECT_EQ(0, ann.exitCode()) << ann.story();
    EXPECT_EQ(0, cid->exitCode()) << cid->story();
}

TEST_F(MeetingTest, AKilledPartyIsFoundDeadAndTheOthersAreTold) {
    bob.kill();
    cid->type("is Bob still there?");
    EXPECT_TRUE(ann.tells("left", {named("Bob"), colour(1)})) << ann.story();
    EXPECT_TRUE(cid->tells("left", {named("Bob"), colour(1)})) << cid->story();
    ann.type("no");
    EXPECT_TRUE(cid->tells("said", {text("text", "no")})) << cid->story();
}

TEST_F(MeetingTest, WhenTheHostLeavesTheOthersEndWell) {
    ann.type("/leave");
    EXPECT_EQ(0, ann.exitCode()) << ann.story();
    for (Program *guest : {&bob, cid.get()}) {
        EXPECT_TRUE(guest->tells("left", {named("Ann Lee")})) << guest->story();
        EXPECT_TRUE(
            guest->tells("ended", {text("reason", "The host has left: the meeting is over.")}))
            << guest->story();
        EXPECT_EQ(0, guest->exitCode()) << guest->story();
    }
}

TEST_F(MeetingTest, WhenTheHostIsKilledTheOthersEndWell) {
    ann.kill();
    for (Program *guest : {&bob, cid.get()}) {
        EXPECT_EQ(0, guest->exitCode()) << guest->story();
        EXPECT_TRUE(guest->tells("ended")) << guest->story();
    }
}

// Without the guard, with which nobody hears of it.
TEST_F(ProgramTest, WhoOnlyClaimsToBeTheHostEndsNobodysProgram) {
    Program ann({"host", "--no-members-only"});
    const std::string target = ann.target();
    Program bob({"join", target, "--name", "Bob", "--no-members-only"});
    Meeting meeting;
    WirePeer eve(meeting, "Eve");
    ASSERT_TRUE(bob.tells("changed", {named("Bob")})) << bob.story();
    ASSERT_TRUE(
        eve.joins(static_cast<unsigned short>(std::stoi(target.substr(target.rfind(':') + 1)))));
    eve.entry.state = state::meeting | state::host;
    ASSERT_TRUE(eve.sends(id::rosterReply, eve.entry.encode()) && eve.fences());
    eve.resets();
    EXPECT_TRUE(bob.tells("left", {{"host", "true"}})) << bob.story();
    ann.type("we go on");
    EXPECT_TRUE(bob.tells("said", {text("text", "we go on")})) << bob.story();
}

TEST_F(MeetingTest, AGuestOfAnotherMeetingIsBusy) {
    // Bob's port: the roster of anybody has it.
    std::string roster;
    ann.type("/who");
    ASSERT_TRUE(ann.tells("roster", {}, &roster));
    const std::size_t bobs = roster.find("\"port\":", roster.find("\"name\":\"Bob\"")) + 7;
    const std::string bobsTarget =
        "127.0.0.1:" + roster.substr(bobs, roster.find(',', bobs) - bobs);
    Program dan({"join", bobsTarget, "--name", "Dan"});
    expectFailure(dan, 1, bobsTarget + " is busy");
    EXPECT_TRUE(dan.tells("busy")) << dan.story();
}

TEST_F(ProgramTest, AHostWhoseGuestsHaveAllGoneStillHosts) {
    Program ann({"host", "--meeting", "Long", "--name", "Ann"});
    const std::string target = ann.target();
    for (int round = 0; round < 2; ++round) {
        Program bob({"join", target, "--name", "Bob"});
        ASSERT_TRUE(bob.tells("joined", {named("Ann"), {"host", "true"}})) << bob.story();
        ASSERT_TRUE(ann.tells("joined", {named("Bob"), colour(1)})) << ann.story();
        bob.type("/leave");
        ASSERT_TRUE(ann.tells("left", {named("Bob")})) << ann.story();
    }
    ann.type("anybody?");
    EXPECT_TRUE(ann.tells("problem", {text("text", "nobody else is in the meeting")}))
        << ann.story();
}

TEST_F(ProgramTest, AHostMayAskBeforeItLetsSomebodyIn) {
    Program ann({"host", "--answer", "ask", "--name", "Ann"});
    const std::string target = ann.target();
    Program bob({"join", target, "--name", "Bob", "--email", "bob@x"});
    ASSERT_TRUE(bob.tells("ringing")) << bob.story();
    ASSERT_TRUE(ann.tells("asked", {named("Bob"), text("email", "bob@x"), {"call", "1"}}))
        << ann.story();
    Program cid({"join", target, "--name", "Cid"});
    ASSERT_TRUE(ann.tells("asked", {named("Cid"), {"call", "2"}})) << ann.story();
    Program dan({"join", target, "--name", "Dan"});
    ASSERT_TRUE(ann.tells("asked", {named("Dan"), {"call", "3"}})) << ann.story();
    ann.type("/reject 2");
    expectFailure(cid, 1, target + " has rejected the call");
    EXPECT_TRUE(cid.tells("rejected")) << cid.story();
    ann.type("/accept");
    EXPECT_TRUE(bob.tells("accepted")) << bob.story();
    EXPECT_TRUE(ann.tells("joined", {named("Bob")})) << ann.story();
    const std::string place = dan.target();
    dan.kill();
    Program again({"join", target, "--name", "Dan", "--port", place.substr(place.rfind(':') + 1)});
    ASSERT_TRUE(ann.tells("asked", {named("Dan"), {"call", "4"}})) << ann.story();
    again.kill();
    for (const char *number : {"2", "3"}) {
        ann.type(std::string("/accept ") + number);
        EXPECT_TRUE(
            ann.tells("problem", {text("text", std::string("there is no call '") + number + "'")}))
            << ann.story();
    }
    ann.type("/accept 4");
    EXPECT_TRUE(ann.tells("problem", {text("text", "the caller is gone")})) << ann.story();
    ann.type("/accept");
    EXPECT_TRUE(ann.tells("problem", {text("text", "nobody waits for an answer")})) << ann.story();
}

TEST_F(ProgramTest, AGuestGoesByTheClockOfItsHost) {
    for (const int offset : {-100000, 100000}) {
        Program ann({"host", "--clock-offset", std::to_string(offset)});
        Program bob({"join", ann.target(), "--name", "Bob"});
        // The clock is compared before the roster comes.
        ASSERT_TRUE(bob.tells("changed", {named("Bob"), {"self", "true"}})) << bob.story();
        for (Program *party : {&ann, &bob}) {
            std::string line;
            party->type("/time");
            ASSERT_TRUE(party->tells("time", {}, &line)) << party->story();
            EXPECT_NEAR(offset, std::stod(line.substr(line.find("offset\":") + 8)), 1) << line;
        }
    }
}

// The guest is this process, whose clock the library moves.
TEST_F(ProgramTest, AGuestWhoseOwnClockIsWrongGoesByThatOfItsHostToo) {
    static int exchanges;
    struct Case {
        int host, guest, agreed; // seconds ahead of the machine's clock
    };
    const Case cases[] = {
        {0, -36000, 0},
        {0, 36000, 0},
        {-7200, 7200, -7200},
        {-100000, -7200, -100000},
        {100000, 3600, 100000},
        // Added time that is in excess stays whole, deliberately, with the odd sums that this
        // makes.
        {3600, 7200, 7200},
        {7200, -7200, 14400},
    };
    for (const Case &row : cases) {
        SCOPED_TRACE(std::to_string(row.host) + " and " + std::to_string(row.guest));
        Program ann({"host", "--clock-offset", std::to_string(row.host)});
        const std::string target = ann.target();
        Meeting meeting;
        Party bob(meeting, "Bob");
        exchanges = 0;
        bob->setSynchTimeCB(
            [](ConferenceParticipant *, unsigned char *, std::uint64_t) { ++exchanges; });
        zeroTime();
        ASSERT_TRUE(addTime(row.guest));
        const auto port =
            static_cast<unsigned short>(std::stoi(target.substr(target.rfind(':') + 1)));
        ASSERT_TRUE(bob->placeCall("127.0.0.1", port, "", 0, "", "", 0));
        EXPECT_TRUE(meeting.until([] { return exchanges > 0; }, "the clocks are compared"));
        EXPECT_NEAR(row.agreed, static_cast<int>(getAddTime() - getSubtractTime()), 1);
        zeroTime();
    }
}

TEST_F(ProgramTest, AnInterruptWhileItRingsGivesTheCallUp) {
    Program ann({"host", "--answer", "ask"});
    const std::string target = ann.target();
    Program bob({"join", target});
    ASSERT_TRUE(bob.tells("ringing")) << bob.story();
    ASSERT_TRUE(ann.tells("asked")) << ann.story();
    if (!bob.interrupt()) {
        GTEST_SKIP() << "no console to send an interrupt through";
    }
    expectFailure(bob, 1, target + " was not waited for any longer");
    ann.type("/accept");
    EXPECT_TRUE(ann.tells("problem", {text("text", "the caller is gone")})) << ann.story();
}

TEST_F(ProgramTest, AHostMayTurnEverybodyAway) {
    Program ann({"host", "--answer", "no"});
    const std::string target = ann.target();
    Program bob({"join", target});
    expectFailure(bob, 1, target + " has rejected the call");
}

TEST_F(ProgramTest, WhatIsTypedAheadIsSaidOnceTheCallIsAnswered) {
    Program ann({"host", "--answer", "ask", "--name", "Ann"});
    Program bob({"join", ann.target(), "--name", "Bob"});
    bob.type("first");
    bob.type("second");
    bob.endInput();
    ASSERT_TRUE(ann.tells("asked", {named("Bob")})) << ann.story();
    ann.type("/accept");
    EXPECT_TRUE(ann.tells("said", {named("Bob"), text("text", "first")})) << ann.story();
    EXPECT_TRUE(ann.tells("said", {named("Bob"), text("text", "second")})) << ann.story();
    EXPECT_TRUE(ann.tells("left", {named("Bob")})) << ann.story();
    EXPECT_EQ(0, bob.exitCode()) << bob.story();
}

TEST_F(ProgramTest, AListenerWithoutInputMayStay) {
    Program ann({"host", "--name", "Ann"});
    Program bob({"join", ann.target(), "--name", "Bob", "--stay"});
    bob.endInput();
    ASSERT_TRUE(ann.tells("joined", {named("Bob")})) << ann.story();
    ann.type("still there?");
    EXPECT_TRUE(bob.tells("said", {text("text", "still there?")})) << bob.story();
}

TEST_F(ProgramTest, OddInputIsAnsweredAndTheRunGoesOn) {
    Program ann({"host"});
    ASSERT_NE("", ann.target());
    ann.type("/dance");
    EXPECT_TRUE(
        ann.tells("problem", {text("text", "there is no command '/dance'; /help lists them")}))
        << ann.story();
    ann.type(std::string(70000, 'x'));
    EXPECT_TRUE(
        ann.tells("problem", {text("text", "a line of more than 65536 bytes was not said")}))
        << ann.errors();
    ann.type(std::string("a\0b", 3));
    EXPECT_TRUE(ann.tells("problem", {text("text", "nobody else is in the meeting")}));
    ann.type("/help");
    EXPECT_TRUE(ann.tells("help")) << ann.story();
}

TEST_F(ProgramTest, AHiddenAddressIsNotShownAndNamesNobody) {
    Program ann({"host", "--name", "Ann", "--answer", "ask"});
    const std::string target = ann.target();
    Meeting meeting;
    Party eve(meeting, "");
    eve->setEmail("");
    eve->setHidingIPsRequired(true);
    ASSERT_TRUE(eve->placeCall("127.0.0.1", static_cast<unsigned short>(std::stoul(portOf(target))),
                               "", 0, "", "", 0));
    ASSERT_TRUE(eve.isTold("ringing Ann"));
    const std::vector<EventField> hidden = {named("hidden " + std::to_string(eve.port())),
                                            text("address", "hidden")};
    EXPECT_TRUE(ann.tells("asked", hidden)) << ann.story();
    ann.type("/accept");
    ASSERT_TRUE(eve.isTold("accepted Ann"));
    EXPECT_TRUE(ann.tells("joined", hidden)) << ann.story();
    std::string roster;
    ann.type("/who");
    ASSERT_TRUE(ann.tells("roster", {}, &roster)) << ann.story();
    EXPECT_THAT(roster, testing::Not(HasSubstr(R"("address":"1)"))) << "nobody's, from now on";
}

TEST_F(ProgramTest, ATerminalIsSafeFromWhatOthersSend) {
    ChildProcess ann = Program::plain({"host", "--local", "--name", "Ann", "--color", "always"});
    std::string line;
    ASSERT_TRUE(ann.printed("Listening on", &line)) << ann.story();
    const std::string port =
        line.substr(line.rfind(' ') + 1, line.rfind('.') - line.rfind(' ') - 1);
    Program eve({"join", "127.0.0.1:" + port, "--name", "Eve \x1b]0;title\x07"});
    ASSERT_TRUE(ann.printed("is in the meeting, in green (1).", &line)) << ann.story();
    EXPECT_THAT(line, HasSubstr(R"(Eve \x1b]0;title\x07)"));
    eve.type("\x1b[2J\rAnn: I agree");
    ASSERT_TRUE(ann.printed("I agree", &line)) << ann.story();
    EXPECT_EQ("\x1b[38;5;34mEve \\x1b]0;title\\x07: \\x1b[2J\\x0dAnn: I agree\x1b[0m", line);
    ann.type("/who");
    EXPECT_TRUE(ann.printed("green (1)", &line)) << ann.story();
    ann.type("/dance");
    EXPECT_TRUE(ann.complained("vintok: there is no command '/dance'")) << ann.story();
}

TEST_F(ProgramTest, ARelayPassesLinesFromOneClientToTheOthers) {
    Program relay({"relay"});
    const std::string target = relay.target();
    Program first({"relay-listen", target});
    ASSERT_TRUE(first.tells("connected")) << first.story();
    Program second({"relay-listen", target});
    ASSERT_TRUE(second.tells("connected")) << second.story();
    Program sender({"relay-send", target});
    Program other({"relay-send", target});
    ASSERT_TRUE(other.tells("connected")) << other.story();
    for (const char *line : {"one", "", "three \x1b[2J"}) {
        sender.type(line);
    }
    sender.endInput();
    EXPECT_EQ(0, sender.exitCode()) << sender.story();
    for (Program *listener : {&first, &second}) {
        for (const char *line : {"one", "", R"(three \u001b[2J)"}) {
            EXPECT_TRUE(listener->tells("relayed", {text("text", line)})) << listener->story();
        }
    }
    EXPECT_THAT(other.output(), testing::Not(HasSubstr("relayed")));
    EXPECT_THAT(sender.output(), testing::Not(HasSubstr("relayed")));

    relay.kill();
    expectFailure(first, 1, "the relay has closed the connection");
    expectFailure(other, 1, "the relay has closed the connection");
}

// The front of a message stays when the relay dies behind it.
TEST_F(ProgramTest, ARelayThatDiesInTheMiddleOfAMessageIsNoticed) {
    for (const std::size_t cut : {1u, 35u, 61u}) {
        SilentListener relay;
        Program client({"relay-listen", relay.target()});
        relay.takeCall();
        relay.say(std::string("\0\0\0\x50", 4) + std::string(cut - 1, '\0'));
        relay.hangUp();
        expectFailure(client, 1, "the relay has closed the connection");
    }
}

// What nobody reads piles up until the relay has to wait for the one who does not read.
TEST_F(ProgramTest, ARelayClientThatOnlySendsDoesNotHoldUpTheOthers) {
    Program relay({"relay"});
    const std::string target = relay.target();
    Program idle({"relay-send", target});
    ASSERT_TRUE(idle.tells("connected")) << idle.story();
    Program listener({"relay-listen", target});
    ASSERT_TRUE(listener.tells("connected")) << listener.story();
    Program sender({"relay-send", target});
    const std::string line(60000, 'x');
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(sender.type(line)) << sender.errors();
        ASSERT_TRUE(listener.tells("relayed")) << "line " << i << '\n' << relay.story();
    }
    sender.type("the end");
    sender.endInput();
    EXPECT_EQ(0, sender.exitCode()) << sender.errors();
    EXPECT_TRUE(listener.tells("relayed", {text("text", "the end")})) << listener.errors();
}

TEST_F(ProgramTest, AnInterruptEndsARelayAndItsClients) {
    Program relay({"relay"});
    Program listener({"relay-listen", relay.target()});
    ASSERT_TRUE(listener.tells("connected")) << listener.story();
    if (!listener.interrupt()) {
        GTEST_SKIP() << "no console to send an interrupt through";
    }
    EXPECT_EQ(0, listener.exitCode()) << listener.story();
    EXPECT_TRUE(relay.interrupt());
    EXPECT_EQ(0, relay.exitCode()) << relay.story();
}

} // namespace
