// With OpenSSL, through libvintok-tls.
#include "Secure.h"

#include "Failure.h"

#include <vintok-tls/TLSFolder.h>
#include <vintok-tls/TLSTransport.h>
#include <vintok/TCPStream.h>

namespace app::secure {

namespace {

// For as long as the process lives: connections are still closed through it at the end.
vintok::TLSTransport &transport() {
    static vintok::TLSTransport &one = *new vintok::TLSTransport;
    return one;
}

vintok::TLSOptions settingsOf(const Options &options, const std::string &name) {
    vintok::TLSOptions tls;
    tls.certificateFile = options.certificate;
    tls.keyFile = options.key;
    tls.rootsFile = options.roots;
    tls.systemRoots = options.systemRoots;
    tls.demandCertificate = options.demandsCertificate;
    tls.required = options.required;
    tls.FIPSOnly = options.approvedOnly;
    tls.expectedName = name;
    tls.acceptWait = options.accepts ? options.wait.value_or(tls.acceptWait) : tls.acceptWait;
    tls.connectWait = options.accepts ? tls.connectWait : options.wait.value_or(tls.connectWait);
    return tls;
}

} // namespace

bool start(const Options &options, std::string &failure) {
    transport().setConnectsUnnamed(!options.plainFirst);
    if (transport().open(settingsOf(options, options.name)) && vintok::setTransport(&transport()) &&
        vintok::setBackgroundTransport(&transport()))
        return true;
    failure = withLastFailure("cannot use TLS");
    return false;
}

void expect(const Options &options, const std::string &name) {
    if (options.wanted() && options.namesCalled)
        transport().open(settingsOf(options, name));
}

Break takeBreak() {
    Break broken;
    transport().lastFailure(broken.reason, &broken.descriptor);
    transport().clearFailure();
    return broken;
}

bool makeFolder(const std::string &folder, const std::vector<std::string> &names,
                std::string &failure) {
    if (vintok::createTLSFolder(folder, names))
        return true;
    failure = withLastFailure("cannot make certificates");
    return false;
}

} // namespace app::secure
