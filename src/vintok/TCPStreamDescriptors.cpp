// The descriptor table: what the library knows of each socket that it moves bytes over. A row is
// open, plain or secure, then closed (the peer is gone; nothing takes that back), then removed. All
// of it runs under lock id 1, the calls of the transport too, which take lock id 3 inside.
//
// A row also leads to the buffers of a connection that carries frames, so that one look tells all
// that is known of a descriptor.
#include "vintok/TCPStream.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"

#include <new>

namespace vintok {

namespace {

// The system's, of a connection that reads ahead. With less than a few reads of them a sender that
// is fast is left waiting for the receive window, which opens in steps.
constexpr std::size_t aheadBuffer = std::size_t{256} * 1024;

std::uint32_t firstBoundFlag(bool boundIPv4, bool boundIPv6, bool boundUnix) {
    if (boundIPv4)
        return DESC_BOUND_IPV4;
    if (boundIPv6)
        return DESC_BOUND_IPV6;
    return boundUnix ? std::uint32_t{DESC_BOUND_UNIX} : 0;
}

bool appendEntry(Globals &globals, const DescriptorEntry &entry) {
    try {
        return globals.m_descriptors.emplace(entry.fd, entry).second;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

// Bytes that its buffers hold would be lost at such a turn: the connection is then broken.
void changeSecure(Globals &globals, DescriptorEntry &entry, bool secure) {
    entry.flags = secure ? entry.flags | DESC_SECURE : entry.flags & ~std::uint32_t{DESC_SECURE};
    globals.m_secure += secure ? 1 : std::size_t(-1);
    if (entry.buffer != nullptr && !entry.buffer->setSecure(secure))
        entry.flags |= DESC_CLOSED;
}

// Without a transport a descriptor can carry the flag all the same.
bool transportAccepts(const Globals &globals, int fd) {
    return globals.m_transport != nullptr ? sf_addSecureDescriptor(fd) : fd != -1;
}

bool refuseSecure(const SourcePlace &place) {
    errorAt(place, TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    return false;
}

bool upgradeEntry(Globals &globals, DescriptorEntry &entry, bool secure, const SourcePlace &place) {
    if (!secure || (entry.flags & DESC_SECURE) != 0)
        return true;
    if (!transportAccepts(globals, entry.fd))
        return refuseSecure(place);
    changeSecure(globals, entry, true);
    return true;
}

bool addEntry(Globals &globals, int fd, bool secure, std::uint32_t bound,
              const SourcePlace &place) {
    DescriptorEntry entry{fd, bound, nullptr};
    if (bound == 0 && secure) {
        if (!transportAccepts(globals, fd))
            return refuseSecure(place);
        entry.flags = DESC_SECURE;
    }
    if (bound == 0 && globals.m_peerTimeout != 0)
        platform::setPeerTimeout(fd, globals.m_peerTimeout); // local sockets have none
    const bool sized = setSystemBuffers(fd, 0);
    if (sized && appendEntry(globals, entry)) {
        globals.m_secure += (entry.flags & DESC_SECURE) != 0 ? 1 : 0;
        return true;
    }
    errorAt(place, sized ? TCP_ERROR_OUT_OF_MEMORY : TCP_ERROR_STREAM_BUFFER,
            "vintok::addDescriptor");
    if (secure && globals.m_transport != nullptr)
        sf_removeSecureDescriptor(fd);
    return false;
}

bool setEntrySecure(Globals &globals, DescriptorEntry &entry, bool secure,
                    const SourcePlace &place) {
    if (secure == ((entry.flags & DESC_SECURE) != 0))
        return true;
    bool told = true;
    if (globals.m_transport != nullptr)
        told = secure ? sf_addSecureDescriptor(entry.fd) : sf_removeSecureDescriptor(entry.fd);
    if (secure && !told)
        return false;
    if (!told)
        errorAt(place, TCP_ERROR_SSL_TRANSPORT, "vintok::setSecure");
    changeSecure(globals, entry, secure);
    return told;
}

void removeEntry(Globals &globals, const DescriptorEntry *entry) {
    if ((entry->flags & DESC_SECURE) != 0) {
        if (globals.m_transport != nullptr)
            sf_removeSecureDescriptor(entry->fd);
        --globals.m_secure;
    }
    if (entry->buffer != nullptr) {
        entry->buffer->detach();
        --globals.m_buffered;
    }
    globals.m_descriptors.erase(entry->fd);
}

// The row of a descriptor that a caller must know: started, 1 or above, present. Null after setting
// the error.
DescriptorEntry *requireEntry(int fd, const ErrorContext &name, const SourcePlace &place) {
    Globals *globals = startedGlobals();
    if (globals == nullptr) {
        errorAt(place, TCP_ERROR_NOT_INITIALIZED, name);
        return nullptr;
    }
    // 0 can be added, but not be changed or removed.
    DescriptorEntry *entry = fd < 1 ? nullptr : findEntry(*globals, fd);
    if (entry == nullptr)
        errorAt(place, TCP_ERROR_BAD_FILE_DESCRIPTOR, name);
    return entry;
}

} // namespace

DescriptorEntry *findEntry(Globals &globals, int fd) {
    const auto found = globals.m_descriptors.find(fd);
    return found != globals.m_descriptors.end() ? &found->second : nullptr;
}

bool addDescriptor(int fd, bool secure, bool boundIPv4, bool boundIPv6, bool boundUnix) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    const SourcePlace place = SourcePlace::caller();
    return underLock(mutex, "vintok::addDescriptor", [&] {
        Globals *globals = startedGlobals();
        if (globals == nullptr) {
            errorAt(place, TCP_ERROR_NOT_INITIALIZED, "vintok::addDescriptor");
            return false;
        }
        if (DescriptorEntry *entry = findEntry(*globals, fd))
            return upgradeEntry(*globals, *entry, secure, place);
        const std::uint32_t bound = firstBoundFlag(boundIPv4, boundIPv6, boundUnix);
        return addEntry(*globals, fd, secure, bound, place);
    });
}

bool removeDescriptor(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    const SourcePlace place = SourcePlace::caller();
    return underLock(mutex, "vintok::removeDescriptor", [&] {
        DescriptorEntry *entry = requireEntry(fd, "vintok::removeDescriptor", place);
        if (entry != nullptr)
            removeEntry(*s_globals, entry);
        return entry != nullptr;
    });
}

namespace {

// Asked before every transfer of bytes. The entry is copied into `found` when there is one.
bool copyEntry(int fd, DescriptorEntry &found, const SourcePlace &place) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    return underLock(
        mutex, withNumber("vintok::descriptorState (%d) lock failed.", fd),
        withNumber("vintok::descriptorState (%d) unlock failed.", fd),
        [&] {
            Globals *globals = startedGlobals();
            if (globals == nullptr)
                errorAt(place, TCP_ERROR_NOT_INITIALIZED,
                        withNumber("vintok::descriptorState (%d) Not initialized.", fd));
            const DescriptorEntry *entry = globals != nullptr ? findEntry(*globals, fd) : nullptr;
            if (entry != nullptr)
                found = *entry;
            return entry != nullptr;
        },
        place);
}

} // namespace

bool descriptorState(int fd, bool &secure, bool &closed, bool &boundIPv4, bool &boundIPv6,
                     bool &boundUnix) {
    DescriptorEntry entry{fd, 0, nullptr};
    if (!copyEntry(fd, entry, SourcePlace::caller()))
        return false;
    secure = (entry.flags & DESC_SECURE) != 0;
    closed = (entry.flags & DESC_CLOSED) != 0;
    boundIPv4 = (entry.flags & DESC_BOUND_IPV4) != 0;
    boundIPv6 = (entry.flags & DESC_BOUND_IPV6) != 0;
    boundUnix = (entry.flags & DESC_BOUND_UNIX) != 0;
    return !closed;
}

DescriptorState::DescriptorState(int fd, const SourcePlace &place) : known(false) {
    DescriptorEntry entry{fd, 0, nullptr};
    if (!copyEntry(fd, entry, place))
        return;
    secure = (entry.flags & DESC_SECURE) != 0;
    closed = (entry.flags & DESC_CLOSED) != 0;
    boundIPv4 = (entry.flags & DESC_BOUND_IPV4) != 0;
    boundIPv6 = (entry.flags & DESC_BOUND_IPV6) != 0;
    boundUnix = (entry.flags & DESC_BOUND_UNIX) != 0;
    known = !closed;
    buffer = std::move(entry.buffer);
}

bool bufferFrames(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    return underLock(mutex, "vintok::bufferFrames", [fd] {
        Globals *globals = startedGlobals();
        DescriptorEntry *entry = globals != nullptr ? findEntry(*globals, fd) : nullptr;
        if (entry == nullptr || (entry->flags & DESC_BOUND) != 0)
            return false;
        if (entry->buffer != nullptr)
            return true;
        try {
            entry->buffer = StreamBuffer::make(fd, (entry->flags & DESC_SECURE) != 0);
        } catch (const std::bad_alloc &) {
            return false;
        }
        ++globals->m_buffered;
        if ((entry->flags & DESC_CLOSED) != 0)
            entry->buffer->giveUp(socketErrors::connectionReset);
        return true;
    });
}

bool unbufferFrames(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    return underLock(mutex, "vintok::unbufferFrames", [fd] {
        Globals *globals = startedGlobals();
        DescriptorEntry *entry = globals != nullptr ? findEntry(*globals, fd) : nullptr;
        if (entry == nullptr || entry->buffer == nullptr || entry->buffer->failed())
            return false;
        entry->buffer->detach();
        entry->buffer.reset();
        --globals->m_buffered;
        return true;
    });
}

void readAhead(int fd) {
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(fd);
    if (buffer == nullptr)
        return;
    buffer->readAhead();
    setSystemBuffers(fd, aheadBuffer);
}

void admitReadAhead(int listener) {
    setSystemBuffers(listener, aheadBuffer);
}

// Most descriptors of most programs have none, and are not looked up for it.
std::shared_ptr<StreamBuffer> bufferOf(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    Globals *globals = startedGlobals();
    if (globals == nullptr || globals->m_buffered == 0)
        return nullptr;
    std::shared_ptr<StreamBuffer> buffer;
    underLock(mutex, "vintok::bufferOf", [&] {
        if (const DescriptorEntry *entry = findEntry(*globals, fd))
            buffer = entry->buffer;
        return true;
    });
    return buffer;
}

bool setClosed(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    const SourcePlace place = SourcePlace::caller();
    const ErrorContext name = "vintok::setClosed";
    return underLock(mutex, withNumber("vintok::setClosed (%d) lock failed.", fd), name, [&] {
        Globals *globals = startedGlobals();
        DescriptorEntry *entry = nullptr;
        if (globals == nullptr)
            errorAt(place, TCP_ERROR_NOT_INITIALIZED, name);
        else if (fd < 1)
            errorAt(place, TCP_ERROR_BAD_FILE_DESCRIPTOR, name);
        else
            entry = findEntry(*globals, fd);
        if (entry == nullptr)
            return false;
        entry->flags |= DESC_CLOSED;
        if (entry->buffer != nullptr)
            entry->buffer->giveUp(socketErrors::connectionReset);
        return true;
    });
}

bool setSecure(int fd, bool secure) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    const SourcePlace place = SourcePlace::caller();
    return underLock(mutex, "vintok::setSecure", [&] {
        DescriptorEntry *entry = requireEntry(fd, "vintok::setSecure", place);
        return entry != nullptr && setEntrySecure(*s_globals, *entry, secure, place);
    });
}

bool closeDescriptor(int fd) {
    const bool removed = removeDescriptor(fd);
    platform::closeSocket(fd);
    return removed;
}

} // namespace vintok
