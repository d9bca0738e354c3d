// The dispatch loop: who is called, in which order, and what callbacks may do to it meanwhile.

#include "platform/Poller.h"
#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Waker.h"
#include "support/LogFile.h"
#include "support/ScriptedPlatform.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "support/StubTransport.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <vector>

namespace vintok::test {

namespace {

// A callback that notes its calls in the order of all, and then does what the test wants.
struct Watch {
    using Action = std::function<void(int descriptor, Watch &self)>;

    static void call(int descriptor, void *data, bool hangup) {
        auto &watch = *static_cast<Watch *>(data);
        EXPECT_FALSE(hangup);
        watch.calls.push_back(watch.name);
        if (watch.action)
            watch.action(descriptor, watch);
    }

    std::vector<std::string> &calls;
    std::string name;
    Action action = {};
};

class Select : public test::Library {
protected:
    ~Select() override {
        select.reset();
        pairs.clear();
        std::for_each(taken.begin(), taken.end(), shutdownSocket);
    }

    // Connections in ascending order of their descriptors, each with a byte to read.
    void makeReadablePairs(std::size_t count) {
        while (pairs.size() < count) {
            pairs.push_back(std::make_unique<SocketPair>());
            ASSERT_TRUE(pairs.back()->peerSends("x"));
        }
        std::sort(pairs.begin(), pairs.end(),
                  [](const auto &a, const auto &b) { return a->mine() < b->mine(); });
    }
    int fd(std::size_t place) const { return pairs.at(place)->mine(); }

    bool add(int descriptor, Watch &watch, bool secure = false) {
        return select->addSocketCallback(descriptor, Watch::call, &watch, true, secure);
    }
    bool remove(int descriptor, Watch &watch) {
        return select->removeCallback(descriptor, Watch::call, &watch);
    }
    Watch &watch(const std::string &name, const Watch::Action &action = {}) {
        return watches.emplace_back(Watch{calls, name, action});
    }
    // Registers for the connection of this place.
    Watch &watchAt(std::size_t place, const std::string &name, const Watch::Action &action = {}) {
        Watch &made = watch(name, action);
        EXPECT_TRUE(add(fd(place), made));
        return made;
    }

    // Takes the one byte that waits.
    static void readByte(int descriptor, Watch &) {
        unsigned char byte = 0;
        ASSERT_EQ(1, bytesPending(descriptor)) << "called for nothing: a read would wait for ever";
        EXPECT_EQ(1, readBytes(descriptor, &byte, 1, nullptr));
    }

    // Closes the connection, and makes others until one has its number. False where the system does
    // not give the number out again.
    bool takeOver(SocketPair &old) {
        const int number = old.mine();
        unsigned short port = 0;
        const int listener = test::listenSomewhere(port);
        old.shutDownMine();
        successor = -1;
        for (int attempt = 0; attempt < 64 && successor != number; ++attempt) {
            successor = connectLocal(port);
            successorPeer = acceptBoundSocket(listener);
            taken.insert(taken.end(), {successor, successorPeer});
        }
        shutdownSocket(listener);
        return successor == number;
    }

