// Where TLS is not built.
#include "SecureStream.h"

namespace mux {

std::unique_ptr<SecureContext> makeSecureContext(const std::string &, const std::string &,
                                                 std::string &failure) {
    failure = "this program was built without TLS";
    return nullptr;
}

} // namespace mux
