#include "vintok/TCPCertInfo.h"

namespace vintok {

TCPCertInfo::TCPCertInfo() = default;
TCPCertInfo::TCPCertInfo(const TCPCertInfo &other) = default;
TCPCertInfo &TCPCertInfo::operator=(const TCPCertInfo &other) = default;
TCPCertInfo::~TCPCertInfo() = default;

void TCPCertInfo::clear() {
    *this = TCPCertInfo();
}

bool TCPCertInfo::empty() const {
    return m_status == 0 && m_text1.empty() && m_text2.empty() && m_text3.empty() &&
           m_text4.empty();
}

} // namespace vintok
