// Files that this party sends to everybody: a begin, rounds of many chunks in one write, and an
// end.
#include "vintok/ConferenceParticipantWorkings.h"

#include "platform/File.h"
#include "vintok/BufferManager.h"
#include "vintok/Chunk.h"
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/WireText.h"

#include <algorithm>
#include <limits>
#include <new>

namespace vintok {

namespace {

constexpr std::size_t roundSize = 240 * ConferenceParticipant::_fileTransferChunkSize;

// The tail is looked for from the front: one that occurs earlier in the path is refused too,
// deliberately, as the sender's peers expect the first occurrence.
bool isTail(const std::string &path, const std::string &tail) {
    const std::size_t first = path.find(tail);
    return first != std::string::npos && first + tail.size() == path.size();
}

// The whole of a file that a transfer can carry: 1 byte to 2 GiB - 1. Its memory is not cleared.
struct FileBytes {
    std::unique_ptr<unsigned char[]> bytes;
    std::size_t size = 0;

    bool read(const std::string &path) {
        const platform::File file(platform::openFile(path, "rb"));
        std::int64_t length = 0;
        if (file == nullptr || !platform::fileSize(file.get(), length))
            return refuse(TCP_ERROR_SYSTEM_ERROR, "transferFile: the file cannot be opened");
        if (length < 1 || length > std::numeric_limits<std::int32_t>::max())
            return refuse(TCP_ERROR_INVALID_ARGUMENT,
                          "transferFile: the file is empty, or longer than 2 GiB - 1");
        size = static_cast<std::size_t>(length);
        bytes.reset(new unsigned char[size]);
        return std::fread(bytes.get(), 1, size, file.get()) == size ||
               refuse(TCP_ERROR_SYSTEM_ERROR, "transferFile: the file cannot be read");
    }
};

// Makes one write of several chunks: `frames` becomes their messages, whole, one behind the other.
// All but the last are as long as each other, and have one header.
bool fillRound(TCPMessage &frames, TCPMessage &message, const unsigned char *bytes,
               std::size_t length) {
    constexpr std::size_t most = ConferenceParticipant::_fileTransferChunkSize;
    const std::size_t header = message.headerSize();
    const std::size_t chunks = (length + most - 1) / most;
    if (!frames.allocateRawBuffer(chunks * header + length))
        return false;
    unsigned char *next = frames.rawBuffer();
    for (std::size_t done = 0; done < length; done += most) {
        const std::size_t chunk = std::min(most, length - done);
        if ((done == 0 || chunk != most) && !openMessage(message, TCP_fileTransferData, chunk))
            return false;
        next = std::copy_n(message.rawBuffer(), header, next);
        next = std::copy_n(bytes + done, chunk, next);
    }
    return true;
}

// Holds while a file is sent, also when the application's callback throws.
class SendingFile {
public:
    explicit SendingFile(bool &flag) : m_flag(flag) { m_flag = true; }
    ~SendingFile() { m_flag = false; }
    SendingFile(const SendingFile &) = delete;
    SendingFile &operator=(const SendingFile &) = delete;

private:
    bool &m_flag;
};

} // namespace

bool ConferenceParticipant::transferFile(const std::string &path, const std::string &relativePath) {
    const Operation operation(*this);
    // Receivers could not tell the parts of two files of one origin apart.
    if (_workings->sendsFile)
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "transferFile: a file is being sent already");
    if (_attendees.empty())
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "transferFile: nobody is connected");
    if (path.empty() || relativePath.empty() || !isTail(path, relativePath))
        return refuse(TCP_ERROR_INVALID_ARGUMENT,
                      "transferFile: the relative path is not the end of the path, and only that");
    const Reason reason;
    const SendingFile sending(_workings->sendsFile);
    bool sent = false;
    try {
        FileBytes file;
        sent = file.read(path) &&
               Files::sendFile(*this, path, relativePath, file.bytes.get(), file.size);
    } catch (const std::bad_alloc &) {
        // Not even begun: the rest needs no memory to speak of.
        return refuse(TCP_ERROR_OUT_OF_MEMORY, "transferFile: the file is held in memory");
    }
    return reason.unless(sent, TCP_ERROR_CONNECTION_RESET,
                         "transferFile: it did not reach everybody");
}

bool ConferenceParticipant::Files::sendFile(ConferenceParticipant &owner, const std::string &path,
                                            const std::string &relativePath,
                                            const unsigned char *bytes, std::size_t length) {
    FilePace &pace = owner._workings->outgoingPace;
    bool succeeded = false;
    bool failed = false;
    TCPMessage message;
    TCPMessage round;
    message.setOriginAddress(owner._self);
    const auto send = [&](bool opened, TCPMessage &frames) {
        const Span span = {nullptr, frames.rawBuffer(),
                           static_cast<std::size_t>(frames.rawBufferLength())};
        const bool sent = opened && owner._attempt("transferFile", [&] {
            return Relaying::broadcastFrames(owner, nullptr, span, {message.timeStamp(), false});
        });
        (sent ? succeeded : failed) = true;
    };

    const bool opened =
        openMessage(message, TCP_fileTransferBegin, size(path) + size(relativePath));
    if (opened) {
        BufferManager body(message.messageBuffer(), message.messageBufferLength());
        body.write(path);
        body.write(relativePath);
    }
    send(opened, message);
    tellFileProgress(owner, pace, owner._self, 0, length, path.c_str());

    // A failed round is noted and the next goes out all the same: others may want the whole file.
    for (std::size_t done = 0; done < length && !owner._attendees.empty();) {
        const std::size_t end = std::min(length, done + roundSize);
        const bool filled = fillRound(round, message, bytes + done, end - done);
        Guards::awaitSlow(owner);
        send(filled, round);
        while (done < end && !owner._attendees.empty()) {
            done = std::min<std::size_t>(end, done + _fileTransferChunkSize);
            tellFileProgress(owner, pace, owner._self, done, length, path.c_str());
        }
    }
    if (owner._attendees.empty())
        return false; // all have gone, or the application has hung up

    const bool ends = openMessage(message, TCP_fileTransferEnd, sizeof(std::uint32_t));
    if (ends)
        BufferManager(message.messageBuffer(), message.messageBufferLength())
            .write(static_cast<std::uint32_t>(length));
    send(ends, message);
    return succeeded && !failed;
}

} // namespace vintok
