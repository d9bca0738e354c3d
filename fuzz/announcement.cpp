// The bodies that the program broadcasts: around a file, and what somebody says. What is read is
// told as the same bytes.
#include "Fuzz.h"

#include "FileAnnouncement.h"
#include "Saying.h"
#include "Text.h"

using namespace app;
using vintok::fuzz::require;

namespace {

template <class Body>
void roundTrip(std::string_view body, bool (*decode)(std::string_view, Body &),
               std::string (*encode)(const Body &)) {
    Body decoded;
    if (!decode(body, decoded))
        return;
    Body again;
    const std::string encoded = encode(decoded);
    require(decode(encoded, again), "what is told can be read");
    require(encode(again) == encoded, "as the same");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view body = vintok::fuzz::textOf(data, size);
    roundTrip(body, decodeAnnouncement, encodeAnnouncement);
    roundTrip(body, decodeClosing, encodeClosing);
    roundTrip(body, decodeTurn, encodeTurn);
    roundTrip(body, decodeSaying, encodeSaying);
    const std::string shown = printable(body, 100);
    for (std::size_t at = 0; at < shown.size();) {
        const char32_t character = nextCharacter(shown, at);
        require(character != malformedCharacter && !isHostileToTerminals(character),
                "what is shown is harmless");
    }
    return 0;
}
