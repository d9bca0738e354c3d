#include "platform/TestSockets.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <cstdio>
#include <memory>

#include <gtest/gtest.h>

using vintok::test::ChildProcess;

namespace {

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

} // namespace
