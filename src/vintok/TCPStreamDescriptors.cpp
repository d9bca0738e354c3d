// The descriptor table: what the library knows of each socket that it moves bytes over. A row is
// open, plain or secure, then closed (the peer is gone; nothing takes that back), then removed. All
// of it runs under lock id 1, the calls of the transport too, which take lock id 3 inside.
//
// A row also remembers whether its connection carries frames, in which case the socket's receive
// mark is set as long as the row is not secure. See `expectFrames`.
#include "vintok/TCPStream.h"

#include "platform/Socket.h"
#include "vintok/Globals.h"

#include <algorithm>
#include <new>

namespace vintok {

namespace {

std::uint32_t firstBoundFlag(bool boundIPv4, bool boundIPv6, bool boundUnix) {
    if (boundIPv4)
        return DESC_BOUND_IPV4;
    if (boundIPv6)
        return DESC_BOUND_IPV6;
    return boundUnix ? std::uint32_t{DESC_BOUND_UNIX} : 0;
}

// The table grows by half when it is full.
bool appendEntry(Globals &globals, const DescriptorEntry &entry) {
    auto &table = globals.m_descriptors;
    try {
        if (table.size() == table.capacity())
            table.reserve(table.size() + table.size() / 2 + 1);
        table.push_back(entry);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

void changeSecure(const Globals &globals, DescriptorEntry &entry, bool secure) {
    entry.flags = secure ? entry.flags | DESC_SECURE : entry.flags & ~std::uint32_t{DESC_SECURE};
    if (entry.frames)
        applyReceiveMark(globals, entry);
}

// Without a transport a descriptor can carry the flag all the same.
bool transportAccepts(const Globals &globals, int fd) {
    return globals.m_transport != nullptr ? sf_addSecureDescriptor(fd) : fd != -1;
}

bool refuseSecure(const SourcePlace &place) {
    errorAt(place, TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    return false;
}

bool upgradeEntry(const Globals &globals, DescriptorEntry &entry, bool secure,
                  const SourcePlace &place) {
    if (!secure || (entry.flags & DESC_SECURE) != 0)
        return true;
    if (!transportAccepts(globals, entry.fd))
        return refuseSecure(place);
    changeSecure(globals, entry, true);
    return true;
}

bool addEntry(Globals &globals, int fd, bool secure, std::uint32_t bound,
              const SourcePlace &place) {
    DescriptorEntry entry{fd, bound};
    if (bound == 0 && secure) {
        if (!transportAccepts(globals, fd))
            return refuseSecure(place);
        entry.flags = DESC_SECURE;
    }
    const bool sized = setSystemBuffers(fd, 0);
    if (sized && appendEntry(globals, entry))
        return true;
    errorAt(place, sized ? TCP_ERROR_OUT_OF_MEMORY : TCP_ERROR_STREAM_BUFFER,
            "vintok::addDescriptor");
    if (secure && globals.m_transport != nullptr)
        sf_removeSecureDescriptor(fd);
    return false;
}

bool setEntrySecure(const Globals &globals, DescriptorEntry &entry, bool secure,
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

void removeEntry(Globals &globals, DescriptorEntry *entry) {
    if ((entry->flags & DESC_SECURE) != 0 && globals.m_transport != nullptr)
        sf_removeSecureDescriptor(entry->fd);
    if (entry->frames) {
        entry->frames = false;
        applyReceiveMark(globals, *entry); // the socket may live on in other hands
    }
    forgetHeld(globals, entry->fd);
    auto &table = globals.m_descriptors;
    table.erase(table.begin() + (entry - table.data()));
}

// The row of a descriptor that a caller must know: started, 1 or above, present. Null after setting
// the error.
DescriptorEntry *requireEntry(int fd, const char *name, const SourcePlace &place) {
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
    const auto found = std::find_if(globals.m_descriptors.begin(), globals.m_descriptors.end(),
                                    [fd](const DescriptorEntry &entry) { return entry.fd == fd; });
    return found != globals.m_descriptors.end() ? &*found : nullptr;
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

// Asked before every transfer of bytes: builds no text unless something failed.
bool descriptorState(int fd, bool &secure, bool &closed, bool &boundIPv4, bool &boundIPv6,
                     bool &boundUnix) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    if (mutex.lock() != 0) {
        VINTOK_ERROR(TCP_ERROR_LOCK_FAILED,
                     formatText("vintok::descriptorState (%d) lock failed.", fd));
        return false;
    }
    bool open = false;
    Globals *globals = startedGlobals();
    if (globals == nullptr) {
        VINTOK_ERROR(TCP_ERROR_NOT_INITIALIZED,
                     formatText("vintok::descriptorState (%d) Not initialized.", fd));
    } else if (const DescriptorEntry *entry = findEntry(*globals, fd)) {
        secure = (entry->flags & DESC_SECURE) != 0;
        closed = (entry->flags & DESC_CLOSED) != 0;
        boundIPv4 = (entry->flags & DESC_BOUND_IPV4) != 0;
        boundIPv6 = (entry->flags & DESC_BOUND_IPV6) != 0;
        boundUnix = (entry->flags & DESC_BOUND_UNIX) != 0;
        open = !closed;
    }
    if (mutex.unlock() != 0)
        VINTOK_ERROR(TCP_ERROR_UNLOCK_FAILED,
                     formatText("vintok::descriptorState (%d) unlock failed.", fd));
    return open;
}

bool setClosed(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    if (mutex.lock() != 0) {
        VINTOK_ERROR(TCP_ERROR_LOCK_FAILED, formatText("vintok::setClosed (%d) lock failed.", fd));
        return false;
    }
    Globals *globals = startedGlobals();
    DescriptorEntry *entry = nullptr;
    if (globals == nullptr)
        VINTOK_ERROR(TCP_ERROR_NOT_INITIALIZED, "vintok::setClosed");
    else if (fd < 1)
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR, "vintok::setClosed");
    else
        entry = findEntry(*globals, fd);
    if (entry != nullptr)
        entry->flags |= DESC_CLOSED;
    if (mutex.unlock() != 0)
        VINTOK_ERROR(TCP_ERROR_UNLOCK_FAILED, "vintok::setClosed");
    return entry != nullptr;
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
