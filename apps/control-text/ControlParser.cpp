// A body is checked as a whole first: its length, its zero byte, the end of its last line. Then one
// pass takes the lines: the word, whose row in the table says what may follow; the values that
// stand without keywords; keyword lines, each with its value line. Last, what the word always has
// must have come.
#include "ControlParser.h"

#include <vintok/ControlText.h>
#include <vintok/TCPMessageBase.h>

#include <algorithm>
#include <charconv>

namespace control {

namespace {

namespace words = vintok::words;
using words::FieldRow;
using words::Kind;
using words::Parts;

// Null when there is no such keyword.
const FieldRow *findKeyword(std::string_view keyword) {
    const auto *found =
        std::find_if(std::begin(words::fieldRows), std::end(words::fieldRows),
                     [&](const FieldRow &row) { return !row.bare && row.name == keyword; });
    return found == std::end(words::fieldRows) ? nullptr : found;
}

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Every byte of 0x80 or above travels as "ff" and its own digits, so that the marks can be told
// from bytes: a mark is what stands before one.
std::string decode(const std::string &digits) {
    const std::string marked = vintok::decodeText(digits);
    std::string result;
    for (std::size_t i = 0; i < marked.size(); ++i) {
        const bool mark = static_cast<unsigned char>(marked[i]) == 0xFF && i + 1 < marked.size() &&
                          static_cast<unsigned char>(marked[i + 1]) >= 0x80;
        result += marked[mark ? ++i : i];
    }
    return result;
}

// Takes a literal alone: no name is looked up. The library prints a last group of zero as nothing.
bool parseIP(const std::string &text, vintok::TCPAddress &address) {
    const bool shortened = text.size() > 1 && text.back() == ':' && text[text.size() - 2] != ':';
    vintok::TCPAddress literal;
    literal.setName(shortened ? text + '0' : text);
    if (!literal.isIPv4() && !literal.isIPv6())
        return false;
    vintok::TCPAddress::Storage storage;
    literal.storage(storage);
    address.setStorage(storage); // without the text as its name
    return true;
}

bool parseNumber(std::string_view text, std::int64_t &value) {
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end;
}

bool fits(const FieldRow &row, const std::string &value) {
    std::int64_t number = 0;
    vintok::TCPAddress address;
    switch (row.kind) {
    case Kind::text:
    case Kind::flag:
        return true;
    case Kind::number:
        return parseNumber(value, number) && number >= row.least && number <= row.most;
    case Kind::ip:
        return parseIP(value, address);
    case Kind::encoded:
        return value.size() % 2 == 0 && std::all_of(value.begin(), value.end(), isHexDigit);
    case Kind::choice:
        return !value.empty() && std::find(std::begin(row.choices), std::end(row.choices), value) !=
                                     std::end(row.choices);
    }
    return false;
}

} // namespace

class Parser {
public:
    Parser(Text &text, std::string &complaint) : m_text(text), m_complaint(complaint) {}

    ParseError run(Direction direction, std::string_view body) {
        if (const ParseError error = open(body); error != ParseError::none)
            return error;
        const std::string_view word = takeLine();
        m_text.m_word = word;
        m_text.m_direction = direction;
        const words::Word *row = words::find(direction, word);
        if (row == nullptr)
            return fail(ParseError::unknownWord);
        const bool variable = row->parts.has(Field::variableName);
        if (!m_endsInLineFeed && !variable)
            return fail(ParseError::noLineFeed);
        ParseError error = variable ? takeVariable() : takeBare(row->parts);
        while (error == ParseError::none && !m_rest.empty())
            error = takeField(row->parts);
        return error == ParseError::none && !variable ? checkFields(row->parts) : error;
    }

private:
    ParseError open(std::string_view body) {
        if (body.size() > maxBody)
            return fail(ParseError::tooLong);
        const std::size_t length = body.find('\0');
        if (length == std::string_view::npos)
            return fail(ParseError::notTerminated);
        if (body.find_first_not_of('\0', length) != std::string_view::npos)
            return fail(ParseError::bytesBehindZero);
        m_rest = body.substr(0, length);
        m_endsInLineFeed = !m_rest.empty() && m_rest.back() == '\n';
        return m_rest.empty() ? fail(ParseError::empty) : ParseError::none;
    }

    std::string_view takeLine() {
        const std::size_t end = std::min(m_rest.find('\n'), m_rest.size());
        const std::string_view line = m_rest.substr(0, end);
        m_rest.remove_prefix(std::min(end + 1, m_rest.size()));
        return line;
    }

    ParseError takeField(const Parts &allowed) {
        const std::string_view keyword = takeLine();
        const FieldRow *row = findKeyword(keyword);
        if (row == nullptr || !allowed.has(row->field))
            return fail(ParseError::unknownKeyword, keyword);
        if (m_text.has(row->field))
            return fail(ParseError::repeatedKeyword, keyword);
        if (row->kind == Kind::flag)
            return store(*row, "");
        return m_rest.empty() ? fail(ParseError::missingValue, keyword) : store(*row, takeLine());
    }

