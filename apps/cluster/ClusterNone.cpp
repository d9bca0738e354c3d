// Without NATS.
#include "ClusterLink.h"

namespace app::cluster {

namespace {

const char *const missing = "this program was built without NATS, which takes libnats";

} // namespace

std::unique_ptr<Link> link(vintok::ConferenceParticipant &, const vintok::ClusterOptions &,
                           const Told &, std::string &failure) {
    failure = missing;
    return nullptr;
}

std::vector<vintok::ClusterHost> find(const vintok::ClusterOptions &, std::uint32_t,
                                      std::string &failure) {
    failure = missing;
    return {};
}

} // namespace app::cluster
