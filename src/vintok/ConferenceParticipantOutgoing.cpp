// Files that this party sends to everybody: a begin, rounds of many chunks in one write, and an
// end.
#include "vintok/ConferenceParticipantWorkings.h"

#include "platform/File.h"
#include "vintok/BufferManager.h"
#include "vintok/Chunk.h"
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/WireText.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace vintok {

namespace {

constexpr std::size_t roundSize = 240 * ConferenceParticipant::_fileTransferChunkSize;
// What may wait for somebody when a round is added. With it there is less than what the loop waits
// for itself.
constexpr std::size_t mostWaiting = std::size_t{512} << 10;
constexpr std::int64_t mostLength = std::numeric_limits<std::int32_t>::max();

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
        if (length < 1 || length > mostLength)
            return refuse(TCP_ERROR_INVALID_ARGUMENT,
                          "transferFile: the file is empty, or longer than 2 GiB - 1");
        size = static_cast<std::size_t>(length);
        bytes.reset(new unsigned char[size]);
        return std::fread(bytes.get(), 1, size, file.get()) == size ||
               refuse(TCP_ERROR_SYSTEM_ERROR, "transferFile: the file cannot be read");
    }
};

bool openBegin(TCPMessage &message, const std::string &path, const std::string &name) {
    if (!openMessage(message, TCP_fileTransferBegin, size(path) + size(name)))
        return false;
    BufferManager body(message.messageBuffer(), message.messageBufferLength());
    body.write(path);
    body.write(name);
    return true;
}

bool openEnd(TCPMessage &message, std::uint64_t length) {
    return openMessage(message, TCP_fileTransferEnd, sizeof(std::uint32_t)) &&
           BufferManager(message.messageBuffer(), message.messageBufferLength())
                   .write(static_cast<std::uint32_t>(length)) != 0;
}

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

// ---- At once ----

bool ConferenceParticipant::transferFile(const std::string &path, const std::string &relativePath) {
    const Operation operation(*this);
    // Receivers could not tell the parts of two files of one origin apart.
    if (_workings->sendsFile || !_workings->outgoing.files.empty())
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
               Outgoing::sendAtOnce(*this, path, relativePath, file.bytes.get(), file.size);
    } catch (const std::bad_alloc &) {
        // Not even begun: the rest needs no memory to speak of.
        return refuse(TCP_ERROR_OUT_OF_MEMORY, "transferFile: the file is held in memory");
    }
    return reason.unless(sent, TCP_ERROR_CONNECTION_RESET,
                         "transferFile: it did not reach everybody");
}

bool ConferenceParticipant::Outgoing::sendAtOnce(ConferenceParticipant &owner,
                                                 const std::string &path,
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
            return Linking::sayToAll(owner, span, {message.timeStamp(), false},
                                     Delivery::When::now);
        });
        (sent ? succeeded : failed) = true;
    };

    send(openBegin(message, path, relativePath), message);
    Files::tellFileProgress(owner, pace, owner._self, 0, length, path.c_str());

    // A failed round is noted and the next goes out all the same: others may want the whole file.
    for (std::size_t done = 0; done < length && !owner._attendees.empty();) {
        const std::size_t end = std::min(length, done + roundSize);
        const bool filled = fillRound(round, message, bytes + done, end - done);
        Guards::awaitSlow(owner);
        send(filled, round);
        while (done < end && !owner._attendees.empty()) {
            done = std::min<std::size_t>(end, done + _fileTransferChunkSize);
            Files::tellFileProgress(owner, pace, owner._self, done, length, path.c_str());
        }
    }
    if (owner._attendees.empty())
        return false; // all have gone, or the application has hung up

    send(openEnd(message, length), message);
    return succeeded && !failed;
}

// ---- By and by ----

std::uint32_t ConferenceParticipant::startFile(const std::string &path, const std::string &name) {
    return Outgoing::start(
        *this,
        [&](OutgoingFile &file) {
            const std::shared_ptr<std::FILE> stream =
                platform::File(platform::openFile(path, "rb"));
            std::int64_t length = 0;
            if (stream == nullptr || !platform::fileSize(stream.get(), length))
                return refuse(TCP_ERROR_SYSTEM_ERROR, "startFile: the file cannot be opened");
            file.path = path;
            file.name = name;
            file.length = static_cast<std::uint64_t>(length);
            file.read = [stream](std::uint64_t, unsigned char *buffer, std::uint64_t room) {
                return std::fread(buffer, 1, static_cast<std::size_t>(room), stream.get());
            };
            return true;
        });
}