    ParseError takeBare(const Parts &parts) {
        for (const words::Part &part : parts) {
            const FieldRow &row = words::rowOf(part.field);
            if (!row.bare)
                continue;
            const ParseError error =
                m_rest.empty() ? fail(ParseError::missingValue) : store(row, takeLine());
            if (error != ParseError::none)
                return error;
        }
        return ParseError::none;
    }

    // The one line that may lack its end, behind the "=" of an empty value; and it may be missing.
    ParseError takeVariable() {
        if (m_rest.empty())
            return m_endsInLineFeed ? ParseError::none : fail(ParseError::noLineFeed);
        const std::string_view line = takeLine();
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos || equals == 0)
            return fail(ParseError::badValue, line);
        if (m_rest.empty() && !m_endsInLineFeed && equals + 1 != line.size())
            return fail(ParseError::noLineFeed);
        store(words::rowOf(Field::variableName), line.substr(0, equals));
        return store(words::rowOf(Field::variableValue), line.substr(equals + 1));
    }

    ParseError store(const FieldRow &row, std::string_view value) {
        std::string text(value);
        if (!fits(row, text))
            return fail(ParseError::badValue, row.bare ? "" : row.name, value);
        if (row.kind == Kind::encoded)
            text = decode(text);
        m_text.m_values[Text::index(row.field)] = std::move(text);
        return ParseError::none;
    }

    ParseError checkFields(const Parts &parts) {
        // Neither part of an address is any use alone.
        const bool hasAddress =
            parts.has(Field::address) && (m_text.has(Field::address) || m_text.has(Field::port));
        for (const words::Part &part : parts) {
            const bool ofAddress = part.field == Field::address || part.field == Field::port;
            if ((part.isRequired() || (hasAddress && ofAddress)) && !m_text.has(part.field))
                return fail(ParseError::missingField, words::rowOf(part.field).name);
        }
        return ParseError::none;
    }

    ParseError fail(ParseError error, std::string_view keyword = "",
                    std::optional<std::string_view> value = std::nullopt) {
        m_complaint = "control text";
        if (!m_text.m_word.empty())
            m_complaint += " '" + quote(m_text.m_word) + "'";
        m_complaint += std::string(": ") + describe(error);
        if (!keyword.empty())
            m_complaint += ": '" + quote(keyword) + "'";
        if (value)
            m_complaint += (keyword.empty() ? ": '" : " with '") + quote(*value) + "'";
        return error;
    }

    Text &m_text;
    std::string &m_complaint;
    std::string_view m_rest;
    bool m_endsInLineFeed = false;
};

const std::string &Text::value(Field field) const {
    static const std::string none;
    const std::optional<std::string> &value = m_values[index(field)];
    return value ? *value : none;
}

std::int64_t Text::number(Field field) const {
    std::int64_t number = 0;
    return parseNumber(value(field), number) ? number : 0;
}

vintok::TCPAddress Text::address() const {
    vintok::TCPAddress address;
    if (parseIP(value(Field::address), address)) {
        std::uint32_t ip = 0;
        if (address.IPv4(ip) && ip == 0) // how the library writes that there is none
            address.clear();
        address.setHostByteOrderPort(static_cast<std::uint16_t>(number(Field::port)));
    }
    return address;
}

void Text::hideAddress(const std::string &word) {
    if (std::optional<std::string> &value = m_values[index(Field::address)])
        value = word;
}

vintok::RosterBase Text::person() const {
    vintok::RosterBase person(address());
    person.setFirstName(value(Field::firstName));
    person.setLastName(value(Field::lastName));
    person.setTitle(value(Field::title));
    person.setEmail(value(Field::email));
    person.setPhone(value(Field::phoneNumber));
    if (has(Field::colorIndex))
        person.setColorIndex(static_cast<std::uint16_t>(number(Field::colorIndex)));
    return person;
}

ParseError parse(Direction direction, std::string_view body, Text &text, std::string &complaint) {
    text = Text();
    complaint.clear();
    return Parser(text, complaint).run(direction, body);
}

ParseError parse(const vintok::TCPMessageBase &message, Text &text, std::string &complaint) {
    const bool isRequest = message.messageID() == vintok::TCP_conferenceControlRequest;
    if (!isRequest && message.messageID() != vintok::TCP_conferenceControlReply) {
        text = Text();
        complaint = describe(ParseError::notControl);
        return ParseError::notControl;
    }
    const auto *body = reinterpret_cast<const char *>(message.messageBuffer());
    return parse(isRequest ? Direction::request : Direction::notification,
                 std::string_view(body, body == nullptr ? 0 : message.messageBufferLength()), text,
                 complaint);
}

const char *describe(ParseError error) {
    constexpr std::array<const char *, 13> texts = {
        "no error",
        "the message is no control message",
        "the text is too long",
        "the text has no zero byte at its end",
        "something follows the zero byte",
        "the text is empty",
        "the last line has no end",
        "unknown word",
        "unknown keyword",
        "a keyword comes twice",
        "a value is missing",
        "a value cannot be used",
        "a field is missing",
    };
    return texts.at(static_cast<std::size_t>(error));
}

std::string quote(std::string_view text, std::size_t most) {
    std::string result(text.substr(0, most));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '.');
    return text.size() > most ? result + "..." : result;
}

} // namespace control
