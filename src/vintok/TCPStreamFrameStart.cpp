// The beginning of frames: when a connection that carries them counts as readable, and where the
// first few bytes of one wait as long as they are too few to begin with.
//
// Those few must not stay in the socket. The system counts the memory of all that arrived with
// them, so a peer that sends fast can meet a receive window that never opens again: the rest of the
// frame cannot come, and without the rest nobody takes the few. So they are taken out and held in
// front of the socket, and what moves a socket's bytes gives them back first. It happens seldom,
// when a window or a slow peer has cut a frame; `m_holds` spares everybody else the lock.
#include "vintok/Globals.h"

#include "platform/Socket.h"

#include <algorithm>
#include <new>

namespace vintok {

namespace {

using Held = std::vector<unsigned char>;

bool carriesPlainFrames(const DescriptorEntry &entry) {
    return entry.frames && (entry.flags & DESC_SECURE) == 0;
}

// Appends what waits in the socket, unless a frame can be begun with it.
void holdWaiting(Globals &globals, int fd) {
    std::size_t waiting = 0;
    if (!platform::bytesWaiting(fd, waiting) || waiting == 0)
        return;
    Held &held = globals.m_held[fd];
    const std::size_t before = held.size();
    if (before + waiting < smallestFrame) {
        held.resize(before + waiting);
        const std::int64_t got = platform::receive(fd, held.data() + before, waiting);
        held.resize(before + static_cast<std::size_t>(std::max<std::int64_t>(got, 0)));
    }
    if (held.empty())
        globals.m_held.erase(fd);
    globals.m_holds = !globals.m_held.empty();
}

// Up to `length` of the bytes that are held, copied unless `copy` is null. The count.
std::size_t useHeld(int fd, std::size_t length, unsigned char *copy, bool take) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    Globals *globals = startedGlobals();
    if (globals == nullptr || !globals->m_holds)
        return 0;
    std::size_t count = 0;
    underLock(mutex, "vintok::takeHeld", [&] {
        const auto found = globals->m_held.find(fd);
        if (found == globals->m_held.end())
            return false;
        Held &held = found->second;
        count = std::min(length, held.size());
        if (copy != nullptr)
            std::copy_n(held.begin(), count, copy);
        if (!take)
            return true;
        held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(count));
        if (held.empty())
            forgetHeld(*globals, fd);
        const DescriptorEntry *entry = findEntry(*globals, fd);
        return entry != nullptr && applyReceiveMark(*globals, *entry);
    });
    return count;
}

bool expect(int fd, bool frames) {
    Globals *globals = startedGlobals();
    DescriptorEntry *entry = globals != nullptr ? findEntry(*globals, fd) : nullptr;
    if (entry == nullptr || (entry->flags & (DESC_BOUND | DESC_CLOSED)) != 0)
        return false;
    entry->frames = frames;
    return applyReceiveMark(*globals, *entry);
}

} // namespace

// A secure transport reads records of its own size, so the mark rests while a descriptor is secure.
bool applyReceiveMark(const Globals &globals, const DescriptorEntry &entry) {
    std::size_t mark = 1;
    if (carriesPlainFrames(entry)) {
        const auto held = globals.m_held.find(entry.fd);
        mark = smallestFrame - (held != globals.m_held.end() ? held->second.size() : 0);
    }
    return platform::setReceiveLowWater(entry.fd, static_cast<int>(mark));
}

void forgetHeld(Globals &globals, int fd) {
    globals.m_held.erase(fd);
    globals.m_holds = !globals.m_held.empty();
}

bool expectFrames(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    return underLock(mutex, "vintok::expectFrames", [fd] { return expect(fd, true); });
}

bool expectBytes(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    return underLock(mutex, "vintok::expectBytes", [fd] { return expect(fd, false); });
}

bool holdFrameStart(int fd) {
    static TCPMutex mutex(LOCK_DESCRIPTORS);
    return underLock(mutex, "vintok::holdFrameStart", [fd] {
        Globals *globals = startedGlobals();
        DescriptorEntry *entry = globals != nullptr ? findEntry(*globals, fd) : nullptr;
        if (entry == nullptr || !carriesPlainFrames(*entry))
            return false;
        try {
            holdWaiting(*globals, fd);
        } catch (const std::bad_alloc &) {
            return false; // they stay where they are
        }
        return applyReceiveMark(*globals, *entry);
    });
}

std::size_t takeHeld(int fd, unsigned char *buffer, std::size_t length) {
    return useHeld(fd, length, buffer, true);
}

std::size_t lookAtHeld(int fd, unsigned char *buffer, std::size_t length) {
    return useHeld(fd, length, buffer, false);
}

std::size_t countHeld(int fd) {
    return useHeld(fd, smallestFrame, nullptr, false);
}

} // namespace vintok
