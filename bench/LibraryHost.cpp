#include "Child.h"
#include "Fanout.h"

#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"

namespace bench {
namespace {

Meter *meter;

void broadcastArrived(vintok::ConferenceParticipant *, unsigned char *, std::uint64_t) {
    meter->messageArrived();
}

} // namespace

void runLibraryHost(const Load &load) {
    Meter counts(load.messages);
    meter = &counts;
    vintok::ConferenceParticipant host(true); // prints its port
    host.setBroadcastDataCB(broadcastArrived);
    if (!host.hostMeeting("bench"))
        fail("hosting");
    vintok::TCPSelect loop;
    while (!counts.done())
        loop.pollDescriptors(false);
    counts.report();
}

} // namespace bench
