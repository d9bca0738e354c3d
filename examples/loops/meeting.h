// What the loops here drive: Ann hosts a meeting, Ben joins it and says good morning, and with that
// the meeting is over.
#ifndef VINTOK_EXAMPLES_MEETING_H
#define VINTOK_EXAMPLES_MEETING_H

#include <vintok/vintok.h>

#include <cstdlib>
#include <iostream>
#include <string>

struct Meeting {
    vintok::ConferenceParticipant ann{true}, ben{true};
    vintok::TCPSelect loop;
    bool isOver = false;

    Meeting() {
        ann.setUserData(this);
        ann.setSaidCB(said);
        ben.setFirstName("Ben");
        ben.setSaidCB([](vintok::ConferenceParticipant *, const vintok::ConferenceRosterEntry *,
                         const unsigned char *, std::uint64_t, void *) {});
        ben.setJoinCB(joined);
        if (!ann.hostMeeting("Tuesday") ||
            !ben.startCall("127.0.0.1", ann.address().hostByteOrderPort(), "", 0, "", "", 0)) {
            std::cerr << vintok::lastErrorString() << std::endl;
            std::exit(1);
        }
    }

private:
    static void joined(vintok::ConferenceParticipant *ben, const vintok::ConferenceRosterEntry &) {
        const std::string text = "Good morning";
        ben->sendBroadcastData(reinterpret_cast<const unsigned char *>(text.data()), text.size());
    }

    static void said(vintok::ConferenceParticipant *, const vintok::ConferenceRosterEntry *speaker,
                     const unsigned char *data, std::uint64_t length, void *meeting) {
        std::cout << (speaker != nullptr ? speaker->firstName() : "somebody") << ": "
                  << std::string(data, data + length) << std::endl;
        static_cast<Meeting *>(meeting)->isOver = true;
    }
};

#endif
