#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/ScriptedPlatform.h"
#include "support/Stream.h"
#include "support/TemporaryFolder.h"
#include "support/Threads.h"
#include "vintok/StreamInternal.h"

#include <atomic>

using namespace vintok;
using namespace vintok::test;

namespace {

// The library is not started, the environment says nothing, and the system's part is scripted.
class Frame : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(0U, s_startUpCount) << "a test left the library started";
        setErrorDebug(false);
    }

    // Starts with these in the environment and returns what was logged until the end.
    std::string logOfOneLife(const std::string &level) {
        const ScopedEnvironment file("VINTOK_ERROR_LOG_FILE", folder.path("log"));
        const ScopedEnvironment levelName("VINTOK_ERROR_LOG_LEVEL", level);
        const bool started = init();
        setLastError(TCP_ERROR_OUT_OF_MEMORY, "no room");
        if (started)
            fini();
        return textOf(folder.path("log"));
    }

    ScopedEnvironment noLevel{"VINTOK_ERROR_LOG_LEVEL"};
    ScopedEnvironment noFile{"VINTOK_ERROR_LOG_FILE"};
    ScopedEnvironment noPrint{"VINTOK_ERROR_PRINT"};
    TemporaryFolder folder;
    ScriptedPlatform script;
};

TEST_F(Frame, OnlyTheFirstInitAndTheLastFiniDoTheWork) {
    setLastError(TCP_ERROR_UNSPECIFIED_ERROR, "old");
    ASSERT_TRUE(init());
    EXPECT_EQ(TCP_ERROR_NO_ERROR, lastError()) << "the first start clears the error";
    const Globals *record = s_globals;
    EXPECT_TRUE(init());
    EXPECT_EQ(record, s_globals.load());
    EXPECT_EQ(1U, script.startsWanted.size());

    EXPECT_TRUE(fini());
    EXPECT_EQ(0U, script.stops);
    EXPECT_TRUE(setLogLevel(LOG_FATAL)) << "still usable";
    EXPECT_TRUE(fini());
    EXPECT_EQ(1U, script.stops);
    EXPECT_EQ(nullptr, s_globals.load());
    EXPECT_EQ(TCP_ERROR_NO_ERROR, lastError());
    EXPECT_FALSE(setLogLevel(LOG_FATAL));
}

TEST_F(Frame, TheEnvironmentSetsTheLevel) {
    const std::pair<const char *, LogLevel> cases[] = {
        {"FATAL", LOG_FATAL}, {"TRACE", LOG_TRACE}, {"Debug", LOG_NONE}, {"INFO ", LOG_NONE}};
    const ScopedEnvironment file("VINTOK_ERROR_LOG_FILE", folder.path("log"));
    for (const auto &[name, level] : cases) {
        const ScopedEnvironment variable("VINTOK_ERROR_LOG_LEVEL", name);
        ASSERT_TRUE(init());
        EXPECT_EQ(level, logLevel()) << name;
        fini();
    }
}

TEST_F(Frame, StartAndStopAreToldInTheLog) {
    const std::string log = logOfOneLife("INFO");
    const char *inOrder[] = {"\n{\nvintok first init\n}\n",
                             "\n{\nTrying WSAStartup version 2.2\n}\n",
                             "\n{\nWinSock Version 2.2\n\n}\n", "\n{\nvintok last fini\n}\n"};
    std::size_t at = 0;
    for (const char *entry : inOrder) {
        at = log.find(entry, at);
        ASSERT_NE(std::string::npos, at) << entry << "in\n" << log;
    }
    EXPECT_THAT(log, Not(HasSubstr("no room"))) << "errors are not printed unless asked for";
}

TEST_F(Frame, OnlyTheExactWordPrintsErrors) {
    {
        const ScopedEnvironment print("VINTOK_ERROR_PRINT", "true");
        EXPECT_THAT(logOfOneLife("ERROR"), Not(HasSubstr("no room")));
    }
    const ScopedEnvironment print("VINTOK_ERROR_PRINT", "True");
    EXPECT_THAT(logOfOneLife("ERROR"),
                HasSubstr("\n{\nlastError (TCP_ERROR_OUT_OF_MEMORY)\nno room\n\n}\n"));
}

TEST_F(Frame, AnOlderSocketLayerWillDo) {
    script.start = "!0 2"; // 2.0
    const std::string log = logOfOneLife("INFO");
    EXPECT_THAT(script.startsWanted, ElementsAre(0x0202, 0x0002));
    EXPECT_THAT(log, HasSubstr("WSAStartup version 2.2 failed\nTrying WSAStartup version 2.0\n"));
    EXPECT_THAT(log, HasSubstr("WinSock Version 2.0\n")) << "low byte first";
}

TEST_F(Frame, NoSocketLayerIsAFailureThatCanBeTriedAgain) {
    script.start = "3*!0";
    const std::string log = logOfOneLife("WARNING");
    EXPECT_THAT(script.startsWanted, ElementsAre(0x0202, 0x0002, 0x0101));
    EXPECT_THAT(log, HasSubstr("WSAStartup version 2.0 failed\nTrying WSAStartup version 1.1\n"));
    EXPECT_THAT(log, HasSubstr("WSAStartup version 1.1 failed.\n"));
    EXPECT_EQ(0U, s_startUpCount);
    EXPECT_FALSE(fini());

    delete s_globals.exchange(nullptr); // the next start would lose it
    EXPECT_TRUE(init());
    EXPECT_TRUE(fini());
}

TEST_F(Frame, AHostWithoutANameIsStartedAllTheSame) {
    script.hostName = "!0";
    EXPECT_FALSE(init());
    EXPECT_EQ(1U, s_startUpCount);
    EXPECT_TRUE(setLogLevel(LOG_NONE));
    EXPECT_TRUE(fini());
}

TEST_F(Frame, WithoutARecordTheLibraryStaysUpAndSaysSo) {
    ASSERT_TRUE(init());
    delete s_globals.exchange(nullptr); // as if there had been no memory for it
    EXPECT_EQ(LOG_ERROR, logLevel());
    EXPECT_FALSE(addTime(1));
    expectError(TCP_ERROR_NOT_INITIALIZED, "vintok::addTime");
    EXPECT_FALSE(addDescriptor(5, false, false, false, false));
    expectError(TCP_ERROR_NOT_INITIALIZED, "vintok::addDescriptor");
    EXPECT_TRUE(fini());
    expectError(TCP_ERROR_SYSTEM_ERROR, testing::StartsWith("vintok::fini\n"));
}

TEST(FrameThreads, ManyThreadsStartAndStopAndTheRecordOutlivesEachOfThem) {
    std::atomic<int> failures{0};
    onThreads(8, [&] {
        for (int round = 0; round < 20; round++)
            failures += init() && addTime(0) && zeroTime() && fini() ? 0 : 1;
    });
    EXPECT_EQ(0, failures);
    EXPECT_EQ(0U, s_startUpCount);
}

} // namespace
