// The colours of a meeting. The meeting gives numbers; what they look like is for each screen to
// say.
#ifndef VINTOK_APP_PALETTE_H
#define VINTOK_APP_PALETTE_H

#include <string>

namespace app {

// Well apart on light and dark screens alike. There are more numbers than colours: they come round
// again.
struct Colour {
    const char *name;
    int code; // of the terminal's 256
};
const Colour &colourOf(unsigned short index);

// "green (2)", or "no colour".
std::string colourText(unsigned short index);

// `text` between the sequences that switch the colour on and off.
std::string coloured(const std::string &text, unsigned short index);

} // namespace app

#endif
