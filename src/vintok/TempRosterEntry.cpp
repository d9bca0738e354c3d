#include "vintok/TempRosterEntry.h"

namespace vintok {

TempRosterEntry::TempRosterEntry(const std::string &remoteName, const std::string &proxyName)
    : m_remoteName(remoteName), m_proxyName(proxyName) {
    if (!proxyName.empty())
        m_proxyAddress.resolve(proxyName, IPTYPE_NONE);
    else
        resolve(remoteName, IPTYPE_NONE);
}

TempRosterEntry::TempRosterEntry(const std::string &remoteName, const std::string &proxyName,
                                 const TCPAddress &address)
    : m_remoteName(remoteName), m_proxyName(proxyName), m_isStarted(true) {
    if (!proxyName.empty())
        m_proxyAddress = address;
    else
        TCPAddress::operator=(address);
}

TempRosterEntry::TempRosterEntry(const TempRosterEntry &other)
    : TCPAddress(other),
      m_tunnelStatus(other.m_tunnelStatus),
      m_callOutcome(other.m_callOutcome),
      m_authenticationRetries(other.m_authenticationRetries),
      m_proxyAddress(other.m_proxyAddress),
      m_remoteName(other.m_remoteName),
      m_proxyName(other.m_proxyName),
      m_authentication(other.m_authentication),
      m_meetingID(other.m_meetingID),
      m_associatedDescriptor(other.m_associatedDescriptor) {}

TempRosterEntry &TempRosterEntry::operator=(const TempRosterEntry &other) {
    TCPAddress::operator=(other);
    m_tunnelStatus = other.m_tunnelStatus;
    m_callOutcome = other.m_callOutcome;
    m_authenticationRetries = other.m_authenticationRetries;
    m_proxyAddress = other.m_proxyAddress;
    m_remoteName = other.m_remoteName;
    m_authentication = other.m_authentication;
    m_meetingID = other.m_meetingID;
    m_associatedDescriptor = other.m_associatedDescriptor;
    return *this;
}

const TCPAddress &TempRosterEntry::connectAddress() const {
    return m_proxyName.empty() ? *this : m_proxyAddress;
}

const std::string &TempRosterEntry::remoteName() const {
    return m_remoteName;
}

const std::string &TempRosterEntry::proxyName() const {
    return m_proxyName;
}

std::uint16_t TempRosterEntry::proxyPort() const {
    return m_proxyAddress.port();
}

void TempRosterEntry::setProxyPort(std::uint16_t port) {
    m_proxyAddress.setPort(port);
}

std::uint16_t TempRosterEntry::proxyHostByteOrderPort() const {
    return m_proxyAddress.hostByteOrderPort();
}

void TempRosterEntry::setProxyHostByteOrderPort(std::uint16_t port) {
    m_proxyAddress.setHostByteOrderPort(port);
}

bool TempRosterEntry::proxyIPString(std::string &text) const {
    return m_proxyAddress.ipString(text);
}

const std::string &TempRosterEntry::authentication() const {
    return m_authentication;
}

void TempRosterEntry::setAuthentication(const std::string &authentication) {
    m_authentication = authentication;
}

const std::string &TempRosterEntry::meetingID() const {
    return m_meetingID;
}

void TempRosterEntry::setMeetingID(const std::string &identifier) {
    m_meetingID = identifier;
}

int TempRosterEntry::associatedDescriptor() const {
    return m_associatedDescriptor;
}

void TempRosterEntry::setAssociatedDescriptor(int descriptor) {
    m_associatedDescriptor = descriptor;
}

} // namespace vintok
