// Addresses, networks and URLs as texts. Nothing is resolved.
#include "Fuzz.h"

#include "Target.h"
#include "vintok/HTTPAddress.h"

#include <array>

using namespace vintok;
using fuzz::require;

namespace {

std::string ipText(const TCPAddress &address) {
    std::string text;
    require(address.ipString(text), "an address has a text");
    return text;
}

void literals(const std::string &text) {
    std::uint32_t ipv4 = 0;
    std::array<std::uint16_t, 8> ipv6{};
    std::uint16_t bits = 0;
    if (TCPAddress::sf_parseIPv4(text, ipv4, bits)) {
        TCPAddress address;
        address.setIPv4(ipv4);
        std::uint32_t again = 0;
        require(TCPAddress::sf_parseIPv4(ipText(address), again, bits) && again == ipv4,
                "an IPv4 address is told as it is read");
    }
    require(bits <= 32, "no longer mask");
    bits = 0;
    if (TCPAddress::sf_parseIPv6(text, ipv6.data(), bits)) {
        TCPAddress address;
        address.setIPv6(ipv6.data());
        ipText(address);
    }
    require(bits <= 128, "no longer mask of an IPv6 address");
}

void networks(const std::string &text, const std::string &mask) {
    TCPAddress network;
    TCPAddress address;
    address.setName(text);
    require(network.setNetwork(text, mask) || !network.isNetwork() || network.maskBits() <= 128,
            "a mask in its limits");
    std::string words;
    network.maskString(words);
    if (network.maskBits() != 0 && network.isIPv4() && address.isIPv4())
        require(address.isInNet(network), "a network has its own address");
    TCPAddress other;
    other.setLoopbackIPv4();
    static_cast<void>(other.isInNet(network));
    std::array<unsigned char, 24> bytes{};
    TCPAddress again;
    require(network.write(bytes.data(), bytes.size()) == bytes.size() &&
                again.read(bytes.data(), bytes.size()) == bytes.size(),
            "24 bytes");
    require(ipText(again) == ipText(network), "an address is read as it was written");
}

void urls(const std::string &text) {
    HTTPAddress url;
    std::string part;
    if (!url.setURL(text)) {
        require(!url.url(part) && url.empty(), "what is refused changes nothing");
        return;
    }
    require(url.url(part) && part == text, "the URL as it was given");
    require(url.path(part) && part.size() <= text.size(), "a path of it");
    require(url.port() != 0, "a port");
    ipText(url);
}

void targets(const std::string &text) {
    app::Target target;
    if (!app::parseTarget(text, target))
        return;
    app::Target again;
    require(app::parseTarget(target.text(), again) && again == target, "a target as it is told");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string all(fuzz::textOf(data, size));
    const std::size_t blank = std::min(all.find(' '), size);
    literals(all);
    networks(all.substr(0, blank), all.substr(std::min(blank + 1, size)));
    urls(all);
    targets(all);
    return 0;
}
