#include "vintok/TCPStream.h"

#include "platform/Socket.h"
#include "vintok/StreamInternal.h"

#include <cstdlib>
#include <new>
#include <string_view>

namespace vintok {

std::atomic<Globals *> s_globals{nullptr};
std::atomic<std::uint64_t> s_startUpCount{0};

namespace {

std::string_view environment(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

struct LevelName {
    const char *name;
    LogLevel level;
};

constexpr LevelName levelNames[] = {
    {"NONE", LOG_NONE}, {"FATAL", LOG_FATAL}, {"ERROR", LOG_ERROR}, {"WARNING", LOG_WARNING},
    {"INFO", LOG_INFO}, {"DEBUG", LOG_DEBUG}, {"TRACE", LOG_TRACE},
};

// A misspelled level silences the log, on purpose.
LogLevel levelOf(std::string_view name) {
    for (const LevelName &each : levelNames)
        if (name == each.name)
            return each.level;
    return LOG_NONE;
}

void readEnvironment(Globals &globals) {
    const std::string_view level = environment("VINTOK_ERROR_LOG_LEVEL");
    if (!level.empty())
        globals.m_logLevel = levelOf(level);
    const std::string_view file = environment("VINTOK_ERROR_LOG_FILE");
    if (!file.empty())
        globals.m_logFileName = file;
}

// Without memory for the record the library runs on without one, and logs as it does before `init`.
void makeGlobals(const SourcePlace &place) {
    try {
        s_globals = new Globals;
        errorAt(place, TCP_ERROR_NO_ERROR, "vintok::init");
        readEnvironment(*s_globals);
    } catch (const std::bad_alloc &) {
    }
}

struct SocketVersion {
    std::uint16_t wanted;
    ErrSeverity severity; // of the failure
    const char *failure;
};

constexpr SocketVersion socketVersions[] = {
    {0x0202, SEVERITY_WARNING, "WSAStartup version 2.2 failed\nTrying WSAStartup version 2.0"},
    {0x0002, SEVERITY_WARNING, "WSAStartup version 2.0 failed\nTrying WSAStartup version 1.1"},
    {0x0101, SEVERITY_ERROR, "WSAStartup version 1.1 failed."},
};

bool startSocketLayer(std::uint16_t &granted, const SourcePlace &place) {
    VINTOK_LOG_AT(place, SEVERITY_INFO, "Trying WSAStartup version 2.2");
    for (const SocketVersion &version : socketVersions) {
        if (platform::startSockets(version.wanted, granted))
            return true;
        VINTOK_LOG_AT(place, version.severity, version.failure);
    }
    return false;
}

// After a failure the record is left, and lost to the next start.
bool startUp(const SourcePlace &place) {
    makeGlobals(place);
    if (environment("VINTOK_ERROR_PRINT") == "True")
        setErrorDebug(true);
    VINTOK_LOG_AT(place, SEVERITY_INFO, "vintok first init");
    std::uint16_t granted = 0;
    if (!startSocketLayer(granted, place))
        return false;
    VINTOK_LOG_AT(place, SEVERITY_INFO,
                  formatText("WinSock Version %d.%d\n", granted & 0xFF, granted >> 8));
    s_startUpCount = 1;
    Globals *globals = s_globals;
    return globals == nullptr || globals->m_localAddress.resolveNetName();
}

void shutDown(const SourcePlace &place) {
    VINTOK_LOG_AT(place, SEVERITY_INFO, "vintok last fini");
    platform::stopSockets();
    Globals *globals = s_globals.exchange(nullptr);
    if (globals == nullptr) {
        errorAt(place, TCP_ERROR_SYSTEM_ERROR, withSystemText("vintok::fini"));
        return;
    }
    delete globals;
    errorAt(place, TCP_ERROR_NO_ERROR, "vintok::fini");
}

bool leave(const SourcePlace &place) {
    if (s_startUpCount == 0) {
        errorAt(place, TCP_ERROR_NOT_INITIALIZED, "vintok::fini");
        return false;
    }
    if (--s_startUpCount == 0)
        shutDown(place);
    else
        errorAt(place, TCP_ERROR_NO_ERROR, "vintok::fini");
    return true;
}

} // namespace

bool init() {
    static TCPMutex mutex(LOCK_START_UP);
    HeldLock lock(mutex);
    if (!lock) {
        VINTOK_ERROR(TCP_ERROR_LOCK_FAILED, "vintok::init");
        return false;
    }
    bool result = true;
    if (s_startUpCount != 0)
        ++s_startUpCount;
    else
        result = startUp(VINTOK_HERE);
    if (!lock.release())
        VINTOK_ERROR(TCP_ERROR_UNLOCK_FAILED, withSystemText("vintok::init"));
    return result;
}

// Unlike elsewhere, a lock that cannot be released makes this fail.
bool fini() {
    static TCPMutex mutex(LOCK_START_UP);
    HeldLock lock(mutex);
    if (!lock) {
        VINTOK_ERROR(TCP_ERROR_LOCK_FAILED, "vintok::fini");
        return false;
    }
    bool result = leave(VINTOK_HERE);
    if (!lock.release()) {
        VINTOK_ERROR(TCP_ERROR_UNLOCK_FAILED, "vintok::fini");
        result = false;
    }
    return result;
}

} // namespace vintok
