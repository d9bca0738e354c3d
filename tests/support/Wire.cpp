#include "support/Wire.h"

#include <algorithm>
#include <cstring>

namespace vintok::test {

namespace {

constexpr std::size_t shortHeader = 36;
constexpr std::size_t longHeader = 60;

// An identifier; the sixth byte alone tells messages apart.
std::array<unsigned char, 16> identifier(unsigned char which) {
    return {0x98, 0x15, 0x35, 0x43, 0x00, which, 0x09, 0x29,
            0x00, 0x00, 0x08, 0x00, 0x09, 0x83,  0x5D, 0x5A};
}

} // namespace

void WireWriter::number(std::uint64_t value, int bytes) {
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        m_bytes.push_back(static_cast<unsigned char>(value >> shift));
}

void WireWriter::text(const std::string &value) {
    number(value.size() + 1, 4);
    m_bytes.insert(m_bytes.end(), value.begin(), value.end());
    m_bytes.push_back(0);
}

std::uint64_t WireReader::number(int bytes) {
    std::array<unsigned char, 8> taken = {};
    raw(taken.data(), static_cast<std::size_t>(bytes));
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = value << 8 | taken[static_cast<std::size_t>(i)];
    return value;
}

std::string WireReader::text() {
    const std::uint64_t count = number(4);
    if (!m_good || count == 0 || count > m_left || m_bytes[count - 1] != 0) {
        m_good = false;
        return {};
    }
    std::string value(m_bytes, m_bytes + count - 1);
    m_bytes += count;
    m_left -= count;
    return value;
}

void WireReader::raw(unsigned char *bytes, std::size_t count) {
    m_good = m_good && count <= m_left;
    if (m_good) {
        std::copy_n(m_bytes, count, bytes);
        m_bytes += count;
        m_left -= count;
    }
}

Bytes wireTexts(const std::vector<std::string> &texts) {
    Bytes bytes;
    for (const std::string &text : texts)
        WireWriter(bytes).text(text);
    return bytes;
}

Bytes wireNumber(std::uint64_t value, int count) {
    Bytes bytes;
    WireWriter(bytes).number(value, count);
    return bytes;
}

std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    std::uint32_t value = 12345;
    for (char &c : text) {
        value = value * 1103515245 + 12345;
        c = static_cast<char>(value >> 24);
    }
    return text;
}

WireAddress WireAddress::ipv4(std::uint32_t address, std::uint16_t port) {
    WireAddress result;
    for (int i = 0; i < 4; ++i)
        result.ip[static_cast<std::size_t>(12 + i)] =
            static_cast<unsigned char>(address >> (24 - 8 * i));
    result.type = address == 0x7F000001 ? 9 : 1;
    result.port = port;
    return result;
}

void WireAddress::write(WireWriter &writer) const {
    writer.raw(ip.data(), ip.size());
    writer.number(type, 4);
    writer.number(port, 2);
    writer.number(maskBits, 2);
}

void WireAddress::read(WireReader &reader) {
    reader.raw(ip.data(), ip.size());
    type = static_cast<std::uint32_t>(reader.number(4));
    port = static_cast<std::uint16_t>(reader.number(2));
    maskBits = static_cast<std::uint16_t>(reader.number(2));
}

WireEntry WireEntry::party(const std::string &name, unsigned number) {
    WireEntry entry;
    entry.address =
        WireAddress::ipv4(0x0A4D0000 + number, static_cast<std::uint16_t>(5000 + number));
    entry.firstName = name;
    entry.email = name + "@example.org";
    return entry;
}

Bytes WireEntry::encode() const {
    Bytes bytes;
    WireWriter writer(bytes);
    address.write(writer);
    for (const std::string *text : {&firstName, &lastName, &title, &email, &phone})
        writer.text(*text);
    for (const std::uint16_t number : {major, minor, color})
        writer.number(number, 2);
    writer.number(state, 4);
    writer.text(meetingName);
    writer.text(meetingID);
    return bytes;
}

std::optional<WireEntry> WireEntry::decode(const Bytes &body) {
    WireReader reader(body.data(), body.size());
    WireEntry entry;
    entry.address.read(reader);
    for (std::string *text :
         {&entry.firstName, &entry.lastName, &entry.title, &entry.email, &entry.phone})
        *text = reader.text();
    for (std::uint16_t *number : {&entry.major, &entry.minor, &entry.color})
        *number = static_cast<std::uint16_t>(reader.number(2));
    entry.state = static_cast<std::uint32_t>(reader.number(4));
    entry.meetingName = reader.text();
    entry.meetingID = reader.text();
    return reader.done() ? std::optional(entry) : std::nullopt;
}

Bytes WireFrame::encode() const {
    Bytes bytes;
    WireWriter writer(bytes);
    writer.number((format == 1 ? shortHeader : longHeader) + body.size(), 4);
    writer.number(format, 2);
    writer.number(formatMinor, 2);
    if (format == 1) {
        writer.raw(origin.ip.data() + 12, 4);
        writer.number(static_cast<std::uint64_t>(time), 4);
    } else {
        writer.number(static_cast<std::uint64_t>(time), 8);
    }
    writer.raw(identifier(id).data(), 16);
    writer.number(major, 2);
    writer.number(minor, 2);
    if (format != 1)
        origin.write(writer);
    writer.raw(body.data(), body.size());
    return bytes;
}

std::optional<WireFrame> WireFrame::take(Bytes &bytes) {
    WireReader reader(bytes.data(), bytes.size());
    const std::uint64_t total = reader.number(4);
    WireFrame frame;
    frame.format = static_cast<std::uint16_t>(reader.number(2));
    frame.formatMinor = static_cast<std::uint16_t>(reader.number(2));
    const std::size_t header = frame.format == 1 ? shortHeader : longHeader;
    if (!reader.good() || total < header || total > bytes.size())
        return std::nullopt;
    if (frame.format == 1)
        reader.raw(frame.origin.ip.data() + 12, 4);
    frame.time = static_cast<std::int64_t>(reader.number(frame.format == 1 ? 4 : 8));
    std::array<unsigned char, 16> who = {};
    reader.raw(who.data(), who.size());
    frame.id = who == identifier(who[5]) ? who[5] : 0;
    frame.major = static_cast<std::uint16_t>(reader.number(2));
    frame.minor = static_cast<std::uint16_t>(reader.number(2));
    if (frame.format != 1)
        frame.origin.read(reader);
    const auto begin = bytes.begin();
    frame.body.assign(begin + static_cast<std::ptrdiff_t>(header),
                      begin + static_cast<std::ptrdiff_t>(total));
    bytes.erase(begin, begin + static_cast<std::ptrdiff_t>(total));
    return frame;
}

} // namespace vintok::test
