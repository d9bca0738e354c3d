#include "Palette.h"

#include "Person.h"

#include <iterator>

namespace app {

namespace {

const Colour colours[] = {
    {"red", 160},  {"green", 34},  {"blue", 33},   {"orange", 172}, {"purple", 134}, {"teal", 37},
    {"pink", 205}, {"olive", 142}, {"brown", 130}, {"violet", 99},  {"lime", 70},    {"grey", 245},
};

const Colour none = {"no colour", 245};

} // namespace

const Colour &colourOf(unsigned short index) {
    return index == noColour ? none : colours[index % std::size(colours)];
}

std::string colourText(unsigned short index) {
    std::string text = colourOf(index).name;
    return index == noColour ? text : text + " (" + std::to_string(index) + ')';
}

std::string coloured(const std::string &text, unsigned short index) {
    return "\x1b[38;5;" + std::to_string(colourOf(index).code) + 'm' + text + "\x1b[0m";
}

} // namespace app