    std::unique_ptr<TCPSelect> select = std::make_unique<TCPSelect>();
    std::vector<std::unique_ptr<SocketPair>> pairs;
    std::vector<std::string> calls;
    std::deque<Watch> watches;
    int successor = -1;
    int successorPeer = -1;
    std::vector<int> taken;
};

// ---- Registration and order ----

TEST_F(Select, RefusesWhatItCannotDispatch) {
    makeReadablePairs(1);
    Watch &a = watch("a");
    EXPECT_FALSE(select->addSocketCallback(fd(0), nullptr, &a, true, false));
    EXPECT_FALSE(select->addSocketCallback(-1, Watch::call, &a, true, false));
    EXPECT_FALSE(add(1 << 20, a)) << "no socket";
    EXPECT_EQ(0, select->numDescriptors());

    EXPECT_TRUE(add(fd(0), a));
    EXPECT_FALSE(add(fd(0), a)) << "the same pair again";
    EXPECT_FALSE(select->removeCallback(fd(0), Watch::call, nullptr));
    EXPECT_EQ(1, select->numDescriptors());
    EXPECT_EQ(1, select->pollDescriptors(true));
    EXPECT_THAT(calls, ElementsAre("a"));
}

TEST_F(Select, CallsInOrderOfDescriptorsAndOfRegistration) {
    makeReadablePairs(3);
    for (const std::size_t which : {2U, 0U, 1U})
        for (const char *suffix : {"-first", "-second"})
            watchAt(which, std::to_string(which) + suffix);
    EXPECT_EQ(3, select->numDescriptors());
    EXPECT_EQ(3, select->pollDescriptors(true));
    EXPECT_THAT(calls,
                ElementsAre("0-first", "0-second", "1-first", "1-second", "2-first", "2-second"));
}

TEST_F(Select, ForgetsADescriptorWithItsLastCallback) {
    makeReadablePairs(1);
    Watch &first = watchAt(0, "first");
    Watch &second = watchAt(0, "second");
    EXPECT_TRUE(remove(fd(0), first));
    EXPECT_EQ(1, select->pollDescriptors(true));
    EXPECT_THAT(calls, ElementsAre("second"));
    EXPECT_TRUE(remove(fd(0), second));
    EXPECT_FALSE(remove(fd(0), second));
    EXPECT_EQ(0, select->numDescriptors());
    EXPECT_EQ(-1, select->pollDescriptors(true)) << "nothing to wait for";
}

TEST_F(Select, IsOneTableForAThread) {
    makeReadablePairs(1);
    {
        TCPSelect other;
        ASSERT_TRUE(other.addSocketCallback(fd(0), Watch::call, &watch("a"), true, false));
        EXPECT_EQ(1, select->numDescriptors());
        int elsewhere = -1;
        std::thread([&elsewhere] { elsewhere = TCPSelect().numDescriptors(); }).join();
        EXPECT_EQ(0, elsewhere);
    }
    EXPECT_EQ(1, select->pollDescriptors(true))
        << "registrations outlive the object that made them";
    EXPECT_THAT(calls, ElementsAre("a"));
    select = std::make_unique<TCPSelect>();
    EXPECT_EQ(1, select->numDescriptors()) << "the new one came before the old one went";
    select.reset();
    select = std::make_unique<TCPSelect>();
    EXPECT_EQ(0, select->numDescriptors()) << "the table went with the last one";
}

// ---- Running ----

TEST_F(Select, RunsUntilNothingIsRegistered) {
    select->run();
    EXPECT_FALSE(select->running());

    makeReadablePairs(2);
    watchAt(0, "a", [&](int descriptor, Watch &self) {
        EXPECT_TRUE(select->running());
        EXPECT_FALSE(select->signalSafe());
        remove(descriptor, self);
    });
    watchAt(1, "b", [&](int descriptor, Watch &self) { remove(descriptor, self); });
    EXPECT_TRUE(select->signalSafe());
    select->run();
    EXPECT_THAT(calls, ElementsAre("a", "b"));
    EXPECT_FALSE(select->running());
    EXPECT_TRUE(select->signalSafe());
}

// ---- Callbacks that change the table ----

TEST_F(Select, StillCallsWhatAnEarlierCallbackOfTheDescriptorRemoved) {
    makeReadablePairs(1);
    watchAt(0, "first", [&](int descriptor, Watch &) {
        for (Watch &each : watches)
            remove(descriptor, each);
    });
    watchAt(0, "second");
    watchAt(0, "third");
    EXPECT_EQ(1, select->pollDescriptors(true));
    EXPECT_THAT(calls, ElementsAre("first", "second", "third"));
    EXPECT_EQ(0, select->numDescriptors());
}

TEST_F(Select, CallsACallbackThatIsAddedMeanwhileInTheNextPass) {
    makeReadablePairs(2);
    Watch &late = watch("late");
    Watch &later = watch("later");
    watchAt(0, "first", [&](int descriptor, Watch &) {
        add(descriptor, late);
        add(fd(1), later);
    });
    select->pollDescriptors(true);
    EXPECT_THAT(calls, ElementsAre("first"));
    calls.clear();
    select->pollDescriptors(true);
    EXPECT_THAT(calls, ElementsAre("first", "late", "later"));
}

// The loop paused for each of many descriptors that one callback had removed, and everybody waited.
TEST_F(Select, PausesOnceForAllThatNobodyOwnsAnyMore) {
    makeReadablePairs(4);
    watchAt(0, "first", [&](int, Watch &) {
        for (std::size_t i = 1; i < pairs.size(); ++i)
            remove(fd(i), watches[i]);
    });
    for (std::size_t i = 1; i < pairs.size(); ++i)
        watchAt(i, "removed");
    test::ScriptedPlatform platform;
    EXPECT_EQ(4, select->pollDescriptors(true));
    EXPECT_THAT(calls, ElementsAre("first"));
    EXPECT_EQ(1, select->numDescriptors());
    EXPECT_THAT(platform.sleeps, ElementsAre(250));
    EXPECT_EQ(1, select->pollDescriptors(true)) << "the next pass no longer sees them";
    EXPECT_THAT(platform.sleeps, ElementsAre(250));
}

TEST_F(Select, PausesForAReadableDescriptorThatNobodyOwns) {
    makeReadablePairs(1);
    test::ScriptedPlatform platform;
    EXPECT_EQ(1, select->pollOneDescriptor(fd(0), true));
    EXPECT_THAT(platform.sleeps, ElementsAre(250));
}

// A callback closed another connection and opened a new one, which got the number; the new owner
// was called for bytes that were never his, and his read waited for ever.
TEST_F(Select, DoesNotCallTheNewOwnerOfANumberForTheOldOnesBytes) {
    makeReadablePairs(2);
    const int number = fd(1);
    bool takenOver = false;
    Watch &oldOwner = watch("old owner");
    Watch &newOwner = watch("new owner", readByte);
    watchAt(0, "first", [&](int descriptor, Watch &self) {
        readByte(descriptor, self);
        remove(number, oldOwner);
        takenOver = takeOver(*pairs[1]) && add(number, newOwner);
    });
    ASSERT_TRUE(add(number, oldOwner));
    test::ScriptedPlatform platform;
    EXPECT_EQ(2, select->pollDescriptors(true));
    if (!takenOver)
        GTEST_SKIP() << "this system does not give the number out again";
    EXPECT_THAT(calls, ElementsAre("first"));
    EXPECT_THAT(platform.sleeps, IsEmpty());
    EXPECT_EQ(0, select->pollDescriptors(true));

    ASSERT_EQ(1, test::writes(successorPeer, "y"));
    ASSERT_TRUE(test::awaitBytes(number, 1));
    EXPECT_EQ(1, select->pollDescriptors(true));
    EXPECT_THAT(calls, ElementsAre("first", "new owner"));
}

// A pass within a callback read what the outer pass had seen, and the outer pass called for it
// again.
TEST_F(Select, CallsOnceForWhatAPassWithinACallbackHasRead) {
    makeReadablePairs(3);
    watchAt(0, "low", [&](int descriptor, Watch &self) {
        readByte(descriptor, self);
        EXPECT_EQ(1, select->pollOneDescriptor(fd(2), true));
        EXPECT_EQ(1, select->pollDescriptors(true));
    });
    watchAt(1, "middle", readByte);
    watchAt(2, "high", readByte);
    EXPECT_EQ(3, select->pollDescriptors(true));
    EXPECT_THAT(calls, ElementsAre("low", "high", "middle"));
    EXPECT_TRUE(select->signalSafe());
}

TEST_F(Select, MayBeDestroyedByItsOwnCallback) {
    makeReadablePairs(2);
    Watch &second = watch("second");
    watchAt(0, "first", [&](int descriptor, Watch &) {
        select.reset();
        select = std::make_unique<TCPSelect>(); // a new table, of the same thread
        EXPECT_TRUE(add(descriptor, second));
    });
    ASSERT_TRUE(add(fd(0), second));
    watchAt(1, "other");
    select->run();
    EXPECT_THAT(calls, ElementsAre("first")) << "the running table has ended with its object";
    EXPECT_EQ(1, select->pollDescriptors(true));
    EXPECT_THAT(calls, ElementsAre("first", "second"));
}

// ---- Descriptors that have died ----

// A callback that did nothing about a closed descriptor was called again and again, as fast as the
// machine could. One that does so in the next pass holds up nobody.
TEST_F(Select, RestsOverADeadDescriptorThatStaysRegistered) {
    makeReadablePairs(1);
    const int number = fd(0);
    Watch &idle = watchAt(0, "idle");
    pairs[0]->shutDownMine();
    test::LogFile log(LOG_WARNING);
    test::ScriptedPlatform platform;
    for (int pass = 0; pass < 3; ++pass)
        EXPECT_EQ(1, select->pollDescriptors(false));
    EXPECT_THAT(calls, ElementsAre("idle", "idle", "idle"));
    EXPECT_THAT(platform.sleeps, ElementsAre(250, 250));
    EXPECT_EQ(1, log.entries("Descriptor " + std::to_string(number) +
                             " is closed, but its callbacks stay registered"))
        << log.text();
    EXPECT_TRUE(remove(number, idle));
}

// ---- Many, and high ones ----

TEST_F(Select, TakesAThousandAndTwentyFourDescriptorsOfAnyNumber) {
    const std::size_t before = platform::descriptorLimit();
    if (before != 0 && before < 2500 && !platform::setDescriptorLimit(2500))
        GTEST_SKIP() << "this process may not open so many descriptors";
    std::vector<int> sockets;
    const auto open = [&sockets] {
        sockets.push_back(platform::openSocket(platform::FAMILY_IPV4));
        return sockets.back();
    };
    for (int i = 0; i < 1100; ++i)
        ASSERT_NE(-1, open());
    makeReadablePairs(1); // beyond the sockets that were opened before it

    Watch &idle = watch("idle");
    watchAt(0, "high", readByte);
    EXPECT_EQ(1, select->pollDescriptors(true)) << fd(0);
    EXPECT_THAT(calls, ElementsAre("high"));

    for (std::size_t i = 0; i < 1023; ++i)
        ASSERT_TRUE(add(sockets[i], idle)) << i;
    EXPECT_EQ(1024, select->numDescriptors());
    EXPECT_FALSE(add(sockets[1023], idle)) << "the 1025th";
    EXPECT_EQ(1024, select->numDescriptors());
    EXPECT_TRUE(add(sockets[0], watch("another"))) << "a known descriptor takes more callbacks";

    ASSERT_TRUE(pairs[0]->peerSends("x"));
    calls.clear();
    select->pollDescriptors(true);
    EXPECT_THAT(calls, testing::Contains("high"));

    EXPECT_TRUE(remove(sockets[500], idle));
    EXPECT_TRUE(add(sockets[1023], idle)) << "there is room again";
    select.reset();
    for (const int socket : sockets)
        closeDescriptor(socket);
    if (before != 0)
        platform::setDescriptorLimit(before);
}

// ---- Secure descriptors ----

// Holds plaintext for descriptors.
class Buffers : public test::StubTransport {
public:
    bool secureBytesPending(int descriptor, std::size_t *pending, bool) override {
        *pending = plaintext[descriptor];
        return true;
    }
    std::map<int, std::size_t> plaintext;
};

class SecureSelect : public Select {
protected:
    SecureSelect() { setTransport(&transport); }
    ~SecureSelect() override {
        pairs.clear();
        silent.shutDownMine();
        setTransport(nullptr);
    }

