// Without OpenSSL.
#include "Secure.h"

namespace app::secure {

namespace {

const char *const missing = "this program was built without TLS, which takes OpenSSL 3";

} // namespace

bool start(const Options &, std::string &failure) {
    failure = missing;
    return false;
}

void expect(const Options &, const std::string &) {}

Break takeBreak() {
    return {};
}

bool makeFolder(const std::string &, const std::vector<std::string> &, std::string &failure) {
    failure = missing;
    return false;
}

} // namespace app::secure
