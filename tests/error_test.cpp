#include "platform/Socket.h"
#include "platform/Thread.h"
#include "support/LogFile.h"
#include "vintok/Globals.h"
#include "vintok/TCPException.h"

#include <atomic>
#include <cstdlib>
#include <gmock/gmock.h>
#include <new>
#include <thread>

using namespace vintok;
using namespace vintok::test;
using testing::StartsWith;

namespace {

std::atomic<int> allocations{0};

} // namespace

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    allocations++;
    return std::malloc(size);
}

void *operator new(std::size_t size) {
    void *memory = operator new(size, std::nothrow);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void *memory) noexcept {
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept {
    std::free(memory);
}

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

TEST(LastError, CanBeReadAfterTheLastFini) {
    init();
    setLastError(TCP_ERROR_INTERRUPT, "kept");
    fini();
    setLastError(TCP_ERROR_CORRUPT_HEADER, "later");
    EXPECT_EQ("later", lastErrorString());
}

TEST(LastError, CanBeUsedWhileTheThreadEnds) {
    struct Late {
        bool stored = false;
        TCPError code = TCP_ERROR_NO_ERROR;
        std::string text;
    } late;
    // Made after the error's own slot, so its turn comes after that.
    setLastError(TCP_ERROR_NO_ERROR, "");
    platform::ThreadSlot slot([](void *value) {
        auto *user = static_cast<Late *>(value);
        user->stored = setLastError(TCP_ERROR_INTERRUPT, "late");
        user->code = lastError();
        user->text = lastErrorString();
    });
    std::thread([&] {
        setLastError(TCP_ERROR_WOULD_BLOCK, "in time");
        ASSERT_TRUE(slot.set(&late));
    }).join();
    slot.release();
    EXPECT_TRUE(late.stored);
    EXPECT_EQ(TCP_ERROR_INTERRUPT, late.code);
    EXPECT_EQ("late", late.text);
}

TEST(LastError, KeepsLiteralsWithoutMemoryAndCopiesWhatWasBuilt) {
    setLastError(TCP_ERROR_NO_ERROR, ""); // makes the record
    const int before = allocations;
    VINTOK_ERROR(TCP_ERROR_WOULD_BLOCK, withSystemText("an operation of the library", 10035));
    EXPECT_EQ(before, allocations);
    EXPECT_EQ("an operation of the library\n" + std::string(sysErrorString(10035)),
              lastErrorString());

    std::string built = "a text that somebody has built";
    VINTOK_ERROR(TCP_ERROR_SYSTEM_ERROR, withSystemText(built, 10054));
    built = "and changed";
    EXPECT_EQ("a text that somebody has built\n" + std::string(sysErrorString(10054)),
              lastErrorString());
    VINTOK_ERROR(TCP_ERROR_SYSTEM_ERROR, built);
    EXPECT_EQ("and changed", lastErrorString()) << "nothing of the one before";
    VINTOK_ERROR(TCP_ERROR_SYSTEM_ERROR, "literal");
    EXPECT_EQ("literal", lastErrorString());
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

TEST_F(ErrorDebug, IsSilentWhereTheLevelIs) {
    const LogFile log(LOG_FATAL);
    setLastError(TCP_ERROR_STREAM_BUFFER, "quiet");
    EXPECT_EQ("", log.text());
}

TEST(SystemErrors, HaveNinetyFiveRowsOfHeadlineAndExplanation) {
    int rows = 0;
    for (int code = -10; code < 12000; code++) {
        const std::string text = sysErrorString(code);
        if (text == "Unknown Error")
            continue;
        rows++;
        EXPECT_EQ('\n', text.back()) << code;
        // Every line but the headline is indented, and there is at least one.
        const std::size_t headline = text.find('\n');
        ASSERT_LT(headline, text.size() - 1) << code;
        for (std::size_t at = headline; at + 1 < text.size(); at = text.find('\n', at + 1))
            EXPECT_EQ('\t', text[at + 1]) << code << text;
    }
    EXPECT_EQ(95, rows);
}

TEST(SystemErrors, AreFoundByTheirNumber) {
    const std::pair<int, const char *> cases[] = {
        {6, "Specified event object handle is invalid.\n"},
        {10022, "Invalid argument.\n"},
        {10035, "Resource temporarily unavailable.\n"},
        {10112, "Database query was refused.\n"},
        {11031, "Reserved policy QoS element type.\n"},
    };
    for (const auto &[code, headline] : cases)
        EXPECT_THAT(sysErrorString(code), StartsWith(headline));
    EXPECT_THAT(
        sysErrorString(10054),
        StartsWith("Connection reset by peer.\n\tAn existing connection was forcibly closed "
                   "by the remote host. This normally results if\n\tthe peer application"));
    for (const int code : {0, 4, 9, 12, 22, 24, 121, 10000, 11032, -1})
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

TEST(Exceptions, SayWhoseTheyAre) {
    const TCPException first;
    TCPException second(first);
    second = first;
    try {
        throw TCPException(second);
    } catch (const std::exception &caught) {
        EXPECT_STREQ("vintok::TCPException", caught.what());
    }
}

} // namespace
