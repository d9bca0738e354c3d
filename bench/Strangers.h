// A flood of callers, on a thread of its own: each connects and stays until a hundred more have
// come, or the host has closed its connection.
#ifndef VINTOK_BENCH_STRANGERS_H
#define VINTOK_BENCH_STRANGERS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace bench {

class Strangers {
public:
    enum class Manner { silent, hello, join };

    Strangers(unsigned short port, Manner manner);
    ~Strangers();
    Strangers(const Strangers &) = delete;
    Strangers &operator=(const Strangers &) = delete;

    double perSecond() const;

private:
    void flood();

    const unsigned short m_port;
    const Manner m_manner;
    const std::int64_t m_begin;
    std::atomic<bool> m_ends{false};
    std::atomic<std::size_t> m_calls{0};
    std::thread m_thread;
};

} // namespace bench

#endif