std::uint32_t ConferenceParticipant::startFile(const unsigned char *data, std::uint64_t length,
                                               const std::string &name) {
    return Outgoing::start(
        *this,
        [&](OutgoingFile &file) {
            if (data == nullptr || length > std::uint64_t{mostLength})
                return refuse(TCP_ERROR_INVALID_ARGUMENT, "startFile: no bytes, or too many");
            const auto bytes = std::make_shared<std::vector<unsigned char>>(data, data + length);
            file.path = file.name = name;
            file.length = length;
            file.read = [bytes](std::uint64_t offset, unsigned char *buffer, std::uint64_t room) {
                std::memcpy(buffer, bytes->data() + offset, static_cast<std::size_t>(room));
                return room;
            };
            return true;
        });
}

std::uint32_t ConferenceParticipant::startFile(FileSource read, void *source, std::uint64_t length,
                                               const std::string &name) {
    return Outgoing::start(
        *this,
        [&](OutgoingFile &file) {
            if (read == nullptr)
                return refuse(TCP_ERROR_INVALID_ARGUMENT, "startFile: there is no source");
            file.path = file.name = name;
            file.length = length;
            file.read = [=, this](std::uint64_t offset, unsigned char *buffer, std::uint64_t room) {
                return read(this, offset, buffer, room, source);
            };
            return true;
        });
}

std::uint32_t
ConferenceParticipant::Outgoing::start(ConferenceParticipant &owner,
                                       const std::function<bool(OutgoingFile &file)> &open) {
    if (owner._attendees.empty())
        return refuse(TCP_ERROR_UNSPECIFIED_ERROR, "startFile: nobody is connected");
    OutgoingState &state = owner._workings->outgoing;
    const std::uint32_t number = std::max(state.lastNumber + 1, std::uint32_t{1});
    const bool started = owner._attempt("startFile", [&] {
        const auto file = std::make_shared<OutgoingFile>();
        file->number = number;
        if (!open(*file))
            return false;
        if (file->name.empty() || file->length == 0 || file->length > std::uint64_t{mostLength})
            return refuse(TCP_ERROR_INVALID_ARGUMENT,
                          "startFile: no name, or the file is empty or longer than 2 GiB - 1");
        state.files.reserve(state.files.size() + 1);
        StreamLoop::ofThisThread()->addSender(mayGoOn, turnHasCome, &owner);
        state.files.push_back(file);
        state.lastNumber = number;
        return true;
    });
    return started ? number : 0;
}

bool ConferenceParticipant::Outgoing::isFirst(const ConferenceParticipant &owner,
                                              const OutgoingFile &file) {
    const auto &files = owner._workings->outgoing.files;
    return !files.empty() && files.front().get() == &file;
}

bool ConferenceParticipant::Outgoing::mayGoOn(void *data) {
    const auto &owner = *static_cast<const ConferenceParticipant *>(data);
    const auto &files = owner._workings->outgoing.files;
    if (files.empty() || owner._workings->sendsFile || files.front()->atWork)
        return false;
    return owner._attendees.empty() ||
           (files.front()->stage == OutgoingFile::Stage::ended ? hasLeft(*files.front())
                                                               : hasRoom(owner));
}

// Who is limited and takes nothing is not waited for, as ever.
bool ConferenceParticipant::Outgoing::hasRoom(const ConferenceParticipant &owner) {
    return Linking::hasRoom(owner) && membersHaveRoom(owner);
}

bool ConferenceParticipant::Outgoing::membersHaveRoom(const ConferenceParticipant &owner) {
    const OutputLimits &limits = owner._workings->guards.output;
    const std::size_t most =
        limits.hard != 0 ? std::min(mostWaiting, limits.soft / 2) : mostWaiting;
    return std::none_of(
        owner._attendees.begin(), owner._attendees.end(), [=](const ConferenceRosterEntry *peer) {
            if (peer == nullptr || !peer->doBroadcast() || !peer->enabled())
                return false;
            const std::shared_ptr<StreamBuffer> buffer = bufferOf(peer->descriptor());
            return buffer != nullptr && buffer->queued() > most &&
                   (!buffer->isLimited() || buffer->movesAlong());
        });
}

