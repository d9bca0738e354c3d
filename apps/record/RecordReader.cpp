#include "RecordReader.h"

#include <vintok/BufferManager.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace app {

namespace {

constexpr std::uint64_t firstStep = 65536;

std::string bytesText(std::uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

} // namespace

RecordReader::Result RecordReader::next(vintok::TCPMessage &message) {
    if (!m_fault.empty())
        return Result::damaged;
    m_offset += m_got;
    std::array<unsigned char, 4> head{};
    m_got = std::fread(head.data(), 1, head.size(), m_file);
    if (m_got == 0 && std::ferror(m_file) == 0)
        return Result::end;
    if (m_got != head.size())
        return shortOf(head.size());
    std::uint32_t length = 0;
    vintok::BufferManager(head.data(), head.size()).read(length);
    if (length < vintok::TCPHeader::s_sizeIPv4)
        return damaged("a record cannot have a length of " + bytesText(length));
    while (m_got < length) {
        const std::uint64_t size =
            std::min<std::uint64_t>(length, std::max<std::uint64_t>(firstStep, 2 * m_got));
        if (!message.allocateRawBuffer(size))
            return damaged("there is no memory for a record of " + bytesText(length));
        const std::uint64_t step = std::fread(message.rawBuffer() + m_got, 1,
                                              static_cast<std::size_t>(size - m_got), m_file);
        m_got += step;
        if (m_got < size)
            return shortOf(length);
    }
    std::memcpy(message.rawBuffer(), head.data(), head.size());
    message.clear(); // the older form has no port, and would leave the one before
    if (!message.readHeader())
        return damaged("no header of a message");
    return Result::record;
}

RecordReader::Result RecordReader::damaged(const std::string &fault) {
    m_fault = fault;
    return Result::damaged;
}

RecordReader::Result RecordReader::shortOf(std::uint64_t length) {
    if (std::ferror(m_file) != 0)
        return damaged(std::string("reading fails: ") + std::strerror(errno));
    return damaged("the file ends after " + std::to_string(m_got) + " of " + bytesText(length));
}

} // namespace app
