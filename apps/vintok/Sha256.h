// The SHA-256 of files (FIPS 180-4), by which two people can compare what one sent and the other
// got.
#ifndef VINTOK_APP_SHA256_H
#define VINTOK_APP_SHA256_H

#include <cstdint>
#include <string>
#include <string_view>

namespace app {

// What there is of a file: bytes, and their SHA-256 in hexadecimal, lower case.
struct FileSum {
    std::uint64_t size = 0;
    std::string sha256;

    bool operator==(const FileSum &other) const = default;
};

// Reads the file once, a block at a time, which takes a while for a big one. False when it cannot
// be read to its end; `errno` then says why.
bool sumFile(const std::string &path, FileSum &sum);

// Whether a text is one that `sumFile` may have made.
bool isSha256(std::string_view text);

} // namespace app

#endif
