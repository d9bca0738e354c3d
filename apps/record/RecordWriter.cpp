#include "RecordWriter.h"

#include <vintok/ConferenceParticipant.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>

namespace app {

bool RecordWriter::open(const std::string &path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size != 0) {
        errno = EEXIST;
        return false;
    }
    m_file.reset(std::fopen(path.c_str(), "wb"));
    return isOpen();
}

bool RecordWriter::broadcast(const unsigned char *body, std::size_t length) {
    vintok::TCPMessage message;
    message.setMessageMajorVersion(vintok::ConferenceParticipant::majorVersion());
    message.setMessageMinorVersion(vintok::ConferenceParticipant::minorVersion());
    message.setMessageID(vintok::TCP_broadcastMessage);
    errno = ENOMEM;
    if (isOpen() && message.allocateMessageBuffer(length)) {
        std::copy(body, body + length, message.messageBuffer());
        if (message.write(m_file.get()) && std::fflush(m_file.get()) == 0)
            return true;
    }
    const int reason = errno;
    close();
    errno = reason;
    return false;
}

} // namespace app
