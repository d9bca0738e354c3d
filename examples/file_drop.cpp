// Files for everybody in a meeting.
//
//     file_drop FOLDER                  hosts a meeting, and stores what arrives in the folder
//     file_drop FILE 192.0.2.7 7777     sends a file there, and ends
//
// The file is sent while the loop goes on, and is read as it goes: it may be larger than memory.
#include <vintok/vintok.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <utility>

using vintok::ConferenceParticipant;
using vintok::ConferenceRosterEntry;
using vintok::TCPAddress;

namespace {

struct Drop {
    ConferenceParticipant self;
    vintok::TCPSelect loop;
    std::string path;
    bool isIn = false;
    int status = 1;
};

Drop &dropOf(ConferenceParticipant *self) {
    return *static_cast<Drop *>(self->userData());
}

// ---- Who receives ----

void progress(ConferenceParticipant *, const TCPAddress &, std::uint64_t done, std::uint64_t,
              const std::string &path) {
    std::cout << path << ": " << done << " bytes" << std::endl;
}

void arrived(ConferenceParticipant *, const TCPAddress &, bool whole, const std::string &path) {
    std::cout << path << (whole ? ": it is here" : ": it broke off") << std::endl;
}

bool receive(Drop &drop) {
    drop.self.setFileFolder(drop.path);
    drop.self.setTemporaryFiles(true); // what breaks off leaves nothing
    drop.self.setFileProgressInterval(100);
    drop.self.setFileProgressCB(progress);
    drop.self.setFileTransferCB(arrived);
    return drop.self.hostMeeting("Files, please");
}

// ---- Who sends ----

// Also called for those who were there before.
void joined(ConferenceParticipant *self, const ConferenceRosterEntry &) {
    Drop &drop = dropOf(self);
    if (std::exchange(drop.isIn, true))
        return;
    const std::string name = drop.path.substr(drop.path.find_last_of("/\\") + 1);
    if (self->startFile(drop.path, name) != 0)
        return;
    std::cerr << vintok::lastErrorString() << std::endl;
    drop.loop.interrupt();
}

void sent(ConferenceParticipant *self, std::uint32_t, ConferenceParticipant::FileOutcome outcome,
          void *) {
    Drop &drop = dropOf(self);
    drop.status = outcome == ConferenceParticipant::FILE_SENT ? 0 : 1;
    std::cout << (drop.status == 0 ? "sent" : "not sent to everybody") << std::endl;
    self->hangup();
    drop.loop.interrupt();
}

void failed(ConferenceParticipant *self, const std::string &name, const vintok::RosterBase &) {
    std::cerr << name << " has not taken the call" << std::endl;
    dropOf(self).loop.interrupt();
}

bool send(Drop &drop, const std::string &host, unsigned short port) {
    drop.self.setJoinCB(joined);
    drop.self.setFileSentCB(sent);
    drop.self.setRejectedCB(failed);
    drop.self.setNoAnswerCB(failed);
    return drop.self.placeCall(host, port, "", 0, "", "", 0);
}

} // namespace

int main(int count, char **arguments) {
    if (count != 2 && count != 4) {
        std::cerr << "usage: file_drop FOLDER | file_drop FILE HOST PORT" << std::endl;
        return 2;
    }
    Drop drop;
    drop.self.setUserData(&drop);
    drop.path = arguments[1];
    const bool begun =
        count == 2 ? receive(drop)
                   : send(drop, arguments[2], static_cast<unsigned short>(std::atoi(arguments[3])));
    if (!begun) {
        std::cerr << vintok::lastErrorString() << std::endl;
        return 1;
    }
    drop.loop.run();
    return drop.status;
}
