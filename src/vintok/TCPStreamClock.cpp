#include "vintok/TCPStream.h"

#include "vintok/StreamInternal.h"

#include <ctime>

namespace vintok {

namespace {

// Wraps, as the clock of a peer or a caller may ask for anything.
std::int64_t sum(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t difference(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

// The two cases differ on purpose: only an excess of subtracted time is reduced to the difference.
// Peers restore their clocks from these two numbers. Equal ones both stay.
void normalize(Globals &globals) {
    if (globals.m_addTime < globals.m_subtractTime) {
        globals.m_subtractTime = difference(globals.m_subtractTime, globals.m_addTime);
        globals.m_addTime = 0;
    } else if (globals.m_addTime > globals.m_subtractTime) {
        globals.m_subtractTime = 0;
    }
}

Globals *globalsFor(const ErrorContext &name, const SourcePlace &place = SourcePlace::caller()) {
    Globals *globals = startedGlobals();
    if (globals == nullptr)
        errorAt(place, TCP_ERROR_NOT_INITIALIZED, name);
    return globals;
}

} // namespace

std::int64_t getTime() {
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    const Globals *globals = globalsFor("vintok::getTime");
    if (globals == nullptr)
        return now;
    return sum(now, difference(globals->m_addTime, globals->m_subtractTime));
}

bool addTime(std::int64_t seconds) {
    static TCPMutex mutex(LOCK_CLOCK);
    return underLock(mutex, "vintok::addTime", [&] {
        Globals *globals = globalsFor("vintok::addTime");
        if (globals == nullptr)
            return false;
        globals->m_addTime = sum(globals->m_addTime, seconds);
        normalize(*globals);
        return true;
    });
}

bool subtractTime(std::int64_t seconds) {
    static TCPMutex mutex(LOCK_CLOCK);
    return underLock(mutex, "vintok::subtractTime", [&] {
        Globals *globals = globalsFor("vintok::subtractTime");
        if (globals == nullptr)
            return false;
        globals->m_subtractTime = sum(globals->m_subtractTime, seconds);
        normalize(*globals);
        return true;
    });
}

bool zeroTime() {
    static TCPMutex mutex(LOCK_CLOCK);
    return underLock(mutex, "vintok::zeroTime", [] {
        Globals *globals = globalsFor("vintok::zeroTime");
        if (globals == nullptr)
            return false;
        globals->m_addTime = 0;
        globals->m_subtractTime = 0;
        return true;
    });
}

std::int64_t getAddTime() {
    const Globals *globals = globalsFor("vintok::getAddTime");
    return globals != nullptr ? globals->m_addTime.load() : 0;
}

std::int64_t getSubtractTime() {
    const Globals *globals = globalsFor("vintok::getSubtractTime");
    return globals != nullptr ? globals->m_subtractTime.load() : 0;
}

} // namespace vintok
