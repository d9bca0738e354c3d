// Whatever the network does to one connection, at whatever message of it: the others hear
// everything and know who is there, nothing is left, and the next call works.
#include "PlainTransport.h"
#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/TestSockets.h"
#include "support/Environment.h"
#include "support/Multiplexer.h"
#include "support/Program.h"
#include "support/Proxy.h"
#include "support/Stage.h"
#include "support/TLSEnds.h"
#include "support/TemporaryFolder.h"
#include "vintok/TCPSelect.h"

#include <atomic>
#include <filesystem>
#include <sstream>
#include <thread>

namespace vintok::test {
namespace {

using Arguments = std::vector<std::string>;

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

    // Lets somebody call a port of this machine, and picks it up for another one.
    template <typename Call>
    bool connects(Meeting &meeting, const Call &call, unsigned short port) {
        WirePeer here(meeting, "here"), there(meeting, "there");
        const bool stands =
            here.listens() && call(here.port()) && here.picksUp() && there.connects(port);
        m_ends = {here.handsOver(), there.handsOver()};
        return stands && platform::setNoDelayOption(m_ends[0]);
    }
    bool struck() const { return m_struck; }
    // Whether anything moved.
    bool passes(std::size_t from) {
        const bool isFaulty = m_fault != Fault::none && from == m_direction;
        if (isFaulty && m_left == 0 && !m_struck.exchange(true))
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
    std::atomic<bool> m_struck = false;
};

// 0 where the system has no numbers for them.
std::ptrdiff_t openDescriptors() {
    std::error_code none;
    const std::filesystem::directory_iterator all("/proc/self/fd", none);
    return platform::descriptorLimit() != 0 ? std::distance(begin(all), end(all)) : 0;
}

struct Road {
    const char *name;
    std::size_t step; // below the length of any message, or of what is slow
    bool secure = false;
    bool tunnel = false; // through a proxy and a multiplexer, whose replies come in one go
};

// Ann hosts, Cid listens, and Bob is at the other end of the wire.
class WireFaults : public RealStage, public testing::WithParamInterface<Road> {
protected:
    WireFaults() {
        TLSOptions options = optionsFor("mine.example");
        options.acceptWait = options.handshakeTime = 25000; // longer than a test waits
        EXPECT_TRUE(tls.open(options));
        if (GetParam().tunnel)
            setTransport(&plain);
        if (GetParam().secure) {
            EXPECT_TRUE(setTransport(&tls) && setBackgroundTransport(&tls));
        }
        for (Party *party : {&ann, &bob, &cid})
            (*party)->setBackgroundHandshakes(GetParam().secure);
    }
    ~WireFaults() override {
        for (Party *party : {&ann, &bob, &cid})
            party->dies();
        setTransport(nullptr);
    }

