#include "Sandbox.h"

#include "Fuzz.h"
#include "platform/File.h"
#include "platform/Resolve.h"
#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Thread.h"
#include "platform/Wait.h"
#include "vintok/ByteOrder.h"

#include <cstring>

namespace vintok::fuzz {

Sandbox &sandbox() {
    static Sandbox world;
    return world;
}

using namespace platform;
using Text = std::string;
using SteadyTime = std::chrono::steady_clock::time_point;

namespace {

// Whether a wait that has found nothing may look again, the time having passed.
void passTime(std::int32_t milliseconds) {
    ++sandbox().waits;
    if (milliseconds >= 0)
        sandbox().now += std::chrono::milliseconds(milliseconds);
    else
        require(sandbox().relieve && sandbox().relieve(), "no wait for what never comes");
}

// By its steps, of which none may lead above the folder.
bool isInside(const Text &path) {
    const Text &folder = sandbox().folder;
    if (path == sandbox().sent || path == folder)
        return true;
    if (path.compare(0, folder.size(), folder) != 0)
        return false;
    int depth = 0;
    for (std::size_t begin = folder.size(); begin < path.size();) {
        if (path[begin] != '/' && path[begin] != '\\')
            return false;
        const std::size_t end = std::min(path.find_first_of("/\\", begin + 1), path.size());
        const Text step = path.substr(begin + 1, end - begin - 1);
        depth += step.empty() || step == "." ? 0 : step == ".." ? -1 : 1;
        if (depth < 0)
            return false;
        begin = end;
    }
    return true;
}

void touch(const Text &path) {
    require(isInside(path), "no file outside the folder for files");
    ++sandbox().filesTouched;
}

bool isReachable(const Endpoint &endpoint) {
    const std::vector<std::uint16_t> &ports = sandbox().ports;
    const bool isLoopback =
        endpoint.family == FAMILY_IPV4
            ? *reinterpret_cast<const unsigned char *>(&endpoint.ipv4) == 127
            : endpoint.family == FAMILY_IPV6 &&
                  endpoint.ipv6 == decltype(endpoint.ipv6){0, 0, 0, 0, 0, 0, 0, networkOrder(1)};
    return isLoopback &&
           std::find(ports.begin(), ports.end(), networkOrder(endpoint.port)) != ports.end();
}

} // namespace

// The function that the linker knows by this name, and what is called in its place.
#define WRAPPED(result, function, name, ...)                                                       \
    result real##function(__VA_ARGS__) asm("__real_" name);                                        \
    result wrap##function(__VA_ARGS__) asm("__wrap_" name);
#define PLATFORM "_ZN6vintok8platform"
#define TEXT "RKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

// ---- Time ----

WRAPPED(SteadyTime, Now, "_ZNSt6chrono3_V212steady_clock3nowEv", void)
SteadyTime wrapNow() {
    sandbox().now += std::chrono::microseconds(1);
    return SteadyTime(std::chrono::duration_cast<SteadyTime::duration>(sandbox().now));
}

WRAPPED(void, Sleep, PLATFORM "17sleepMillisecondsEj", std::uint32_t)
void wrapSleep(std::uint32_t milliseconds) {
    ++sandbox().sleeps;
    sandbox().now += std::chrono::milliseconds(milliseconds);
}

WRAPPED(bool, Await, PLATFORM "11awaitSocketEiNS0_5AwaitEi", int, Await, std::int32_t)
bool wrapAwait(int descriptor, Await what, std::int32_t milliseconds) {
    if (realAwait(descriptor, what, 0) || milliseconds == 0)
        return realAwait(descriptor, what, 0);
    passTime(milliseconds);
    return realAwait(descriptor, what, 0);
}

WRAPPED(int, WaitReady, PLATFORM "9waitReadyERNS0_13DescriptorSetES2_RKNS0_9WaitLimitE",
        DescriptorSet &, DescriptorSet &, const WaitLimit &)
int wrapWaitReady(DescriptorSet &readers, DescriptorSet &writers, const WaitLimit &limit) {
    const DescriptorSet wantedReaders(readers);
    const DescriptorSet wantedWriters(writers);
    const WaitLimit now{0, limit.running};
    int result = realWaitReady(readers, writers, now);
    while (result == 0 && limit.milliseconds != 0) {
        passTime(limit.milliseconds);
        readers = wantedReaders;
        writers = wantedWriters;
        result = realWaitReady(readers, writers, now);
        if (limit.milliseconds > 0)
            break;
    }
    return result;
}

// ---- The network ----

WRAPPED(int, Open, PLATFORM "10openSocketENS0_6FamilyE", Family)
int wrapOpen(Family family) {
    const int descriptor = realOpen(family);
    sandbox().sockets += descriptor != -1 ? 1 : 0;
    return descriptor;
}

WRAPPED(int, Accept, PLATFORM "12acceptSocketEiNS0_6FamilyERNS0_8EndpointE", int, Family,
        Endpoint &)
int wrapAccept(int listener, Family family, Endpoint &peer) {
    const int descriptor = realAccept(listener, family, peer);
    sandbox().sockets += descriptor != -1 ? 1 : 0;
    return descriptor;
}

WRAPPED(bool, Close, PLATFORM "11closeSocketEi", int)
bool wrapClose(int descriptor) {
    const bool closed = realClose(descriptor);
    sandbox().sockets -= closed ? 1 : 0;
    return closed;
}

WRAPPED(bool, Connect, PLATFORM "13connectSocketEiRKNS0_8EndpointE", int, const Endpoint &)
bool wrapConnect(int descriptor, const Endpoint &endpoint) {
    if (isReachable(endpoint))
        return realConnect(descriptor, endpoint);
    setSocketError(socketErrors::connectionRefused);
    return false;
}

// No name service is asked.
WRAPPED(bool, Resolve,
        PLATFORM "11resolveHostE" TEXT "NS0_6LookupEbRSt6vectorINS0_15ResolvedAddressESaISB_EE",
        const Text &, Lookup, bool, std::vector<ResolvedAddress> &)
bool wrapResolve(const Text &name, Lookup lookup, bool, std::vector<ResolvedAddress> &result) {
    return realResolve(name, lookup, true, result);
}

// ---- Files ----

WRAPPED(std::FILE *, OpenFile, PLATFORM "8openFileE" TEXT "PKc", const Text &, const char *)
std::FILE *wrapOpenFile(const Text &path, const char *mode) {
    touch(path);
    return realOpenFile(path, mode);
}

WRAPPED(std::FILE *, CreateFile, PLATFORM "10createFileE" TEXT, const Text &)
std::FILE *wrapCreateFile(const Text &path) {
    touch(path);
    return realCreateFile(path);
}

WRAPPED(bool, MakeDirectory, PLATFORM "13makeDirectoryE" TEXT, const Text &)
bool wrapMakeDirectory(const Text &path) {
    touch(path);
    return realMakeDirectory(path);
}

WRAPPED(bool, RemoveFile, PLATFORM "10removeFileE" TEXT, const Text &)
bool wrapRemoveFile(const Text &path) {
    touch(path);
    return realRemoveFile(path);
}

} // namespace vintok::fuzz
