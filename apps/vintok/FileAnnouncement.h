// What a sender broadcasts around a file, since the library's own messages tell neither its size in
// advance nor its checksum. All have a head (BodyHead.h). Before the file:
//
//     file 1\n
//     <address> <port>\n
//     <name>\n               as it is to be stored
//     <size> <sha256>        bytes, in decimal; SHA-256 in hexadecimal, lower case
//
// which the host of the meeting answers, unless the file is its own:
//
//     file-turn 1\n
//     <address> <port>\n     of the host
//     <address> <port>\n     of the party that may send, or may not
//     yes | no
//
// and behind the file, or instead of it when it does not come:
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
inline constexpr std::uint64_t maxFileSize = 0x7FFFFFFF;
// What a receiver takes; a longer name makes an announcement unreadable.
inline constexpr std::size_t maxFileName = 1023;

struct FileAnnouncement {
    Place place;
    std::string name;
    FileSum sum;
};

struct FileClosing {
    Place place;
    bool sent = false;
};

struct FileTurn {
    Place place;
    Place whose;
    bool yes = false;
};

// The decoders are false, with the result as it was, for a body of any other form.
std::string encodeAnnouncement(const FileAnnouncement &announcement);
bool decodeAnnouncement(std::string_view body, FileAnnouncement &announcement);
std::string encodeClosing(const FileClosing &closing);
bool decodeClosing(std::string_view body, FileClosing &closing);
std::string encodeTurn(const FileTurn &turn);
bool decodeTurn(std::string_view body, FileTurn &turn);

} // namespace app

#endif
