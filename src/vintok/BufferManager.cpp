#include "vintok/BufferManager.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <new>

namespace vintok {

namespace {

constexpr std::uint64_t stringPrefix = sizeof(std::uint32_t);

} // namespace

BufferManager::BufferManager(unsigned char *buffer, std::uint64_t length)
    : m_current(buffer),
      m_buffer(buffer),
      m_length(buffer == nullptr ? 0 : length),
      m_swap(std::endian::native == std::endian::little) {}

BufferManager::BufferManager(const BufferManager &other) = default;

BufferManager::~BufferManager() = default;

// A cursor is not meant to be assigned.
BufferManager &BufferManager::operator=(const BufferManager &) { // NOLINT
    return *this;
}

unsigned char *BufferManager::buffer() const {
    return m_buffer;
}

std::uint64_t BufferManager::bufferLength() const {
    return m_length;
}

std::uint64_t BufferManager::tell() const {
    return static_cast<std::uint64_t>(m_current - m_buffer);
}

void BufferManager::rewind() {
    m_current = m_buffer;
}

std::uint64_t BufferManager::seek(std::uint64_t offset) {
    const std::uint64_t target = tell() + offset; // may wrap: that is how a cursor moves back
    if (target <= m_length)
        m_current = m_buffer + target;
    return tell();
}

std::uint64_t BufferManager::mf_remaining() const {
    return m_length - tell();
}

template <typename T>
std::uint64_t BufferManager::mf_readShifted(T &value) {
    using Bits = std::make_unsigned_t<T>;
    if (mf_remaining() < sizeof(T))
        return 0;
    Bits bits = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bits = static_cast<Bits>((std::uint64_t{bits} << 8) | *m_current++);
    value = static_cast<T>(bits);
    return sizeof(T);
}

template <typename T>
std::uint64_t BufferManager::mf_writeShifted(T value) {
    if (mf_remaining() < sizeof(T))
        return 0;
    const auto bits = static_cast<std::make_unsigned_t<T>>(value);
    for (std::size_t i = sizeof(T); i-- > 0;)
        *m_current++ = static_cast<unsigned char>(bits >> (8 * i));
    return sizeof(T);
}

template <typename T>
std::uint64_t BufferManager::mf_readSwapped(T &value) {
    if (mf_remaining() < sizeof(T))
        return 0;
    unsigned char bytes[sizeof(T)];
    std::copy_n(m_current, sizeof(T), bytes);
    if (m_swap)
        std::reverse(bytes, bytes + sizeof(T));
    std::memcpy(&value, bytes, sizeof(T));
    m_current += sizeof(T);
    return sizeof(T);
}

template <typename T>
std::uint64_t BufferManager::mf_writeSwapped(T value) {
    if (mf_remaining() < sizeof(T))
        return 0;
    std::memcpy(m_current, &value, sizeof(T));
    if (m_swap)
        std::reverse(m_current, m_current + sizeof(T));
    m_current += sizeof(T);
    return sizeof(T);
}

std::uint64_t BufferManager::read(signed char &value) {
    return mf_readShifted(value);
}

std::uint64_t BufferManager::read(unsigned char &value) {
    return mf_readShifted(value);
}

std::uint64_t BufferManager::read(short &value) {
    return mf_readShifted(value);
}

std::uint64_t BufferManager::read(unsigned short &value) {
    return mf_readShifted(value);
}

std::uint64_t BufferManager::read(int &value) {
    return mf_readShifted(value);
}

std::uint64_t BufferManager::read(unsigned int &value) {
    return mf_readShifted(value);
}

std::uint64_t BufferManager::read(std::int64_t &value) {
    return mf_readSwapped(value);
}

std::uint64_t BufferManager::read(std::uint64_t &value) {
    return mf_readSwapped(value);
}

std::uint64_t BufferManager::read(float &value) {
    return mf_readSwapped(value);
}

std::uint64_t BufferManager::read(double &value) {
    return mf_readSwapped(value);
}

std::uint64_t BufferManager::write(signed char value) {
    return mf_writeShifted(value);
}

std::uint64_t BufferManager::write(unsigned char value) {
    return mf_writeShifted(value);
}

std::uint64_t BufferManager::write(short value) {
    return mf_writeShifted(value);
}

std::uint64_t BufferManager::write(unsigned short value) {
    return mf_writeShifted(value);
}

std::uint64_t BufferManager::write(int value) {
    return mf_writeShifted(value);
}

std::uint64_t BufferManager::write(unsigned int value) {
    return mf_writeShifted(value);
}

std::uint64_t BufferManager::write(std::int64_t value) {
    return mf_writeSwapped(value);
}

std::uint64_t BufferManager::write(std::uint64_t value) {
    return mf_writeSwapped(value);
}

std::uint64_t BufferManager::write(float value) {
    return mf_writeSwapped(value);
}

std::uint64_t BufferManager::write(double value) {
    return mf_writeSwapped(value);
}

BufferManager &BufferManager::operator>>(signed char &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(unsigned char &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(short &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(unsigned short &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(int &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(unsigned int &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(std::int64_t &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(std::uint64_t &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(float &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator>>(double &value) {
    read(value);
    return *this;
}

BufferManager &BufferManager::operator<<(signed char value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(unsigned char value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(short value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(unsigned short value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(int value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(unsigned int value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(std::int64_t value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(std::uint64_t value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(float value) {
    write(value);
    return *this;
}

BufferManager &BufferManager::operator<<(double value) {
    write(value);
    return *this;
}

std::uint64_t BufferManager::read(unsigned char *destination, std::uint64_t count) {
    if (count == 0 || count > mf_remaining())
        return 0;
    std::copy_n(m_current, count, destination);
    m_current += count;
    return count;
}

std::uint64_t BufferManager::write(const unsigned char *source, std::uint64_t count) {
    if (count == 0 || count > mf_remaining())
        return 0;
    std::copy_n(source, count, m_current);
    m_current += count;
    return count;
}

std::uint64_t BufferManager::read(std::string &text) {
    unsigned char *const start = m_current;
    std::uint32_t length = 0;
    if (read(length) == 0)
        return 0;
    // Deliberately before the look at what remains, and with a length of 0 left to throw: see the
    // header. Callers that read from strangers come through `readText`.
    try {
        text.resize(std::uint64_t{length} - 1, ' ');
    } catch (const std::bad_alloc &) {
        m_current = start;
        return 0;
    }
    if (length > mf_remaining()) {
        m_current = start;
        return 0;
    }
    // The last byte stands for the terminator, which the string has of its own. It is not looked
    // at.
    std::copy_n(m_current, text.size(), text.begin());
    m_current += length;
    return stringPrefix + length;
}

std::uint64_t BufferManager::write(const std::string &text) {
    if (text.size() >= std::numeric_limits<std::uint32_t>::max())
        return 0;
    unsigned char *const start = m_current;
    const auto length = static_cast<std::uint32_t>(text.size() + 1);
    if (write(length) == 0)
        return 0;
    if (length > mf_remaining()) {
        m_current = start;
        return 0;
    }
    std::copy_n(text.c_str(), length, m_current);
    m_current += length;
    return stringPrefix + length;
}

std::uint64_t size(const std::string &text) {
    return stringPrefix + text.size() + 1;
}

} // namespace vintok
