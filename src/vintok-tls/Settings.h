// What a TLSTransport was opened with, made ready for OpenSSL.
#ifndef VINTOK_TLS_SETTINGS_H
#define VINTOK_TLS_SETTINGS_H

#include "vintok-tls/OpenSSL.h"
#include "vintok-tls/TLSTransport.h"

#include <string>

namespace vintok::tls {

enum class Role { accepts, connects };

struct Settings {
    TLSOptions options;
    Context context;
    bool hasCertificate = false;
    bool hasRoots = false;
};

// False with the words of the failure; `settings` is then of no use.
bool makeSettings(const TLSOptions &options, Settings &settings, std::string &words);

// A connection that is ready for its handshake; null with the failure. `name` is whom the peer must
// be, empty for anybody.
Connection makeConnection(const Settings &settings, Role role, const std::string &name,
                          Failure &failure);

} // namespace vintok::tls

#endif
