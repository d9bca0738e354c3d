#include "vintok/RosterBase.h"

#include "vintok/BufferManager.h"
#include "vintok/Log.h"

namespace vintok {

RosterBase::RosterBase(const TCPAddress &address) : TCPAddress(address) {}

RosterBase::RosterBase(const UserInfo &user) : UserInfo(user) {}

RosterBase &RosterBase::operator=(const TCPAddress &address) {
    TCPAddress::operator=(address);
    return *this;
}

RosterBase &RosterBase::operator=(const UserInfo &user) {
    UserInfo::operator=(user);
    return *this;
}

std::uint16_t RosterBase::majorVersion() const {
    return m_majorVersion;
}

std::uint16_t RosterBase::minorVersion() const {
    return m_minorVersion;
}

std::uint16_t RosterBase::colorIndex() const {
    return m_colorIndex;
}

void RosterBase::setMajorVersion(std::uint16_t version) {
    m_majorVersion = version;
}

void RosterBase::setMinorVersion(std::uint16_t version) {
    m_minorVersion = version;
}

void RosterBase::setColorIndex(std::uint16_t index) {
    m_colorIndex = index;
}

void RosterBase::clear() {
    TCPAddress::clear();
    UserInfo::clear();
    m_colorIndex = s_noColor;
    m_majorVersion = 0;
    m_minorVersion = 0;
}

bool RosterBase::empty() const {
    return ipType() == IPTYPE_NONE && port() == 0 && m_colorIndex == s_noColor && UserInfo::empty();
}

bool RosterBase::operator==(const RosterBase &other) const {
    return TCPAddress::operator==(other);
}

bool RosterBase::operator==(const TCPAddress &other) const {
    return TCPAddress::operator==(other);
}

std::string RosterBase::toString(bool hideIP) const {
    std::string ip = "hidden";
    if (!hideIP)
        ipString(ip);
    return "IP:  " + ip + '\n' + formatText("Port:  %hu\n", hostByteOrderPort()) +
           UserInfo::toString() +
           formatText("Major:  %hu\nMinor:  %hu\nColor Index:  %hu\n", m_majorVersion,
                      m_minorVersion, m_colorIndex);
}

std::uint64_t RosterBase::size() const {
    return TCPAddress::size() + UserInfo::size() + sizeof(m_majorVersion) + sizeof(m_minorVersion) +
           sizeof(m_colorIndex);
}

std::uint64_t RosterBase::write(unsigned char *buffer, std::uint64_t length) const {
    if (buffer == nullptr || length < size())
        return 0;
    BufferManager cursor(buffer, length);
    const std::uint64_t addressSize = TCPAddress::write(buffer, length);
    cursor.seek(addressSize);
    const std::uint64_t userSize = UserInfo::write(buffer + cursor.tell(), length - cursor.tell());
    cursor.seek(userSize);
    if (addressSize == 0 || userSize == 0)
        return 0;
    cursor << m_majorVersion << m_minorVersion << m_colorIndex; // `size` says that they fit
    return cursor.tell();
}

std::uint64_t RosterBase::read(const unsigned char *buffer, std::uint64_t length) {
    clear();
    if (buffer == nullptr || length < size())
        return 0;
    BufferManager cursor(const_cast<unsigned char *>(buffer), length); // only read from
    const std::uint64_t addressSize = TCPAddress::read(buffer, length);
    if (addressSize == 0)
        return 0;
    cursor.seek(addressSize);
    const std::uint64_t userSize = UserInfo::read(buffer + cursor.tell(), length - cursor.tell());
    if (userSize == 0)
        return 0;
    cursor.seek(userSize);
    if (cursor.read(m_majorVersion) == 0 || cursor.read(m_minorVersion) == 0 ||
        cursor.read(m_colorIndex) == 0)
        return 0;
    return cursor.tell();
}

} // namespace vintok
