// Files that arrive: a sender broadcasts one as a begin, a run of chunks and an end, and every
// receiver writes it below the folder that QOR_COLLAB_ROOT_LOCAL names.
//
// A participant receives one file at a time. `_fileTransferOrigin` is the party whose file it is,
// from its begin to its end; what others send meanwhile is relayed and not kept. Nothing is
// acknowledged: the receivers' applications hear of the file, the sender's does not.
//
// The path comes from the network. It may use either separator, becomes one of this system, and
// stays below the root: whatever could lead elsewhere counts as a file that cannot be opened. Only
// folders that the owner has linked there himself are used, when he says so.
//
// With `setTemporaryFiles` the file is written beside its place (`Workings::temporaryFile`) and
// replaces what is there when it is whole.
#include "vintok/ConferenceParticipantWorkings.h"

#include "platform/Environment.h"
#include "platform/File.h"
#include "vintok/BufferManager.h"
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/WireText.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <stdexcept>
#include <string_view>

namespace vintok {

namespace {

constexpr const char *rootVariable = "QOR_COLLAB_ROOT_LOCAL";
constexpr const char *linksVariable = "QOR_COLLAB_ROOT_LINKS";
constexpr std::size_t streamBuffer = 64 * 1024; // of the file that is received
constexpr std::size_t pathCapacity = 1024;      // of `_fileTransferPath`, its zero byte included

bool isSeparator(char c) {
    return c == '/' || c == '\\';
}

std::vector<std::string> namesOf(const std::string &path) {
    std::vector<std::string> names;
    for (auto begin = path.begin(); begin != path.end();) {
        const auto end = std::find_if(begin, path.end(), isSeparator);
        if (begin != end && std::string(begin, end) != ".")
            names.emplace_back(begin, end);
        begin = end == path.end() ? end : end + 1;
    }
    return names;
}

// Whether each name in a path, cut at either separator, stands for itself or for the folder above,
// and none leads out of the root, nor elsewhere by what has that name already: a link there is its
// owner's, not the network's. A linked folder that may be used is the end of the ways up.
bool staysBelow(const std::string &root, const std::string &path, bool usesLinks) {
    std::vector<std::string> places = {root}; // from the last link, or the root, down
    const std::vector<std::string> names = namesOf(path);
    if (!names.empty() && names.back() == "..")
        return false;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] == "..") {
            places.pop_back();
            if (places.empty())
                return false;
            continue;
        }
        const std::string place = places.back() + platform::pathSeparator() + names[i];
        const bool ordinary = platform::isOrdinary(place);
        const bool linked = usesLinks && i + 1 != names.size() && platform::isFolder(place);
        if (platform::isReservedName(names[i]) || (!ordinary && !linked))
            return false;
        if (!ordinary)
            places.clear();
        places.push_back(place);
    }
    return true;
}

bool usesLinks() {
    const char *value = std::getenv(linksVariable);
    return value != nullptr && std::strcmp(value, "True") == 0;
}

// Whether a file that is there could be written over. A path that ends in a separator names none.
bool mayReplace(const std::string &path) {
    if (isSeparator(path.back()))
        return false;
    const platform::File present(platform::openFile(path, "r+b"));
    return present != nullptr || errno == ENOENT;
}

// In the same folder, since a file is renamed within one disk only, and no shorter than the name
// itself: what is too long for the system shows now. Nobody else can guess it and send a file of
// that name.
std::string temporaryName(const std::string &path) {
    constexpr std::string_view ending = ".part";
    std::random_device random;
    const std::size_t folder = path.find_last_of(platform::pathSeparator()) + 1;
    std::string name = formatText(".vintok-%08x%08x", random(), random());
    name.resize(std::max(name.size() + ending.size(), path.size() - folder) - ending.size(), '0');
    return path.substr(0, folder).append(name).append(ending);
}

// Where each character of a path begins that is a separator, with foreign ones made this system's.
std::vector<std::size_t> fixSeparators(char *path) {
    const platform::EnvironmentLocale locale;
    std::vector<std::size_t> separators;
    std::mblen(nullptr, 0);
    const std::size_t length = std::strlen(path);
    for (std::size_t i = 0; i < length;) {
        const int step = std::mblen(path + i, length - i);
        if (step <= 1 && isSeparator(path[i])) {
            path[i] = platform::pathSeparator();
            separators.push_back(i);
        }
        i += step > 1 ? static_cast<std::size_t>(step) : 1;
    }
    return separators;
}

