// The one way to take a string out of a record that a stranger sent.
#ifndef VINTOK_WIRETEXT_H
#define VINTOK_WIRETEXT_H

#include "vintok/BufferManager.h"

#include <cstdint>
#include <string>

namespace vintok {

// As `BufferManager::read`, which believes the length it finds: it throws at 0 and allocates
// whatever is claimed. Here such a length, and one of more than remains, gives 0 with the text
// empty and the cursor where it was.
inline std::uint64_t readText(BufferManager &cursor, std::string &text) {
    text.clear();
    BufferManager ahead(cursor);
    std::uint32_t length = 0;
    if (ahead.read(length) == 0 || length == 0 || length > ahead.bufferLength() - ahead.tell())
        return 0;
    return cursor.read(text);
}

} // namespace vintok

#endif