// Whether the connections that are still there have taken all of it.
bool ConferenceParticipant::Outgoing::hasLeft(const OutgoingFile &file) {
    return std::all_of(
        file.rests.begin(), file.rests.end(),
        [](const OutgoingFile::Rest &rest) {
            return rest.buffer->sentUpTo(rest.end) || rest.buffer->failed() ||
                   bufferOf(rest.buffer->descriptor()) != rest.buffer;
        });
}

void ConferenceParticipant::Outgoing::turnHasCome(int, void *data) {
    auto &owner = *static_cast<ConferenceParticipant *>(data);
    const Operation operation(owner);
    if (!mayGoOn(data))
        return;
    const std::shared_ptr<OutgoingFile> file = owner._workings->outgoing.files.front();
    const SendingFile atWork(file->atWork);
    const auto goesOn = [&] {
        goOn(owner, *file);
        return true;
    };
    if (!owner._attempt("startFile", goesOn) && isFirst(owner, *file))
        breakOff(owner, *file, FILE_INCOMPLETE);
}

void ConferenceParticipant::Outgoing::goOn(ConferenceParticipant &owner, OutgoingFile &file) {
    if (owner._attendees.empty())
        end(owner, file, FILE_ALONE);
    else if (file.stage == OutgoingFile::Stage::ended)
        end(owner, file, file.failed ? FILE_INCOMPLETE : FILE_SENT);
    else if (file.stage == OutgoingFile::Stage::waits)
        begin(owner, file);
    else if (isUnwanted(owner, file))
        breakOff(owner, file, FILE_UNWANTED);
    else
        sendRound(owner, file);
}

// Where the file is here is nobody's business: both paths are its name.
void ConferenceParticipant::Outgoing::begin(ConferenceParticipant &owner, OutgoingFile &file) {
    TCPMessage message;
    message.setOriginAddress(owner._self);
    if (!openBegin(message, file.name, file.name))
        throw std::bad_alloc();
    file.stage = OutgoingFile::Stage::goes;
    file.failed = !queue(owner, message);
    if (isFirst(owner, file))
        Files::tellFileProgress(owner, owner._workings->outgoingPace, owner._self, 0, file.length,
                                file.path.c_str());
}

// A callback may end the file in here, and the source may as well.
void ConferenceParticipant::Outgoing::sendRound(ConferenceParticipant &owner, OutgoingFile &file) {
    const std::uint64_t length = std::min<std::uint64_t>(roundSize, file.length - file.sent);
    const std::unique_ptr<unsigned char[]> bytes(
        new unsigned char[static_cast<std::size_t>(length)]);
    const bool isRead = readRound(owner, file, bytes.get(), length);
    if (!isFirst(owner, file))
        return;
    if (!isRead)
        return breakOff(owner, file, FILE_UNREADABLE);
    TCPMessage message;
    TCPMessage round;
    message.setOriginAddress(owner._self);
    if (!fillRound(round, message, bytes.get(), static_cast<std::size_t>(length)))
        throw std::bad_alloc();
    std::uint64_t told = file.sent;
    file.sent += length;
    file.failed = !queue(owner, round) || file.failed;
    while (told < file.sent && isFirst(owner, file)) {
        told = std::min(file.sent, told + _fileTransferChunkSize);
        Files::tellFileProgress(owner, owner._workings->outgoingPace, owner._self, told,
                                file.length, file.path.c_str());
    }
    if (file.sent == file.length && isFirst(owner, file))
        finish(owner, file);
}

bool ConferenceParticipant::Outgoing::readRound(const ConferenceParticipant &owner,
                                                const OutgoingFile &file, unsigned char *bytes,
                                                std::uint64_t length) {
    for (std::uint64_t have = 0; have < length;) {
        const std::uint64_t count = file.read(file.sent + have, bytes + have, length - have);
        if (count == 0 || count > length - have || !isFirst(owner, file))
            return false;
        have += count;
    }
    return true;
}

void ConferenceParticipant::Outgoing::finish(ConferenceParticipant &owner, OutgoingFile &file) {
    TCPMessage message;
    message.setOriginAddress(owner._self);
    if (!openEnd(message, file.length))
        throw std::bad_alloc();
    file.stage = OutgoingFile::Stage::ended;
    file.failed = !queue(owner, message) || file.failed;
    for (const ConferenceRosterEntry *peer : owner._attendees)
        if (peer != nullptr && peer->doBroadcast())
            if (const std::shared_ptr<StreamBuffer> buffer = bufferOf(peer->descriptor()))
                file.rests.push_back({buffer, buffer->mark()});
}

