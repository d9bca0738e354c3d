#include "Resolver.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

namespace mux {

namespace {

constexpr int threads = 4;
constexpr std::size_t mostOpen = 256;

struct Question {
    std::uint64_t id;
    std::string host;
    std::uint16_t port;
};

std::vector<Endpoint> addressesOf(const Question &question) {
    std::vector<vintok::TCPAddress> found;
    std::vector<Endpoint> result;
    vintok::TCPAddress::lookup(question.host, found, vintok::TCPAddress::IPTYPE_NONE);
    for (const vintok::TCPAddress &address : found) {
        Endpoint endpoint;
        if (makeEndpoint(address, question.port, endpoint))
            result.push_back(endpoint);
    }
    return result;
}

} // namespace

struct Resolver::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Question> questions;
    std::vector<Answer> answers;
    bool ended = false;

    void work() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return ended || !questions.empty(); });
            if (ended)
                return;
            const Question question = questions.front();
            questions.pop_front();
            lock.unlock();
            std::vector<Endpoint> found = addressesOf(question);
            lock.lock();
            answers.emplace_back(question.id, std::move(found));
        }
    }
};

Resolver::Resolver() : m_shared(std::make_shared<Shared>()) {}

Resolver::~Resolver() {
    const std::lock_guard<std::mutex> lock(m_shared->mutex);
    m_shared->ended = true;
    m_shared->changed.notify_all();
}

bool Resolver::ask(std::uint64_t id, const std::string &host, std::uint16_t port) {
    if (m_open == mostOpen)
        return false;
    try {
        for (; m_threads < threads; ++m_threads)
            std::thread([shared = m_shared] { shared->work(); }).detach();
    } catch (const std::system_error &) { // fewer will do; the next question tries again
    }
    if (m_threads == 0)
        return false;
    ++m_open;
    const std::lock_guard<std::mutex> lock(m_shared->mutex);
    m_shared->questions.push_back({id, host, port});
    m_shared->changed.notify_one();
    return true;
}

std::vector<Resolver::Answer> Resolver::take() {
    if (m_open == 0)
        return {};
    const std::lock_guard<std::mutex> lock(m_shared->mutex);
    std::vector<Answer> answers;
    answers.swap(m_shared->answers);
    m_open -= answers.size();
    return answers;
}

} // namespace mux
