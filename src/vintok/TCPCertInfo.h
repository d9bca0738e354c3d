// What a secure transport tells of the peer's certificate.
#ifndef VINTOK_TCPCERTINFO_H
#define VINTOK_TCPCERTINFO_H

#include "vintok/Export.h"

#include <cstdint>
#include <string>

namespace vintok {

// A plain value. The transport fills it and the application reads it; what the fields mean is
// agreed between those two.
class VINTOK_API TCPCertInfo {
public:
    TCPCertInfo();
    TCPCertInfo(const TCPCertInfo &other);
    TCPCertInfo &operator=(const TCPCertInfo &other);
    ~TCPCertInfo();

    // Back to 0 and four empty texts.
    void clear();
    bool empty() const;

    // A number and texts whose meaning is the transport's; 0 and empty where it says nothing.

    std::uint32_t m_status = 0;
    std::string m_text1;
    std::string m_text2;
    std::string m_text3;
    std::string m_text4;
};

} // namespace vintok

#endif