// An empty value unsets it.
bool setVariable(const char *name, const std::string &value) {
    const bool done =
        value.empty() ? platform::unsetEnvironment(name) : platform::setEnvironment(name, value);
    return done || refuse(TCP_ERROR_SYSTEM_ERROR, "The environment variable cannot be set");
}

} // namespace

// ---- Where they go, and what is told ----

bool ConferenceParticipant::setFileRoot(const std::string &folder) {
    return setVariable(rootVariable, folder);
}

bool ConferenceParticipant::setFileLinks(bool used) {
    return setVariable(linksVariable, used ? "True" : "");
}

void ConferenceParticipant::setFileFolder(const std::string &folder) {
    _workings->fileFolder = folder;
}

void ConferenceParticipant::setFileProgressInterval(std::uint32_t milliseconds) {
    _workings->fileInterval = std::chrono::milliseconds(milliseconds);
}

void ConferenceParticipant::Files::tellFileProgress(ConferenceParticipant &owner, FilePace &pace,
                                                    const TCPAddress &origin, std::uint64_t done,
                                                    std::uint64_t total, const char *path) {
    if (owner._fileProgressCB == nullptr)
        return;
    if (const auto interval = owner._workings->fileInterval; interval.count() != 0) {
        const auto now = std::chrono::steady_clock::now();
        if (now < pace.next && done != 0 && done != total)
            return;
        pace.next = now + interval;
    }
    pace.told = done;
    const TCPAddress whose = origin; // the callback may end the transfer that it belongs to
    owner._fileProgressCB(&owner, whose, done, total, path);
}

// A receiver knows with the end alone that this is all.
void ConferenceParticipant::Files::tellArrived(ConferenceParticipant &owner, bool isLast) {
    FilePace &pace = owner._workings->incomingPace;
    if (isLast &&
        (owner._workings->fileInterval.count() == 0 || pace.told == owner._fileTransferReceived))
        return;
    if (isLast)
        pace.next = {};
    tellFileProgress(owner, pace, owner._fileTransferOrigin, owner._fileTransferReceived, 0,
                     owner._fileTransferPath);
}

// ---- Begin, data, end ----

void ConferenceParticipant::_handleFileTransferBegin(ConferenceRosterEntry *, unsigned char *body,
                                                     std::uint64_t length) {
    if (_fileTransferStream != nullptr || body == nullptr || length == 0)
        return;
    BufferManager cursor(body, length);
    std::string path;
    std::string relativePath;
    if (readText(cursor, path) == 0)
        return;
    readText(cursor, relativePath);
    relativePath = relativePath.c_str(); // a zero byte ends a path
    VINTOK_LOG(SEVERITY_DEBUG, "_handleFileTransferBegin\n\t" + visibleText(path) + "\n\t\t" +
                                   visibleText(relativePath));
    _workings->fileName = relativePath;
    Files::openFile(*this, relativePath);
    Files::tellFileProgress(*this, _workings->incomingPace, _fileTransferOrigin, 0, 0,
                            _fileTransferStream != nullptr ? _fileTransferPath : "");
}

// Leaves the stream null for a file that is not to be stored or cannot be.
void ConferenceParticipant::Files::openFile(ConferenceParticipant &owner,
                                            const std::string &relativePath) {
    const char *environment = std::getenv(rootVariable);
    std::string root = owner._workings->fileFolder;
    if (root.empty() && environment != nullptr)
        root = environment;
    if (root.empty() || root.size() + relativePath.size() + 1 >= pathCapacity) {
        VINTOK_LOG(SEVERITY_ERROR, "_handleFileTransferBegin QOR_COLLAB_ROOT_LOCAL not set");
        return;
    }
    if (!staysBelow(root, relativePath, usesLinks())) {
        VINTOK_LOG(SEVERITY_ERROR,
                   "_handleFileTransferBegin path leaves the root " + visibleText(relativePath));
        return;
    }
    std::snprintf(owner._fileTransferPath, sizeof owner._fileTransferPath, "%s/%s", root.c_str(),
                  relativePath.c_str());
    owner._fixPath();
    owner._fileTransferReceived = 0;
    owner._fileTransferWritten = 0;
    owner._fileTransferStream = openPlace(owner);
    if (owner._fileTransferStream == nullptr)
        VINTOK_LOG(SEVERITY_ERROR,
                   "_handleFileTransferBegin cannot open " + visibleText(owner._fileTransferPath));
    else
        bufferFile(owner);
}

