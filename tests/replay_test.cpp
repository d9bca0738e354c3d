// Runs of `vintok host --record` and `vintok replay`: a meeting is recorded and said again in
// another one.
#include "support/Program.h"
#include "support/TemporaryFolder.h"

#include "vintok/TCPMessage.h"

#include <algorithm>
#include <gmock/gmock.h>

using namespace vintok::test;
using testing::HasSubstr;

namespace {

std::string broadcast(std::int64_t stamp, const std::string &body,
                      const vintok::TCPGUID &identifier = vintok::TCP_broadcastMessage) {
    vintok::TCPMessage message;
    message.setMessageID(identifier);
    message.allocateMessageBuffer(body.size());
    message.setTimeStamp(stamp);
    std::copy(body.begin(), body.end(), message.messageBuffer());
    return std::string(message.rawBuffer(), message.rawBuffer() + message.rawBufferLength());
}

std::string said(std::int64_t stamp, const std::string &text) {
    return broadcast(stamp, "say 1\n192.0.2.1 7777\nCleo\n" + text);
}

class Replay : public testing::Test {
protected:
    void expectLines(Program &listener, const std::vector<std::string> &lines) {
        for (const std::string &line : lines) {
            std::string event;
            ASSERT_TRUE(listener.tells("said", {}, &event));
            EXPECT_THAT(event, HasSubstr("\"text\":\"" + line + "\"}"));
        }
    }

    TemporaryFolder folder;
};

TEST_F(Replay, SaysAgainWhatWasRecordedAtEitherEnd) {
    const std::string hosts = folder.path("host's");
    const std::string guests = folder.path("guest's");
    {
        Program ann({"host", "--name", "Ann", "--record", hosts});
        Program bob({"join", ann.target(), "--name", "Bob", "--record", guests});
        ASSERT_TRUE(ann.tells("joined", {named("Bob")}));
        ASSERT_TRUE(bob.isHeard("one", ann));
        ASSERT_TRUE(ann.isHeard("two", bob));
    }
    Program cid({"host", "--name", "Cid"});
    const std::string target = cid.target();
    Program dan({"join", target, "--name", "Dan"});
    ASSERT_TRUE(cid.tells("joined", {named("Dan")}));
    for (const std::string &file : {hosts, guests}) {
        Program replay({"replay", file, target, "--no-wait", "--name", "Tape"});
        for (Program *listener : {&cid, &dan}) {
            ASSERT_TRUE(listener->tells("joined", {named("Tape")}));
            expectLines(*listener, {"one", "two"});
            ASSERT_TRUE(listener->tells("left", {named("Tape")}));
        }
        EXPECT_TRUE(replay.ends(0));
        EXPECT_TRUE(replay.tells("played", {{"number", "1"}, named("Bob"), {"percent", "50"}}));
        EXPECT_TRUE(replay.tells("played", {{"number", "2"}, named("Ann"), {"percent", "100"}}));
        EXPECT_TRUE(replay.tells("played-all", {{"messages", "2"}, {"skipped", "0"}}));
        EXPECT_TRUE(replay.tells("ended"));
    }
}

// Whoever were told of a file would wait for it.
TEST_F(Replay, AnnouncesNoFiles) {
    const std::string sender = "\n127.0.0.1 7001\n";
    const std::string file =
        folder.holding("files", broadcast(5, "file 1" + sender + "a\n1 " + std::string(64, '0')) +
                                    broadcast(5, "file-end 1" + sender + "sent") + said(5, "line"));
    Program ann({"host", "--name", "Ann"});
    Program replay({"replay", file, ann.target()});
    EXPECT_TRUE(replay.ends(0));
    EXPECT_TRUE(replay.tells("played-all", {{"messages", "1"}, {"skipped", "2"}}));
    ASSERT_TRUE(ann.tells("left"));
    EXPECT_THAT(ann.output(), testing::Not(HasSubstr("\"data\"")));
}

TEST_F(Replay, WaitsBetweenMessagesAndFailsWhenTheMeetingEndsMeanwhile) {
    const std::string file = folder.holding("long", said(0, "first") + said(86400, "next day"));
    Program ann({"host", "--name", "Ann"});
    Program replay({"replay", file, ann.target()});
    expectLines(ann, {"first"});
    ann.type("/leave");
    EXPECT_TRUE(replay.ends(1));
    EXPECT_EQ("vintok: the meeting has ended before the recording did\n",
              sameEnds(replay.errors()));
    EXPECT_THAT(ann.output(), testing::Not(HasSubstr("next day")));
}

} // namespace
