// What an end must not leave behind: a mark of the lead, a question, half a call, a caller who was
// never greeted, bytes of before a handshake.
#include "support/MemoryTransport.h"
#include "support/SocketPair.h"
#include "support/Stage.h"
#include "support/Stream.h"
#include "support/TemporaryFolder.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"

#include <filesystem>
#include <fstream>

namespace vintok::test {
namespace {

// Makes connections secure, and sends nothing over them.
struct Mute : MemoryTransport {
    std::int64_t secureSend(int, const unsigned char *, std::size_t) override { return -1; }
};

class Leftovers : public Stage {
protected:
    // Bob has asked for the lead, and has it.
    bool bobLeads() {
        return annHosts({&bob, &cid}) && asksForLead(bob) && bob.receives(id::leadChange);
    }
    static bool asksForLead(WirePeer &peer) {
        return peer.sends(id::leadRequest, peer.entry.encode());
    }
};

TEST_F(Leftovers, WhoLedBeforeIsNotMarkedWhenTheHostsApplicationGrantsTheLead) {
    ASSERT_TRUE(bobLeads() && asksForLead(cid) && bob.receives(id::leadRequest));
    ASSERT_TRUE(ann->acceptLeadChange() && cid.fences() && ann->sendRoster());
    Roster marks;
    for (const WireEntry &entry : entries(cid.gets(), id::rosterReply))
        marks[entry.firstName] = static_cast<int>(entry.state & state::leader);
    EXPECT_EQ(marks, (Roster{{"Ann", 0}, {"Bob", 0}, {"Cid", state::leader}}));
}

TEST_F(Leftovers, AQuestionForTheLeadEndsWithTheMeeting) {
    ASSERT_TRUE(bobLeads() && ann->requestStartLeading() && bob.receives(id::leadRequest));
    ann.leaves();
    ASSERT_TRUE(ann.hosts("Next"));
    EXPECT_FALSE(ann->requestStartLeading()) << "there is no leader to ask";
}

TEST_F(Leftovers, AFileOfTwoGibibytesIsRefusedAndNobodyHearsOfIt) {
    const TemporaryFolder folder;
    const std::string path = folder.path("large");
    std::ofstream(path) << 'x';
    std::filesystem::resize_file(path, std::uintmax_t{1} << 31); // without blocks on the disk
    ASSERT_TRUE(annHosts({&bob}));
    ann->setFileProgressCB([](auto *self, auto...) { self->hangup(); }); // so it is not sent whole
    EXPECT_FALSE(ann->transferFile(path, "large"));
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
}

TEST_F(Leftovers, ACallerWhoCannotBeGreetedIsForgotten) {
    ASSERT_TRUE(annHosts({&bob}));
    const int before = meeting.watched();
    Mute mute;
    setTransport(&mute);
    ASSERT_TRUE(cid.connects(ann.port()) && cid.seesTheEnd());
    setTransport(nullptr);
    EXPECT_EQ(before, meeting.watched());
    EXPECT_THAT(mute.descriptors, IsEmpty());
    EXPECT_TRUE(cid.joins(ann.port()) && bob.fences());
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}, {"Cid", 2}}));
}

TEST_F(Leftovers, ACallbackMayHangUpAndCallAgainWhileACallEnds) {
    ann.screensCalls();
    ASSERT_TRUE(dan.listens());
    for (const bool dies : {false, true}) {
        ASSERT_TRUE(ann.asks(bob) && bob.asksToJoin() && ann.isTold("pending Bob"));
        ann.inside = [this](const std::string &event) {
            if (event != "noAnswer 127.0.0.1")
                return;
            ann.leaves();
            EXPECT_TRUE(ann.told(event) > 1 || ann.calls(dan)); // by the number that Bob had
        };
        dies ? bob.closes() : ann.leaves();
        EXPECT_TRUE(dan.picksUp() && dan.saysHello() && dan.receives(id::joinRequest) &&
                    dan.sends(id::joinReply, {1}) && ann.isTold("join Dan") && dan.fences())
            << dies;
        EXPECT_EQ(1, ann.told("noAnswer 127.0.0.1"));
        ann.inside = nullptr;
        ann.leaves();
        ann.forgets();
    }
}

// The transport may have taken in with its handshake what no wait on the socket sees any more.
TEST_F(Leftovers, AConnectionThatTurnsSecureIsAskedForBytesBeforeTheSocketHasAny) {
    MemoryTransport memory;
    setTransport(&memory);
    for (const bool buffered : {false, true}) { // before the handshake, or behind it
        const SocketPair pair;
        ASSERT_TRUE((!buffered || bufferFrames(pair.mine())) && secureAccept(pair.mine()));
        ASSERT_TRUE(buffered || bufferFrames(pair.mine()));
        EXPECT_TRUE(bufferOf(pair.mine())->hasMore()) << buffered;
        ASSERT_TRUE(bufferOf(pair.mine())->queue({nullptr, bytesOf("x"), 1}));
        setSecure(pair.mine(), false);
        EXPECT_TRUE(DescriptorState(pair.mine()).closed) << "what was to leave secure stays here";
    }
    setTransport(nullptr);
}

} // namespace
} // namespace vintok::test
