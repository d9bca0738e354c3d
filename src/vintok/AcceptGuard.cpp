#include "vintok/AcceptGuard.h"

#include "platform/Socket.h"
#include "platform/Thread.h"
#include "platform/Wait.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPStream.h"

#include <algorithm>

namespace vintok {

namespace {

constexpr std::uint32_t pause = 250; // milliseconds
constexpr unsigned patience = 16;

bool isWaiting(int listener) {
    const DescriptorState state(listener);
    platform::DescriptorSet set;
    return state.known && state.bound() && set.insert(listener) &&
           platform::waitReadable(set, true) == 1;
}

bool isShortOfDescriptors() {
    const int probe = platform::openSocket(platform::FAMILY_IPV4);
    if (probe != -1)
        platform::closeSocket(probe);
    return probe == -1;
}

} // namespace

AcceptGuard::AcceptGuard() {
    takeReserve();
}

AcceptGuard::~AcceptGuard() {
    if (m_reserve != -1)
        platform::closeSocket(m_reserve);
}

int AcceptGuard::accept(int listener) {
    TCPAddress peer;
    return accept(listener, peer);
}

int AcceptGuard::accept(int listener, TCPAddress &peer) {
    takeReserve();
    const int descriptor = acceptBoundSocket(listener, peer);
    if (descriptor != -1) {
        m_failures = 0;
        return descriptor;
    }
    if (m_failures == 0)
        VINTOK_LOG(SEVERITY_ERROR, "mf_connectPending accept failed");
    m_failures = std::min(m_failures + 1, patience);
    // Some systems fail an accept for a caller who has gone again; the next one in the line is not
    // to pay for that.
    if ((m_failures == patience || isShortOfDescriptors()) && isWaiting(listener))
        turnAway(listener);
    return -1;
}

void AcceptGuard::turnAway(int listener) {
    if (m_reserve != -1)
        platform::closeSocket(m_reserve);
    m_reserve = -1;
    // Somebody else may have taken what waited, and this accept must not wait for the next.
    platform::setBlockingMode(listener, false);
    platform::Endpoint peer;
    const int refused = platform::acceptSocket(listener, platform::FAMILY_IPV4, peer);
    platform::setBlockingMode(listener, true);
    if (refused != -1)
        platform::closeSocket(refused);
    else
        platform::sleepMilliseconds(pause);
    takeReserve();
}

void AcceptGuard::takeReserve() {
    if (m_reserve == -1)
        m_reserve = platform::openSocket(platform::FAMILY_IPV4);
}

} // namespace vintok
