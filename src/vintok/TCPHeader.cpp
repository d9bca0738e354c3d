// Two places hold the same facts, the members and the bytes. Setters first take the members from
// the bytes, which the application may have written to, then set theirs and write all of them back;
// without a body there are no bytes to keep in step.
//
// A copy points into its own bytes. Reading takes the frame's form from what arrived, so that the
// versions of a message are known only once it has been read.
#include "vintok/TCPHeader.h"

#include "vintok/ByteOrder.h"
#include "vintok/FrameLayout.h"
#include "vintok/TCPStream.h"

#include <cstring>
#include <limits>

namespace vintok {

namespace {

constexpr std::uint64_t frameLimit = std::numeric_limits<std::uint32_t>::max();

static_assert(layout::sizeIPv4 == TCPHeader::s_sizeIPv4);
static_assert(layout::sizeLong == layout::originLong + layout::addressSize);

void loadIdentifier(const unsigned char *bytes, TCPGUID &identifier) {
    identifier.Data1 = loadNetworkOrder<std::uint32_t>(bytes + layout::identifierData1);
    identifier.Data2 = loadNetworkOrder<std::uint16_t>(bytes + layout::identifierData2);
    identifier.Data3 = loadNetworkOrder<std::uint16_t>(bytes + layout::identifierData3);
    std::memcpy(identifier.Data4, bytes + layout::identifierData4, sizeof(identifier.Data4));
}

void storeIdentifier(unsigned char *bytes, const TCPGUID &identifier) {
    storeNetworkOrder(bytes + layout::identifierData1, identifier.Data1);
    storeNetworkOrder(bytes + layout::identifierData2, identifier.Data2);
    storeNetworkOrder(bytes + layout::identifierData3, identifier.Data3);
    std::memcpy(bytes + layout::identifierData4, identifier.Data4, sizeof(identifier.Data4));
}

} // namespace

constinit const TCPGUID TCPHeader::s_zeroID = {};

TCPHeader::TCPHeader(std::uint16_t major, std::uint16_t minor)
    : m_majorVersion(major), m_minorVersion(minor) {}

TCPHeader::TCPHeader(const TCPAddress &origin, std::uint16_t major, std::uint16_t minor)
    : TCPAddress(origin), m_majorVersion(major), m_minorVersion(minor) {}

TCPHeader::TCPHeader(const TCPHeader &other)
    : TCPAddress(other),
      m_messageBufferLength(other.m_messageBufferLength),
      m_majorVersion(other.m_majorVersion),
      m_minorVersion(other.m_minorVersion),
      m_timeStamp(other.m_timeStamp),
      m_messageID(other.m_messageID),
      m_messageMajorVersion(other.m_messageMajorVersion),
      m_messageMinorVersion(other.m_messageMinorVersion),
      m_rawBuffer(other.m_rawBuffer) {
    mf_adoptBuffer(other);
}

TCPHeader &TCPHeader::operator=(const TCPHeader &other) {
    if (this == &other)
        return *this;
    m_rawBuffer = other.m_rawBuffer;
    TCPAddress::operator=(other);
    m_messageBufferLength = other.m_messageBufferLength;
    m_majorVersion = other.m_majorVersion;
    m_minorVersion = other.m_minorVersion;
    m_timeStamp = other.m_timeStamp;
    m_messageID = other.m_messageID;
    m_messageMajorVersion = other.m_messageMajorVersion;
    m_messageMinorVersion = other.m_messageMinorVersion;
    mf_adoptBuffer(other);
    return *this;
}

TCPHeader &TCPHeader::operator=(const TCPAddress &origin) {
    TCPAddress::operator=(origin);
    mf_ensureHeader(false);
    return *this;
}

// Points the copy's body into the copy's bytes, the other's having been copied.
void TCPHeader::mf_adoptBuffer(const TCPHeader &other) {
    m_messageBuffer = nullptr;
    if (m_messageBufferLength != 0)
        mf_ensureHeader(true);
    else if (other.m_messageBuffer != nullptr)
        m_messageBuffer = m_rawBuffer.data() + (other.m_messageBuffer - other.m_rawBuffer.data());
}

// ---- Sizes and bytes ----

std::uint64_t TCPHeader::headerSize() const {
    return m_majorVersion == s_majorVersionIPv4 ? headerSizeIPv4() : headerSizeIPv6();
}

std::uint64_t TCPHeader::headerSizeIPv4() const {
    return s_sizeIPv4;
}

std::uint64_t TCPHeader::headerSizeIPv6() const {
    return s_sizeIPv4 + TCPAddress::size();
}

bool TCPHeader::allocateRawBuffer(std::uint64_t size) {
    if (size > frameLimit)
        return false;
    return mf_rawBytes().resize(size);
}

RawBuffer &TCPHeader::mf_rawBytes() {
    m_messageBufferLength = 0;
    m_messageBuffer = nullptr;
    return m_rawBuffer;
}

bool TCPHeader::allocateMessageBuffer(std::uint64_t size) {
    m_messageBufferLength = size;
    if (!mf_allocBuffer())
        return false;
    m_timeStamp = getTime();
    return mf_writeHeader();
}

unsigned char *TCPHeader::rawBuffer() const {
    return m_rawBuffer.data();
}

std::uint64_t TCPHeader::rawBufferLength() const {
    return m_rawBuffer.size();
}

unsigned char *TCPHeader::messageBuffer() const {
    return m_messageBuffer;
}

std::uint64_t TCPHeader::messageBufferLength() const {
    return m_messageBufferLength;
}

bool TCPHeader::mf_allocBuffer() {
    const std::uint64_t bodyLength = m_messageBufferLength;
    const std::uint64_t header = headerSize();
    m_messageBufferLength = 0;
    m_messageBuffer = nullptr;
    if (bodyLength > frameLimit - header || !allocateRawBuffer(header + bodyLength))
        return false;
    m_messageBufferLength = bodyLength;
    m_messageBuffer = m_rawBuffer.data() + header;
    return true;
}

bool TCPHeader::mf_ensureHeader(bool reallocate) {
    if (m_messageBufferLength == 0)
        return true;
    return (!reallocate || mf_allocBuffer()) && mf_writeHeader();
}

bool TCPHeader::mf_ensureMembers() {
    return m_messageBufferLength == 0 || mf_readHeader();
}

// ---- Fields ----

std::uint16_t TCPHeader::majorVersion() const {
    return m_majorVersion;
}

std::uint16_t TCPHeader::minorVersion() const {
    return m_minorVersion;
}

const TCPGUID &TCPHeader::messageID() const {
    return m_messageID;
}

std::int64_t TCPHeader::timeStamp() const {
    return m_timeStamp;
}

std::uint16_t TCPHeader::messageMajorVersion() const {
    return m_messageMajorVersion;
}

std::uint16_t TCPHeader::messageMinorVersion() const {
    return m_messageMinorVersion;
}

template <typename T>
bool TCPHeader::mf_setField(T &field, T value) {
    mf_ensureMembers();
    field = value;
    return mf_ensureHeader(false);
}

bool TCPHeader::setMessageID(const TCPGUID &messageID) {
    return mf_setField(m_messageID, messageID);
}

bool TCPHeader::setMessageMajorVersion(std::uint16_t version) {
    return mf_setField(m_messageMajorVersion, version);
}

bool TCPHeader::setMessageMinorVersion(std::uint16_t version) {
    return mf_setField(m_messageMinorVersion, version);
}

bool TCPHeader::setTimeStamp(std::int64_t timeStamp) {
    return mf_setField(m_timeStamp, timeStamp);
}

// ---- The frame ----

bool TCPHeader::read() {
    return !m_rawBuffer.empty() && mf_readHeader();
}

bool TCPHeader::write() {
    return !m_rawBuffer.empty() && mf_writeHeader();
}

bool TCPHeader::mf_writeHeader() {
    const bool isIPv4Frame = m_majorVersion == s_majorVersionIPv4;
    std::uint32_t origin = 0;
    if (m_rawBuffer.size() < headerSize() || m_rawBuffer.size() > frameLimit)
        return false;
    if (isIPv4Frame && ipType() != IPTYPE_NONE && !IPv4(origin))
        return false; // no room for any other kind of origin

    unsigned char *frame = m_rawBuffer.data();
    storeNetworkOrder(frame + layout::totalLength, static_cast<std::uint32_t>(m_rawBuffer.size()));
    storeNetworkOrder(frame + layout::majorVersion, m_majorVersion);
    storeNetworkOrder(frame + layout::minorVersion, m_minorVersion);
    storeIdentifier(frame + layout::identifier, m_messageID);
    storeNetworkOrder(frame + layout::messageMajorVersion, m_messageMajorVersion);
    storeNetworkOrder(frame + layout::messageMinorVersion, m_messageMinorVersion);
    if (!isIPv4Frame) {
        storeNetworkOrder(frame + layout::timeLong, m_timeStamp);
        return TCPAddress::write(frame + layout::originLong, layout::addressSize) != 0;
    }
    std::memcpy(frame + layout::originIPv4, &origin, sizeof(origin)); // in network order already
    storeNetworkOrder(frame + layout::timeIPv4, static_cast<std::uint32_t>(m_timeStamp));
    return true;
}

bool TCPHeader::mf_readHeader() {
    const unsigned char *frame = m_rawBuffer.data();
    const std::uint64_t size = m_rawBuffer.size();
    if (size < layout::sizeIPv4)
        return false;
    const auto total = loadNetworkOrder<std::uint32_t>(frame + layout::totalLength);
    const auto major = loadNetworkOrder<std::uint16_t>(frame + layout::majorVersion);
    const std::uint64_t header = major == s_majorVersionIPv4 ? layout::sizeIPv4 : layout::sizeLong;
    if (size < header)
        return false;
    m_majorVersion = major;
    mf_readFields(frame);

    m_messageBufferLength = 0;
    m_messageBuffer = nullptr;
    if (total < header)
        return false;
    // Whether `total` bytes are there is for those to know who allocated them.
    m_messageBufferLength = total - header;
    m_messageBuffer = m_rawBuffer.data() + header;
    return true;
}

// What is behind the major version, which is stored; all of it is there.
void TCPHeader::mf_readFields(const unsigned char *frame) {
    m_minorVersion = loadNetworkOrder<std::uint16_t>(frame + layout::minorVersion);
    loadIdentifier(frame + layout::identifier, m_messageID);
    m_messageMajorVersion = loadNetworkOrder<std::uint16_t>(frame + layout::messageMajorVersion);
    m_messageMinorVersion = loadNetworkOrder<std::uint16_t>(frame + layout::messageMinorVersion);
    if (m_majorVersion != s_majorVersionIPv4) {
        m_timeStamp = loadNetworkOrder<std::int64_t>(frame + layout::timeLong);
        TCPAddress::read(frame + layout::originLong, layout::addressSize);
        return;
    }
    std::uint32_t origin = 0;
    std::memcpy(&origin, frame + layout::originIPv4, sizeof(origin));
    setIPv4(origin);
    m_timeStamp = loadNetworkOrder<std::uint32_t>(frame + layout::timeIPv4);
}

} // namespace vintok
