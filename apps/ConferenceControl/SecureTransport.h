// The secure transport of the control process: TLS, with the files that the environment names
// (VINTOK_TLS_CERT, VINTOK_TLS_KEY, VINTOK_TLS_CA). Where the program was built without OpenSSL,
// `start` says so and the rest does nothing.
#ifndef VINTOK_CONTROL_SECURETRANSPORT_H
#define VINTOK_CONTROL_SECURETRANSPORT_H

#include <string>

namespace control::secure {

// For every connection from here on. `required`: those without TLS are broken off, otherwise they
// go on plain. `fips`: approved algorithms only. False with the reason when there is no transport
// then.
bool start(bool required, bool fips, std::string &failure);

// Around the placing of a call: the certificate of whoever answers must be for `name`. A tunnelled
// call first meets a proxy, which speaks no TLS.
void beginCall(const std::string &name, bool tunnelled);
void endCall();

} // namespace control::secure

#endif
