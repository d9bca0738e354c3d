#include "vintok/UserInfo.h"

#include "vintok/BufferManager.h"
#include "vintok/TCPStream.h"
#include "vintok/WireText.h"

#include <algorithm>
#include <iterator>

namespace vintok {

constinit std::string UserInfo::*const UserInfo::s_fields[5] = {
    &UserInfo::m_firstName, &UserInfo::m_lastName, &UserInfo::m_title, &UserInfo::m_email,
    &UserInfo::m_phone};

const std::string &UserInfo::firstName() const {
    return m_firstName;
}

const std::string &UserInfo::lastName() const {
    return m_lastName;
}

const std::string &UserInfo::title() const {
    return m_title;
}

const std::string &UserInfo::email() const {
    return m_email;
}

const std::string &UserInfo::phone() const {
    return m_phone;
}

void UserInfo::setFirstName(const std::string &text) {
    m_firstName = text;
}

void UserInfo::setLastName(const std::string &text) {
    m_lastName = text;
}

void UserInfo::setTitle(const std::string &text) {
    m_title = text;
}

void UserInfo::setEmail(const std::string &text) {
    m_email = text;
}

void UserInfo::setPhone(const std::string &text) {
    m_phone = text;
}

void UserInfo::clear() {
    for (const auto field : s_fields)
        (this->*field).clear();
}

bool UserInfo::empty() const {
    return std::all_of(
        std::begin(s_fields), std::end(s_fields),
        [this](auto field) { return (this->*field).empty(); });
}

bool UserInfo::operator==(const UserInfo &other) const {
    return std::all_of(
        std::begin(s_fields), std::end(s_fields),
        [&](auto field) { return this->*field == other.*field; });
}

std::string UserInfo::toString() const {
    constexpr const char *labels[] = {
        "First Name:  ", "Last Name:  ", "Title:  ", "Email:  ", "Phone:  "};
    std::string text;
    for (std::size_t i = 0; i < std::size(s_fields); ++i)
        text += labels[i] + this->*s_fields[i] + '\n';
    return text;
}

UserInfo UserInfo::visible() const {
    UserInfo result;
    for (const auto field : s_fields)
        result.*field = visibleText(this->*field);
    return result;
}

std::uint64_t UserInfo::size() const {
    std::uint64_t sum = 0;
    for (const auto field : s_fields)
        sum += vintok::size(this->*field);
    return sum;
}

std::uint64_t UserInfo::write(unsigned char *buffer, std::uint64_t length) const {
    if (buffer == nullptr || length < size())
        return 0;
    BufferManager cursor(buffer, length);
    for (const auto field : s_fields)
        if (cursor.write(this->*field) == 0)
            return 0;
    return cursor.tell();
}

std::uint64_t UserInfo::read(const unsigned char *buffer, std::uint64_t length) {
    clear();
    if (buffer == nullptr || length < size())
        return 0;
    BufferManager cursor(const_cast<unsigned char *>(buffer), length); // only read from
    for (const auto field : s_fields)
        if (readText(cursor, this->*field) == 0)
            return 0;
    return cursor.tell();
}

} // namespace vintok