// False when somebody could not be given it.
bool ConferenceParticipant::Outgoing::queue(ConferenceParticipant &owner, TCPMessage &frames) {
    const Span span =
        copyToChunk(frames.rawBuffer(), static_cast<std::size_t>(frames.rawBufferLength()));
    if (span.owner == nullptr)
        throw std::bad_alloc();
    return Linking::sayToAll(owner, span, {frames.timeStamp(), false}, Delivery::When::withTheTurn);
}

bool ConferenceParticipant::cancelFile(std::uint32_t number) {
    const Operation operation(*this);
    const auto &files = _workings->outgoing.files;
    const auto found = std::find_if(files.begin(), files.end(),
                                    [=](const auto &file) { return file->number == number; });
    if (found == files.end() || (*found)->stage == OutgoingFile::Stage::ended)
        return refuse(TCP_ERROR_INVALID_ARGUMENT, "cancelFile: no file of that number is going");
    const std::shared_ptr<OutgoingFile> file = *found;
    Outgoing::breakOff(*this, *file, FILE_CANCELLED);
    return true;
}

void ConferenceParticipant::setFileSentCB(FileSentCallback callback) {
    _workings->outgoing.sentCB = callback;
}

void ConferenceParticipant::Outgoing::breakOff(ConferenceParticipant &owner, OutgoingFile &file,
                                               FileOutcome outcome) {
    if (file.stage == OutgoingFile::Stage::goes)
        owner._attempt("startFile", [&] {
            TCPMessage message;
            message.setOriginAddress(owner._self);
            return openEnd(message, file.sent + 1) && queue(owner, message);
        });
    end(owner, file, outcome);
}

void ConferenceParticipant::Outgoing::end(ConferenceParticipant &owner, OutgoingFile &file,
                                          FileOutcome outcome) {
    OutgoingState &state = owner._workings->outgoing;
    if (std::erase_if(state.files, [&](const auto &each) { return each.get() == &file; }) == 0)
        return; // it has been ended meanwhile
    if (state.files.empty())
        StreamLoop::ofThisThread()->removeSender(&owner);
    if (state.sentCB != nullptr)
        state.sentCB(&owner, file.number, outcome, owner._userData);
}

// The meeting is over.
void ConferenceParticipant::Outgoing::endAll(ConferenceParticipant &owner) {
    const std::vector<std::shared_ptr<OutgoingFile>> files = owner._workings->outgoing.files;
    for (const std::shared_ptr<OutgoingFile> &file : files)
        end(owner, *file, FILE_ALONE);
}

// ---- Who does not want it ----

void ConferenceParticipant::setFileRefusedCB(FileRefusedCallback callback) {
    _workings->outgoing.refusedCB = callback;
}

// One that has ended meanwhile had another name, or none is left.
void ConferenceParticipant::Outgoing::refused(ConferenceParticipant &owner,
                                              const ConferenceRosterEntry &party,
                                              std::string_view name) {
    const OutgoingState &state = owner._workings->outgoing;
    if (state.files.empty() || state.files.front()->name != name ||
        state.files.front()->stage == OutgoingFile::Stage::waits)
        return;
    OutgoingFile &file = *state.files.front();
    if (std::find(file.refusedBy.begin(), file.refusedBy.end(), party) != file.refusedBy.end())
        return;
    file.refusedBy.push_back(party);
    if (state.refusedCB != nullptr)
        state.refusedCB(&owner, file.number, party, owner._userData);
}

// Whether nobody in the meeting is left who might want it.
bool ConferenceParticipant::Outgoing::isUnwanted(const ConferenceParticipant &owner,
                                                 const OutgoingFile &file) {
    const auto &by = file.refusedBy;
    return !by.empty() &&
           std::all_of(owner._attendees.begin(), owner._attendees.end(),
                       [&](const ConferenceRosterEntry *party) {
                           return party == nullptr || party->isServer() ||
                                  !(party->doBroadcast() || party->isShadow()) ||
                                  std::find(by.begin(), by.end(), *party) != by.end();
                       });
}

} // namespace vintok
