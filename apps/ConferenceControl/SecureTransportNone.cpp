// Without OpenSSL.
#include "SecureTransport.h"

namespace control::secure {

bool start(bool, bool, std::string &failure) {
    failure = "this program was built without TLS, which takes OpenSSL 3";
    return false;
}

void beginCall(const std::string &, bool) {}
void endCall() {}

} // namespace control::secure
