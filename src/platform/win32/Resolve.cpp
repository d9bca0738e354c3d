#include "platform/Resolve.h"

#include "platform/SocketAddress.h"

#include <array>
#include <cstdio>
#include <iphlpapi.h>
#include <vector>

namespace vintok::platform {

namespace {

bool isCandidate(const IP_ADAPTER_ADDRESSES &adapter) {
    return adapter.OperStatus == IfOperStatusUp && adapter.IfType != IF_TYPE_SOFTWARE_LOOPBACK;
}

// Fills `buffer` with the adapters' list; null when the system does not give it.
const IP_ADAPTER_ADDRESSES *adapters(Family family, std::vector<unsigned char> &buffer) {
    constexpr ULONG flags =
        GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    ULONG size = 16 * 1024;
    ULONG error = ERROR_BUFFER_OVERFLOW;
    // The list may grow between two calls.
    for (int tries = 0; tries < 3 && error == ERROR_BUFFER_OVERFLOW; ++tries) {
        buffer.resize(size);
        error =
            GetAdaptersAddresses(static_cast<ULONG>(systemFamily(family)), flags, nullptr,
                                 reinterpret_cast<IP_ADAPTER_ADDRESSES *>(buffer.data()), &size);
    }
    return error == NO_ERROR ? reinterpret_cast<const IP_ADAPTER_ADDRESSES *>(buffer.data())
                             : nullptr;
}

} // namespace

bool hostName(std::string &name) {
    std::array<char, 256> buffer = {};
    const auto ask = [&buffer](COMPUTER_NAME_FORMAT format) {
        DWORD size = buffer.size() - 1;
        return GetComputerNameExA(format, buffer.data(), &size) != FALSE;
    };
    if (!ask(ComputerNameDnsFullyQualified) && !ask(ComputerNamePhysicalDnsFullyQualified) &&
        gethostname(buffer.data(), static_cast<int>(buffer.size() - 1)) != 0) {
        std::perror("TCPAddress->nodeName ~ gethostname()");
        return false;
    }
    name = buffer.data();
    return true;
}

bool interfaceAddress(Family family, Endpoint &endpoint) {
    if (family == FAMILY_LOCAL)
        return false;
    std::vector<unsigned char> buffer;
    for (const auto *adapter = adapters(family, buffer); adapter != nullptr;
         adapter = adapter->Next) {
        if (!isCandidate(*adapter))
            continue;
        for (const auto *each = adapter->FirstUnicastAddress; each != nullptr; each = each->Next) {
            const Endpoint found = fromSystem(family, each->Address.lpSockaddr);
            if (!isLinkLocal(found)) {
                endpoint = found;
                endpoint.port = 0;
                return true;
            }
        }
    }
    return false;
}

} // namespace vintok::platform
