#include <iostream>
#include <vintok/vintok.h>

int main() {
    vintok::TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(7777);
    std::string text;
    bool ready = vintok::init() && address.ipString(text);
    std::cout << text << ':' << address.hostByteOrderPort() << '\n';
    return ready && vintok::fini() ? 0 : 1;
}
