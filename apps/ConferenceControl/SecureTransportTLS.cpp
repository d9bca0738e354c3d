// With OpenSSL, through libvintok-tls.
#include "SecureTransport.h"

#include "Variables.h"

#include <vintok-tls/TLSTransport.h>
#include <vintok/TCPStream.h>

namespace control::secure {

namespace {

// For as long as the process lives: connections are still closed through it at the end.
vintok::TLSTransport &transport() {
    static vintok::TLSTransport &one = *new vintok::TLSTransport;
    return one;
}

vintok::TLSOptions &settings() {
    static vintok::TLSOptions settings;
    return settings;
}

} // namespace

bool start(bool required, bool fips, std::string &failure) {
    vintok::TLSOptions &tls = settings();
    tls.certificateFile = app::variable("VINTOK_TLS_CERT");
    tls.keyFile = app::variable("VINTOK_TLS_KEY");
    tls.rootsFile = app::variable("VINTOK_TLS_CA");
    tls.required = required;
    tls.FIPSOnly = fips;
    if (tls.certificateFile.empty() && tls.rootsFile.empty()) {
        failure = "neither VINTOK_TLS_CERT nor VINTOK_TLS_CA names a file";
        return false;
    }
    if (transport().open(tls) && vintok::setTransport(&transport()) &&
        vintok::setBackgroundTransport(&transport()))
        return true;
    failure = vintok::lastErrorString();
    return false;
}

void beginCall(const std::string &name, bool tunnelled) {
    if (vintok::transport() == nullptr)
        return;
    vintok::TLSOptions tls = settings();
    tls.expectedName = name;
    transport().open(tls);
    transport().setConnectsUnnamed(!tunnelled);
}

void endCall() {
    transport().setConnectsUnnamed(true);
}

} // namespace control::secure
