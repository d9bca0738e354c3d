#include "platform/Socket.h"
#include "platform/Thread.h"
#include "support/LogFile.h"
#include "support/Stream.h"
#include "support/Threads.h"
#include "vintok/StreamInternal.h"

#include <filesystem>
#include <regex>
#include <thread>

using namespace vintok;
using namespace vintok::test;

namespace {

TEST(LastError, IsOfTheThreadAndNeedsNoInit) {
    ASSERT_TRUE(setLastError(TCP_ERROR_WOULD_BLOCK, "here"));
    std::thread([] {
        EXPECT_EQ(TCP_ERROR_NO_ERROR, lastError());
        EXPECT_EQ("", lastErrorString());
        EXPECT_TRUE(setLastError(TCP_ERROR_INTERRUPT, "there"));
        EXPECT_EQ("there", lastErrorString());
    }).join();
    EXPECT_EQ(TCP_ERROR_WOULD_BLOCK, lastError());
    EXPECT_EQ("here", lastErrorString());
}

class ErrorDebug : public testing::Test {
protected:
    void SetUp() override {
        init();
        setErrorDebug(true);
    }
    void TearDown() override {
        setErrorDebug(false);
        fini();
    }
};

TEST_F(ErrorDebug, PrintsEveryErrorAtErrorAndItsClearingAtDebug) {
    const LogFile log(LOG_DEBUG);
    setLastError(TCP_ERROR_STREAM_BUFFER, "100% %s of it");
    setLastError(TCP_ERROR_NO_ERROR, "x");
    EXPECT_TRUE(log.has("lastError (TCP_ERROR_STREAM_BUFFER)\n100% %s of it\n"));
    EXPECT_TRUE(log.has("lastError (TCP_ERROR_NO_ERROR)\nx\n"));
    EXPECT_THAT(log.text(), StartsWith("Error:"));
    EXPECT_THAT(log.text(), testing::HasSubstr("\nDebug:"));
}

TEST_F(ErrorDebug, DoesNotKnowCodesBeyondTheLast) {
    const LogFile log(LOG_ERROR);
    setLastError(static_cast<TCPError>(18), "left out");
    setLastError(TCP_ERROR_SYSTEM_ERROR, "the last");
    EXPECT_TRUE(log.has("lastError (?"
                        "?)\n\n"));
    EXPECT_TRUE(log.has("lastError (TCP_ERROR_SYSTEM_ERROR)\nthe last\n"));
    EXPECT_EQ("the last", lastErrorString());
}

TEST(SystemErrors, AreFoundByTheirNumber) {
    const std::pair<int, const char *> cases[] = {
        {6, "Specified event object handle is invalid.\n\t"},
        {10035, "Resource temporarily unavailable.\n\t"},
        {11031, "Reserved policy QoS element type.\n\t"},
    };
    for (const auto &[code, headline] : cases)
        EXPECT_THAT(sysErrorString(code), StartsWith(headline));
    for (const int code : {0, 4, 10000, 11032, -1})
        EXPECT_STREQ("Unknown Error", sysErrorString(code)) << code;
}

TEST(SystemErrors, ShowTheLikeNamedRowForPlainNumbersInAContext) {
    const std::pair<int, int> cases[] = {{4, 10004},  {9, 10009},     {12, 8}, {22, 10022},
                                         {24, 10024}, {10054, 10054}, {0, 0},  {124, 124}};
    for (const auto &[plain, row] : cases) {
        const std::string text = "what\n" + std::string(sysErrorString(row));
        EXPECT_EQ(text, withSystemText("what", plain).text());
        platform::setSocketError(plain);
        EXPECT_EQ(text, withSystemText("what").text());
    }
}

// ---- The log ----

class Log : public Library {};

// Logs at Debug.
void logHere(int &built) {
    const auto build = [&built] {
        built++;
        return std::string("100%n of it");
    };
    VINTOK_LOG(SEVERITY_DEBUG, build());
}

TEST_F(Log, AnEntryIsALineOfWhoAndWhenAndTheMessageBetweenBraces) {
    const LogFile log(LOG_INFO);
    EXPECT_TRUE(logMessage("two\nlines\n", SEVERITY_INFO));
    const std::string who = formatText("Info: \\[ %u -- %lu \\] ", platform::currentProcessId(),
                                       static_cast<unsigned long>(platform::currentThreadId()));
    const std::string when = " - \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d - ";
    EXPECT_TRUE(std::regex_match(log.text(), std::regex(who + when + "\n\\{\ntwo\nlines\n\n\\}\n")))
        << log.text();
}

TEST_F(Log, SeverityAgainstLevelDecidesAndNamesTheEntry) {
    struct Case {
        std::uint32_t severity;
        LogLevel level;
        const char *prefix; // empty: not written
    };
    const Case cases[] = {
        {SEVERITY_FATAL, LOG_FATAL, "ERROR:"},
        {SEVERITY_ERROR, LOG_ERROR, "Error:"},
        {SEVERITY_INFO, LOG_WARNING, ""},
        {SEVERITY_TRACE, LOG_DEBUG, ""},
        {SEVERITY_TRACE, LOG_TRACE, "trace:"},
        {3, LOG_FATAL, "log:"},
        {0, LOG_TRACE, ""},
    };
    for (const Case &each : cases) {
        const LogFile log(each.level);
        const bool written = logMessage("m", static_cast<ErrSeverity>(each.severity));
        EXPECT_EQ(*each.prefix != '\0', written) << each.severity << " at " << each.level;
        EXPECT_EQ(each.prefix, log.text().substr(0, log.text().find(' ')));
    }
    EXPECT_FALSE(logMessage(nullptr, SEVERITY_FATAL));
}

TEST_F(Log, BeforeInitErrorsGoToStandardError) {
    fini();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(logMessage("seen", SEVERITY_ERROR));
    EXPECT_FALSE(logMessage("unseen", SEVERITY_WARNING));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("\n{\nseen\n}\n"));
    init();
}

