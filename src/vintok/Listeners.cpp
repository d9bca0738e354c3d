#include "vintok/Listeners.h"

#include "vintok/StreamInternal.h"
#include "vintok/TCPStream.h"

namespace vintok {

namespace {

constexpr int systemBacklog = 0;

int listenOnOwnAddress(TCPAddress &address, unsigned short port, std::size_t tries,
                       TCPAddress::IPType family) {
    address.setHostByteOrderPort(port);
    if (!address.resolve(family))
        return -1;
    return createBoundSocket(address, systemBacklog, tries, true, TCPAddress::IPTYPE_NONE);
}

} // namespace

Listeners Listeners::onLoopback(unsigned short port, std::size_t tries) {
    Listeners result;
    result.ipv4 = createLocalIPv4Socket(port, systemBacklog, tries, true);
    if (result.ipv4 != -1) {
        result.addressIPv4.setHostByteOrderPort(port);
        tries = 1;
    }
    result.ipv6 = createLocalIPv6Socket(port, systemBacklog, tries, true);
    if (result.ipv6 != -1) {
        result.addressIPv6.setLoopbackIPv6();
        result.addressIPv6.setHostByteOrderPort(port);
    }
    return result;
}

Listeners Listeners::anywhere(unsigned short port, std::size_t tries) {
    Listeners result;
    result.addressIPv4.setHostByteOrderPort(port);
    result.ipv4 = createIPv4Socket(result.addressIPv4, systemBacklog, tries, true);
    if (result.ipv4 != -1) {
        port = result.addressIPv4.hostByteOrderPort();
        tries = 1;
    }
    result.addressIPv6.setHostByteOrderPort(port);
    result.ipv6 = createIPv6Socket(result.addressIPv6, systemBacklog, tries, true);
    return result;
}

Listeners Listeners::onOwnAddress(unsigned short port, std::size_t tries) {
    Listeners result;
    result.ipv4 = listenOnOwnAddress(result.addressIPv4, port, tries, TCPAddress::IPTYPE_IPV4);
    if (result.ipv4 != -1) {
        port = result.addressIPv4.hostByteOrderPort();
        tries = 1;
    }
    result.ipv6 = listenOnOwnAddress(result.addressIPv6, port, tries, TCPAddress::IPTYPE_IPV6);
    return result;
}

unsigned short Listeners::port() const {
    if (ipv4 != -1)
        return addressIPv4.hostByteOrderPort();
    return ipv6 != -1 ? addressIPv6.hostByteOrderPort() : static_cast<unsigned short>(0);
}

void watchListener(TCPSelect &select, int &listener, TCPSelectCallback function, void *owner) {
    if (listener == -1)
        return;
    if (select.addSocketCallback(listener, function, owner, false, false))
        admitReadAhead(listener);
    else
        closeListener(&select, listener, function, owner);
}

void closeListener(TCPSelect *select, int &listener, TCPSelectCallback function, void *owner) {
    if (listener == -1)
        return;
    if (select != nullptr)
        select->removeCallback(listener, function, owner);
    shutdownSocket(listener);
    listener = -1;
}

} // namespace vintok
