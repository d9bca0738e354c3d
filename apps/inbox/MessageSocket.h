// A connection over which messages come. Each is handed on when it is whole: a peer that stops in
// the middle of one, or ends there, does not hold up this side, and one that does not read what is
// written does so only when much of it waits. What is no message is passed over, with what has come
// behind it by then and a line in the log; what is too long is neither stored nor handed on.
#ifndef VINTOK_APP_MESSAGESOCKET_H
#define VINTOK_APP_MESSAGESOCKET_H

#include <vintok/TCPMessage.h>

#include <cstddef>
#include <functional>
#include <string>

namespace vintok {
class TCPSelect;
}

namespace app {

class MessageSocket {
public:
    using Handler = std::function<void(const vintok::TCPMessage &)>;

    // `name` is what the log calls it. Uses the loop for as long as this object lives. `handler` is
    // called in its passes.
    MessageSocket(vintok::TCPSelect &loop, const char *name, std::size_t longestBody,
                  Handler handler);
    ~MessageSocket();
    MessageSocket(const MessageSocket &) = delete;
    MessageSocket &operator=(const MessageSocket &) = delete;

    // Blocks until it stands. False with `lastError` when there is nobody at that path.
    bool connect(const std::string &path);

    // Takes messages over a connection that stands. With `adopt` it belongs to this object, which
    // closes it at its end; otherwise the caller keeps it open for as long as this object lives.
    // False when the loop does not take it.
    bool adopt(int descriptor);
    bool watch(int descriptor);

    // What is written to; -1 without a connection.
    int descriptor() const { return m_descriptor; }
    // The peer has closed its end or is gone.
    bool ended() const { return m_ended; }

private:
    static void dataCB(int descriptor, void *data, bool hangup);
    void receive();

    vintok::TCPSelect &m_loop;
    std::string m_name;
    const std::size_t m_longest; // message
    Handler m_handler;
    int m_descriptor = -1;
    bool m_owned = false;
    bool m_ended = false;
};

} // namespace app

#endif
