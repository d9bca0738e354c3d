// What a sender broadcasts around a file, since the library's own messages tell neither its size in
// advance nor its checksum. Both have a head (BodyHead.h). Before the file:
//
//     file 1\n
//     <address> <port>\n
//     <name>\n               as it is to be stored
//     <size> <sha256>        bytes, in decimal; SHA-256 in hexadecimal, lower case
//
// and behind it, or instead of it when the sender has let another one go first:
//
//     file-end 1\n
//     <address> <port>\n
//     sent | withdrawn
#ifndef VINTOK_APP_FILEANNOUNCEMENT_H
#define VINTOK_APP_FILEANNOUNCEMENT_H

#include "BodyHead.h"
#include "Sha256.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace app {

// What the library can send.
inline constexpr std::uint64_t MAX_FILE_SIZE = 0x7FFFFFFF;
// What a receiver takes; a longer name makes an announcement unreadable.
inline constexpr std::size_t MAX_FILE_NAME = 1023;

struct FileAnnouncement {
    Place place;
    std::string name;
    FileSum sum;
};

struct FileClosing {
    Place place;
    bool sent = false;
};

// Both decoders are false, with the result as it was, for a body of any other form.
std::string encodeAnnouncement(const FileAnnouncement &announcement);
bool decodeAnnouncement(std::string_view body, FileAnnouncement &announcement);
std::string encodeClosing(const FileClosing &closing);
bool decodeClosing(std::string_view body, FileClosing &closing);

} // namespace app

#endif