// The file itself, or one in its folder that gets its name in the end. What could not be written in
// its place is not replaced either.
std::FILE *ConferenceParticipant::Files::openPlace(ConferenceParticipant &owner) {
    const std::string path = owner._fileTransferPath;
    std::string &temporary = owner._workings->temporaryFile;
    temporary.clear();
    if (!owner._temporaryFiles)
        return platform::openFile(path, "wb");
    if (!mayReplace(path))
        return nullptr;
    try {
        temporary = temporaryName(path);
    } catch (const std::runtime_error &) {
        return nullptr; // the system has no random numbers
    }
    return platform::createFile(temporary);
}

// A chunk is small, and a write of the system's for each would cost more than all the rest. Without
// memory the stream keeps its own buffer.
void ConferenceParticipant::Files::bufferFile(ConferenceParticipant &owner) {
    owner._workings->fileBuffer.reset(new (std::nothrow) char[streamBuffer]);
    if (owner._workings->fileBuffer != nullptr)
        std::setvbuf(owner._fileTransferStream, owner._workings->fileBuffer.get(), _IOFBF,
                     streamBuffer);
}

// Gives the path this system's separators and makes the folders on its way. Whether they could be
// made shows when the file is opened.
void ConferenceParticipant::_fixPath() {
    const std::vector<std::size_t> separators = fixSeparators(_fileTransferPath);
    for (const std::size_t separator : separators) {
        const std::string folder(_fileTransferPath, separator);
        if (!folder.empty() && !platform::canRead(folder))
            platform::makeDirectory(folder);
    }
}

void ConferenceParticipant::_handleFileTransferData(ConferenceRosterEntry *, unsigned char *body,
                                                    std::uint64_t length) {
    _fileTransferReceived += length;
    if (_fileTransferStream != nullptr && body != nullptr)
        _fileTransferWritten += platform::writeFile(_fileTransferStream, body, length);
    else
        VINTOK_LOG(SEVERITY_ERROR, "_handleFileTransferData File transfer data without open file");
    VINTOK_LOG(SEVERITY_DEBUG, formatText("File Transfer Received = %llu Wrote = %llu.",
                                          static_cast<unsigned long long>(_fileTransferReceived),
                                          static_cast<unsigned long long>(_fileTransferWritten)));
    if (_fileTransferStream != nullptr)
        Files::tellArrived(*this, false);
}

void ConferenceParticipant::_handleFileTransferEnd(ConferenceRosterEntry *peer, unsigned char *body,
                                                   std::uint64_t length) {
    if (_fileTransferStream != nullptr)
        Files::tellArrived(*this, true);
    if (_fileTransferStream == nullptr)
        return;
    // What the stream took and the disk refuses shows now at the latest.
    const bool closed = platform::closeFile(_fileTransferStream);
    _fileTransferStream = nullptr;
    std::uint32_t announced = 0;
    BufferManager(body, length).read(announced);

    bool success = false;
    if (!closed || _fileTransferReceived != _fileTransferWritten)
        VINTOK_LOG(SEVERITY_ERROR, "_handleFileTransferEnd file transfer write failed wrong size");
    else if (_fileTransferWritten != announced)
        VINTOK_LOG(SEVERITY_ERROR, "_handleFileTransferEnd transfer failed wrong size");
    else
        success = Files::keepFile(*this);
    if (success)
        VINTOK_LOG(SEVERITY_DEBUG, "File TransferComplete");
    else
        Files::removeFile(*this);
    Files::endFile(*this, peer != nullptr ? static_cast<const TCPAddress &>(*peer) : TCPAddress(),
                   success);
}

// Tells the application, and leaves the participant ready for the next file.
void ConferenceParticipant::Files::endFile(ConferenceParticipant &owner,
                                           const TCPAddress &neighbour, bool success) {
    const std::string path = owner._fileTransferPath;
    const TCPAddress origin = owner._fileTransferOrigin;
    const std::string name = owner._fileTransferName;
    owner._fileTransferPath[0] = '\0';
    owner._fileTransferName[0] = '\0';
    owner._fileTransferReceived = 0;
    owner._fileTransferWritten = 0;
    owner._fileTransferOrigin.clear();
    owner._workings->fileNeighbour = nullptr;
    if (owner._fileTransferCB != nullptr)
        owner._fileTransferCB(&owner, neighbour, success, path);
    sendFileTransferAck(owner, origin, success, name);
}

