// A party of a meeting in a process of its own, or a relay. It knows the public interface only.
//
//     NAME host|relay|idle|locks|PORT [MEMBERS HOST_SPEAKS says|files COUNT SIZE FOLDER]
//
// Prints PORT:<port> where it is called, and goes on until it is interrupted or its input ends.
// With the rest: once all members are there the host says "go", and then all at once each says so
// many messages of that size, or sends a file of it, and says that this was all. Each prints "has
// spoken" and "has heard all"; what is missing, double, out of order or changed ends it instead.
//
// One that is idle prints where it is, as "at ADDRESS PORT", and obeys its input: "ADDRESS PORT"
// calls, "leave" hangs up, "?" prints "hosts" or "attends" and the others, or "alone", and "told"
// where that is known not to become more. More callbacks than any call needs end it.
//
// One that locks takes a named lock and then every mutex behind them, prints "holds", and keeps
// them.
#include <vintok/ConferenceParticipant.h>
#include <vintok/TCPMutex.h>
#include <vintok/TCPSelect.h>
#include <vintok/TCPServer.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>

namespace {

using vintok::ConferenceParticipant;
using vintok::ConferenceRosterEntry;
using vintok::TCPSelect;
using vintok::TCPServer;

struct Scene {
    int members = 0;
    bool hostSpeaks = false, files = false;
    std::size_t count = 0, size = 0;
    std::filesystem::path folder;
};

std::string me;
Scene scene;
int joined = 0;
bool going = false;
std::map<std::string, std::size_t> heard; // the whole messages and the files, by speaker
int ended = 0;                            // speakers
std::function<void()> interrupt;
std::mutex guard;
std::deque<std::string> typed; // guarded
std::set<std::string> company; // in the meeting of an idle party
bool told = false;             // that a call of it has failed
int calls = 0;                 // of its application

void tell(const std::string &what) {
    std::cout << me << ' ' << what << std::endl;
}

[[noreturn]] void fail(const std::string &what) {
    tell("fails: " + what);
    std::_Exit(1);
}

// Without input whoever started this process has gone.
void readInput() {
    for (std::string line; std::getline(std::cin, line);) {
        const std::lock_guard lock(guard);
        typed.push_back(line);
    }
    std::_Exit(2);
}

std::string nextTyped() {
    const std::lock_guard lock(guard);
    if (typed.empty())
        return {};
    const std::string line = typed.front();
    typed.pop_front();
    return line;
}

// Without a period, and another one for each message.
std::string content(const std::string &speaker, std::size_t number) {
    std::string text = speaker + ' ' + std::to_string(number) + ' ';
    auto value = static_cast<std::uint32_t>(std::hash<std::string>()(text));
    while (text.size() < scene.size) {
        value = value * 1103515245 + 12345;
        text += static_cast<char>(value >> 24);
    }
    return text;
}

bool isSpeaker(const std::string &name) {
    return name != "Host" || scene.hostSpeaks;
}

void onJoin(ConferenceParticipant *, const ConferenceRosterEntry &) {
    ++joined;
}

// A file that another's end cut short has failed, and where two sent at once that is well.
void onFile(ConferenceParticipant *, const vintok::TCPAddress &, bool whole,
            const std::string &path) {
    const std::string speaker = std::filesystem::path(path).stem().string();
    std::ifstream file(path, std::ios::binary);
    if (!whole && scene.members + (scene.hostSpeaks ? 1 : 0) - (isSpeaker(me) ? 1 : 0) == 1)
        fail("the file of " + speaker + " was cut short");
    if (whole && std::string(std::istreambuf_iterator<char>(file), {}) != content(speaker, 0))
        fail("the file of " + speaker + " is another");
    ++heard["files"];
}

void onWord(ConferenceParticipant *, unsigned char *data, std::uint64_t length) {
    const std::string text(data, data + length);
    const std::string speaker = text.substr(0, text.find(' '));
    if (text == "go") {
        going = true;
    } else if (text == speaker + " ends") {
        if (heard[scene.files ? "files" : speaker] < scene.count)
            fail("something of " + speaker + " is missing");
        ++ended;
    } else if (text != content(speaker, heard[speaker]++)) {
        fail("awaits another message of " + speaker + " than " + text.substr(0, 20));
    }
}

void say(ConferenceParticipant &party, const std::string &text) {
    if (!party.sendBroadcastData(reinterpret_cast<const unsigned char *>(text.data()), text.size()))
        fail("cannot say " + text.substr(0, 20));
}

void sendFile(ConferenceParticipant &party) {
    const auto path = scene.folder / me / "out" / (me + ".bin");
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content(me, 0);
    if (!party.transferFile(path.string(), path.filename().string()))
        fail("cannot send its file");
}

void speak(ConferenceParticipant &party) {
    for (std::size_t number = 0; number < scene.count; ++number)
        scene.files ? sendFile(party) : say(party, content(me, number));
    say(party, me + " ends");
    tell("has spoken");
}

void play(ConferenceParticipant &party, TCPSelect &loop) {
    const bool speaks = isSpeaker(me);
    const int others = scene.members + (scene.hostSpeaks ? 1 : 0) - (speaks ? 1 : 0);
    while (!going) {
        loop.pollDescriptors(false);
        if (party.isHost() && joined == scene.members) {
            going = true;
            say(party, "go");
        }
    }
    if (speaks)
        speak(party);
    while (ended < others)
        loop.pollDescriptors(false);
    tell("has heard all");
}

void isCalledBack() {
    if (++calls == 10000)
        fail("hears no end of it");
}

void onFailure(ConferenceParticipant *, const std::string &, const vintok::RosterBase &) {
    told = true;
}

[[noreturn]] void obey(ConferenceParticipant &party, TCPSelect &loop) {
    party.setJoinCB([](ConferenceParticipant *, const ConferenceRosterEntry &entry) {
        company.insert(entry.firstName());
    });
    party.setLeaveCB([](ConferenceParticipant *, const ConferenceRosterEntry &entry) {
        company.erase(entry.firstName());
    });
    party.setUserDataCB(
        [](ConferenceParticipant *, const ConferenceRosterEntry &) { isCalledBack(); });
    party.setBusyCB(onFailure);
    party.setRejectedCB(onFailure);
    party.setNoAnswerCB(onFailure);
    std::string address, word;
    party.address().ipString(address, false);
    tell("at " + address + ' ' + std::to_string(party.address().hostByteOrderPort()));
    for (;;) {
        if (loop.pollDescriptors(true) <= 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::istringstream line(nextTyped());
        line >> word;
        if (!party.isMeeting())
            company.clear();
        if (line && word == "leave") {
            party.hangup();
            told = false;
            calls = 0;
        } else if (line && word == "?") {
            std::string text = company.empty() ? "alone" : party.isHost() ? "hosts" : "attends";
            for (const std::string &other : company)
                text += ' ' + other;
            tell(text + (told ? " told" : ""));
        } else if (unsigned short port = 0; line >> port) {
            told = !party.placeCall(word, port, "", 0, "", "", 0) || told;
        }
    }
}

int takePart(const std::string &whom) {
    TCPSelect loop;
    interrupt = [&] { loop.interrupt(); };
    ConferenceParticipant party(whom != "idle"); // prints its port
    party.setFirstName(me);
    party.setEmail(me);
    if (whom == "idle")
        obey(party, loop);
    party.setJoinCB(onJoin);
    party.setLeaveCB([](ConferenceParticipant *, const ConferenceRosterEntry &) {});
    if (scene.members != 0)
        party.setBroadcastDataCB(onWord);
    party.setFileTransferCB(onFile);
    ConferenceParticipant::setFileRoot(scene.folder.empty() ? ""
                                                            : (scene.folder / me / "in").string());
    const bool ready =
        whom == "host" ? party.hostMeeting("meeting")
                       : party.placeCall("127.0.0.1", static_cast<unsigned short>(std::stoi(whom)),
                                         "", 0, "", "", 0);
    if (!ready)
        fail("cannot begin");
    if (scene.members != 0)
        play(party, loop);
    loop.run();
    return 0;
}

int relay() {
    TCPServer server(7000, false, true);
    interrupt = [&] { server.interrupt(); };
    std::cout << "PORT:" << server.port() << std::endl;
    server.run();
    return 0;
}

[[noreturn]] void lock() {
    static vintok::TCPMutex clock(5);
    if (clock.lock() != 0)
        fail("cannot lock");
    vintok::TCPMutex::lockAll();
    tell("holds");
    for (;;)
        std::this_thread::sleep_for(std::chrono::seconds(1));
}

} // namespace

int main(int count, char **arguments) {
    if (count != 3 && count != 9)
        return 99;
    me = arguments[1];
    const std::string whom = arguments[2];
    if (count == 9)
        scene = {std::stoi(arguments[3]),
                 std::string(arguments[4]) == "1",
                 std::string(arguments[5]) == "files",
                 std::stoul(arguments[6]),
                 std::stoul(arguments[7]),
                 arguments[8]};
    std::signal(SIGINT, [](int) { interrupt(); });
    std::thread(readInput).detach();
    if (whom == "locks")
        lock();
    std::_Exit(whom == "relay" ? relay() : takePart(whom)); // the thread holds the standard input
}
