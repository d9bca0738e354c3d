#include "Child.h"
#include "Guards.h"
#include "Hosts.h"

#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"

namespace bench {
namespace {

// The application of a host that only relays.
void broadcastArrived(vintok::ConferenceParticipant *, unsigned char *, std::uint64_t) {}

void run(bool guarded) {
    vintok::ConferenceParticipant host(true); // prints its port
    host.setBroadcastDataCB(broadcastArrived);
    if (guarded) {
        app::Guards guards;
        guards.mostMembers = 1000;
        app::apply(guards, host);
    }
    if (!host.hostMeeting("bench"))
        fail("hosting");
    vintok::TCPSelect().run();
}

} // namespace

void runLibraryHost() {
    run(false);
}

void runGuardedHost() {
    run(true);
}

} // namespace bench
