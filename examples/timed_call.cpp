// Calls somebody, waits five seconds for an answer at most, and says how the call ended.
//
//     timed_call 192.0.2.7 7777
#include <vintok/vintok.h>

#include <cstdlib>
#include <iostream>
#include <string>

using vintok::ConferenceParticipant;

namespace {

const char *outcome = nullptr;

template <const char *const &text>
void ends(ConferenceParticipant *, const std::string &, const vintok::RosterBase &) {
    outcome = text;
}

const char *const accepted = "accepted";
const char *const busy = "busy";
const char *const rejected = "rejected";
const char *const noAnswer = "no answer";

} // namespace

int main(int count, char **arguments) {
    if (count != 3) {
        std::cerr << "usage: timed_call HOST PORT" << std::endl;
        return 2;
    }
    ConferenceParticipant self(true);
    self.setAcceptedCB(ends<accepted>);
    self.setBusyCB(ends<busy>);
    self.setRejectedCB(ends<rejected>);
    self.setNoAnswerCB(ends<noAnswer>);
    // For the connection, for the other side's first word, and for its answer.
    vintok::setConnectTimeout(1000);
    self.setCallTimeouts(1000, 5000);
    const auto port = static_cast<unsigned short>(std::atoi(arguments[2]));
    if (!self.startCall(arguments[1], port, "", 0, "", "", 0)) {
        std::cerr << vintok::lastErrorString() << std::endl;
        return 1;
    }
    vintok::TCPSelect loop;
    while (outcome == nullptr)
        loop.pollDescriptors(false);
    std::cout << outcome << std::endl;
    self.hangup();
    return outcome == accepted ? 0 : 1;
}
