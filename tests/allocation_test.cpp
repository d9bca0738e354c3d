// Every allocation of the library fails once, alone or with all that follow: nothing is thrown, no
// lock stays held, nothing leaks, and the party is good for the next meeting. Nobody in these
// stories waits for anybody, as what they wait for may not come. The same holds for operations of
// the stream layer, one by one.
#include "platform/Socket.h"
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/ScriptedPlatform.h"
#include "support/SocketPair.h"
#include "support/Stage.h"
#include "support/StubTransport.h"
#include "support/TemporaryFolder.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMutex.h"
#include "vintok/TCPServer.h"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

std::size_t live = 0;   // allocations
std::size_t passed = 0; // in the library
std::size_t fuse = 0;   // which of them fails
bool forGood = false;   // and all that follow
bool inLibrary = false;

} // namespace

void *operator new(std::size_t size) {
    const bool fails = inLibrary && (++passed == fuse || (forGood && passed > fuse));
    void *const place = fails ? nullptr : std::malloc(size != 0 ? size : 1);
    if (place == nullptr)
        throw std::bad_alloc();
    ++live;
    return place;
}

// As the one of the standard library, which a sanitizer's own would stand in for.
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void operator delete(void *place) noexcept {
    live -= place != nullptr ? 1 : 0;
    std::free(place);
}

void operator delete(void *place, std::size_t) noexcept {
    operator delete(place);
}

namespace vintok::test {
namespace {

// Ann keeps nothing of what she is told.
struct Scenery {
    explicit Scenery(bool guarded) {
        script.sleeps.reserve(9999);
        if (!guarded)
            return;
        ann.setSlowMemberLimits({});
        ann.setCallerLimits({9, 9, 9999, 9999, 9999});
        ann.setMeetingLimits({9, 99999, 9999});
        ann.setRosterByDifferences(true);
        ann.setMembersOnly(true);
        ann.setTemporaryFiles(true);
    }

    template <class Action>
    void does(Action action) {
        inLibrary = true;
        action(ann);
        inLibrary = false;
    }
    // The loop handles what has been sent to Ann.
    void turns() {
        for (int turn = 0; turn < 8; ++turn)
            does([this](auto &) { loop.pollDescriptors(true); });
    }
    void says(WirePeer &peer, std::initializer_list<unsigned char> ids, const Bytes &body = {0}) {
        for (const unsigned char id : ids) {
            peer.sends(id, body);
            turns();
        }
    }
    void comes(WirePeer &peer) {
        EXPECT_TRUE(peer.knocks(port()));
        turns();
    }
    unsigned short port() const { return ann.address().hostByteOrderPort(); }

