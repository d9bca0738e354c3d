#include "platform/TestSockets.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include <gtest/gtest.h>

using vintok::test::ChildProcess;

namespace {

bool existsInProcessTable(unsigned int id) {
    std::error_code error;
    return std::filesystem::exists("/proc/" + std::to_string(id), error);
}

TEST(Process, TalksThroughPipesAndTellsItsExitCode) {
    ChildProcess child({VINTOK_TEST_CHILD, "echo"});
    ASSERT_TRUE(child.printed("ready"));
    EXPECT_TRUE(child.type("one"));
    EXPECT_TRUE(child.printed("heard one"));
    EXPECT_EQ(-1, child.exitCode(0)) << "it still runs";
    child.endInput();
    EXPECT_TRUE(child.printed("end of input"));
    EXPECT_TRUE(child.complained("bye"));
    EXPECT_EQ(7, child.exitCode());
    EXPECT_FALSE(child.type("two")) << "nobody reads any more";
}

TEST(Process, ArgumentsArriveAsTheyWereGiven) {
    const std::vector<std::string> given = {
        "plain",       "",           "two words",         "a\"quote",
        "back\\slash", "ends in \\", "\\\\\"both\" \\\\", "tab\there"};
    std::vector<std::string> command = {VINTOK_TEST_CHILD, "arguments"};
    command.insert(command.end(), given.begin(), given.end());
    ChildProcess child(command);
    for (const std::string &argument : given) {
        std::string line;
        ASSERT_TRUE(child.printed("[", &line));
        EXPECT_EQ("[" + argument + "]", line);
    }
    EXPECT_EQ(0, child.exitCode());
}

TEST(Process, EnvironmentIsOursWithChanges) {
    const std::pair<ChildProcess::Environment, const char *> cases[] = {
        {{{"VINTOK_TEST_WORD", "new value"}}, "VINTOK_TEST_WORD=new value"},
        {{{"VINTOK_TEST_WORD", std::nullopt}}, "VINTOK_TEST_WORD is not set"},
    };
    for (const auto &[changes, expected] : cases) {
        ChildProcess child({VINTOK_TEST_CHILD, "variable", "VINTOK_TEST_WORD"}, changes);
        EXPECT_TRUE(child.printed(expected));
    }
    ChildProcess inheriting({VINTOK_TEST_CHILD, "variable", "PATH"}, {{"OTHER", "x"}});
    EXPECT_TRUE(inheriting.printed("PATH="));
}

TEST(Process, AChildWithAConsoleOfItsOwnRuns) {
    const vintok::test::TemporaryFolder folder;
    vintok::platform::ProcessStart start;
    start.arguments = {VINTOK_TEST_CHILD, "write", folder.path("told"), "a", "b c"};
    start.commandLine =
        "\"" VINTOK_TEST_CHILD "\" write \"" + folder.path("told") + "\" \"a\" \"b c\"";
    start.ownConsole = {132, 9, 2, false};
    start.raisedPriority = true;
    vintok::platform::Process child;
    std::string failure;
    ASSERT_TRUE(vintok::platform::startProcess(start, child, failure)) << failure;
    EXPECT_TRUE(vintok::platform::waitProcess(child, ChildProcess::patienceMs));
    EXPECT_EQ(0, child.exitCode);
    vintok::platform::closeProcess(child);
    EXPECT_EQ("[a][b c]", folder.content("told"));
}

TEST(Process, AProgramThatIsNotThereIsAFailureWithAReason) {
    ChildProcess child({"/nowhere/no-such-program"});
    EXPECT_FALSE(child.started());
    EXPECT_EQ(-1, child.exitCode(0));
    EXPECT_FALSE(child.printed("anything"));
    EXPECT_NE(std::string::npos, child.story().find("was not started: ")) << child.story();
}

TEST(Process, MuchOutputDoesNotStopTheChild) {
    ChildProcess child({VINTOK_TEST_CHILD, "flood"});
    EXPECT_EQ(0, child.exitCode());
    EXPECT_TRUE(child.printed("line 19999 of"));
}

TEST(Process, AKilledChildLeavesNothingInTheProcessTable) {
    ChildProcess child({VINTOK_TEST_CHILD, "echo"});
    ASSERT_TRUE(child.printed("ready"));
    const bool visible = existsInProcessTable(child.id());
    child.kill();
    EXPECT_GT(child.exitCode(0), 0) << "ended, and not of its own will";
    if (!visible) {
        GTEST_SKIP() << "this system does not show its process table";
    }
    EXPECT_FALSE(existsInProcessTable(child.id()));
}

// A child that gets the writing end of another's input keeps that other one waiting for ever.
TEST(Process, AChildDoesNotInheritThePipesOfAnother) {
    ChildProcess first({VINTOK_TEST_CHILD, "echo"});
    ASSERT_TRUE(first.printed("ready"));
    ChildProcess second({VINTOK_TEST_CHILD, "echo"});
    ASSERT_TRUE(second.printed("ready"));
    first.endInput();
    EXPECT_TRUE(first.printed("end of input"));
    EXPECT_EQ(7, first.exitCode());
}

TEST(Process, AChildInheritsNoFileThatWeHaveOpen) {
    std::vector<std::unique_ptr<std::FILE, int (*)(std::FILE *)>> files;
    std::vector<std::string> command = {VINTOK_TEST_CHILD, "files"};
    for (int i = 0; i < 5; ++i) {
        files.emplace_back(std::tmpfile(), std::fclose);
        ASSERT_NE(nullptr, files.back());
        const std::intptr_t number = vintok::platform::fileNumber(files.back().get());
        EXPECT_TRUE(vintok::platform::isOpenFile(number));
        command.push_back(std::to_string(number));
    }
    ChildProcess child(command);
    EXPECT_TRUE(child.printed("has 0 of 5"));
}

TEST(Process, AnInterruptEndsAChildThatDoesNotMind) {
    ChildProcess child({VINTOK_TEST_CHILD, "echo"});
    ASSERT_TRUE(child.printed("ready"));
    if (!child.interrupt()) {
        GTEST_SKIP() << "no console to send an interrupt through";
    }
    EXPECT_GT(child.exitCode(), 0) << child.story();
}

} // namespace
