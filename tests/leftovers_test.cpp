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

using testing::IsEmpty;

// Makes connections secure, and sends nothing over them.
struct Mute : MemoryTransport {
    std::int64_t secureSend(int, const unsigned char *, std::size_t) override { return -1; }
};

// Takes in all that has come with its handshake, as real ones do.
struct Greedy : MemoryTransport {
    bool secureAccept(int fd) override {
        std::size_t pending = 0;
        return MemoryTransport::secureAccept(fd) && secureBytesPending(fd, &pending, true);
    }
};

class Leftovers : public Stage {
protected:
    // Bob has asked for the lead, and has it.
    bool bobLeads() {
        return annHosts({&bob, &cid}) && asksForLead(bob) && bob.receives(id::leadChange);
    }
    // In a record of its own.
    static std::string frame(const WirePeer &peer, unsigned char id, const Bytes &body) {
        WireFrame frame;
        frame.id = id;
        frame.origin = peer.entry.address;
        frame.body = body;
        const Bytes bytes = frame.encode();
        return MemoryTransport::record(std::string(bytes.begin(), bytes.end()));
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
        EXPECT_TRUE(dan.isJoined() && ann.isTold("join Dan") && dan.fences()) << dies;
        EXPECT_EQ(1, ann.told("noAnswer 127.0.0.1"));
        ann.inside = nullptr;
        ann.leaves();
        ann.forgets();
    }
}

// Nothing comes after it, and no wait on the socket sees it.
TEST_F(Leftovers, WhatTheTransportTookInWithItsHandshakeIsHeard) {
    Greedy greedy;
    setTransport(&greedy);
    ann->setSecureAble(true);
    ASSERT_TRUE(ann->setSecurePreferred(true) && ann.hosts("Plan"));
    const std::string hello = Greedy::record(Greedy::greeting);
    ASSERT_TRUE(bob.connects(ann.port()) &&
                bob.sendsText(hello + frame(bob, id::rosterEntry, bob.entry.encode()) +
                              frame(bob, id::joinRequest, bob.entry.encode())));
    EXPECT_TRUE(ann.isTold("join Bob")) << "from the connection on";

    ann.screensCalls();
    greedy.handshake = Greedy::Handshake::isRefused;
    ASSERT_TRUE(cid.knocks(ann.port()) && ann.isTold("pending Cid"));
    greedy.handshake = Greedy::Handshake::works;
    ASSERT_TRUE(cid.sendsText(hello + frame(cid, id::broadcast, {'x'})) && ann.accepts(cid));
    EXPECT_TRUE(ann.hears("x")) << "from the join on";
    setTransport(nullptr);
}

TEST_F(Leftovers, WhatWasToLeavePlainBreaksAConnectionThatTurnsSecure) {
    Greedy greedy;
    setTransport(&greedy);
    const SocketPair pair;
    ASSERT_TRUE(bufferFrames(pair.mine()));
    ASSERT_TRUE(bufferOf(pair.mine())->queue({nullptr, bytesOf("plain"), 5}));
    setSecure(pair.mine(), true);
    EXPECT_TRUE(DescriptorState(pair.mine()).closed);
    setTransport(nullptr);
}

} // namespace
} // namespace vintok::test
