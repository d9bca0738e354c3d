// Measures what callers who say nothing cost a meeting under TLS: how long a member's lines take to
// another member while so many strangers a second connect to the host, say nothing, and go a second
// later. The host takes callers with and without TLS. In turns without and with
// `setBackgroundHandshakes`, and with no strangers and with some.
//
// usage: secure_callers [SECONDS [STRANGERS_PER_SECOND]]
#include "vintok-tls/TLSFolder.h"
#include "vintok-tls/TLSTransport.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/vintok.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using vintok::ConferenceParticipant;
constexpr std::chrono::milliseconds between(5); // lines

[[noreturn]] void fail(const char *what) {
    std::fprintf(stderr, "secure_callers: %s: %s\n", what, vintok::lastErrorString().c_str());
    std::exit(1);
}

std::vector<double> delays; // milliseconds; of the members' thread

void hear(ConferenceParticipant *, unsigned char *data, std::uint64_t length) {
    Clock::time_point said;
    if (length == sizeof said) {
        std::memcpy(&said, data, sizeof said);
        delays.push_back(std::chrono::duration<double, std::milli>(Clock::now() - said).count());
    }
}

bool call(ConferenceParticipant &member, unsigned short port) {
    return member.placeCall("127.0.0.1", port, "", 0, "", "", 0);
}

// Two members on this thread: one talks, one listens.
void talk(unsigned short port, std::chrono::seconds time, std::atomic<bool> &measures) {
    ConferenceParticipant speaker(true);
    ConferenceParticipant listener(true);
    listener.setBroadcastDataCB(hear);
    vintok::TCPSelect loop;
    for (ConferenceParticipant *member : {&speaker, &listener}) {
        if (!call(*member, port))
            fail("calling");
        for (const auto end = Clock::now() + std::chrono::seconds(20); !member->isMeeting();) {
            loop.pollDescriptors(true);
            if (Clock::now() > end)
                fail("joining");
        }
    }
    measures = true;
    const auto end = Clock::now() + time;
    auto next = Clock::now();
    while (Clock::now() < end + std::chrono::seconds(2)) {
        if (Clock::now() >= next && Clock::now() < end) {
            const auto now = next; // when it was to be said: a stopped speaker counts
            next += between;
            unsigned char line[sizeof now];
            std::memcpy(line, &now, sizeof now);
            speaker.sendBroadcastData(line, sizeof line);
        }
        if (loop.pollDescriptors(true) <= 0)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    measures = false;
}

void disturb(unsigned short port, int perSecond, const std::atomic<bool> &measures) {
    std::deque<int> strangers;
    vintok::TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(port);
    while (measures) {
        strangers.push_back(vintok::connectToBoundSocket(address));
        if (strangers.size() > static_cast<std::size_t>(perSecond)) {
            vintok::shutdownSocket(strangers.front());
            strangers.pop_front();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(1000000 / perSecond));
    }
    for (const int stranger : strangers)
        vintok::shutdownSocket(stranger);
}

std::string measure(bool background, int perSecond, std::chrono::seconds time) {
    delays.clear();
    std::atomic<unsigned short> port{0};
    std::atomic<bool> over{false};
    std::thread hosting([&] {
        ConferenceParticipant host(true);
        host.setBackgroundHandshakes(background);
        if (!host.hostMeeting("talk"))
            fail("hosting");
        vintok::TCPSelect loop;
        port = host.address().hostByteOrderPort();
        while (!over)
            if (loop.pollDescriptors(true) <= 0)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
    while (port == 0)
        std::this_thread::sleep_for(between);
    std::atomic<bool> measures{false};
    std::thread talking([&] { talk(port, time, measures); });
    while (!measures)
        std::this_thread::sleep_for(between);
    if (perSecond > 0)
        disturb(port, perSecond, measures);
    talking.join();
    over = true;
    hosting.join();
    std::sort(delays.begin(), delays.end());
    const auto at = [](std::size_t percent) {
        return delays.empty() ? -1 : delays[(delays.size() - 1) * percent / 100];
    };
    char row[100];
    std::snprintf(row, sizeof row, "%-10s  %9d  %6zu  %9.2f  %9.2f  %9.2f\n",
                  background ? "background" : "blocking", perSecond, delays.size(), at(50), at(99),
                  at(100));
    return row;
}

} // namespace

int main(int count, char **arguments) {
    const std::chrono::seconds time(count > 1 ? std::max(1, std::atoi(arguments[1])) : 10);
    const int perSecond = count > 2 ? std::max(1, std::atoi(arguments[2])) : 100;
    vintok::init();
    const std::string folder =
        (std::filesystem::temp_directory_path() / ("vintok-bench-" + std::to_string(getpid())))
            .string();
    if (!vintok::createTLSFolder(folder, {}))
        fail("certificates");
    vintok::TLSOptions options;
    options.certificateFile = folder + "/host.pem";
    options.keyFile = folder + "/host.key";
    options.rootsFile = folder + "/ca.pem";
    static vintok::TLSTransport tls;
    if (!tls.open(options) || !vintok::setTransport(&tls) || !vintok::setBackgroundTransport(&tls))
        fail("transport");
    std::filesystem::remove_all(folder);

    std::string table = "handshakes  strangers   lines   p50 (ms)   p99 (ms)   max (ms)\n";
    for (const bool background : {false, true})
        for (const int disturbance : {0, perSecond})
            table += measure(background, disturbance, time);
    std::printf("\n%s", table.c_str()); // the participants have said their ports
    vintok::setTransport(nullptr);
    vintok::fini();
    return 0;
}
