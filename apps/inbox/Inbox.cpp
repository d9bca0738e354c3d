// A record is a kind, a length of four bytes and a text. A record is written with one call and
// under a lock, so whoever sees its first bytes has all of it shortly; the loop may wait for the
// rest.
//
// A signal handler may do next to nothing: it notes the signal, and the watching thread looks for
// that note a few times a second. The thread that reads cannot be woken from its wait for a line;
// it is left behind when the program ends, which is why `main` ends the process without running
// destructors of static objects.
#include "Inbox.h"

#include <vintok/TCPAddress.h>
#include <vintok/TCPSelect.h>
#include <vintok/TCPStream.h>

#include "LoopbackPair.h"
#include "platform/Signals.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace app {

namespace {

constexpr std::chrono::milliseconds watchInterval(50);
constexpr int watchesPerTick = 20;

using RecordHead = std::array<unsigned char, 5>;

// Free of locks, so that a handler may write it.
std::atomic<bool> s_signalled = false;
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void noteSignal(int signal) {
    s_signalled = true;
    // The next one ends the process: somebody is in a hurry, or the leaving hangs.
    std::signal(signal, SIG_DFL);
}

void takeOverSignals() {
    for (const int signal : vintok::platform::endingSignals())
        std::signal(signal, noteSignal);
}

} // namespace

// The writing end, and the time of the alarm. Closed by the loop's side; whoever writes later is
// told so.
struct Inbox::Channel {
    std::mutex mutex;
    int descriptor = -1;
    std::mutex alarmMutex; // not the other one, which may be held for as long as a write takes
    std::optional<std::chrono::steady_clock::time_point> alarm;

    std::mutex addressMutex; // not held by a write either: the loop takes it
    std::vector<std::pair<std::string, std::vector<vintok::TCPAddress>>> addresses; // by name
    std::mutex lineMutex;
    std::condition_variable lineChange;
    bool holdsLines = false; // until the end, too

    void awaitLines() {
        std::unique_lock<std::mutex> lock(lineMutex);
        lineChange.wait(lock, [this] { return !holdsLines; });
    }

    void holdLines(bool held) {
        const std::lock_guard<std::mutex> lock(lineMutex);
        if (std::exchange(holdsLines, held) != held)
            lineChange.notify_all();
    }

    // Whether the alarm is due, once for each.
    bool takeAlarm() {
        const std::lock_guard<std::mutex> lock(alarmMutex);
        const bool due = alarm && *alarm <= std::chrono::steady_clock::now();
        if (due)
            alarm.reset();
        return due;
    }

    bool write(Kind kind, const std::string &text) {
        const auto length = static_cast<std::uint32_t>(text.size());
        std::string record;
        record += static_cast<char>(kind);
        for (int shift = 24; shift >= 0; shift -= 8)
            record += static_cast<char>(length >> shift & 0xFF);
        record += text;
        const std::lock_guard<std::mutex> lock(mutex);
        return descriptor != -1 &&
               vintok::writeBytes(
                   descriptor, reinterpret_cast<const unsigned char *>(record.data()),
                   record.size(), nullptr) == static_cast<std::int64_t>(record.size());
    }

    void close() {
        const std::lock_guard<std::mutex> lock(mutex);
        vintok::shutdownSocket(descriptor);
        descriptor = -1;
    }
};

Inbox::Inbox(vintok::TCPSelect &loop) : m_loop(loop), m_channel(std::make_shared<Channel>()) {}

Inbox::~Inbox() {
    if (m_descriptor != -1) {
        m_loop.removeCallback(m_descriptor, dataCB, this);
        m_channel->holdLines(false);
        // This end first: a thread that waits for room in a full connection holds the lock.
        vintok::shutdownSocket(m_descriptor);
        m_channel->close();
    }
}

bool Inbox::open(Handler handler) {
    m_handler = std::move(handler);
    return makeLoopbackPair(m_descriptor, m_channel->descriptor) &&
           m_loop.addSocketCallback(m_descriptor, dataCB, this, true, false);
}

void Inbox::dataCB(int, void *data, bool) {
    static_cast<Inbox *>(data)->takeRecord();
}

void Inbox::takeRecord() {
    RecordHead head;
    if (vintok::readBytes(m_descriptor, head.data(), head.size(), nullptr) !=
        static_cast<std::int64_t>(head.size()))
        return;
    std::size_t length = 0;
    for (std::size_t i = 1; i < head.size(); ++i)
        length = length << 8 | head[i];
    std::string text(length, '\0');
    if (length == 0 ||
        vintok::readBytes(m_descriptor, reinterpret_cast<unsigned char *>(text.data()), length,
                          nullptr) == static_cast<std::int64_t>(length))
        m_handler(static_cast<Kind>(head[0]), text);
}

void Inbox::readStandardInput() {
    std::thread([channel = m_channel] {
        std::string line;
        bool tooLong = false;
        const auto tell = [&] {
            return channel->write(tooLong ? Kind::longLine : Kind::line, tooLong ? "" : line);
        };
        for (int c = std::getc(stdin); c != EOF; c = std::getc(stdin)) {
            if (c == '\n') {
                if (!tell())
                    return;
                channel->awaitLines();
                line.clear();
                tooLong = false;
            } else if (line.size() == maxLine) {
                tooLong = true;
            } else {
                line += static_cast<char>(c);
            }
        }
        if (!line.empty() && !tell())
            return;
        channel->write(Kind::endOfInput, "");
    }).detach();
}

void Inbox::holdLines(bool held) {
    m_channel->holdLines(held);
}

bool Inbox::lookUp(const std::string &name) {
    try {
        std::thread([channel = m_channel, name] {
            std::vector<vintok::TCPAddress> found;
            vintok::TCPAddress::lookup(name, found, vintok::TCPAddress::IPTYPE_NONE);
            {
                const std::lock_guard<std::mutex> lock(channel->addressMutex);
                channel->addresses.emplace_back(name, std::move(found));
            }
            channel->write(Kind::addresses, name);
        }).detach();
        return true;
    } catch (const std::system_error &) {
        return false;
    }
}

std::vector<vintok::TCPAddress> Inbox::takeAddresses(const std::string &name) {
    const std::lock_guard<std::mutex> lock(m_channel->addressMutex);
    auto &all = m_channel->addresses;
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const auto &answer) { return answer.first == name; });
    if (found == all.end())
        return {};
    std::vector<vintok::TCPAddress> addresses = std::move(found->second);
    all.erase(found);
    return addresses;
}

void Inbox::watch() {
    takeOverSignals();
    std::thread([channel = m_channel] {
        for (int watches = 1;; ++watches) {
            std::this_thread::sleep_for(watchInterval);
            if (s_signalled.exchange(false) && !channel->write(Kind::interrupt, ""))
                return;
            if (channel->takeAlarm() && !channel->write(Kind::alarm, ""))
                return;
            if (watches % watchesPerTick == 0 && !channel->write(Kind::tick, ""))
                return;
        }
    }).detach();
}

void Inbox::ignoreTerminal() {
    std::signal(SIGINT, SIG_IGN);
    for (const int signal : vintok::platform::hangupSignals())
        std::signal(signal, SIG_IGN);
}

void Inbox::wakeAt(std::chrono::steady_clock::time_point time) {
    const std::lock_guard<std::mutex> lock(m_channel->alarmMutex);
    m_channel->alarm = time;
}

void Inbox::pass() {
    if (m_loop.pollDescriptors(false) == -1) {
        // A signal, as a rule. Should it be anything that lasts, the loop must not spin.
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace app