    bool connects(FaultProxy &wire, bool hostCalls) {
        Party &caller = hostCalls ? ann : bob, &called = hostCalls ? bob : ann;
        const bool tunnel = GetParam().tunnel;
        const auto call = [&](unsigned short port) {
            return tunnel ? caller->placeCall("127.0.0.1", multiplexer->port(), "127.0.0.1", port,
                                              "plan", "", 0)
                          : caller->placeCall("127.0.0.1", port, "", 0, "", "", 0);
        };
        return wire.connects(meeting, call, tunnel ? proxy->port() : called.port());
    }
    // Until the condition holds, or there was a fault.
    template <typename Condition>
    void goesOn(FaultProxy &wire, const Condition &condition) {
        const auto holds = [&] {
            for (bool moves = true; moves;) {
                const bool there = wire.passes(0), back = wire.passes(1);
                moves = loop.pollDescriptors(true) > 0 || there || back;
            }
            return wire.struck() || condition();
        };
        EXPECT_TRUE(meeting.until(holds, "the wire does its work"))
            << testing::PrintToString(bob.events);
    }
    // Whatever can be said between the two, until the wire goes. Whether there was a fault.
    bool everythingHappens(FaultProxy wire, bool hostCalls) {
        EXPECT_TRUE(connects(wire, hostCalls));
        goesOn(wire, [this] { return bob.told("join Ann") == 1 && cid.told("join Bob") == 1; });
        bob->requestStartLeading();
        goesOn(wire, [this] { return bob->isLeader(); });
        bob.says("from Bob") && bob->transferFile(file, "f");
        goesOn(wire,
               [this] { return cid.told("data from Bob") == 1 && ann.told("file whole") == 1; });
        bob->requestRoster();
        ann.says("from Ann");
        goesOn(wire, [this] { return bob.told("data from Ann") == 1; });
        for (int turns = 0; wire.struck() && turns < 3; ++turns, meeting.turn())
            goesOn(wire, [] { return true; });
        EXPECT_TRUE(cid.hears("from Ann"));
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

    TLSTransport tls;
    app::PlainTransport plain;
    std::unique_ptr<Proxy> proxy;
    std::unique_ptr<Multiplexer> multiplexer;
    TCPSelect loop;
    const TemporaryFolder folder;
    const std::string file = folder.holding("f", "content");
    const ScopedEnvironment root{"QOR_COLLAB_ROOT_LOCAL", folder.path("in")};
    int before = 0;
    std::ptrdiff_t descriptors = 0;
};

TEST_P(WireFaults, HarmNobodyElse) {
    ASSERT_TRUE(gather(ann, {&cid}));
    const auto [name, step, secure, tunnel] = GetParam();
    if (tunnel) {
        const std::string plan = "plan=127.0.0.1:" + std::to_string(ann.port());
        multiplexer = std::make_unique<Multiplexer>(Arguments{"--meeting", plan}, freePort());
        proxy = std::make_unique<Proxy>(Proxy::Kind::tinyproxy);
        if (!proxy->runs())
            GTEST_SKIP() << "there is no tinyproxy";
    }
    before = meeting.watched();
    descriptors = openDescriptors();
    for (const Fault fault : {Fault::none, Fault::closes, Fault::resets, Fault::halfCloses,
                              Fault::stalls, Fault::garbles})
        for (std::size_t row = 0; row < (tunnel ? 2U : 4U); ++row) {
            if (tunnel)
                multiplexer->exitCode(0); // which reads what it and the proxy have printed
            bool struck = true;
            for (std::size_t after = 0; struck && !HasFailure(); after += step) {
                SCOPED_TRACE(testing::Message() << int(fault) << ' ' << row << ' ' << after);
                const std::size_t most = fault == Fault::none && !tunnel ? 1 : 65536;
                struck = everythingHappens({fault, row % 2, after, most}, row / 2 != 0);
                bob.leaves();
                expectTheOthersGoOn();
                for (Party *party : {&ann, &bob, &cid})
                    party->forgets();
            }
        }
    EXPECT_TRUE(!tunnel || multiplexer->comesTo("tunnels", 0));
}

INSTANTIATE_TEST_SUITE_P(On, WireFaults,
                         testing::Values(Road{"APlainRoad", 59}, Road{"ASecureRoad", 491, true},
                                         Road{"ATunnel", 211, false, true}),
                         caseName<Road>);

// ---- In processes of their own ----

struct Break {
    const char *name;
    Fault fault;
    std::string signal; // that the sender's process gets
};

const Break breaks[] = {{"killed", Fault::none, "KILL"},
                        {"stopped for a while", Fault::none, "STOP"},
                        {"garbled", Fault::garbles, ""},
                        {"reset", Fault::resets, ""}};

class WireFaultsOfProcesses : public testing::TestWithParam<Break> {
protected:
    ~WireFaultsOfProcesses() override {
        over = true;
        if (passing.joinable())
            passing.join();
    }
    static Arguments joining(unsigned short port, const std::string &name) {
        return {"join", "127.0.0.1:" + std::to_string(port), "--name", name, "--keep-alive", "2"};
    }
    bool bobJoinsByWire() {
        const auto call = [this](unsigned short by) {
            bob = std::make_unique<Program>(joining(by, "Bob"));
            return bob->started();
        };
        const bool connected = wire.connects(meeting, call, port);
        passing = std::thread([this] {
            while (!over) {
                const bool there = wire.passes(0), back = wire.passes(1);
                if (!there && !back)
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        return connected && ann.tells("joined", {named("Bob")});
    }
    bool sendsBob(const std::string &signal) const {
        const std::string command = "kill -" + signal + ' ' + std::to_string(bob->id());
        return ChildProcess({"/bin/sh", "-c", command}).ends(0);
    }
    // The lines of a program that tell what somebody has said.
    static std::vector<std::string> said(const Program &program, const std::string &name) {
        std::vector<std::string> lines;
        std::istringstream all(program.output());
        for (std::string line; std::getline(all, line);)
            if (line.find("\"said\"") != std::string::npos &&
                line.find('"' + name + '"') != std::string::npos)
                lines.push_back(line.substr(line.find("\"text\"")));
        return lines;
    }

    Meeting meeting;
    FaultProxy wire{GetParam().fault, 0, 20000, 65536};
    std::atomic<bool> over = false;
    std::thread passing;
    Program ann{{"host", "--name", "Ann", "--keep-alive", "2"}};
    const unsigned short port = ann.port();
    Program cid{joining(port, "Cid")};
    std::unique_ptr<Program> bob;
};

TEST_P(WireFaultsOfProcesses, HarmNobodyElse) {
    ASSERT_TRUE(ann.tells("joined", {named("Cid")}) && bobJoinsByWire());
    const std::string &signal = GetParam().signal;
    for (int number = 0; number < 40; ++number) {
        cid.type("line " + std::to_string(number));
        bob->type(std::to_string(number) + std::string(1000, 'b'));
        EXPECT_TRUE(number != 20 || signal.empty() || sendsBob(signal));
    }
    EXPECT_TRUE(cid.isHeard("meanwhile", ann));
    EXPECT_TRUE(signal != "STOP" || (sendsBob("CONT") && ann.isHeard("on", *bob)));
    bob->kill();
    for (Program *other : {&ann, &cid}) // who may have told of it ahead of what was heard
        EXPECT_TRUE(other->output().find("\"left\"") != std::string::npos ||
                    other->tells("left", {named("Bob")}));
    EXPECT_TRUE(cid.isHeard("last", ann, {named("Cid")}));
    EXPECT_EQ(42U, said(ann, "Cid").size());
    EXPECT_EQ(said(ann, "Bob"), said(cid, "Bob"));
    std::string roster;
    EXPECT_TRUE(ann.answers("/who", "roster", {named("Cid")}, &roster));
    EXPECT_EQ(std::string::npos, roster.find("Bob"));
    Program again(joining(port, "Bob"));
    EXPECT_TRUE(ann.tells("joined", {named("Bob")}) && again.isHeard("again", cid));
    ann.type("/leave");
    EXPECT_TRUE(ann.ends(0) && cid.ends(0) && again.ends(0));
}

INSTANTIATE_TEST_SUITE_P(Who, WireFaultsOfProcesses, testing::ValuesIn(breaks), caseName<Break>);

} // namespace
} // namespace vintok::test
