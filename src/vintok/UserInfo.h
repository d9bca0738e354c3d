// What a person tells about themselves: five texts of any length.
#ifndef VINTOK_USERINFO_H
#define VINTOK_USERINFO_H

#include "vintok/Export.h"

#include <cstdint>
#include <string>

namespace vintok {

class VINTOK_API UserInfo {
public:
    // Bytes as they were given, UTF-8 for people; empty where nothing is told.

    const std::string &firstName() const;
    const std::string &lastName() const;
    const std::string &title() const;
    const std::string &email() const;
    const std::string &phone() const;

    void setFirstName(const std::string &text);
    void setLastName(const std::string &text);
    void setTitle(const std::string &text);
    void setEmail(const std::string &text);
    void setPhone(const std::string &text);

    // All five.
    void clear();
    bool empty() const;
    bool operator==(const UserInfo &other) const;

    // Five lines, always all of them, each a label and a text ("First Name:  Ann\n").
    std::string toString() const;

    // The same person, each text as `visibleText` gives it.
    UserInfo visible() const;

    // ---- Wire form: first name, last name, title, e-mail, phone, each a counted string ----

    // The exact number of bytes that `write` needs, 25 or more.
    std::uint64_t size() const;

    // Return the bytes written or taken, 0 for a null buffer or one that is too short. `read`
    // clears first; `length` may be more than the record takes. It returns 0 as well when the
    // record breaks off or is malformed; the texts before the bad one are then filled and the rest
    // are empty.
    std::uint64_t write(unsigned char *buffer, std::uint64_t length) const;
    std::uint64_t read(const unsigned char *buffer, std::uint64_t length);

private:
    // The texts in the order in which they travel, print and compare.
    static std::string UserInfo::*const s_fields[5];

    std::string m_firstName;
    std::string m_lastName;
    std::string m_title;
    std::string m_email;
    std::string m_phone;
};

} // namespace vintok

#endif
