// A signal handler may do next to nothing: it notes the signal, and the watching thread looks for
// that note a few times a second. The thread that reads cannot be woken from its wait for a line;
// it is left behind when the program ends, which is why `main` ends the process without running
// destructors of static objects.
#include "Inbox.h"

#include <vintok/TCPAddress.h>
#include <vintok/TCPSelect.h>

#include "platform/Signals.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <deque>
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
constexpr std::size_t mostRecords = 64; // that wait, when more lines come

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

// What the threads have to say, until the loop takes it. Without a loop nobody listens any more.
struct Inbox::Channel {
    struct Record {
        Kind kind;
        std::string text;
    };

    std::mutex mutex;
    std::condition_variable change;
    vintok::TCPSelect *loop = nullptr;
    std::deque<Record> records;
    bool holdsLines = false;
    std::optional<std::chrono::steady_clock::time_point> alarm;
    std::vector<std::pair<std::string, std::vector<vintok::TCPAddress>>> addresses; // by name

    // False when nobody listens. Whoever reads faster than the loop takes it waits.
    bool write(Kind kind, const std::string &text) {
        std::unique_lock<std::mutex> lock(mutex);
        const bool isLine = kind == Kind::line || kind == Kind::longLine;
        change.wait(lock,
                    [&] { return loop == nullptr || !isLine || records.size() < mostRecords; });
        if (loop == nullptr)
            return false;
        records.push_back({kind, text});
        loop->wake();
        return true;
    }

    std::optional<Record> take() {
        const std::lock_guard<std::mutex> lock(mutex);
        if (records.empty())
            return std::nullopt;
        Record record = std::move(records.front());
        records.pop_front();
        if (!records.empty())
            loop->wake(); // one in each pass, for the others' sake
        change.notify_all();
        return record;
    }

    void awaitLines() {
        std::unique_lock<std::mutex> lock(mutex);
        change.wait(lock, [this] { return loop == nullptr || !holdsLines; });
    }

    // Whether the alarm is due, once for each.
    bool takeAlarm() {
        const std::lock_guard<std::mutex> lock(mutex);
        const bool due = alarm && *alarm <= std::chrono::steady_clock::now();
        if (due)
            alarm.reset();
        return due;
    }

    template <class Change>
    void set(Change makeChange) {
        const std::lock_guard<std::mutex> lock(mutex);
        makeChange(*this);
        change.notify_all();
    }
};

Inbox::Inbox(vintok::TCPSelect &loop) : m_loop(loop), m_channel(std::make_shared<Channel>()) {}

Inbox::~Inbox() {
    m_channel->set([](Channel &channel) { channel.loop = nullptr; });
    m_loop.setWakeCallback(nullptr, nullptr);
}

bool Inbox::open(Handler handler) {
    m_handler = std::move(handler);
    m_channel->set([this](Channel &channel) { channel.loop = &m_loop; });
    return m_loop.setWakeCallback(awake, this);
}

void Inbox::awake(void *inbox) {
    const Inbox &self = *static_cast<Inbox *>(inbox);
    if (const auto record = self.m_channel->take())
        self.m_handler(record->kind, record->text);
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
    m_channel->set([held](Channel &channel) { channel.holdsLines = held; });
}

bool Inbox::lookUp(const std::string &name) {
    try {
        std::thread([channel = m_channel, name] {
            std::vector<vintok::TCPAddress> found;
            vintok::TCPAddress::lookup(name, found, vintok::TCPAddress::IPTYPE_NONE);
            channel->set([&](Channel &all) { all.addresses.emplace_back(name, std::move(found)); });
            channel->write(Kind::addresses, name);
        }).detach();
        return true;
    } catch (const std::system_error &) {
        return false;
    }
}

std::vector<vintok::TCPAddress> Inbox::takeAddresses(const std::string &name) {
    const std::lock_guard<std::mutex> lock(m_channel->mutex);
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
    m_channel->set([time](Channel &channel) { channel.alarm = time; });
}

void Inbox::pass() {
    if (m_loop.pollDescriptors(false) == -1) {
        // A signal, as a rule. Should it be anything that lasts, the loop must not spin.
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace app