    const std::string there = "127.0.0.1", none, name = "A name too long for its object";
    const TemporaryFolder folder;
    const std::string file = folder.holding(there, "x");
    const ScopedEnvironment root{"QOR_COLLAB_ROOT_LOCAL", folder.path("in")};
    Meeting meeting;
    TCPSelect loop;
    ScriptedPlatform script; // whose sleeps are not slept
    ConferenceParticipant ann{true, freshPort()};
    WirePeer bob{meeting, "Bob"}, cid{meeting, "Cid"}, host{meeting, "Host"};
};

void annHosts(Scenery &s) {
    s.does([&](auto &ann) { ann.hostMeeting(s.name); });
    s.comes(s.bob);
    s.ann.setCallPendingCB([](auto...) {});
    s.ann.setLeadRequestCB([](auto...) {});
    s.comes(s.cid);
    s.does([&](auto &ann) { ann.acceptCall(addressOf(s.cid)); });
    s.comes(s.host);
    s.does([&](auto &ann) { ann.rejectCall(addressOf(s.host)); });
    s.says(s.bob, {id::broadcast, id::rosterRequest, id::keepAlive});
    s.says(s.bob, {id::echoRequest32}, Bytes(4));
    s.says(s.cid, {id::leadRequest, id::rosterEntry}, s.cid.entry.encode());
    s.does([](auto &ann) { ann.rejectLeadChange(); });
    s.says(s.bob, {id::leadRequest}, s.bob.entry.encode());
    s.does([](auto &ann) { ann.acceptLeadChange() && ann.requestStartLeading(); });
    s.says(s.bob, {id::fileBegin}, wireTexts({"/there/f", "f"}));
    s.says(s.bob, {id::fileData});
    s.says(s.bob, {id::fileEnd}, {0, 0, 0, 1});
    s.does([](auto &ann) { ann.sendRoster() && ann.requestRoster() && ann.sendAllKeepAlive(); });
    s.does([&](auto &ann) { ann.transferFile(s.file, s.there); });
    s.does([&](auto &ann) { ann.startFile(s.file, s.name); });
    s.says(s.bob, {id::fileBegin}, wireTexts({"/there/f", "f"}));
    s.does([&](auto &ann) { ann.refuseFile(addressOf(s.bob)); });
    s.bob.closes();
    s.turns();
    s.does([](auto &ann) { ann.hangup(); });
}

void annAttendsAndCalls(Scenery &s) {
    s.host.entry.state = hosting;
    s.comes(s.host);
    s.says(s.host, {id::rosterReply, id::leadChange, id::leaveNotify}, s.bob.entry.encode());
    s.does([](auto &ann) { ann.requestRoster() && ann.sendRoster() && ann.requestStartLeading(); });
    s.says(s.host, {id::hangup});
    for (WirePeer *peer : {&s.bob, &s.cid}) {
        EXPECT_TRUE(peer->listens());
        bool called = false;
        s.does([&](auto &ann) {
            called = peer == &s.bob
                         ? ann.placeCall(s.there, peer->port(), s.none, 0, s.none, s.none, 0)
                         : ann.startCall(s.there, peer->port(), s.none, 0, s.none, s.none, 0);
        });
        s.turns();
        if (!called || !peer->picksUp())
            continue;
        s.says(*peer, {id::rosterEntry}, peer->entry.encode());
        s.says(*peer, {id::joinReply}, {1});
    }
    s.does([](auto &ann) { ann.hangup(); });
}

void othersAreMade(Scenery &s) {
    s.does([](auto &) { ConferenceParticipant(true, freshPort()); });
    std::unique_ptr<TCPServer> server;
    s.does([&](auto &) { server = std::make_unique<TCPServer>(freshPort(), false, true); });
    for (WirePeer *client : {&s.bob, &s.cid})
        if (server->port() != 0 && client->connects(server->port())) // one family may have failed
            s.says(*client, {id::broadcast});
    s.bob.closes();
    s.turns();
}

using Story = void (*)(Scenery &);

// Whether it came to the allocation that fails.
bool tells(Story story, bool guarded, std::size_t which) {
    Scenery scene(guarded);
    passed = 0;
    fuse = which;
    try {
        story(scene);
    } catch (const std::bad_alloc &) {
        inLibrary = false;
        EXPECT_EQ(othersAreMade, story) << "only a constructor may throw it";
    }
    fuse = 0;
    const bool blown = passed >= which;
    for (const int id : {0, 1, 2, 3, 4, 5, 6, 7, 10, 11, 12}) {
        TCPMutex lock(id);
        EXPECT_TRUE(lock.trylock() == 0 && lock.unlock() == 0) << id;
    }
    scene.ann.hangup();
    scene.ann.setCallPendingCB(nullptr);
    WirePeer next(scene.meeting, "Next");
    EXPECT_TRUE(scene.ann.hostMeeting("Next") && next.joins(scene.port()) && next.fences());
    EXPECT_TRUE(scene.ann.sendAllKeepAlive() && next.receives(id::keepAlive));
    return blown;
}

TEST(EveryAllocation, MayFail) {
    setLogLevel(LOG_NONE);
    for (const Story story : {annHosts, annAttendsAndCalls, othersAreMade})
        for (const int mode : {0, 1, 3}) {
            const bool guarded = mode % 2 != 0;
            forGood = mode > 1;
            bool blown = true;
            tells(story, guarded, 1'000'000); // what is made once is made now
            for (std::size_t which = 1; blown && !HasFailure(); ++which) {
                const std::size_t before = live;
                blown = tells(story, guarded, which);
                setLastError(TCP_ERROR_NO_ERROR, "");
                EXPECT_EQ(before, live) << "leaks at " << which << " in mode " << mode;
            }
        }
}

// ---- Operations one by one ----

struct GreedyTransport : StubTransport {
    static bool take() { return std::string(100, 'x').size() == 100; }
    bool secureConnect(int, const char *) override { return take(); }
    bool addSecureDescriptor(int) override { return take(); }
    bool removeSecureDescriptor(int) override { return take(); }
};

bool closed(int fd) {
    if (fd != -1)
        closeDescriptor(fd);
    return fd != -1;
}

struct Operation {
    const char *name;
    std::function<bool()> run;
    bool reports = true; // operations of addresses set no error
};

// Whatever allocation fails: no exception, no lock held, no descriptor lost, and an error.
void expectOneToSurvive(const Operation &operation) {
    operation.run();
    int next = platform::openSocket(platform::FAMILY_IPV4);
    platform::closeSocket(next);
    bool refused = true, again = false;
    for (int n = 2; refused; n++) {
        SCOPED_TRACE(operation.name + (" " + std::to_string(n / 2)) + (n % 2 == 0 ? "" : " on"));
        setLastError(TCP_ERROR_NO_ERROR, "");
        bool worked = false, threw = false;
        passed = 0;
        fuse = static_cast<std::size_t>(n / 2);
        forGood = n % 2 != 0;
        inLibrary = true;
        try {
            worked = operation.run();
        } catch (const std::bad_alloc &) {
            threw = true;
        }
        inLibrary = false;
        refused = passed >= fuse;
        fuse = 0;
        ASSERT_FALSE(threw);
        EXPECT_TRUE(worked || !operation.reports || lastError() != TCP_ERROR_NO_ERROR);
        for (const int id : {LOCK_DESCRIPTORS, LOCK_TRANSPORT, LOCK_LOCAL_ADDRESS, LOCK_START_UP}) {
            TCPMutex mutex(id);
            ASSERT_EQ(0, mutex.trylock()) << "lock " << id;
            mutex.unlock();
        }
        const int free = platform::openSocket(platform::FAMILY_IPV4);
        platform::closeSocket(free);
        // The system may have opened something for good. What is lost is lost each time.
        ASSERT_TRUE(next == free || !again) << "a descriptor was lost";
        again = next != free;
        n -= again ? 1 : 0;
        refused = refused || again;
        next = free;
    }
}

class NoMemory : public testing::Test {
protected:
    NoMemory() {
        init();
        setTransport(&transport);
    }
    ~NoMemory() override {
        pair.reset();
        fini();
    }
    // With and without the decoration of errors.
    static void expectToSurvive(const std::vector<Operation> &operations) {
        for (const LogLevel level : {LOG_NONE, LOG_TRACE}) {
            const LogFile log(level);
            std::for_each(operations.begin(), operations.end(), expectOneToSurvive);
        }
    }

