#include <iostream>
#include <vintok/vintok.h>

int main() {
    vintok::TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(7777);
    std::string text;
    bool ready = vintok::init() && address.ipString(text);
    ready = ready && vintok::versionNumber() == VINTOK_VERSION &&
            vintok::version() == std::string(VINTOK_VERSION_TEXT);
    std::cout << text << ':' << address.hostByteOrderPort() << '\n';
    return ready && vintok::fini() ? 0 : 1;
}
