// Recordings: what a file gives back, where a damaged one stops making sense, and when each message
// of one is due.
#include "Player.h"
#include "RecordWriter.h"
#include "support/KnownMessage.h"
#include "support/TemporaryFolder.h"

#include <cstring>
#include <limits>

namespace app {
namespace {

using testing::HasSubstr;
using vintok::test::hex;
using vintok::test::longFrame;
using vintok::test::shortFrame;
using namespace std::chrono_literals;
using Result = RecordReader::Result;

std::string bytesOf(const char *frame) {
    const vintok::test::Bytes bytes = hex(frame);
    return std::string(bytes.begin(), bytes.end());
}

// A broadcast message of that time; the body is one letter.
std::string said(std::int64_t stamp, char letter) {
    vintok::TCPMessage message;
    message.setMessageID(vintok::TCP_broadcastMessage);
    message.allocateMessageBuffer(1);
    message.setTimeStamp(stamp);
    *message.messageBuffer() = static_cast<unsigned char>(letter);
    return std::string(message.rawBuffer(), message.rawBuffer() + message.rawBufferLength());
}

class Recording : public testing::Test {
protected:
    std::FILE *holding(std::string_view content) {
        m_file.reset(std::fopen(folder.holding("recording", content).c_str(), "rb"));
        return m_file.get();
    }

    vintok::test::TemporaryFolder folder;

private:
    File m_file;
};

TEST_F(Recording, CutShortIsDamagedWhereTheLastMessageBegins) {
    const std::string whole = bytesOf(shortFrame) + bytesOf(longFrame);
    for (std::size_t cut = 39; cut < whole.size(); ++cut) {
        RecordReader reader(holding(whole.substr(0, cut)));
        vintok::TCPMessage message;
        ASSERT_EQ(Result::record, reader.next(message)) << cut;
        for (int again = 0; again < 2; ++again) {
            ASSERT_EQ(Result::damaged, reader.next(message)) << cut;
            EXPECT_EQ(38u, reader.offset());
            EXPECT_EQ("the file ends after " + std::to_string(cut - 38) + " of " +
                          (cut < 42 ? "4" : "62") + " bytes",
                      reader.fault());
        }
    }
}

TEST_F(Recording, ThatIsNoneIsDamaged) {
    const std::pair<std::string, const char *> cases[] = {
        {bytesOf("00000023"), "cannot have a length of 35 bytes"},
        {bytesOf("00000024 0002 0000") + std::string(28, '\0'), "no header of a message"},
        {bytesOf("ffffffff 0002 0000") + std::string(100, 'x'), "after 108 of 4294967295 bytes"},
        {"This is a text.", "after 15 of"},
    };
    for (const auto &[content, fault] : cases) {
        RecordReader reader(holding(content));
        vintok::TCPMessage message;
        EXPECT_EQ(Result::damaged, reader.next(message)) << fault;
        EXPECT_EQ(0u, reader.offset());
        EXPECT_THAT(reader.fault(), HasSubstr(fault));
    }
}

TEST_F(Recording, HoldsWhatWasWrittenAtOnce) {
    RecordWriter writer;
    EXPECT_FALSE(writer.open(folder.path("no such folder/file")));
    EXPECT_FALSE(writer.open(folder.holding("precious", "text")));
    EXPECT_EQ("text", folder.content("precious"));
    ASSERT_TRUE(writer.open(folder.holding("written", "")));
    for (const std::string body : {"one", "two"}) {
        ASSERT_TRUE(
            writer.broadcast(reinterpret_cast<const unsigned char *>(body.data()), body.size()));
    }
    Player player(holding(folder.content("written")), std::numeric_limits<double>::infinity());
    for (const char *body : {"one", "two"}) {
        ASSERT_EQ(Player::State::ready, player.look({}));
        EXPECT_EQ(0, std::memcmp(player.message().messageBuffer(), body, 3));
        EXPECT_EQ(4, player.message().messageMajorVersion());
        player.taken();
    }
    EXPECT_EQ(Player::State::end, player.look({}));
}

// What is due at which time of a clock that the test turns.
TEST_F(Recording, IsPlayedInItsOwnSpacing) {
    const std::string content =
        said(100, 'a') + bytesOf(longFrame) + said(110, 'b') + said(90, 'c') + said(95, 'd');
    const struct {
        double speed;
        std::chrono::milliseconds due[4];
    } cases[] = {
        {4, {0ms, 2500ms, 2500ms, 3750ms}}, // going back costs no time
        {std::numeric_limits<double>::infinity(), {0ms, 0ms, 0ms, 0ms}},
    };
    for (const auto &one : cases) {
        Player player(holding(content), one.speed);
        const Pacing::TimePoint start(5s);
        Pacing::TimePoint now = start;
        for (std::size_t i = 0; i < 4; ++i) {
            if (player.look(now) == Player::State::waiting) {
                EXPECT_EQ(one.due[i], player.due() - start) << one.speed;
                EXPECT_EQ(Player::State::waiting, player.look(player.due() - 1ms));
                now = player.due();
            }
            EXPECT_EQ(one.due[i], now - start) << one.speed;
            ASSERT_EQ(Player::State::ready, player.look(now));
            EXPECT_EQ('a' + static_cast<int>(i), player.message().messageBuffer()[0]);
            player.taken();
        }
        EXPECT_EQ(Player::State::end, player.look(now));
        EXPECT_EQ(4u, player.played());
        EXPECT_EQ(1u, player.skipped()) << "no broadcast";
    }
}

TEST_F(Recording, WaitsWhileItIsPaused) {
    Player player(holding(said(0, 'a') + said(10, 'b')), 1);
    const Pacing::TimePoint start(5s);
    EXPECT_EQ(Player::State::ready, player.look(start));
    player.taken();
    EXPECT_EQ(Player::State::waiting, player.look(start));
    player.pause(start + 2s);
    EXPECT_EQ(Player::State::waiting, player.look(start + 100s));
    player.resume(start + 102s);
    EXPECT_EQ(start + 110s, player.due()) << "8 seconds were left";
}

TEST_F(Recording, WithInsaneTimesIsStillPlayed) {
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    std::string content;
    for (int i = 0; i < 200; ++i)
        content += said(least, 'a') + said(most, 'b');
    Player player(holding(content + "??"), 0.001);
    Pacing::TimePoint now(5s);
    Player::State state = Player::State::ready;
    while ((state = player.look(now)) != Player::State::damaged) {
        ASSERT_GE(player.due(), now);
        now = player.due();
        ASSERT_EQ(Player::State::ready, player.look(now));
        player.taken();
    }
    EXPECT_EQ(400u, player.played());
    EXPECT_THAT(player.reader().fault(), HasSubstr("after 2 of 4 bytes"));
}

} // namespace
} // namespace app
