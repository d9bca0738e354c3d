// Frames that stop in the middle, at a host and at a relay in a process of its own: whoever sends
// half a frame keeps nobody waiting but himself.
#include "platform/File.h"
#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "support/ChildProcess.h"
#include "support/Children.h"
#include "support/Party.h"
#include "support/ScriptedPlatform.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "support/WirePeer.h"

#include <algorithm>
#include <fstream>
#include <numeric>
#include <optional>
#include <thread>

namespace vintok::test {
namespace {

constexpr std::size_t KB = 1000;

Bytes part(const Bytes &bytes, std::size_t begin, std::size_t end) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                 bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

Bytes frameOf(std::size_t size) {
    WireFrame frame;
    frame.id = id::broadcast;
    frame.body.resize(size);
    std::iota(frame.body.begin(), frame.body.end(), static_cast<unsigned char>(size));
    return frame.encode();
}

// In kB; nothing where the system does not show it, which has no signals for its processes either.
std::optional<std::size_t> residentMemory(const ChildProcess &process) {
    const auto ours = children();
    if (!ours || std::find(ours->begin(), ours->end(), process.id()) == ours->end())
        return std::nullopt;
    std::ifstream status("/proc/" + std::to_string(process.id()) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stoul(line.substr(6));
    return std::nullopt;
}

// Bob is late, Cid talks, Dan listens.
class Stall : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override {
        std::string line;
        ASSERT_TRUE(reader.printed("PORT:", &line)) << reader.story();
        port = static_cast<unsigned short>(std::stoi(line.substr(5)));
        for (WirePeer *peer : {&dan, &bob, &cid})
            ASSERT_TRUE(enters(*peer));
        ASSERT_TRUE(talks(bob));
        ASSERT_TRUE(talks(cid));
    }

    // A relay knows who has called before one that it hears, too.
    testing::AssertionResult enters(WirePeer &peer) {
        return GetParam() == std::string("host") ? peer.joins(port) : peer.connects(port);
    }
    testing::AssertionResult talks(WirePeer &peer) {
        const Bytes word = {'w', static_cast<unsigned char>(++words)};
        peer.sends(id::broadcast, word);
        return hears(word);
    }
    testing::AssertionResult hears(const Bytes &body) {
        WireFrame frame;
        const auto result = dan.receives(id::broadcast, &frame);
        if (result && frame.body != body)
            return testing::AssertionFailure() << "Dan hears another frame";
        return result;
    }
    testing::AssertionResult lifeGoesOn() {
        WirePeer caller(meeting, "Caller");
        auto result = talks(cid);
        if (result)
            result = enters(caller);
        return result ? talks(caller) : result;
    }
    // Dan hears Cid before each piece of Bob's frame but the first, and the frame in the end.
    void expectPieces(const Bytes &frame, std::vector<std::size_t> ends) {
        ends.push_back(frame.size());
        std::size_t sent = 0;
        for (const std::size_t end : ends) {
            ASSERT_TRUE(sent == 0 || talks(cid)) << sent << " of " << frame.size();
            ASSERT_TRUE(bob.sends(part(frame, sent, end)));
            sent = end;
        }
        ASSERT_TRUE(hears(part(frame, 60, frame.size())));
    }

    Meeting meeting;
    ChildProcess reader{{VINTOK_TEST_PARTY, "Ann", GetParam()}};
    unsigned short port = 0, words = 0;
    WirePeer bob{meeting, "Bob"}, cid{meeting, "Cid"}, dan{meeting, "Dan"}, stray{meeting, "Stray"};
};

TEST_P(Stall, ALateTailKeepsNobodyWaiting) {
    for (const std::size_t body : {std::size_t(0), std::size_t(1418), 20 * KB, 200 * KB}) {
        const Bytes frame = frameOf(body);
        for (std::size_t tail = 1; tail <= 40 && !HasFatalFailure(); ++tail)
            expectPieces(frame, {frame.size() - tail});
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_P(Stall, AFrameThatComesByteByByteKeepsNobodyWaiting) {
    const Bytes frame = frameOf(100);
    std::vector<std::size_t> ends(frame.size() - 1);
    std::iota(ends.begin(), ends.end(), std::size_t(1));
    expectPieces(frame, ends);
}

TEST_P(Stall, AFrameThatClaimsFourGigabytesGetsNoMemory) {
    const auto before = residentMemory(reader);
    Bytes frame = frameOf(100 * KB);
    std::fill_n(frame.begin(), 4, static_cast<unsigned char>(0xFF));
    ASSERT_TRUE(stray.connects(port) && stray.sends(frame));
    EXPECT_TRUE(lifeGoesOn());
    if (before) {
        EXPECT_LT(residentMemory(reader).value_or(0), *before + 64000);
    }
}

INSTANTIATE_TEST_SUITE_P(At, Stall, testing::Values("host", "relay"),
                         [](const auto &row) { return std::string(row.param); });

TEST(StallOnOneThread, WhoGoesInsideAFrameCostsNoPause) {
    Meeting meeting;
    Party ann(meeting, "Ann");
    WirePeer stray(meeting, "Stray");
    const int before = meeting.watched();
    ASSERT_TRUE(ann.hosts("Plan") && stray.connects(ann.port()) && stray.receives(id::rosterEntry));
    const ScriptedPlatform script;
    ASSERT_TRUE(stray.sends(part(frameOf(9), 0, 38)));
    stray.closes();
    EXPECT_TRUE(meeting.until([&] { return meeting.watched() == before; }, "the end"));
    EXPECT_THAT(script.sleeps, testing::Each(1u)) << "those are the meeting's own";
}

// ---- Writes that fail half-way ----

// More than any system takes without a reader.
const std::string flood(20000 * KB, 'x');

// Takes so many bytes and closes the connection, with a reset where there are more.
class Reader {
public:
    Reader(int fd, std::size_t count) : m_thread([=, this] { run(fd, count); }) {}
    std::string all() {
        m_thread.join();
        return m_taken;
    }

private:
    void run(int fd, std::size_t count) {
        Bytes bytes(64 * KB);
        std::int64_t got = 1;
        while (got > 0 && m_taken.size() < count) {
            got =
                platform::receive(fd, bytes.data(), std::min(bytes.size(), count - m_taken.size()));
            m_taken.append(bytes.begin(), bytes.begin() + std::max<std::int64_t>(got, 0));
        }
        platform::resetOnClose(fd);
        platform::closeSocket(fd);
    }

    std::string m_taken;
    std::thread m_thread; // last: it uses the others
};

TEST(HalfWay, AWriteThatIsResetTellsHowFarItCame) {
    Meeting meeting;
    SocketPair pair;
    Reader peer(pair.forgetPeer(), flood.size() / 2);
    const std::int64_t count = writes(pair.mine(), flood);
    const bool isKnown = platform::pathSeparator() == '/'; // Windows takes all of it, or fails
    EXPECT_TRUE(isKnown ? count >= std::ssize(flood) / 2 && count < std::ssize(flood) : count == -1)
        << count;
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError());
    EXPECT_EQ(flood.size() / 2, peer.all().size());
}

TEST(HalfWay, WhatOneMemberDoesNotTakeTheOthersGetAllTheSame) {
    Meeting meeting;
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()));
    ASSERT_TRUE(bob.fences() && cid.fences());
    Reader breaks(bob.handsOver(), flood.size() / 2);
    Reader listens(cid.handsOver(), flood.size() + 60);
    EXPECT_FALSE(ann.says(flood));
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError()) << lastErrorString();
    EXPECT_EQ(1, ann.told("leave Bob"));
    EXPECT_EQ(flood, listens.all().substr(60));
    EXPECT_EQ(flood.size() / 2, breaks.all().size());
}

} // namespace
} // namespace vintok::test
