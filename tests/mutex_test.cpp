#include "platform/Thread.h"
#include "support/ChildProcess.h"
#include "support/LogFile.h"
#include "support/ScriptedPlatform.h"
#include "support/Stream.h"
#include "support/Threads.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMutex.h"
#include "vintok/TCPMutexBase.h"

#include <atomic>

using namespace vintok;
using namespace vintok::test;

namespace {

// Takes it and gives it back.
bool locks(TCPMutex &mutex) {
    return mutex.lock() == 0 && mutex.unlock() == 0;
}

// Destroyed after every lock of the library, and still calls it: that must end in failures and not
// in a crash, which the exit code of this program would show.
struct LastUser {
    ~LastUser() {
        setClosed(5);
        if (init())
            fini();
        bufferFrames(5);
        TCPMutex mutex(LOCK_CLOCK);
        if (!locks(mutex))
            std::_Exit(1);
    }
} lastUser;

// First in this file: later on the library's own locks keep the base alive.
TEST(MutexLife, TheFirstAndTheLastLocksCanBeThoseOfManyThreads) {
    testing::internal::CaptureStderr();
    constexpr int threadCount = 2;
    std::atomic<int> arrived{0};
    std::atomic<int> failures{0};
    onThreads(threadCount, [&] {
        for (int round = 1; round <= 1000; round++) {
            arrived++; // so that all of them begin each round together
            while (arrived < round * threadCount)
                std::this_thread::yield();
            TCPMutex mutex(LOCK_TRANSPORT);
            failures += locks(mutex) ? 0 : 1;
        }
    });
    EXPECT_EQ("", testing::internal::GetCapturedStderr()) << "trouble that was logged";
    EXPECT_EQ(0, failures);
}

class Mutex : public Library {};

// On another thread, to its end.
template <typename Action>
void elsewhere(Action action) {
    onThreads(1, action);
}

TEST_F(Mutex, ObjectsOfOneIdAreOneLock) {
    TCPMutex first(LOCK_CLOCK);
    TCPMutex second(LOCK_CLOCK);
    TCPMutex other(LOCK_START_UP); // behind the same mutex of the system
    ASSERT_EQ(0, first.lock());
    EXPECT_EQ(-1, second.trylock()) << "the holder gets no second one either";
    elsewhere([&] { EXPECT_EQ(-1, second.trylock()); });
    EXPECT_EQ(0, other.trylock());
    EXPECT_EQ(0, other.unlock());
    EXPECT_EQ(0, second.unlock()) << "the thread holds it, not the object";
    elsewhere([&] { EXPECT_TRUE(first.trylock() == 0 && first.unlock() == 0); });
}

TEST_F(Mutex, OnlyTheHolderUnlocks) {
    TCPMutex mutex(LOCK_CLOCK);
    EXPECT_EQ(-1, mutex.unlock()) << "nobody holds it";
    ASSERT_EQ(0, mutex.lock());
    elsewhere([&] { EXPECT_EQ(-1, mutex.unlock()); });
    EXPECT_EQ(-1, mutex.trylock()) << "still held";
    EXPECT_EQ(0, mutex.unlock());
    EXPECT_EQ(-1, mutex.unlock());
}

TEST_F(Mutex, StaysWithAThreadThatHasEnded) {
    TCPMutex mutex(6); // which nobody else locks
    elsewhere([&] { EXPECT_EQ(0, mutex.lock()); });
    EXPECT_EQ(-1, mutex.trylock());
}

// The numbers mean something inside a process only, so nobody waits for another process, and
// nothing of one that is killed stays.
TEST_F(Mutex, OfAnotherProcessIsAnotherLock) {
    const std::vector<std::string> command = {VINTOK_TEST_PARTY, "Ann", "locks"};
    ChildProcess first(command), second(command);
    EXPECT_TRUE(first.printed("holds") && second.printed("holds")) << second.story();
    first.kill();
    second.kill();
    TCPMutex mutex(LOCK_CLOCK);
    EXPECT_TRUE(locks(mutex));
}

// Each holder waits for somebody to wait for the lock, so every round is a hand-over.
TEST_F(Mutex, IsHandedToAWaiterWithoutASleepAndExcludesEverybody) {
    constexpr int threadCount = 4;
    constexpr int rounds = 200;
    ScriptedPlatform script;
    TCPMutex mutex(LOCK_CLOCK);
    int counter = 0; // guarded by the lock alone
    std::atomic<int> finished{0};
    onThreads(threadCount, [&] {
        for (int n = 0; n < rounds; n++) {
            EXPECT_EQ(0, mutex.lock());
            const int before = counter;
            while (script.waiters == 0 && finished < threadCount - 1)
                std::this_thread::yield();
            counter = before + 1;
            EXPECT_EQ(0, mutex.unlock());
        }
        finished++;
    });
    EXPECT_EQ(threadCount * rounds, counter);
    EXPECT_EQ(0U, script.waitsInVain);
    EXPECT_EQ(0U, script.slept());
}

// The table of the base itself, which a second object reaches as well as the first.
class MutexBase : public Mutex {
protected:
    LogFile log{LOG_ERROR};
    TCPMutex keepsTheFirstAlive{LOCK_CLOCK};
    TCPMutexBase base;
};

TEST_F(MutexBase, SaysWhatWasWrongWithAWait) {
    using Wait = platform::RecursiveLock::Wait;
    ScriptedPlatform script;
    const struct {
        Wait wait;
        const char *lock, *unlock;
    } rows[] = {
        {Wait::abandoned, "WAIT_ABANDONED", "WAIT_ABANDONED in TCPMutexBase::_mutexUnlock"},
        {Wait::timedOut, "WAIT_TIMEOUT", "WAIT_TIMEOUT in TCPMutexBase::_mutexUnlock"},
        {Wait::failed, "WAIT_FAILED lastError = 0x0",
         "WAIT_FAILED int TCPMutexBase::_mutexUnlock lastError = 0x0"},
    };
    for (const auto &row : rows) {
        script.acquire = "2*" + std::to_string(static_cast<int>(row.wait));
        EXPECT_EQ(-1, base._mutexLock(3, true));
        EXPECT_EQ(-1, base._mutexUnlock(3, true));
        EXPECT_TRUE(log.has(row.lock) && log.has(row.unlock)) << log.text();
    }
}

TEST_F(MutexBase, CanBeTakenWhole) {
    TCPMutex::lockAll();
    for (int index = 0; index < 7; index++)
        EXPECT_EQ(-1, base._mutexLock(index, true)) << index;
    TCPMutex::unlockAll();
    for (int index = 0; index < 7; index++) {
        EXPECT_EQ(0, base._mutexLock(index, true)) << index;
        EXPECT_EQ(0, base._mutexUnlock(index, true)) << index;
    }
}

// A thread that locks what it holds has lost: it fails from then on, and whoever else comes to the
// same mutex of the system stops there.
TEST_F(MutexBase, ASecondLockByTheHolderStopsEverythingBehindTheMutex) {
    TCPMutex clock(LOCK_CLOCK);
    TCPMutex startUp(LOCK_START_UP);
    ASSERT_EQ(0, clock.lock());
    EXPECT_EQ(-1, clock.lock());
    EXPECT_TRUE(log.has("Deadlock"));
    EXPECT_EQ(-1, startUp.lock());
    EXPECT_TRUE(log.has("Recursive call to lock"));

    std::atomic<bool> arriving{false};
    std::atomic<bool> released{false};
    std::thread other([&] {
        arriving = true;
        EXPECT_EQ(0, startUp.lock());
        EXPECT_TRUE(released) << "it came through while the mutex was owned";
        startUp.unlock();
    });
    while (!arriving)
        std::this_thread::yield();
    platform::sleepMilliseconds(20); // enough for one that does not stop to come through
    released = true;
    EXPECT_EQ(0, base._mutexUnlock(LOCK_CLOCK, false)); // as no program can
    other.join();
    EXPECT_EQ(0, clock.unlock());
}

} // namespace
