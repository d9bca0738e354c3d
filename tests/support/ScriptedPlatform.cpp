// The linker sends every call of a wrapped function to __wrap_ and its name, and finds the function
// itself as __real_ and its name. The names are those of the compiler, in which the build file's
// VINTOK_SIZE stands for std::size_t.
#include "support/ScriptedPlatform.h"

#include "platform/Resolve.h"
#include "platform/Socket.h"
#include "platform/Thread.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <sstream>

namespace vintok::test {

namespace {

ScriptedPlatform *s_script = nullptr;

// The next answer of a list, if there is one; leaves its error.
std::optional<std::int64_t> nextAnswer(Answers ScriptedPlatform::*list) {
    if (s_script == nullptr || (s_script->*list).empty())
        return std::nullopt;
    const Answer answer = (s_script->*list).front();
    (s_script->*list).pop_front();
    if (answer.count <= 0)
        platform::setSocketError(answer.error);
    return answer.count;
}

std::optional<std::int64_t> nextBytes(Answers ScriptedPlatform::*list, unsigned char *buffer,
                                      std::size_t length) {
    auto count = nextAnswer(list);
    if (count && *count > 0) {
        *count = std::min(*count, static_cast<std::int64_t>(length));
        std::fill_n(buffer, *count, static_cast<unsigned char>('x'));
    }
    return count;
}

} // namespace

Answers::Answers(const std::string &text) {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        std::size_t count = 1;
        if (const std::size_t star = word.find('*'); star != std::string::npos) {
            count = std::stoul(word);
            word.erase(0, star + 1);
        }
        const std::size_t mark = word.find('!');
        const std::int64_t given = mark == 0 ? -1 : std::stoll(word);
        insert(end(), count,
               {given, mark == std::string::npos ? 0 : std::stoi(word.substr(mark + 1))});
    }
}

// The function that the linker knows by this name, and what is called in its place.
#define WRAPPED(result, function, name, ...)                                                       \
    result real##function(__VA_ARGS__) asm("__real__ZN6vintok8platform" name);                     \
    result wrap##function(__VA_ARGS__) asm("__wrap__ZN6vintok8platform" name);

ScriptedPlatform::ScriptedPlatform() {
    s_script = this;
}

ScriptedPlatform::~ScriptedPlatform() {
    s_script = nullptr;
}

std::uint64_t ScriptedPlatform::slept() const {
    return std::accumulate(sleeps.begin(), sleeps.end(), std::uint64_t{0});
}

WRAPPED(std::int64_t, Receive, "7receiveEiPh" VINTOK_SIZE, int, unsigned char *, std::size_t)
std::int64_t wrapReceive(int fd, unsigned char *buffer, std::size_t length) {
    const auto count = nextBytes(&ScriptedPlatform::receive, buffer, length);
    return count ? *count : realReceive(fd, buffer, length);
}

WRAPPED(std::int64_t, Peek, "4peekEiPh" VINTOK_SIZE, int, unsigned char *, std::size_t)
std::int64_t wrapPeek(int fd, unsigned char *buffer, std::size_t length) {
    const auto count = nextBytes(&ScriptedPlatform::peek, buffer, length);
    return count ? *count : realPeek(fd, buffer, length);
}

WRAPPED(std::int64_t, Send, "4sendEiPKh" VINTOK_SIZE, int, const unsigned char *, std::size_t)
std::int64_t wrapSend(int fd, const unsigned char *buffer, std::size_t length) {
    const auto count = nextAnswer(&ScriptedPlatform::send);
    return count ? std::min(*count, static_cast<std::int64_t>(length))
                 : realSend(fd, buffer, length);
}

WRAPPED(bool, BytesWaiting, "12bytesWaitingEiR" VINTOK_SIZE, int, std::size_t &)
bool wrapBytesWaiting(int fd, std::size_t &waiting) {
    const auto count = nextAnswer(&ScriptedPlatform::waiting);
    if (!count)
        return realBytesWaiting(fd, waiting);
    if (*count >= 0)
        waiting = static_cast<std::size_t>(*count);
    return *count >= 0;
}

WRAPPED(int, Accept, "12acceptSocketEiNS0_6FamilyERNS0_8EndpointE", int, platform::Family,
        platform::Endpoint &)
int wrapAccept(int fd, platform::Family family, platform::Endpoint &peer) {
    return nextAnswer(&ScriptedPlatform::accept) ? -1 : realAccept(fd, family, peer);
}

WRAPPED(bool, Listen, "12listenSocketEii", int, int)
bool wrapListen(int fd, int backlog) {
    return nextAnswer(&ScriptedPlatform::listen) ? false : realListen(fd, backlog);
}

WRAPPED(bool, HostName, "8hostNameERNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
        std::string &)
bool wrapHostName(std::string &name) {
    return nextAnswer(&ScriptedPlatform::hostName) ? false : realHostName(name);
}

WRAPPED(bool, StartSockets, "12startSocketsEtRt", std::uint16_t, std::uint16_t &)
bool wrapStartSockets(std::uint16_t wanted, std::uint16_t &granted) {
    if (s_script != nullptr)
        s_script->startsWanted.push_back(wanted);
    const auto version = nextAnswer(&ScriptedPlatform::start);
    if (version && *version < 0)
        return false;
    // The sockets of the system are wanted all the same.
    const bool started = realStartSockets(wanted, granted);
    if (version)
        granted = static_cast<std::uint16_t>(*version);
    return started;
}

WRAPPED(void, StopSockets, "11stopSocketsEv", void)
void wrapStopSockets() {
    if (s_script != nullptr)
        s_script->stops++;
    realStopSockets();
}

using Lock = platform::RecursiveLock;
WRAPPED(Lock::Wait, Acquire, "13RecursiveLock7acquireEv", Lock *)
Lock::Wait wrapAcquire(Lock *lock) {
    const auto result = nextAnswer(&ScriptedPlatform::acquire);
    return result ? static_cast<Lock::Wait>(*result) : realAcquire(lock);
}

WRAPPED(void, Sleep, "17sleepMillisecondsEj", std::uint32_t)
void wrapSleep(std::uint32_t milliseconds) {
    if (s_script != nullptr)
        s_script->sleeps.push_back(milliseconds);
    else
        realSleep(milliseconds);
}

using Word = std::atomic<std::uint32_t>;
WRAPPED(bool, WaitWhile, "9waitWhileERKSt6atomicIjEjj", const Word &, std::uint32_t, std::uint32_t)
bool wrapWaitWhile(const Word &word, std::uint32_t value, std::uint32_t milliseconds) {
    if (s_script == nullptr)
        return realWaitWhile(word, value, milliseconds);
    s_script->waiters++;
    const bool ended = realWaitWhile(word, value, 60'000);
    s_script->waiters--;
    s_script->waitsInVain += ended ? 0 : 1;
    return ended;
}

} // namespace vintok::test
