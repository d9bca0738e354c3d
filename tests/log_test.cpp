#include "platform/Thread.h"
#include "support/LogFile.h"
#include "support/Stream.h"
#include "support/Threads.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMessage.h"

#include <filesystem>
#include <functional>
#include <regex>

using namespace vintok;
using namespace vintok::test;
using testing::HasSubstr;

namespace {

class Log : public Library {};

// Logs at Debug, and returns the line.
unsigned logHere(int &built) {
    const auto build = [&built] {
        built++;
        return std::string("100%n of it");
    };
    const unsigned line = __LINE__ + 1;
    VINTOK_LOG(SEVERITY_DEBUG, build());
    return line;
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
        {SEVERITY_ERROR, LOG_FATAL, ""},
        {SEVERITY_ERROR, LOG_ERROR, "Error:"},
        {SEVERITY_WARNING, LOG_WARNING, "Warning:"},
        {SEVERITY_INFO, LOG_WARNING, ""},
        {SEVERITY_INFO, LOG_INFO, "Info:"},
        {SEVERITY_DEBUG, LOG_DEBUG, "Debug:"},
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

TEST_F(Log, TheFileCanBeTakenAwayBetweenEntries) {
    const LogFile log(LOG_ERROR);
    logMessage("first", SEVERITY_ERROR);
    const Globals *globals = s_globals;
    ASSERT_TRUE(std::filesystem::remove(globals->m_logFileName));
    logMessage("second", SEVERITY_ERROR);
    EXPECT_FALSE(log.has("first"));
    EXPECT_TRUE(log.has("second"));
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

TEST_F(Log, TraceAddsThePlace) {
    int built = 0;
    const LogFile log(LOG_TRACE);
    const unsigned line = logHere(built);
    EXPECT_TRUE(log.has(formatText("tests/log_test.cpp:  %u  -- 100%%n of it< logHere >\n", line)))
        << log.text();
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
    // And so is one whose helpers report.
    TCPMessage message;
    const std::pair<std::function<void()>, const char *> rows[] = {
        {[&] { message.read(99999, nullptr); }, "vintok::TCPMessageBase::read"},
        {[&] { message.write(99999, nullptr); }, "vintok::TCPMessageBase::write"},
        {[&] { message.read(nullptr); }, "vintok::TCPMessageBase::read"},
        {[] { init(), fini(); }, "vintok::fini"},
    };
    for (const auto &[operation, name] : rows) {
        operation();
        EXPECT_THAT(lastErrorString(), HasSubstr(" -- < " + std::string(name) + " >"));
    }
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
        {"vintok::TCPMutex::TCPMutex(int)", "vintok::TCPMutex::TCPMutex"},
        {"bool vintok::{anonymous}::startUp()", "vintok::startUp"},
        {"bool vintok::(anonymous namespace)::startUp()", "vintok::startUp"},
        {"unsigned char *vintok::TCPHeader::rawBuffer() const", "vintok::TCPHeader::rawBuffer"},
        {"std::map<int, std::pair<int, int> > vintok::f(std::string (&)(int))", "vintok::f"},
        {"vintok::addTime(int64_t)::<lambda()>", "vintok::addTime"},
        {"addTime", "vintok::addTime"},
    };
    for (const auto &[signature, name] : cases)
        EXPECT_EQ(name, qualifiedName(signature));
}

TEST(FormattedText, HasAnyLength) {
    const std::string longText(5000, 'y');
    EXPECT_EQ(longText + " 7", formatText("%s %zu", longText.c_str(), std::size_t{7}));
    EXPECT_EQ("", formatText("%s", ""));
}

} // namespace
