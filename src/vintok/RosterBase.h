// Who a party is: its address, its user, the protocol version that it speaks, and the colour that
// the meeting gave it. The application meets parties in this form.
#ifndef VINTOK_ROSTERBASE_H
#define VINTOK_ROSTERBASE_H

#include "vintok/Export.h"
#include "vintok/TCPAddress.h"
#include "vintok/UserInfo.h"

#include <cstdint>
#include <string>

namespace vintok {

class VINTOK_API RosterBase : public TCPAddress, public UserInfo {
public:
    static constexpr std::uint16_t s_noColor = 65535; // no colour has been given

    RosterBase() = default;
    RosterBase(const RosterBase &) = default;
    // The rest is empty: no colour, version 0.0.
    explicit RosterBase(const TCPAddress &address);
    explicit RosterBase(const UserInfo &user);

    // From an address or a user alone, that part is replaced and the rest stays.
    RosterBase &operator=(const RosterBase &) = default;
    RosterBase &operator=(const TCPAddress &address);
    RosterBase &operator=(const UserInfo &user);

    // Of the protocol; 0.0 where nobody has told. The colour is a number, `s_noColor` for none.
    std::uint16_t majorVersion() const;
    std::uint16_t minorVersion() const;
    std::uint16_t colorIndex() const;
    void setMajorVersion(std::uint16_t version);
    void setMinorVersion(std::uint16_t version);
    void setColorIndex(std::uint16_t index);

    // Address and user become empty, the version 0.0, and the colour none.
    void clear() override;

    // No kind of address, no port, no colour and no user. Versions have no say.
    bool empty() const override;

    // By the addresses alone: what else is known of a party has no say in who it is.
    bool operator==(const RosterBase &other) const;
    bool operator==(const TCPAddress &other) const;

    // A line for each fact ("Port:  7777\n"). `hideIP` puts "hidden" in place of the IP address,
    // and of nothing else: the port stays visible.
    std::string toString(bool hideIP) const;

    // ---- Wire form: address, user, major version 2, minor version 2, colour 2 ----

    // As on `UserInfo`. After a failed `read` the parts before the bad one are filled.
    std::uint64_t size() const;
    std::uint64_t write(unsigned char *buffer, std::uint64_t length) const;
    std::uint64_t read(const unsigned char *buffer, std::uint64_t length);

private:
    std::uint16_t m_majorVersion = 0;
    std::uint16_t m_minorVersion = 0;
    std::uint16_t m_colorIndex = s_noColor;
};

// Keeps the address on the left: compilers may swap the operands, and the swapped comparison
// differs.
inline bool operator==(const TCPAddress &left, const RosterBase &right) {
    return left.TCPAddress::operator==(static_cast<const TCPAddress &>(right));
}

} // namespace vintok

#endif
