#include "Text.h"

#include <algorithm>
#include <cstdio>

namespace app {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

const Range hostileRanges[] = {
    {0x00, 0x1F},       // control characters, among them the escape that begins a sequence
    {0x7F, 0x9F},       // delete; the second set, whose U+009B begins a sequence too
    {0x061C, 0x061C},   // a direction mark
    {0x200E, 0x200F},   // two more
    {0x2028, 0x202E},   // line and paragraph separators, embeddings and overrides of direction
    {0x2066, 0x206F},   // isolates, and what they replaced
    {0xFEFF, 0xFEFF},   // byte order mark
    {0xFFF9, 0xFFFB},   // interlinear annotations
    {0xE0000, 0xE007F}, // tags
};

// By the first byte: which values the second one may have, so that overlong forms, surrogates and
// values above the last character are refused there, and how many bytes follow in all.
struct Sequence {
    unsigned char first;
    unsigned char last;
    unsigned char secondFrom;
    unsigned char secondTo;
    unsigned char following;
};

const Sequence sequences[] = {
    {0x00, 0x7F, 0x00, 0x00, 0}, {0xC2, 0xDF, 0x80, 0xBF, 1}, {0xE0, 0xE0, 0xA0, 0xBF, 2},
    {0xE1, 0xEC, 0x80, 0xBF, 2}, {0xED, 0xED, 0x80, 0x9F, 2}, {0xEE, 0xEF, 0x80, 0xBF, 2},
    {0xF0, 0xF0, 0x90, 0xBF, 3}, {0xF1, 0xF3, 0x80, 0xBF, 3}, {0xF4, 0xF4, 0x80, 0x8F, 3},
};

const Sequence *sequenceOf(unsigned char first) {
    for (const Sequence &sequence : sequences)
        if (first >= sequence.first && first <= sequence.last)
            return &sequence;
    return nullptr;
}

std::string escaped(char32_t character) {
    char text[16];
    const char *format = character < 0x100 ? "\\x%02x" : "\\u%04x";
    std::snprintf(text, sizeof(text), format, static_cast<unsigned int>(character));
    return text;
}

} // namespace

char32_t nextCharacter(std::string_view text, std::size_t &position) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char first = byte(position++);
    const Sequence *sequence = sequenceOf(first);
    if (!sequence)
        return malformedCharacter;
    if (sequence->following == 0)
        return first;
    char32_t character = first & (0x3Fu >> sequence->following);
    for (int i = 0; i < sequence->following; ++i) {
        const unsigned char from = i == 0 ? sequence->secondFrom : 0x80;
        const unsigned char to = i == 0 ? sequence->secondTo : 0xBF;
        if (position >= text.size() || byte(position) < from || byte(position) > to)
            return malformedCharacter;
        character = character << 6 | (byte(position++) & 0x3Fu);
    }
    return character;
}

bool isHostileToTerminals(char32_t character) {
    for (const Range &range : hostileRanges)
        if (character >= range.first && character <= range.last)
            return true;
    return false;
}

std::string printable(std::string_view text, std::size_t limit) {
    std::string result;
    std::size_t count = 0;
    for (std::size_t position = 0; position < text.size(); ++count) {
        if (count == limit)
            return result + "...";
        const std::size_t begin = position;
        const char32_t character = nextCharacter(text, position);
        if (character == malformedCharacter)
            for (std::size_t at = begin; at < position; ++at)
                result += escaped(static_cast<unsigned char>(text[at]));
        else if (isHostileToTerminals(character))
            result += escaped(character);
        else
            result.append(text.substr(begin, position - begin));
    }
    return result;
}

std::string_view trimmed(std::string_view text, std::string_view blanks) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char &c : result)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return result;
}

} // namespace app
