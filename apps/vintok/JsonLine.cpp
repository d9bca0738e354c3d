#include "JsonLine.h"

#include "Text.h"

#include <cstdio>

namespace app {

namespace {

std::string unit(unsigned int codeUnit) {
    char text[8];
    std::snprintf(text, sizeof(text), "\\u%04x", codeUnit);
    return text;
}

// Characters beyond the first plane are two code units in JSON's escapes.
std::string escaped(char32_t character) {
    if (character < 0x10000)
        return unit(character);
    const char32_t offset = character - 0x10000;
    return unit(0xD800 + (offset >> 10)) + unit(0xDC00 + (offset & 0x3FF));
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t begin = position;
        const char32_t character = nextCharacter(text, position);
        if (character == malformedCharacter) {
            result += "\\ufffd";
        } else if (character == '"' || character == '\\') {
            result += '\\';
            result += static_cast<char>(character);
        } else if (character == '\n') {
            result += "\\n";
        } else if (character == '\t') {
            result += "\\t";
        } else if (isHostileToTerminals(character)) {
            result += escaped(character);
        } else {
            result.append(text.substr(begin, position - begin));
        }
    }
    return result + '"';
}

struct AddField {
    JsonLine &line;
    const std::string &key;

    void operator()(Fields::Nothing) const { line.nothing(key); }
    void operator()(bool value) const { line.flag(key, value); }
    void operator()(std::int64_t value) const { line.number(key, value); }
    void operator()(Fields::Time value) const { line.number(key, value.seconds); }
    void operator()(const std::string &value) const { line.text(key, value); }
};

} // namespace

JsonLine::JsonLine(std::string_view event) {
    text("event", event);
}

JsonLine &JsonLine::text(std::string_view key, std::string_view value) {
    this->key(key) += quoted(value);
    return *this;
}

JsonLine &JsonLine::number(std::string_view key, std::int64_t value) {
    this->key(key) += std::to_string(value);
    return *this;
}

JsonLine &JsonLine::flag(std::string_view key, bool value) {
    this->key(key) += value ? "true" : "false";
    return *this;
}

JsonLine &JsonLine::nothing(std::string_view key) {
    this->key(key) += "null";
    return *this;
}

JsonLine &JsonLine::list(std::string_view key, const std::vector<JsonLine> &values) {
    std::string &fields = this->key(key);
    fields += '[';
    for (const JsonLine &value : values)
        fields += (&value == &values.front() ? "" : ",") + value.str();
    fields += ']';
    return *this;
}

JsonLine &JsonLine::object(std::string_view key, const JsonLine &value) {
    this->key(key) += value.str();
    return *this;
}

JsonLine &JsonLine::fields(const Fields &fields) {
    for (const Fields::Field &field : fields.all())
        std::visit(AddField{*this, field.key}, field.value);
    return *this;
}

std::string &JsonLine::key(std::string_view key) {
    m_fields += m_fields.empty() ? "\"" : ",\"";
    m_fields.append(key);
    return m_fields += "\":";
}

} // namespace app
