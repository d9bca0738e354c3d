#include "Child.h"
#include "Hosts.h"

#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"

namespace bench {
namespace {

// The application of a host that only relays.
void broadcastArrived(vintok::ConferenceParticipant *, unsigned char *, std::uint64_t) {}

} // namespace

void runLibraryHost() {
    vintok::ConferenceParticipant host(true); // prints its port
    host.setBroadcastDataCB(broadcastArrived);
    if (!host.hostMeeting("bench"))
        fail("hosting");
    vintok::TCPSelect().run();
}

} // namespace bench
