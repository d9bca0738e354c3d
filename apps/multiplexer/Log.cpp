#include "Log.h"

#include "Text.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace mux {

namespace {

constexpr std::size_t longest = 100;
constexpr std::size_t mostWaiting = 1 << 20; // bytes
constexpr std::chrono::seconds patience(2);

std::string now() {
    const auto time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    char text[32] = "";
    // Called with the lock: the result of `gmtime` is one for all.
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&time));
    return text;
}

} // namespace

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : app::printable(text, longest)) {
        if (c == '"')
            result += '\\';
        result += c;
    }
    return result + '"';
}

struct Log::Writer {
    std::mutex mutex;
    std::condition_variable changed;
    std::string lines; // not taken by the thread yet
    std::size_t lost = 0;
    bool writing = false;
    bool started = false;
    bool reopens = false;
    // The thread's alone once it has started.
    std::string name; // of the file
    std::FILE *file = stdout;

    void openAnew() {
        std::FILE *opened = name.empty() ? nullptr : std::fopen(name.c_str(), "a");
        if (opened == nullptr)
            return;
        std::fclose(file);
        file = opened;
    }

    bool write(const std::string &text) const {
        const bool written = std::fputs(text.c_str(), file) >= 0 && std::fflush(file) == 0;
        std::clearerr(file);
        return written;
    }

    void work() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return !lines.empty(); });
            const bool opensAnew = std::exchange(reopens, false);
            std::string taken;
            taken.swap(lines);
            const auto count =
                static_cast<std::size_t>(std::count(taken.begin(), taken.end(), '\n'));
            const std::size_t missing = std::exchange(lost, 0);
            if (missing != 0)
                taken += now() + " lost " + std::to_string(missing) + " lines\n";
            writing = true;
            lock.unlock();
            if (opensAnew)
                openAnew();
            const bool written = write(taken);
            lock.lock();
            writing = false;
            lost += written ? 0 : missing + count;
            changed.notify_all();
        }
    }
};

Log::Log() : m_writer(std::make_shared<Writer>()) {}

Log::~Log() = default;

bool Log::open(const std::string &file) {
    std::FILE *opened = std::fopen(file.c_str(), "a");
    if (opened != nullptr)
        m_writer->file = opened; // open until the process ends
    m_writer->name = file;
    return opened != nullptr;
}

void Log::reopen() {
    const std::lock_guard<std::mutex> lock(m_writer->mutex);
    m_writer->reopens = true;
}

void Log::line(std::string_view event, std::uint64_t client, const std::string &details) {
    if (m_silent)
        return;
    const std::lock_guard<std::mutex> lock(m_writer->mutex);
    std::string text = now();
    text.append(" ").append(event).append(" ").append(std::to_string(client));
    text.append(" ").append(details).append("\n");
    try {
        if (!m_writer->started)
            std::thread([writer = m_writer] { writer->work(); }).detach();
        m_writer->started = true;
    } catch (const std::system_error &) { // the next line asks for a thread again
    }
    if (m_writer->lines.size() + text.size() > mostWaiting) {
        ++m_writer->lost;
        return;
    }
    m_writer->lines += text;
    m_writer->changed.notify_all();
}

bool Log::finish() {
    std::unique_lock<std::mutex> lock(m_writer->mutex);
    return m_writer->changed.wait_for(
        lock, patience, [this] { return m_writer->lines.empty() && !m_writer->writing; });
}

} // namespace mux