TEST_F(Log, AFileThatCannotBeOpenedCostsNoEntry) {
    const auto path = std::filesystem::temp_directory_path() / "no such folder" / "log";
    setLogLevel(LOG_ERROR);
    EXPECT_FALSE(setLogFileName(path.string())) << "the result says nothing";
    testing::internal::CaptureStderr();
    EXPECT_TRUE(logMessage("first", SEVERITY_ERROR));
    EXPECT_TRUE(logMessage("second", SEVERITY_ERROR));
    const std::string errors = testing::internal::GetCapturedStderr();
    const std::string trouble = "logMessage: error opening log file" + path.string() + ": ";
    EXPECT_EQ(2, occurrences(errors, trouble)) << "once for each entry: " << errors;
    EXPECT_THAT(errors, HasSubstr("\n{\nfirst\n}\n"));
    EXPECT_THAT(errors, HasSubstr("\n{\nsecond\n}\n"));
    setLogFileName("");
}

TEST_F(Log, TheMessageIsBuiltOnlyForALevelThatTakesIt) {
    int built = 0;
    {
        const LogFile log(LOG_INFO);
        logHere(built);
        EXPECT_EQ(0, built);
        EXPECT_EQ("", log.text());
    }
    const LogFile log(LOG_DEBUG);
    logHere(built);
    EXPECT_EQ(1, built);
    EXPECT_TRUE(log.has("100%n of it"));
}

TEST_F(Log, TraceAddsThePlaceToErrorsOfTheLibrary) {
    const LogFile log(LOG_TRACE);
    ASSERT_FALSE(setSecure(-1, true));
    EXPECT_THAT(lastErrorString(),
                testing::MatchesRegex("src/vintok/TCPStreamDescriptors.cpp: .* -- < "
                                      "vintok::setSecure >vintok::setSecure"));
    // An operation that reports in the name of another is still found by its own.
    unsigned char byte = 0;
    EXPECT_EQ(-1, peekBytes(99999, &byte, 1));
    EXPECT_THAT(lastErrorString(), testing::EndsWith(" -- < vintok::peekBytes >vintok::readBytes"));
}

TEST_F(Log, EntriesOfThreadsDoNotMix) {
    const LogFile log(LOG_INFO);
    constexpr int perThread = 50;
    const std::string message(500, 'x');
    onThreads(4, [&] {
        for (int n = 0; n < perThread; n++)
            logMessage(message.c_str(), SEVERITY_INFO);
    });
    EXPECT_EQ(4 * perThread, log.entries(message));
}

TEST(FunctionNames, AreCutOutOfWhatCompilersPrint) {
    const std::pair<const char *, const char *> cases[] = {
        {"bool vintok::init()", "vintok::init"},
        {"bool vintok::{anonymous}::startUp()", "vintok::startUp"},
        {"bool vintok::(anonymous namespace)::startUp()", "vintok::startUp"},
        {"std::map<int, std::pair<int, int> > vintok::f(std::string (&)(int))", "vintok::f"},
        {"vintok::addTime(int64_t)::<lambda()>", "vintok::addTime"},
    };
    for (const auto &[signature, name] : cases)
        EXPECT_EQ(name, qualifiedName(signature));
}

} // namespace
