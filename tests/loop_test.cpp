// The dispatch loop beside other things: descriptors that are no sockets, other threads, and other
// loops that it runs inside of.
#include "platform/Poller.h"
#include "platform/Waker.h"
#include "support/Stream.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace vintok::test {
namespace {

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