// The sender has gone, or this party leaves: no end will come.
void ConferenceParticipant::Files::abandonFile(ConferenceParticipant &owner) {
    const TCPAddress *neighbour = owner._workings->fileNeighbour;
    const TCPAddress address = neighbour != nullptr ? *neighbour : TCPAddress();
    owner._workings->fileNeighbour = nullptr;
    owner._fileTransferOrigin.clear();
    if (discardFile(owner))
        endFile(owner, address, false);
}

bool ConferenceParticipant::refuseFile(const TCPAddress &origin) {
    const Operation operation(*this);
    const ConferenceRosterEntry *neighbour = _workings->fileNeighbour;
    if (neighbour == nullptr || !(_fileTransferOrigin == origin))
        return refuse(TCP_ERROR_INVALID_ADDRESS, "refuseFile: no file of this party is arriving");
    return _attempt("refuseFile", [&] {
        _workings->refusedFiles.push_back(_fileTransferOrigin);
        Talk::refuseFile(*this, *neighbour, _fileTransferOrigin, _workings->fileName);
        Files::abandonFile(*this);
        return true;
    });
}

// True when the file of this party was refused, and the next one has not come. Its end must not end
// the file of somebody else.
bool ConferenceParticipant::Files::forgetRefused(ConferenceParticipant &owner,
                                                 const TCPAddress &origin) {
    return std::erase(owner._workings->refusedFiles, origin) != 0;
}

// What has arrived of a file is of no use without the rest. False when no file is open.
bool ConferenceParticipant::Files::discardFile(ConferenceParticipant &owner) {
    if (owner._fileTransferStream == nullptr)
        return false;
    platform::closeFile(owner._fileTransferStream);
    owner._fileTransferStream = nullptr;
    removeFile(owner);
    return true;
}

// The whole file comes into its place, unless it was written there.
bool ConferenceParticipant::Files::keepFile(ConferenceParticipant &owner) {
    const std::string &temporary = owner._workings->temporaryFile;
    if (temporary.empty() || platform::replaceFile(temporary, owner._fileTransferPath))
        return true;
    VINTOK_LOG(SEVERITY_ERROR,
               "_handleFileTransferEnd cannot replace " + visibleText(owner._fileTransferPath));
    return false;
}

void ConferenceParticipant::Files::removeFile(ConferenceParticipant &owner) {
    const std::string &temporary = owner._workings->temporaryFile;
    platform::removeFile(temporary.empty() ? owner._fileTransferPath : temporary);
}

// The body is four bytes short of its fields, deliberately: with the empty name that every transfer
// has, the result does not fit, and no acknowledgement leaves. Senders rely on hearing nothing.
void ConferenceParticipant::Files::sendFileTransferAck(ConferenceParticipant &owner,
                                                       const TCPAddress &origin, bool success,
                                                       const std::string &name) {
    TCPMessage message;
    message.setOriginAddress(owner._self);
    if (!openMessage(message, TCP_fileTransferAck, name.size() + 6))
        return;
    std::uint32_t address = 0;
    origin.IPv4(address);
    BufferManager body(message.messageBuffer(), message.messageBufferLength());
    const auto *text = reinterpret_cast<const unsigned char *>(name.c_str());
    const unsigned char zero = 0;
    if (body.write(address) == 0 || body.write(success ? 1 : 0) == 0 ||
        body.write(text, name.size() + 1) == 0 || body.write(zero) == 0)
        return;
    owner._broadcastData(nullptr, message);
}

void ConferenceParticipant::_handleFileTransferAck(ConferenceRosterEntry *, unsigned char *body,
                                                   std::uint64_t length, bool hasAddress) {
    if (_fileTransferCB == nullptr || body == nullptr)
        return;
    const unsigned char *rest = body;
    const unsigned char *end = body + length;
    TCPAddress origin;
    if (hasAddress && end - rest >= 4) {
        std::uint32_t address = 0; // as it stands: the writer's swap is not undone, deliberately
        std::memcpy(&address, rest, sizeof address);
        origin.setIPv4(address);
        rest += 4;
    }
    bool success = false;
    if (end - rest >= 4) {
        success = std::any_of(rest, rest + 4, [](unsigned char byte) { return byte != 0; });
        rest += 4;
    }
    const std::string name(rest, std::find(rest, end, 0));
    if (name.empty())
        return;
    TCPAddress self = _self;
    self.setPort(0);
    if (origin == self)
        _fileTransferCB(this, origin, success, name);
}

} // namespace vintok
