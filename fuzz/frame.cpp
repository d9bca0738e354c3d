// The header of a frame, in both forms: what is read is written as the same bytes.
#include "Fuzz.h"

#include "vintok/TCPMessage.h"

#include <cstring>
#include <vector>

using namespace vintok;
using fuzz::require;

namespace {

constexpr std::size_t lengthSize = 4;

// But for the length, which is written as that of the bytes that are there.
bool sameFrame(const std::vector<unsigned char> &frame, const TCPMessage &message) {
    return std::equal(frame.begin() + lengthSize, frame.end(), message.rawBuffer() + lengthSize);
}

// Each setter reads the other fields from the bytes and puts all of them back.
void rewrite(TCPMessage &message) {
    message.setMessageID(TCPGUID(message.messageID()));
    message.setTimeStamp(message.timeStamp());
    message.setMessageMajorVersion(message.messageMajorVersion());
    message.setMessageMinorVersion(message.messageMinorVersion());
    message.setOriginAddress(TCPAddress(message.originAddress()));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    TCPMessage message;
    if (!message.allocateRawBuffer(size) || size == 0)
        return 0;
    std::memcpy(message.rawBuffer(), data, size);
    const std::vector<unsigned char> frame(data, data + size);
    if (!message.readHeader())
        return 0;
    require(size >= message.headerSize(), "a header that is there");
    require(message.messageBuffer() == message.rawBuffer() + message.headerSize(), "its body");
    require(message.TCPHeader::write() && sameFrame(frame, message), "written as it was read");
    require(message.readHeader(), "what was written can be read");
    require(message.messageBufferLength() == size - message.headerSize(), "the body's length");
    rewrite(message);
    require(sameFrame(frame, message), "setters that change nothing");
    const TCPMessage copy(message);
    require(copy.rawBufferLength() == size && sameFrame(frame, copy), "a copy");
    return 0;
}
