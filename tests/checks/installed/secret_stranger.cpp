#include <iostream>
#include <vintok-tls/TLSTransport.h>
#include <vintok/vintok.h>

int main() {
    vintok::TLSTransport tls;
    vintok::TLSOptions options;
    options.systemRoots = true;
    const bool ready = vintok::init() && tls.open(options) && vintok::setTransport(&tls);
    std::cout << (ready ? "secure" : vintok::lastErrorString()) << '\n';
    vintok::setTransport(nullptr);
    return ready && vintok::fini() ? 0 : 1;
}
