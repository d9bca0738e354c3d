// Whatever the network does to one connection, at whatever message of it: the others hear
// everything and know who is there, nothing is left, and the next call works.
#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/TestSockets.h"
#include "support/Environment.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"
#include "vintok/TCPSelect.h"

#include <filesystem>

namespace vintok::test {
namespace {

enum class Fault { none, closes, resets, halfCloses, stalls, garbles };

// A wire between two parties on which a stream is cut, reset, halved, stalled or garbled behind so
// many bytes, or passes in small pieces.
class FaultProxy {
public:
    // In the stream from the caller (0) or from the called party (1). `most` bytes pass in one
    // turn.
    FaultProxy(Fault fault, std::size_t direction, std::size_t after, std::size_t most)
        : m_fault(fault), m_direction(direction), m_left(after), m_most(most) {}
    ~FaultProxy() { ends(); }

    bool connects(Meeting &meeting, Party &caller, const Party &called) {
        WirePeer here(meeting, "here"), there(meeting, "there");
        const bool stands = caller.reaches(here) && there.connects(called.port());
        m_ends = {here.handsOver(), there.handsOver()};
        return stands && platform::setNoDelayOption(m_ends[0]);
    }
    bool struck() const { return m_struck; }
    // Whether anything moved.
    bool passes(std::size_t from) {
        const bool isFaulty = m_fault != Fault::none && from == m_direction;
        if (isFaulty && m_left == 0 && !std::exchange(m_struck, true))
            strikes(m_ends[1 - from]);
        const bool isAfter = isFaulty && m_struck;
        if (m_ends[from] == -1 || (isAfter && m_fault != Fault::garbles))
            return false;
        Bytes bytes(isFaulty && !isAfter ? std::min(m_left, m_most) : m_most);
        const auto count = platform::receiveNow(m_ends[from], bytes.data(), bytes.size());
        if (count <= 0 && (count == 0 || platform::socketError() != socketErrors::wouldBlock))
            ends();
        if (count <= 0)
            return false;
        bytes.resize(static_cast<std::size_t>(count));
        m_left -= isFaulty && !isAfter ? bytes.size() : 0;
        for (unsigned char &byte : bytes)
            byte ^= isAfter ? 0x5A : 0;
        platform::send(m_ends[1 - from], bytes.data(), bytes.size());
        return true;
    }

private:
    void strikes(int receiver) {
        if (m_fault == Fault::halfCloses)
            platform::shutdownSending(receiver);
        else if (m_fault == Fault::closes || m_fault == Fault::resets)
            ends();
    }
    void ends() {
        for (int &end : m_ends) {
            if (m_fault == Fault::resets)
                platform::resetOnClose(end);
            platform::closeSocket(std::exchange(end, -1));
        }
    }

    const Fault m_fault;
    const std::size_t m_direction;
    std::size_t m_left; // before the fault
    const std::size_t m_most;
    std::array<int, 2> m_ends = {-1, -1};
    bool m_struck = false;
};

// 0 where the system has no numbers for them.
std::ptrdiff_t openDescriptors() {
    std::error_code none;
    const std::filesystem::directory_iterator all("/proc/self/fd", none);
    return platform::descriptorLimit() != 0 ? std::distance(begin(all), end(all)) : 0;
}

// Ann hosts, Cid listens, and Bob is at the other end of the wire.
class WireFaults : public RealStage {
protected:
    // Until nothing moves any more.
    void settle(FaultProxy &wire) {
        for (int quiet = 0, turns = 0; quiet < 3 && turns < 99999; ++turns) {
            const bool moves = wire.passes(0), moved = wire.passes(1);
            quiet =
                loop.pollDescriptors(true) > 0 || moves || moved || meeting.turn() ? 0 : quiet + 1;
        }
    }
    // Whatever can be said between the two, until the wire goes. Whether there was a fault.
    bool everythingHappens(FaultProxy wire, bool hostCalls) {
        Party &caller = hostCalls ? ann : bob, &called = hostCalls ? bob : ann;
        EXPECT_TRUE(wire.connects(meeting, caller, called));
        settle(wire);
        bob->requestStartLeading();
        settle(wire);
        bob.says("from Bob") && bob->transferFile(file, "f");
        settle(wire);
        bob->requestRoster();
        ann.says("from Ann");
        settle(wire);
        EXPECT_TRUE(cid.hears("from Ann"));
        EXPECT_TRUE(wire.struck() ||
                    (bob->isLeader() && bob.told("data from Ann") == 1 &&
                     cid.told("data from Bob") == 1 && ann.told("file whole") == 1));
        return wire.struck();
    }
    void expectTheOthersGoOn() {
        EXPECT_TRUE(ann.sees({{"Cid", 1}}) && cid.sees({{"Ann", 0}}) && ann->isLeader());
        EXPECT_TRUE(cid.says("from Cid") && ann.hears("from Cid"));
        EXPECT_EQ(1, cid.told("data from Ann"));
        EXPECT_TRUE(meeting.until([this] { return meeting.watched() == before; }, "nothing left"));
        EXPECT_EQ(descriptors, openDescriptors());
        EXPECT_TRUE(bob.meets(ann)) << "a new call";
        bob.leaves();
        EXPECT_TRUE(ann.sees({{"Cid", 1}}) && cid.sees({{"Ann", 0}}));
    }

    TCPSelect loop;
    const TemporaryFolder folder;
    const std::string file = folder.holding("f", "content");
    const ScopedEnvironment root{"QOR_COLLAB_ROOT_LOCAL", folder.path("in")};
    int before = 0;
    std::ptrdiff_t descriptors = 0;
};

TEST_F(WireFaults, HarmNobodyElse) {
    ASSERT_TRUE(gather(ann, {&cid}));
    before = meeting.watched();
    descriptors = openDescriptors();
    for (const Fault fault : {Fault::none, Fault::closes, Fault::resets, Fault::halfCloses,
                              Fault::stalls, Fault::garbles})
        for (const std::size_t row : {0U, 1U, 2U, 3U}) {
            bool struck = true;
            for (std::size_t after = 0; struck && !HasFailure();
                 after += 59) { // below any message's length
                SCOPED_TRACE(testing::Message() << int(fault) << ' ' << row << ' ' << after);
                const std::size_t most = fault == Fault::none ? 1 : 65536;
                struck = everythingHappens({fault, row % 2, after, most}, row / 2 != 0);
                bob.leaves();
                expectTheOthersGoOn();
                for (Party *party : {&ann, &bob, &cid})
                    party->forgets();
            }
        }
}

} // namespace
} // namespace vintok::test
