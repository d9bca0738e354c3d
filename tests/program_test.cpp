// Runs of the real program: as a person or a script starts it, with real processes, real signals
// and real deaths.
#include "support/Party.h"
#include "support/Program.h"
#include "support/SocketPair.h"

#include <algorithm>

using namespace vintok::test;
using namespace vintok;

namespace {

class ProgramTest : public testing::Test {
protected:
    void SetUp() override { init(); }
    void TearDown() override { fini(); }
};

// Failed in the way that tools do: the code, one line that says why in the program's name.
void expectFailure(ChildProcess &run, int code, const std::string &why) {
    EXPECT_EQ(code, run.exitCode()) << run.story();
    EXPECT_EQ(0u, run.errors().find("vintok: ")) << run.story();
    EXPECT_THAT(run.errors(), HasSubstr(why)) << run.story();
    EXPECT_EQ(1, std::count(run.errors().begin(), run.errors().end(), '\n')) << run.story();
}

std::string targetOf(unsigned short port) {
    return "127.0.0.1:" + std::to_string(port);
}

TEST_F(ProgramTest, WrongUsageEndsWithTwoAndACallThatCannotBePlacedWithOne) {
    ChildProcess wrong =
        Program::plain({"host", "--port", "65536"}); // the parts' test has the rest
    expectFailure(wrong, 2, "65536");
    EXPECT_EQ("", wrong.output());
    unsigned short port = 0;
    closeDescriptor(listenSomewhere(port));
    for (const char *role : {"join", "relay-listen"}) {
        Program refused({role, targetOf(port)});
        expectFailure(refused, 1, "cannot reach " + targetOf(port) + ": Connection refused");
        Program unknown({role, "nowhere.invalid"});
        expectFailure(unknown, 1, "cannot find the host 'nowhere.invalid'");
    }
}

TEST_F(ProgramTest, ATakenPortIsAFailureOnlyWhenItMustBeThatOne) {
    Program first({"host"});
    const unsigned short port = first.port();
    Program third({"host", "--port", std::to_string(port)});
    EXPECT_NE(port, third.port());
    for (const char *role : {"host", "relay"}) {
        const std::string number = std::to_string(port);
        Program exact({role, "--port", number, "--exact-port"});
        expectFailure(exact, 1, "cannot listen on port " + number + ": Address already in use");
    }
}

TEST_F(ProgramTest, ACallThatNobodyAnswersEnds) {
    Meeting meeting;
    WirePeer silent(meeting, "Silent");
    ASSERT_TRUE(silent.listens());
    const std::string target = targetOf(silent.port());
    Program dropped({"join", target});
    ASSERT_TRUE(silent.picksUp());
    silent.closes();
    expectFailure(dropped, 1, target + " has hung up without an answer");

    Program impatient({"join", target, "--patience", "1"});
    ASSERT_TRUE(silent.picksUp());
    expectFailure(impatient, 1, target + " did not answer in time");

    Program interrupted({"join", target});
    ASSERT_TRUE(silent.picksUp());
    ASSERT_TRUE(interrupted.tells("calling"));
    interrupted.type("/leave");
    EXPECT_TRUE(interrupted.ends(0));
}

TEST_F(ProgramTest, AGuestIsOnAPortOfItsOwnOrNowhereAndToldWhyItIsTurnedAway) {
    Program ann({"host", "--name", "Ann"});
    const std::string target = ann.target();
    Program bob({"join", target, "--name", "Bob"});
    EXPECT_LT(49151, bob.port());
    ASSERT_TRUE(ann.tells("joined", {named("Bob")}));
    Program cid({"join", target, "--name", "Cid", "--listen", "none"});
    EXPECT_TRUE(cid.tells("port", {{"port", "0"}}) && bob.tells("joined", {named("Cid")}));
    EXPECT_TRUE(bob.isHeard("hello", cid) && cid.isHeard("hello", bob));

    Meeting meeting;
    WirePeer host(meeting, "Host");
    host.entry.state = state::meeting | state::host;
    ASSERT_TRUE(host.listens());
    Program dan({"join", targetOf(host.port())});
    ASSERT_TRUE(host.picksUp() && host.saysHello() && host.receives(id::rosterEntry));
    host.sends(0x34, {1});
    expectFailure(dan, 1, "turns this party away: this party's address and port are another's");
}

TEST_F(ProgramTest, EachKnowsTheOthersAndAGuestIsBusyForOthers) {
    Program ann({"host", "--meeting", "Budget", "--name", "Ann Lee"});
    const std::string target = ann.target();
    Program bob({"join", target, "--name", "Bob"});
    EXPECT_TRUE(ann.tells("joined", {named("Bob"), colour(1)}));
    Program cid({"join", target, "--name", "Cid", "--email", "cid@x"});
    for (Program *other : {&ann, &bob})
        EXPECT_TRUE(other->tells("joined", {named("Cid"), colour(2)}));
    EXPECT_TRUE(cid.tells("joined", {named("Bob"), colour(1)}));
    EXPECT_TRUE(cid.tells("changed", {named("Cid"), colour(2), {"self", "true"}}));
    std::string roster;
    for (Program *party : {&bob, &cid, &ann}) {
        ASSERT_TRUE(party->answers("/who", "roster", {text("meeting", "Budget")}, &roster));
        for (const char *part : {R"("name":"Ann Lee",)", R"("name":"Bob",)", R"("name":"Cid",)",
                                 R"("colour":0,"host":true,)", R"("colour":1,"host":false,)",
                                 R"("colour":2,"host":false,)", R"("email":"cid@x")"})
            EXPECT_THAT(roster, HasSubstr(part));
    }
    const std::size_t bobs = roster.find("\"port\":", roster.find("\"name\":\"Bob\"")) + 7;
    const std::string bobsTarget =
        "127.0.0.1:" + roster.substr(bobs, roster.find(',', bobs) - bobs);
    Program dan({"join", bobsTarget, "--name", "Dan"});
    expectFailure(dan, 1, bobsTarget + " is busy");
    EXPECT_TRUE(dan.tells("busy"));
}

TEST_F(ProgramTest, AHostWhoseGuestsHaveAllGoneStillHosts) {
    Program ann({"host", "--meeting", "Long", "--name", "Ann"});
    const std::string target = ann.target();
    for (int round = 0; round < 2; ++round) {
        Program bob({"join", target, "--name", "Bob"});
        ASSERT_TRUE(bob.tells("joined", {named("Ann"), {"host", "true"}}));
        ASSERT_TRUE(ann.tells("joined", {named("Bob"), colour(1)}));
        bob.type("/leave");
        ASSERT_TRUE(ann.tells("left", {named("Bob")}));
    }
    EXPECT_TRUE(ann.refuses("anybody?", "nobody else is in the meeting"));
}

TEST_F(ProgramTest, AHostMayAskBeforeItLetsSomebodyIn) {
    Program ann({"host", "--answer", "ask", "--name", "Ann"});
    const std::string target = ann.target();
    Program bob({"join", target, "--name", "Bob", "--email", "bob@x"});
    ASSERT_TRUE(bob.tells("ringing"));
    ASSERT_TRUE(ann.tells("asked", {named("Bob"), text("email", "bob@x"), {"call", "1"}}));
    Program cid({"join", target, "--name", "Cid"});
    ASSERT_TRUE(ann.tells("asked", {named("Cid"), {"call", "2"}}));
    Program dan({"join", target, "--name", "Dan"});
    ASSERT_TRUE(ann.tells("asked", {named("Dan"), {"call", "3"}}));
    ann.type("/reject 2");
    expectFailure(cid, 1, target + " has rejected the call");
    EXPECT_TRUE(cid.tells("rejected"));
    ann.type("/accept");
    EXPECT_TRUE(bob.tells("accepted"));
    EXPECT_TRUE(ann.tells("joined", {named("Bob")}));
    const std::string place = dan.target();
    dan.kill();
    Program again({"join", target, "--name", "Dan", "--port", place.substr(place.rfind(':') + 1)});
    ASSERT_TRUE(ann.tells("asked", {named("Dan"), {"call", "4"}}));
    again.kill();
    for (const char *number : {"2", "3"}) {
        EXPECT_TRUE(ann.refuses(std::string("/accept ") + number,
                                std::string("there is no call '") + number + "'"));
    }
    EXPECT_TRUE(ann.refuses("/accept 4", "the caller is gone"));
    EXPECT_TRUE(ann.refuses("/accept", "nobody waits for an answer"));
}

TEST_F(ProgramTest, AGuestGoesByTheClockOfItsHost) {
    for (const int offset : {-100000, 100000}) {
        Program ann({"host", "--clock-offset", std::to_string(offset)});
        Program bob({"join", ann.target(), "--name", "Bob"});
        ASSERT_TRUE(bob.tells("changed", {named("Bob"), {"self", "true"}}));
        for (Program *party : {&ann, &bob}) {
            // The answer about the clock is on its way while the roster comes.
            double told = 0;
            for (int tries = 0; tries < 100 && std::abs(told - offset) > 1; ++tries) {
                std::string line;
                ASSERT_TRUE(party->answers("/time", "time", {}, &line));
                told = std::stod(line.substr(line.find("offset\":") + 8));
            }
            EXPECT_NEAR(offset, told, 1);
        }
    }
}

TEST_F(ProgramTest, AnInterruptWhileItRingsGivesTheCallUp) {
    Program ann({"host", "--answer", "ask"});
    const std::string target = ann.target();
    Program bob({"join", target});
    ASSERT_TRUE(bob.tells("ringing"));
    ASSERT_TRUE(ann.tells("asked"));
    if (!bob.interrupt())
        GTEST_SKIP() << "no console to send an interrupt through";
    expectFailure(bob, 1, target + " was not waited for any longer");
    EXPECT_TRUE(ann.refuses("/accept", "the caller is gone"));
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
    ASSERT_TRUE(ann.tells("asked", {named("Bob")}));
    EXPECT_TRUE(ann.answers("/accept", "said", {named("Bob"), text("text", "first")}));
    EXPECT_TRUE(ann.tells("said", {named("Bob"), text("text", "second")}));
    EXPECT_TRUE(ann.tells("left", {named("Bob")}));
    EXPECT_TRUE(bob.ends(0));
}

TEST_F(ProgramTest, AListenerWithoutInputMayStay) {
    Program ann({"host", "--name", "Ann"});
    Program bob({"join", ann.target(), "--name", "Bob", "--stay"});
    bob.endInput();
    ASSERT_TRUE(ann.tells("joined", {named("Bob")}));
    EXPECT_TRUE(ann.isHeard("still there?", bob));
}

TEST_F(ProgramTest, OddInputIsAnsweredAndTheRunGoesOn) {
    Program ann({"host"});
    ASSERT_NE("", ann.target());
    EXPECT_TRUE(ann.refuses("/dance", "there is no command '/dance'; /help lists them"));
    EXPECT_TRUE(
        ann.refuses(std::string(70000, 'x'), "a line of more than 65536 bytes was not said"))
        << ann.errors();
    EXPECT_TRUE(ann.refuses(std::string("a\0b", 3), "nobody else is in the meeting"));
    EXPECT_TRUE(ann.answers("/help", "help"));
}

TEST_F(ProgramTest, AHiddenAddressIsNotShownAndNamesNobody) {
    Program ann({"host", "--name", "Ann", "--answer", "ask"});
    const unsigned short port = ann.port();
    Meeting meeting;
    Party eve(meeting, "");
    eve->setEmail("");
    eve->setHidingIPsRequired(true);
    ASSERT_TRUE(eve->placeCall("127.0.0.1", port, "", 0, "", "", 0));
    ASSERT_TRUE(eve.isTold("ringing Ann"));
    const std::vector<EventField> hidden = {named("hidden " + std::to_string(eve.port())),
                                            text("address", "hidden")};
    EXPECT_TRUE(ann.tells("asked", hidden));
    ann.type("/accept");
    ASSERT_TRUE(eve.isTold("accepted Ann"));
    EXPECT_TRUE(ann.tells("joined", hidden));
    std::string roster;
    ASSERT_TRUE(ann.answers("/who", "roster", {}, &roster));
    EXPECT_THAT(roster, testing::Not(HasSubstr(R"("address":"1)"))) << "nobody's, from now on";
}

TEST_F(ProgramTest, ATerminalIsSafeFromWhatOthersSend) {
    ChildProcess ann = Program::plain({"host", "--local", "--name", "Ann", "--color", "always"});
    std::string line;
    ASSERT_TRUE(ann.printed("Listening on", &line));
    const std::string port =
        line.substr(line.rfind(' ') + 1, line.rfind('.') - line.rfind(' ') - 1);
    Program eve({"join", "127.0.0.1:" + port, "--name", "Eve \x1b]0;title\x07"});
    ASSERT_TRUE(ann.printed("is in the meeting, in green (1).", &line));
    EXPECT_THAT(line, HasSubstr(R"(Eve \x1b]0;title\x07)"));
    eve.type("\x1b[2J\rAnn: I agree");
    ASSERT_TRUE(ann.printed("I agree", &line));
    EXPECT_EQ("\x1b[38;5;34mEve \\x1b]0;title\\x07: \\x1b[2J\\x0dAnn: I agree\x1b[0m", line);
    ann.type("/who");
    EXPECT_TRUE(ann.printed("green (1)", &line));
    ann.type("/dance");
    EXPECT_TRUE(ann.complained("vintok: there is no command '/dance'"));
}

TEST_F(ProgramTest, ARelayPassesLinesFromOneClientToTheOthers) {
    Program relay({"relay"});
    const std::string target = relay.target();
    Program first({"relay-listen", target});
    ASSERT_TRUE(first.tells("connected"));
    Program second({"relay-listen", target});
    ASSERT_TRUE(second.tells("connected"));
    Program sender({"relay-send", target});
    Program other({"relay-send", target});
    ASSERT_TRUE(other.tells("connected"));
    for (const char *line : {"one", "", "three \x1b[2J"})
        sender.type(line);
    sender.endInput();
    EXPECT_TRUE(sender.ends(0));
    for (Program *listener : {&first, &second})
        for (const char *line : {"one", "", R"(three \u001b[2J)"})
            EXPECT_TRUE(listener->tells("relayed", {text("text", line)}));
    EXPECT_THAT(other.output(), testing::Not(HasSubstr("relayed")));
    EXPECT_THAT(sender.output(), testing::Not(HasSubstr("relayed")));

    if (second.interrupt()) { // there is no console to send it through everywhere
        EXPECT_TRUE(second.ends(0));
    }
    relay.kill();
    expectFailure(first, 1, "the relay has closed the connection");
    expectFailure(other, 1, "the relay has closed the connection");
}

} // namespace
