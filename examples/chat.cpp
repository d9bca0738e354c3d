// A chat at the terminal. What one types the others read, with the name of who said it.
//
//     chat Ann                     hosts a meeting, and prints the port that it listens on
//     chat Ben 192.0.2.7 7777      joins it
//
// The lines are read on a thread of their own, which works with every terminal and every system.
// They are handed to the loop's thread, where all of the library's calls are made.
#include <vintok/vintok.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>

using vintok::ConferenceParticipant;
using vintok::ConferenceRosterEntry;

namespace {

struct Lines {
    std::mutex mutex;
    std::deque<std::string> waiting;
    bool ended = false;
};

struct Chat {
    ConferenceParticipant self;
    vintok::TCPSelect loop;
    Lines lines;
    int status = 0;

    void end(int with) {
        status = with;
        loop.interrupt();
    }
};

Chat &chatOf(ConferenceParticipant *self) {
    return *static_cast<Chat *>(self->userData());
}

std::string nameOf(const ConferenceRosterEntry &party) {
    return party.firstName().empty() ? "somebody" : party.firstName();
}

void readLines(Chat &chat) {
    for (std::string line; std::getline(std::cin, line);) {
        const std::lock_guard<std::mutex> guard(chat.lines.mutex);
        chat.lines.waiting.push_back(line);
        chat.loop.wake();
    }
    const std::lock_guard<std::mutex> guard(chat.lines.mutex);
    chat.lines.ended = true;
    chat.loop.wake();
}

// Called by the loop after `wake`.
void sayLines(void *data) {
    Chat &chat = *static_cast<Chat *>(data);
    std::deque<std::string> lines;
    bool ended = false;
    {
        const std::lock_guard<std::mutex> guard(chat.lines.mutex);
        lines.swap(chat.lines.waiting);
        ended = chat.lines.ended;
    }
    for (const std::string &line : lines)
        if (!chat.self.sendBroadcastData(reinterpret_cast<const unsigned char *>(line.data()),
                                         line.size()))
            std::cerr << "nobody has heard that: " << vintok::lastErrorString() << std::endl;
    if (!ended)
        return;
    chat.self.hangup();
    chat.end(0);
}

void joined(ConferenceParticipant *, const ConferenceRosterEntry &party) {
    std::cout << "* " << nameOf(party) << " is here" << std::endl;
}

void left(ConferenceParticipant *self, const ConferenceRosterEntry &party) {
    std::cout << "* " << nameOf(party) << " has left" << std::endl;
    if (party.isHost())
        chatOf(self).end(0);
}

// `speaker` is null for a party of an older version.
void said(ConferenceParticipant *, const ConferenceRosterEntry *speaker, const unsigned char *data,
          std::uint64_t length, void *) {
    std::cout << (speaker != nullptr ? nameOf(*speaker) : "somebody") << ": "
              << std::string(data, data + length) << std::endl;
}

void failed(ConferenceParticipant *self, const std::string &name, const vintok::RosterBase &) {
    std::cerr << name << " has not taken the call" << std::endl;
    chatOf(self).end(1);
}

bool begin(Chat &chat, int count, char **arguments) {
    chat.self.setFirstName(arguments[1]);
    if (count == 2)
        return chat.self.hostMeeting(std::string("A chat with ") + arguments[1]);
    const auto port = static_cast<unsigned short>(std::atoi(arguments[3]));
    return chat.self.placeCall(arguments[2], port, "", 0, "", "", 0);
}

} // namespace

int main(int count, char **arguments) {
    if (count != 2 && count != 4) {
        std::cerr << "usage: chat NAME [HOST PORT]" << std::endl;
        return 2;
    }
    static Chat chat;
    chat.self.setUserData(&chat);
    chat.self.setJoinCB(joined);
    chat.self.setLeaveCB(left);
    chat.self.setSaidCB(said);
    chat.self.setRejectedCB(failed);
    chat.self.setBusyCB(failed);
    chat.self.setNoAnswerCB(failed);
    if (!chat.loop.setWakeCallback(sayLines, &chat) || !begin(chat, count, arguments)) {
        std::cerr << vintok::lastErrorString() << std::endl;
        return 1;
    }
    std::thread(readLines, std::ref(chat)).detach();
    chat.loop.run();
    std::_Exit(chat.status); // the other thread may still be waiting for a line
}
