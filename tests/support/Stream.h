// What tests of the stream functions do all the time: start the library, move texts, and look at
// the last error.
#ifndef VINTOK_TESTS_SUPPORT_STREAM_H
#define VINTOK_TESTS_SUPPORT_STREAM_H

#include "support/Matchers.h"
#include "vintok/TCPStream.h"

#include <string>

namespace vintok::test {

inline constexpr int unknownDescriptor = 54321;

inline const unsigned char *bytesOf(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

inline std::int64_t writes(int fd, const std::string &text) {
    return writeBytes(fd, bytesOf(text), text.size(), nullptr);
}

// What `take`, a `readBytes` or a `peekBytes`, gives of so many bytes.
template <typename Take>
std::string taken(std::size_t length, Take take) {
    std::string text(length, '\0');
    const std::int64_t count = take(reinterpret_cast<unsigned char *>(text.data()));
    return text.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
}

inline std::string reads(int fd, std::size_t length) {
    return taken(length, [&](auto *bytes) { return readBytes(fd, bytes, length, nullptr); });
}

inline std::string peeks(int fd, std::size_t length) {
    return taken(length, [&](auto *bytes) { return peekBytes(fd, bytes, length); });
}

inline void forgetError() {
    setLastError(TCP_ERROR_NO_ERROR, "untouched");
}

// The last error is this one, and is forgotten.
inline void expectError(TCPError code, const testing::Matcher<std::string> &text) {
    EXPECT_EQ(code, lastError());
    EXPECT_THAT(lastErrorString(), text);
    forgetError();
}

inline void expectNoError() {
    EXPECT_EQ("untouched", lastErrorString());
}

// The library is started, and has reported nothing yet.
class Library : public testing::Test {
protected:
    Library() {
        init();
        forgetError();
    }
    ~Library() override { fini(); }
};

} // namespace vintok::test

#endif
