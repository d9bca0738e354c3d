// A host that takes connections over TLS only, and says what each member's connection runs over.
//
//     vintok tls-init certificates --host 192.0.2.7
//     tls_host certificates/host.pem certificates/host.key
//     vintok join 192.0.2.7:7777 --name Ben --tls-ca certificates/ca.pem
#include <vintok-tls/TLSTransport.h>
#include <vintok/vintok.h>

#include <iostream>
#include <string>

namespace {

void joined(vintok::ConferenceParticipant *, const vintok::ConferenceRosterEntry &party) {
    std::size_t bits = 0;
    std::string cipher;
    if (vintok::transport()->secureStatus(party.descriptor(), bits, cipher))
        std::cout << party.firstName() << " is here, over " << cipher << std::endl;
    else
        std::cout << party.firstName() << " is here, in the clear" << std::endl;
}

void left(vintok::ConferenceParticipant *, const vintok::ConferenceRosterEntry &party) {
    std::cout << party.firstName() << " has left" << std::endl;
}

} // namespace

int main(int count, char **arguments) {
    if (count != 3) {
        std::cerr << "usage: tls_host CERTIFICATE KEY" << std::endl;
        return 2;
    }
    vintok::TLSOptions options;
    options.certificateFile = arguments[1];
    options.keyFile = arguments[2];
    options.required = true;
    vintok::TLSTransport tls; // outlives the participant
    vintok::ConferenceParticipant host;
    if (!tls.open(options)) {
        std::cerr << vintok::lastErrorString() << std::endl;
        return 1;
    }
    vintok::setTransport(&tls);
    vintok::setBackgroundTransport(&tls);
    host.setSecureAble(true);
    host.setSecurePreferred(true);
    host.setSSLOnly(true);
    host.setBackgroundHandshakes(true); // nobody waits while somebody else shakes hands
    host.setJoinCB(joined);
    host.setLeaveCB(left);
    if (!host.hostMeeting("In private")) {
        std::cerr << vintok::lastErrorString() << std::endl;
        return 1;
    }
    vintok::TCPSelect loop;
    loop.run();
}
