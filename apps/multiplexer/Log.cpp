#include "Log.h"

#include "Text.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <thread>

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
    std::FILE *file = stdout;

    void work() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return !lines.empty(); });
            std::string taken;
            taken.swap(lines);
            if (lost != 0) {
                taken += now() + " lost " + std::to_string(lost) + " lines\n";
                lost = 0;
            }
            writing = true;
            lock.unlock();
            std::fputs(taken.c_str(), file);
            std::fflush(file);
            lock.lock();
            writing = false;
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
    return opened != nullptr;
}

void Log::line(std::string_view event, std::uint64_t client, const std::string &details) {
    if (m_silent)
        return;
    const std::lock_guard<std::mutex> lock(m_writer->mutex);
    std::string text = now();
    text.append(" ").append(event).append(" ").append(std::to_string(client));
    text.append(" ").append(details).append("\n");
    if (!m_writer->started) {
        m_writer->started = true;
        std::thread([writer = m_writer] { writer->work(); }).detach();
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
