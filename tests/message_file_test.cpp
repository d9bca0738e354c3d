// Messages in files: records back to back, and every way in which one can be cut short or be none.

#include "support/KnownMessage.h"
#include "support/Stream.h"
#include "support/TemporaryFolder.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPMessage_1_3.h"

#include <cerrno>
#include <cstdio>
#include <memory>

namespace vintok {

using test::Bytes;
using test::expectError;
using test::hex;
using test::longFrame;
using test::makeKnown;
using test::shortFrame;

namespace {

class File {
public:
    std::FILE *open(const char *mode) {
        m_stream.reset(std::fopen(m_folder.path("records").c_str(), mode));
        return m_stream.get();
    }
    std::FILE *holding(const Bytes &bytes) {
        m_folder.holding("records", std::string(bytes.begin(), bytes.end()));
        return open("rb");
    }
    Bytes bytes() const {
        const std::string content = m_folder.content("records");
        return {content.begin(), content.end()};
    }

private:
    struct Close {
        void operator()(std::FILE *stream) const { std::fclose(stream); }
    };
    const test::TemporaryFolder m_folder;
    std::unique_ptr<std::FILE, Close> m_stream;
};

class Records : public test::Library {
protected:
    File file;
    TCPMessage message;
};

} // namespace

TEST_F(Records, LieBackToBackInAFile) {
    makeKnown(message);
    TCPMessage_1_3 older;
    makeKnown(older);
    std::FILE *const out = file.open("wb");
    EXPECT_TRUE(message.write(out));
    EXPECT_TRUE(older.write(out));
    EXPECT_TRUE(message.write(out));
    std::fflush(out);
    Bytes expected = hex(longFrame);
    for (const char *frame : {shortFrame, longFrame}) {
        const Bytes bytes = hex(frame);
        expected.insert(expected.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(expected, file.bytes());

    std::FILE *const in = file.open("rb");
    for (const int version : {2, 1, 2}) {
        setLastError(TCP_ERROR_SYSTEM_ERROR, "of before");
        ASSERT_TRUE(message.read(in));
        EXPECT_EQ(version, message.majorVersion());
        EXPECT_EQ(2u, message.messageBufferLength());
        expectError(TCP_ERROR_NO_ERROR, "reading file");
    }
    EXPECT_FALSE(message.read(in));
    expectError(TCP_ERROR_CORRUPT_HEADER, "Failed to read header size");
}

TEST_F(Records, CutShortFailAtEveryLength) {
    const Bytes frame = hex(longFrame);
    for (std::size_t cut = 0; cut < frame.size(); ++cut) {
        std::FILE *const in = file.holding(test::cutAt(frame, cut));
        errno = EIO; // the end of a file leaves it as it is
        EXPECT_FALSE(message.read(in)) << cut;
        EXPECT_EQ(cut < 4 ? TCP_ERROR_CORRUPT_HEADER : TCP_ERROR_BAD_FILE_DESCRIPTOR, lastError())
            << cut;
    }
}

TEST_F(Records, FailByWhatTheSystemSaid) {
    const struct {
        int error;
        TCPError expected;
    } cases[] = {
        {EINTR, TCP_ERROR_INTERRUPT},           {EAGAIN, TCP_ERROR_WOULD_BLOCK},
        {EIO, TCP_ERROR_BAD_FILE_DESCRIPTOR},   {ENXIO, TCP_ERROR_BAD_FILE_DESCRIPTOR},
        {EBADF, TCP_ERROR_BAD_FILE_DESCRIPTOR}, {ENOMEM, TCP_ERROR_OUT_OF_MEMORY},
        {ENOSPC, TCP_ERROR_UNSPECIFIED_ERROR},
    };
    for (const auto &row : cases) {
        std::FILE *const in = file.holding(test::cutAt(hex(longFrame), 50));
        errno = row.error;
        EXPECT_FALSE(message.read(in)) << row.error;
        expectError(row.expected, "reading file");
    }
}

TEST_F(Records, ThatAreMalformedFail) {
    const struct {
        const char *bytes;
        TCPError error;
        const char *context;
    } cases[] = {
        {"00000000", TCP_ERROR_CORRUPT_HEADER, "size less than min header size"},
        {"00000023", TCP_ERROR_CORRUPT_HEADER, "size less than min header size"},
        // Long enough for the other form; nothing is said beyond the result.
        {"00000024 0002 0000 00000000 00000000 00000000 00000000 00000000 00000000 00000000",
         TCP_ERROR_NO_ERROR, "reading file"},
    };
    for (const auto &row : cases) {
        EXPECT_FALSE(message.read(file.holding(hex(row.bytes)))) << row.bytes;
        expectError(row.error, row.context);
    }
}

} // namespace vintok
