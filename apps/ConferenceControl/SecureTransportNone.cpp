// Without OpenSSL.
#include "SecureTransport.h"

namespace control::secure {

bool start(bool, bool, std::string &failure) {
    failure = "this program was built without TLS, which takes OpenSSL 3";
    return false;
}

Calling::Calling(const std::string &, bool) {}
Calling::~Calling() = default;

} // namespace control::secure
