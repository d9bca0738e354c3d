// A connection to a multiplexer, and the bytes that pass between it and another one, on a thread of
// their own. Such a thread waits for them and for a word that it is to end: a socket is never
// closed under a thread that waits for it.
#ifndef VINTOK_APP_PASSAGE_H
#define VINTOK_APP_PASSAGE_H

#include "platform/Waker.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace app {

// Two connections and what ends the waiting for them. Whoever has one shares it; the last owner
// closes everything.
class Passage {
public:
    Passage() = default;
    ~Passage();
    Passage(const Passage &) = delete;
    Passage &operator=(const Passage &) = delete;

    bool open(); // before anything else; false when there are no descriptors

    // From any thread, any number of times: all that wait on this passage, now or later, stop.
    void wake();
    bool isWoken() const { return m_woken; }

    // The two connections, owned from then on; -1 is none.
    int server = -1;
    int local = -1;

    // Writes all of it to the server. False when the connection is lost.
    bool write(std::string_view bytes) const;

    // A reply up to its blank line and nothing behind it. Less when the stream ends, the reply is
    // too long, or the passage is woken.
    std::string readReply() const;

    // Passes bytes both ways on a thread, which shares `passage`, until one of the connections ends
    // or it is woken. `ended` is called once, on that thread, when it has let go of the passage.
    // False, with nothing called, when there is no thread to be had.
    static bool start(const std::shared_ptr<Passage> &passage, const std::function<void()> &ended);

private:
    class Direction;
    bool awaitServer() const;
    void pass();

    std::atomic<bool> m_woken = false;
    vintok::platform::Waker m_waker;
};

} // namespace app

#endif