    Buffers transport;
    SocketPair silent;
};

TEST_F(SecureSelect, CallsForPlaintextThatNoWaitCanSee) {
    makeReadablePairs(1);
    watchAt(0, "plain", readByte);
    Watch &secure =
        watch("secure", [&](int descriptor, Watch &) { transport.plaintext[descriptor] -= 1; });
    ASSERT_TRUE(add(silent.mine(), secure, true));
    transport.plaintext[silent.mine()] = 2;
    EXPECT_EQ(1, select->pollDescriptors(false));
    EXPECT_EQ(1, select->pollDescriptors(false));
    EXPECT_THAT(calls, ElementsAre("secure", "secure")) << "before the wait is even asked";
    EXPECT_EQ(1, select->pollDescriptors(false));
    EXPECT_THAT(calls, ElementsAre("secure", "secure", "plain"));
    transport.plaintext[silent.mine()] = 1;
    EXPECT_EQ(1, select->pollOneDescriptor(silent.mine(), false));
    EXPECT_EQ("secure", calls.back());
}

// The beginning of a frame on one secure connection kept the loop from ever looking at the others.
TEST_F(SecureSelect, ServesTheOthersBesidePlaintextThatNobodyTakes) {
    makeReadablePairs(1);
    Watch &plain = watchAt(0, "plain", readByte);
    ASSERT_TRUE(add(silent.mine(), watch("secure"), true));
    transport.plaintext[silent.mine()] = 10;
    EXPECT_EQ(2, select->pollDescriptors(false));
    EXPECT_THAT(calls, ElementsAre("secure", "plain"));
    EXPECT_EQ(1, select->pollDescriptors(false)) << "a wait that ends by itself";
    EXPECT_THAT(calls, ElementsAre("secure", "plain", "secure"));

    // Alone it must not make the loop spin either.
    ASSERT_TRUE(remove(fd(0), plain));
    test::ScriptedPlatform platform;
    EXPECT_EQ(1, select->pollDescriptors(false));
    EXPECT_THAT(platform.sleeps, ElementsAre(250));
}

// ---- Signals ----

TCPSelect *s_interrupted = nullptr;

// A signal that came between the loop's look at its flag and the wait was lost, and the loop waited
// for ever.
TEST_F(Select, IsInterruptedByASignalWheneverItComes) {
    SocketPair quiet;
    ASSERT_TRUE(add(quiet.mine(), watch("nobody")));
    makeReadablePairs(1);
    s_interrupted = select.get();
    for (std::uint32_t delay = 1; delay <= 400; ++delay) {
        // The signal is under way only once the loop runs, and from then on nothing else ends it.
        watchAt(0, "arm", [&, delay](int descriptor, Watch &self) {
            EXPECT_TRUE(remove(descriptor, self));
            const auto handler = [](int) { s_interrupted->interrupt(); };
            if (!platform::interruptOnce(delay % 100 + 1, handler))
                s_interrupted->interrupt();
        });
        select->run();
        ASSERT_FALSE(select->running());
    }
    EXPECT_EQ(400u, calls.size());
    platform::stopInterrupting();
}

// ---- Beside other things ----

class Loop : public Library {};

TEST_F(Loop, CallsForDescriptorsThatTheStreamLayerDoesNotKnow) {
    TCPSelect loop;
    platform::Waker pipe;
    ASSERT_TRUE(pipe.open());
    int calls = 0;
    const auto count = [](int, void *data, bool) { ++*static_cast<int *>(data); };
    ASSERT_TRUE(loop.addReadableCallback(pipe.descriptor(), count, &calls));
    EXPECT_EQ(0, loop.pollDescriptors(true));
    pipe.wake();
    const auto start = std::chrono::steady_clock::now();
    for (int pass = 0; pass < 8; ++pass) // unread, it is called for again, without a rest
        EXPECT_EQ(1, loop.pollDescriptors(true));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(8 * 250));
    EXPECT_EQ(8, calls);
    EXPECT_TRUE(loop.removeCallback(pipe.descriptor(), count, &calls));
    EXPECT_EQ(-1, loop.pollDescriptors(true));
    EXPECT_FALSE(loop.addReadableCallback(-1, count, &calls));
}

TEST_F(Loop, IsWokenByAnotherThread) {
    TCPSelect loop;
    platform::Waker silent; // somebody to wait for
    ASSERT_TRUE(silent.open());
    const auto nothing = [](int, void *, bool) {};
    ASSERT_TRUE(loop.addReadableCallback(silent.descriptor(), nothing, nullptr));
    loop.wake(); // before it is set: nothing
    std::atomic<int> calls = 0;
    ASSERT_TRUE(
        loop.setWakeCallback([](void *data) { ++*static_cast<std::atomic<int> *>(data); }, &calls));
    EXPECT_EQ(0, loop.pollDescriptors(true));
    for (int i = 0; i < 3; ++i)
        loop.wake();
    loop.pollDescriptors(false);
    EXPECT_EQ(1, calls) << "once for all of them";
    std::thread other([&] {
        while (!loop.running())
            std::this_thread::yield();
        loop.interrupt();
        loop.wake();
    });
    loop.run();
    other.join();
}

std::string heard;
std::atomic<bool> isHeard; // so that the guest may go

void onData(ConferenceParticipant *, unsigned char *data, std::uint64_t length) {
    heard.append(reinterpret_cast<const char *>(data), static_cast<std::size_t>(length));
}

// Calls, says what is long enough to come in pieces, and leaves when it has been heard.
void visit(unsigned short port, const std::string &text) {
    ConferenceParticipant guest(true);
    TCPSelect loop;
    static thread_local bool isIn;
    isIn = false;
    guest.setJoinCB([](ConferenceParticipant *, const ConferenceRosterEntry &) { isIn = true; });
    EXPECT_TRUE(guest.placeCall("127.0.0.1", port, "", 0, "", "", 0)) << lastErrorString();
    while (!isIn && loop.pollDescriptors(false) != -1) {
    }
    EXPECT_TRUE(
        guest.sendBroadcastData(reinterpret_cast<const unsigned char *>(text.data()), text.size()));
    while (!isHeard)
        loop.pollDescriptors(true);
    guest.hangup();
}

TEST_F(Loop, RunsInsideAnotherOne) {
    for (const bool nested : {false, true}) {
        SCOPED_TRACE(nested);
        ConferenceParticipant host(true);
        TCPSelect loop;
        if (nested && loop.nestedDescriptor() == -1)
            GTEST_SKIP() << "no descriptor stands for others here";
        host.setBroadcastDataCB(onData);
        ASSERT_TRUE(host.hostMeeting("Nest"));
        EXPECT_EQ(-1, loop.timeout());
        host.setCallerLimits({10, 10, 60000, 60000, 0, 0}); // from here on there are deadlines
        heard.clear();
        const int listeners = loop.numDescriptors();
        std::string said;
        for (int round = 0; round < 3; ++round) { // so that numbers of descriptors come again
            const std::string text(300000, static_cast<char>('a' + round));
            said += text;
            isHeard = false;
            std::thread guest(visit, host.address().hostByteOrderPort(), text);
            platform::Poller other;
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while (heard.size() < said.size() && std::chrono::steady_clock::now() < end) {
                platform::Poller fresh;
                platform::Poller &poller = nested ? other : fresh;
                if (nested)
                    poller.watch(loop.nestedDescriptor(), true, false, nullptr);
                else
                    for (const TCPSelect::Watched &each : loop.watched())
                        poller.watch(each.descriptor, each.reading, each.writing, nullptr);
                const std::int32_t timeout = loop.timeout();
                EXPECT_LE(timeout, 60000);
                std::vector<platform::Poller::Event> events;
                poller.wait(events, timeout >= 0 ? timeout : 20000);
                loop.pollDescriptors(true);
            }
            isHeard = true;
            guest.join();
            while (loop.numDescriptors() != listeners) // or else the next one is its double
                ASSERT_NE(-1, loop.pollDescriptors(false));
        }
        EXPECT_EQ(said, heard);
    }
}

} // namespace
} // namespace vintok::test
