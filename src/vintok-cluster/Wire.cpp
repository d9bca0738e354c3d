#include "vintok-cluster/Wire.h"

#include <algorithm>

namespace vintok::cluster {

namespace {

constexpr std::size_t longestText = 1024;
constexpr std::size_t longestToken = 200;
constexpr std::size_t pairSize = 16;
constexpr std::size_t blockSize = 18;
constexpr std::size_t grantSize = 10;

} // namespace

Key keyOf(const TCPAddress &address) {
    Key key{};
    address.write(key.data(), key.size());
    return key;
}

TCPAddress addressOf(const Key &key) {
    TCPAddress address;
    address.read(key.data(), key.size());
    return address;
}

Writer &Writer::raw(View bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return *this;
}

Writer &Writer::text(const std::string &text) {
    const std::size_t length = std::min(text.size(), longestText);
    number(static_cast<std::uint16_t>(length));
    return raw({reinterpret_cast<const unsigned char *>(text.data()), length});
}

View Reader::raw(std::size_t length) {
    if (length > m_rest.size())
        m_good = false;
    if (!m_good)
        return {};
    const View taken = m_rest.first(length);
    m_rest = m_rest.subspan(length);
    return taken;
}

std::string Reader::text() {
    const View bytes = raw(number<std::uint16_t>());
    m_good = m_good && bytes.size() <= longestText;
    return m_good ? std::string(bytes.begin(), bytes.end()) : std::string();
}

Rank Reader::rank() {
    const auto start = number<std::uint64_t>();
    return {start, number<std::uint64_t>()};
}

TCPAddress Reader::address() {
    TCPAddress address;
    const View bytes = raw(Key().size());
    if (m_good)
        address.read(bytes.data(), bytes.size());
    return address;
}

std::size_t Reader::count(std::size_t size) {
    const std::size_t number_ = number<std::uint16_t>();
    m_good = m_good && number_ * size <= m_rest.size();
    return m_good ? number_ : 0;
}

void write(Writer &writer, const Header &header) {
    writer.number(wireVersion).number(static_cast<std::uint8_t>(header.kind)).number(header.sender);
}

std::optional<Header> readHeader(Reader &reader) {
    const auto version = reader.number<std::uint8_t>();
    const auto kind = reader.number<std::uint8_t>();
    const auto sender = reader.number<std::uint64_t>();
    if (!reader.good() || version != wireVersion || kind < 1 ||
        kind > static_cast<std::uint8_t>(Kind::ordered))
        return std::nullopt;
    return Header{static_cast<Kind>(kind), sender};
}

Packet encode(const Beat &beat) {
    Bytes bytes;
    Writer writer(bytes);
    write(writer, {Kind::beat, beat.rank.incarnation});
    writer.number(beat.rank.start).number(beat.flags).number(beat.last).address(beat.address);
    writer.text(beat.name).text(beat.advertised).number(beat.port);
    writer.number(beat.members).number(beat.mostMembers).address(beat.leader);
    writer.number(static_cast<std::uint16_t>(beat.blocks.size()));
    for (const Block &block : beat.blocks)
        writer.number(block.number).rank(block.grantor);
    writer.number(static_cast<std::uint16_t>(beat.grants.size()));
    for (const auto &[host, block] : beat.grants)
        writer.number(host).number(block);
    writer.number(static_cast<std::uint16_t>(beat.taken.size()));
    for (const auto &[host, sequence] : beat.taken)
        writer.number(host).number(sequence);
    writer.number(beat.place);
    return std::make_shared<const Bytes>(std::move(bytes));
}

bool decode(Reader &reader, Beat &beat) {
    beat.rank.start = reader.number<std::uint64_t>();
    beat.flags = reader.number<std::uint8_t>();
    beat.last = reader.number<std::uint64_t>();
    beat.address = reader.address();
    beat.name = reader.text();
    beat.advertised = reader.text();
    beat.port = reader.number<std::uint16_t>();
    beat.members = reader.number<std::uint32_t>();
    beat.mostMembers = reader.number<std::uint32_t>();
    beat.leader = reader.address();
    for (std::size_t left = reader.count(blockSize); left > 0; --left) {
        const auto number = reader.number<std::uint16_t>();
        beat.blocks.push_back({number, reader.rank()});
    }
    for (std::size_t left = reader.count(grantSize); left > 0; --left) {
        const auto host = reader.number<std::uint64_t>();
        beat.grants.emplace_back(host, reader.number<std::uint16_t>());
    }
    for (std::size_t left = reader.count(pairSize); left > 0; --left) {
        const auto host = reader.number<std::uint64_t>();
        beat.taken.emplace_back(host, reader.number<std::uint64_t>());
    }
    beat.place = reader.number<std::uint64_t>();
    return reader.good();
}

void write(Writer &writer, ItemKind kind, std::uint8_t marks, std::size_t length) {
    writer.number(static_cast<std::uint8_t>(static_cast<std::uint8_t>(kind) | marks))
        .number(static_cast<std::uint32_t>(length));
}

void Joiner::clear() {
    m_kind = 0;
    m_joined = {};
}

bool Joiner::take(View items, const Handler &handler) {
    Reader reader(items);
    while (!reader.rest().empty()) {
        const auto head = reader.number<std::uint8_t>();
        const View body = reader.raw(reader.number<std::uint32_t>());
        if (!reader.good() || !join(head, body, handler)) {
            clear();
            return false;
        }
    }
    return true;
}

bool Joiner::join(std::uint8_t head, View body, const Handler &handler) {
    const std::uint8_t kind = head & (goesOn - 1);
    const bool isLast = (head & moreFollows) == 0;
    const bool isFirst = (head & goesOn) == 0;
    if (isFirst && isLast && m_kind == 0) {
        handler(static_cast<ItemKind>(kind), body);
        return true;
    }
    if (!isFirst && m_kind == 0)
        return true;
    if (kind == 0 || (isFirst ? m_kind != 0 : kind != m_kind) ||
        m_joined.size() + body.size() > longestItem)
        return false;
    m_kind = kind;
    m_joined.insert(m_joined.end(), body.begin(), body.end());
    if (isLast) {
        const Bytes joined = std::exchange(m_joined, {});
        m_kind = 0;
        handler(static_cast<ItemKind>(kind), joined);
    }
    return true;
}

std::uint64_t countFrames(View frames) {
    std::uint64_t count = 0;
    for (Reader reader(frames); !reader.rest().empty(); ++count) {
        const auto length = reader.number<std::uint32_t>();
        if (length < sizeof(length) || !reader.good())
            return count;
        reader.raw(length - sizeof(length));
        if (!reader.good())
            return count;
    }
    return count;
}

std::string hexadecimal(std::uint64_t number) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text(16, '0');
    for (auto at = text.rbegin(); at != text.rend(); ++at, number >>= 4)
        *at = digits[number & 15];
    return text;
}

std::string subjectToken(const std::string &text) {
    std::string token;
    for (const char c : text) {
        const bool isPlain =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
        if (isPlain)
            token += c;
        else
            token += '_' + hexadecimal(static_cast<unsigned char>(c)).substr(14);
    }
    if (token.size() <= longestToken)
        return token.empty() ? "_" : token;
    std::uint64_t hash = 14695981039346656037U; // FNV-1a
    for (const char c : token)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return token.substr(0, longestToken - 20) + "__" + hexadecimal(hash);
}

} // namespace vintok::cluster