    const std::string literal = "1111:2222:3333:4444:5555:6666:7777:8888";
    static constexpr int none = 54321;
    GreedyTransport transport;
    std::optional<SocketPair> pair{std::in_place};
    int fd = pair->mine();
    unsigned char byte = 'x';
};

TEST_F(NoMemory, FailsAnOperationOnDescriptorsAndNothingElse) {
    const int socket = platform::openSocket(platform::FAMILY_IPV4);
    expectToSurvive({
        {"addDescriptor",
         [=] {
             const bool added = addDescriptor(socket, true, false, false, false);
             const TCPError error = lastError();
             removeDescriptor(socket);
             setLastError(error, "");
             return added;
         }},
        {"addDescriptor of no socket",
         [] { return addDescriptor(none, false, false, false, false); }},
        {"setSecure", [&] { return setSecure(fd, true) && setSecure(fd, false); }},
        {"secureConnect", [&] { return secureConnect(fd, "somebody") && setSecure(fd, false); }},
        {"readBytes", [&] { return readBytes(none, &byte, 1, nullptr) == 1; }},
        {"writeBytes", [&] { return writeBytes(fd, &byte, 1, nullptr) == 1; }},
        {"rawReadBytes", [&] { return rawReadBytes(none, &byte, 1, true, nullptr) == 1; }},
    });
    platform::closeSocket(socket);
}

TEST_F(NoMemory, FailsAnOperationThatMakesASocketAndNothingElse) {
    const TemporaryFolder folder;
    const std::string path = folder.path("a socket");
    unsigned short taken = 0;
    const int listener = listenSomewhere(taken);
    expectToSurvive({
        {"connectLocal", [=] { return closed(connectLocal(taken)); }},
        {"connectUnix", [=] { return closed(connectUnix(path)); }},
        {"createUnixSocket",
         [=] {
             std::remove(path.c_str());
             return closed(createUnixSocket(path, 0, false));
         }},
    });
    closeDescriptor(listener);
}

TEST_F(NoMemory, FailsAnOperationOfAddressesAndNothingElse) {
    TCPAddress named;
    named.setName(literal);
    TCPAddress network;
    network.setNetwork(literal + "/100");
    std::vector<TCPAddress> all;
    TCPAddress own;
    std::string text;
    expectToSurvive({
        {"setLocalAddress", [=] { return setLocalAddress(named); }},
        {"localAddress", [&] { return own.clear(), localAddress(own); }},
        {"resolve", [&] { return TCPAddress().resolve(literal); }, false},
        {"resolveNetName", [] { return TCPAddress().resolveNetName("localhost"); }, false},
        {"lookup", [&] { return TCPAddress::lookup(literal, all, TCPAddress::IPTYPE_NONE); },
         false},
        {"setNetwork", [&] { return TCPAddress().setNetwork(literal); }, false},
        {"maskString", [&] { return text.clear(), network.maskString(text); }, false},
    });
}

// Without the memory for its record the library runs without it.
TEST_F(NoMemory, FailsAStartAndNothingElse) {
    expectOneToSurvive({"init",
                        [] {
                            while (fini()) {
                            }
                            return init();
                        },
                        false});
}

} // namespace
} // namespace vintok::test
