// The forms of `read` and `write` that move a frame through a file.

#include "vintok/TCPMessageBase.h"

#include "vintok/BufferManager.h"
#include "vintok/Log.h"
#include "vintok/TCPStream.h"

#include <array>
#include <cerrno>
#include <cstring>

namespace vintok {

namespace {

constexpr int maxPasses = 10;

// What a short read stands for, by the `errno` that it left. An end of file leaves an older one.
TCPError readError(int error) {
    switch (error) {
    case EINTR:
        return TCP_ERROR_INTERRUPT;
    case EAGAIN:
        return TCP_ERROR_WOULD_BLOCK;
    case EIO:
    case ENXIO:
    case EBADF:
        return TCP_ERROR_BAD_FILE_DESCRIPTOR;
    case ENOMEM:
        return TCP_ERROR_OUT_OF_MEMORY;
    default:
        return TCP_ERROR_UNSPECIFIED_ERROR;
    }
}

TCPError writeError(int error) {
    switch (error) {
    case EINTR:
        return TCP_ERROR_INTERRUPT;
    case EAGAIN:
        return TCP_ERROR_WOULD_BLOCK;
    case EBADF:
        return TCP_ERROR_BAD_FILE_DESCRIPTOR;
    default:
        return TCP_ERROR_UNSPECIFIED_ERROR;
    }
}

bool isWorthAnotherPass(TCPError error) {
    return error == TCP_ERROR_INTERRUPT || error == TCP_ERROR_WOULD_BLOCK;
}

bool readRest(std::FILE *stream, unsigned char *buffer, std::size_t got, std::size_t length,
              const SourcePlace &place) {
    for (int pass = 0; pass < maxPasses; ++pass) {
        got += std::fread(buffer + got, 1, length - got, stream);
        if (got == length) {
            errorAt(place, TCP_ERROR_NO_ERROR, "reading file");
            return true;
        }
        const TCPError error = readError(errno);
        errorAt(place, error, "reading file");
        if (!isWorthAnotherPass(error))
            break;
    }
    return false;
}

} // namespace

bool TCPMessageBase::read(std::FILE *stream) {
    if (stream == nullptr)
        return refuse(TCP_ERROR_INVALID_ARGUMENT, "FILE * null", VINTOK_HERE);
    std::array<unsigned char, 4> bytes = {};
    if (std::fread(bytes.data(), 1, bytes.size(), stream) != bytes.size())
        return refuse(TCP_ERROR_CORRUPT_HEADER, "Failed to read header size", VINTOK_HERE);
    std::uint32_t length = 0;
    BufferManager(bytes.data(), bytes.size()).read(length);
    if (length < headerSizeIPv4())
        return refuse(TCP_ERROR_CORRUPT_HEADER, "size less than min header size", VINTOK_HERE);
    if (!allocateRawBuffer(length))
        return refuse(TCP_ERROR_OUT_OF_MEMORY, "allocating message buffer", VINTOK_HERE);
    std::memcpy(rawBuffer(), bytes.data(), bytes.size());
    return readRest(stream, rawBuffer(), bytes.size(), length, VINTOK_HERE) && TCPHeader::read();
}

bool TCPMessageBase::write(std::FILE *stream) {
    if (stream == nullptr)
        return refuse(TCP_ERROR_INVALID_ARGUMENT, "FILE * null", VINTOK_HERE);
    const std::size_t length = rawBufferLength();
    if (length == 0)
        return true; // a message that was never filled has no bytes to point at
    std::size_t written = 0;
    for (int pass = 0; pass < maxPasses; ++pass) {
        written += std::fwrite(rawBuffer() + written, 1, length - written, stream);
        if (written == length)
            return true;
        const TCPError error = writeError(errno);
        VINTOK_ERROR(error, "writing file");
        if (!isWorthAnotherPass(error))
            break;
    }
    return false;
}

} // namespace vintok
