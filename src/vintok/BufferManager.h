// A bounds-checked cursor that writes values in network byte order to a range of bytes, and reads
// them back. Every message body and header is made with one.
//
// The range belongs to the caller and must outlive the cursor. A cursor is for one thread, never
// allocates on its own account and sets no `TCPError`: each transfer returns the number of bytes
// that it moved, and one that does not fit moves nothing and returns 0. Failures do not stick:
// after one, a smaller transfer may still succeed.
#ifndef VINTOK_BUFFERMANAGER_H
#define VINTOK_BUFFERMANAGER_H

#include "vintok/Export.h"

#include <cstdint>
#include <string>
#include <type_traits>

namespace vintok {

// A 64-bit integer that is spelt differently from std::int64_t and std::uint64_t: `long long` where
// those are `long`, or the other way round.
template <typename T>
inline constexpr bool isOtherInt64 = std::is_integral_v<T> && sizeof(T) == 8 &&
                                     !std::is_same_v<T, std::int64_t> &&
                                     !std::is_same_v<T, std::uint64_t>;

class VINTOK_API BufferManager {
public:
    // A null `buffer` makes a range of no bytes, whatever `length` says.
    BufferManager(unsigned char *buffer, std::uint64_t length);

    // The copy shares the range and starts at the same position; the two then move on their own.
    BufferManager(const BufferManager &other);
    virtual ~BufferManager();

    // ---- Position ----

    // The range, wherever the cursor is.
    unsigned char *buffer() const;
    std::uint64_t bufferLength() const;

    // Bytes from the start of the range to the cursor; `rewind` makes them 0.
    std::uint64_t tell() const;
    void rewind();

    // Moves by `offset` from where the cursor is, up to the end of the range; the two's complement
    // of a distance moves back. Returns the position, unchanged when the move would leave the
    // range.
    std::uint64_t seek(std::uint64_t offset);

    // ---- Values: the bytes moved, or 0 with target and cursor untouched ----

    std::uint64_t read(signed char &value);
    std::uint64_t read(unsigned char &value);
    std::uint64_t read(short &value);
    std::uint64_t read(unsigned short &value);
    std::uint64_t read(int &value);
    std::uint64_t read(unsigned int &value);
    std::uint64_t read(std::int64_t &value);
    std::uint64_t read(std::uint64_t &value);
    std::uint64_t read(float &value);
    std::uint64_t read(double &value);

    std::uint64_t write(signed char value);
    std::uint64_t write(unsigned char value);
    std::uint64_t write(short value);
    std::uint64_t write(unsigned short value);
    std::uint64_t write(int value);
    std::uint64_t write(unsigned int value);
    std::uint64_t write(std::int64_t value);
    std::uint64_t write(std::uint64_t value);
    std::uint64_t write(float value);
    std::uint64_t write(double value);

    template <typename T>
    std::enable_if_t<isOtherInt64<T>, std::uint64_t> read(T &value);
    template <typename T>
    std::enable_if_t<isOtherInt64<T>, std::uint64_t> write(T value);

    // The same, with a failure passed over in silence: who needs to know uses `read` and `write`.

    BufferManager &operator>>(signed char &value);
    BufferManager &operator>>(unsigned char &value);
    BufferManager &operator>>(short &value);
    BufferManager &operator>>(unsigned short &value);
    BufferManager &operator>>(int &value);
    BufferManager &operator>>(unsigned int &value);
    BufferManager &operator>>(std::int64_t &value);
    BufferManager &operator>>(std::uint64_t &value);
    BufferManager &operator>>(float &value);
    BufferManager &operator>>(double &value);

    BufferManager &operator<<(signed char value);
    BufferManager &operator<<(unsigned char value);
    BufferManager &operator<<(short value);
    BufferManager &operator<<(unsigned short value);
    BufferManager &operator<<(int value);
    BufferManager &operator<<(unsigned int value);
    BufferManager &operator<<(std::int64_t value);
    BufferManager &operator<<(std::uint64_t value);
    BufferManager &operator<<(float value);
    BufferManager &operator<<(double value);

    template <typename T>
    std::enable_if_t<isOtherInt64<T>, BufferManager &> operator>>(T &value);
    template <typename T>
    std::enable_if_t<isOtherInt64<T>, BufferManager &> operator<<(T value);

    // ---- Blocks: `count`, or 0 for a block that does not fit and for a block of no bytes ----

    std::uint64_t read(unsigned char *destination, std::uint64_t count);
    std::uint64_t write(const unsigned char *source, std::uint64_t count);

    // ---- Strings: a 32-bit length that counts the zero byte too, the text, the zero byte ----

    // Return the bytes taken, length included, or 0 with the cursor where it was.
    //
    // `read` first resizes the string to the length that the wire claims, filled with blanks, and
    // leaves it so on failure. A length of 0 throws std::length_error with the cursor behind the
    // length. Check the length of untrusted data first.
    std::uint64_t read(std::string &text);
    std::uint64_t write(const std::string &text);

private:
    BufferManager &operator=(const BufferManager &other); // changes nothing

    std::uint64_t mf_remaining() const;
    template <typename T>
    std::uint64_t mf_readShifted(T &value);
    template <typename T>
    std::uint64_t mf_writeShifted(T value);
    template <typename T>
    std::uint64_t mf_readSwapped(T &value);
    template <typename T>
    std::uint64_t mf_writeSwapped(T value);

    unsigned char *m_current;
    unsigned char *m_buffer;
    std::uint64_t m_length;
    bool m_swap;
};

// The number of bytes that a string takes on the wire.
VINTOK_API std::uint64_t size(const std::string &text);

template <typename T>
std::enable_if_t<isOtherInt64<T>, std::uint64_t> BufferManager::read(T &value) {
    std::uint64_t bits = 0;
    const std::uint64_t count = read(bits);
    if (count != 0)
        value = static_cast<T>(bits);
    return count;
}

template <typename T>
std::enable_if_t<isOtherInt64<T>, std::uint64_t> BufferManager::write(T value) {
    return write(static_cast<std::uint64_t>(value));
}

template <typename T>
std::enable_if_t<isOtherInt64<T>, BufferManager &> BufferManager::operator>>(T &value) {
    read(value);
    return *this;
}

template <typename T>
std::enable_if_t<isOtherInt64<T>, BufferManager &> BufferManager::operator<<(T value) {
    write(value);
    return *this;
}

} // namespace vintok

#endif
