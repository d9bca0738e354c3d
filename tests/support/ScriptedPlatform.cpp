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

namespace vintok::test {

namespace {

ScriptedPlatform *s_script = nullptr;

// The next answer of a list, if there is one; leaves its error.
std::optional<std::int64_t> nextAnswer(std::deque<Answer> ScriptedPlatform::*list) {
    if (s_script == nullptr || (s_script->*list).empty())
        return std::nullopt;
    const Answer answer = (s_script->*list).front();
    (s_script->*list).pop_front();
    if (answer.count <= 0)
        platform::setSocketError(answer.error);
    return answer.count;
}

std::optional<std::int64_t> nextBytes(std::deque<Answer> ScriptedPlatform::*list,
                                      unsigned char *buffer, std::size_t length) {
    auto count = nextAnswer(list);
    if (count && *count > 0) {
        *count = std::min(*count, static_cast<std::int64_t>(length));
        std::fill_n(buffer, *count, static_cast<unsigned char>('x'));
    }
    return count;
}

} // namespace

std::deque<Answer> times(std::size_t count, Answer answer, std::deque<Answer> rest) {
    rest.insert(rest.begin(), count, answer);
    return rest;
}

ScriptedPlatform::ScriptedPlatform() {
    s_script = this;
}

ScriptedPlatform::~ScriptedPlatform() {
    s_script = nullptr;
}

std::uint64_t ScriptedPlatform::slept() const {
    return std::accumulate(sleeps.begin(), sleeps.end(), std::uint64_t{0});
}

std::int64_t realReceive(int, unsigned char *,
                         std::size_t) asm("__real__ZN6vintok8platform7receiveEiPh" VINTOK_SIZE);
std::int64_t wrapReceive(int, unsigned char *,
                         std::size_t) asm("__wrap__ZN6vintok8platform7receiveEiPh" VINTOK_SIZE);
std::int64_t wrapReceive(int fd, unsigned char *buffer, std::size_t length) {
    const auto count = nextBytes(&ScriptedPlatform::receive, buffer, length);
    return count ? *count : realReceive(fd, buffer, length);
}

std::int64_t realPeek(int, unsigned char *,
                      std::size_t) asm("__real__ZN6vintok8platform4peekEiPh" VINTOK_SIZE);
std::int64_t wrapPeek(int, unsigned char *,
                      std::size_t) asm("__wrap__ZN6vintok8platform4peekEiPh" VINTOK_SIZE);
std::int64_t wrapPeek(int fd, unsigned char *buffer, std::size_t length) {
    const auto count = nextBytes(&ScriptedPlatform::peek, buffer, length);
    return count ? *count : realPeek(fd, buffer, length);
}

std::int64_t realSend(int, const unsigned char *,
                      std::size_t) asm("__real__ZN6vintok8platform4sendEiPKh" VINTOK_SIZE);
std::int64_t wrapSend(int, const unsigned char *,
                      std::size_t) asm("__wrap__ZN6vintok8platform4sendEiPKh" VINTOK_SIZE);
std::int64_t wrapSend(int fd, const unsigned char *buffer, std::size_t length) {
    const auto count = nextAnswer(&ScriptedPlatform::send);
    return count ? std::min(*count, static_cast<std::int64_t>(length))
                 : realSend(fd, buffer, length);
}

bool realBytesWaiting(int,
                      std::size_t &) asm("__real__ZN6vintok8platform12bytesWaitingEiR" VINTOK_SIZE);
bool wrapBytesWaiting(int,
                      std::size_t &) asm("__wrap__ZN6vintok8platform12bytesWaitingEiR" VINTOK_SIZE);
bool wrapBytesWaiting(int fd, std::size_t &waiting) {
    const auto count = nextAnswer(&ScriptedPlatform::waiting);
    if (!count)
        return realBytesWaiting(fd, waiting);
    if (*count >= 0)
        waiting = static_cast<std::size_t>(*count);
    return *count >= 0;
}

int realAccept(int, platform::Family, platform::Endpoint &) asm(
    "__real__ZN6vintok8platform12acceptSocketEiNS0_6FamilyERNS0_8EndpointE");
int wrapAccept(int, platform::Family, platform::Endpoint &) asm(
    "__wrap__ZN6vintok8platform12acceptSocketEiNS0_6FamilyERNS0_8EndpointE");
int wrapAccept(int fd, platform::Family family, platform::Endpoint &peer) {
    return nextAnswer(&ScriptedPlatform::accept) ? -1 : realAccept(fd, family, peer);
}

bool realListen(int, int) asm("__real__ZN6vintok8platform12listenSocketEii");
bool wrapListen(int, int) asm("__wrap__ZN6vintok8platform12listenSocketEii");
bool wrapListen(int fd, int backlog) {
    return nextAnswer(&ScriptedPlatform::listen) ? false : realListen(fd, backlog);
}

bool realHostName(std::string &) asm("__real__ZN6vintok8platform8hostNameERNSt7__cxx1112basic_"
                                     "stringIcSt11char_traitsIcESaIcEEE");
bool wrapHostName(std::string &) asm("__wrap__ZN6vintok8platform8hostNameERNSt7__cxx1112basic_"
                                     "stringIcSt11char_traitsIcESaIcEEE");
bool wrapHostName(std::string &name) {
    return nextAnswer(&ScriptedPlatform::hostName) ? false : realHostName(name);
}

bool realStartSockets(std::uint16_t,
                      std::uint16_t &) asm("__real__ZN6vintok8platform12startSocketsEtRt");
bool wrapStartSockets(std::uint16_t,
                      std::uint16_t &) asm("__wrap__ZN6vintok8platform12startSocketsEtRt");
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

void realStopSockets() asm("__real__ZN6vintok8platform11stopSocketsEv");
void wrapStopSockets() asm("__wrap__ZN6vintok8platform11stopSocketsEv");
void wrapStopSockets() {
    if (s_script != nullptr)
        s_script->stops++;
    realStopSockets();
}

using Lock = platform::RecursiveLock;
Lock::Wait realAcquire(Lock *) asm("__real__ZN6vintok8platform13RecursiveLock7acquireEv");
Lock::Wait wrapAcquire(Lock *) asm("__wrap__ZN6vintok8platform13RecursiveLock7acquireEv");
Lock::Wait wrapAcquire(Lock *lock) {
    const auto result = nextAnswer(&ScriptedPlatform::acquire);
    return result ? static_cast<Lock::Wait>(*result) : realAcquire(lock);
}

bool realClose(Lock *) asm("__real__ZN6vintok8platform13RecursiveLock5closeEv");
bool wrapClose(Lock *) asm("__wrap__ZN6vintok8platform13RecursiveLock5closeEv");
bool wrapClose(Lock *lock) {
    return nextAnswer(&ScriptedPlatform::close) ? false : realClose(lock);
}

void realSleep(std::uint32_t) asm("__real__ZN6vintok8platform17sleepMillisecondsEj");
void wrapSleep(std::uint32_t) asm("__wrap__ZN6vintok8platform17sleepMillisecondsEj");
void wrapSleep(std::uint32_t milliseconds) {
    if (s_script != nullptr)
        s_script->sleeps.push_back(milliseconds);
    else
        realSleep(milliseconds);
}

using Word = std::atomic<std::uint32_t>;
bool realWaitWhile(const Word &, std::uint32_t,
                   std::uint32_t) asm("__real__ZN6vintok8platform9waitWhileERKSt6atomicIjEjj");
bool wrapWaitWhile(const Word &, std::uint32_t,
                   std::uint32_t) asm("__wrap__ZN6vintok8platform9waitWhileERKSt6atomicIjEjj");
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
