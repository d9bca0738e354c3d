// One end of the socket between an application and its control process.
//
// Messages are put together from the bytes as they come, and are handed on when they are whole: a
// peer that stops in the middle of one, or ends there, does not hold up this side. What is no
// message is passed over, with a line in the log, and what is too long is neither stored nor handed
// on.
#ifndef VINTOK_CONTROL_CONTROLSOCKET_H
#define VINTOK_CONTROL_CONTROLSOCKET_H

#include <vintok/TCPMessage.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vintok {
class TCPSelect;
}

namespace control {

class ControlSocket {
public:
    using Handler = std::function<void(const vintok::TCPMessage &)>;

    // Uses the loop for as long as this object lives. `handler` is called in its passes.
    ControlSocket(vintok::TCPSelect &loop, Handler handler);
    ~ControlSocket();
    ControlSocket(const ControlSocket &) = delete;
    ControlSocket &operator=(const ControlSocket &) = delete;

    // Blocks until it stands. False with `lastError` when there is nobody at that path.
    bool connect(const std::string &path);

    // Takes what comes over a connection that stands. It stays the caller's, who keeps it open for
    // as long as this object lives. False when the loop does not take it.
    bool watch(int descriptor);

    // What is written to; -1 without a connection.
    int descriptor() const { return m_descriptor; }
    // The peer has closed its end or is gone.
    bool ended() const { return m_ended; }

private:
    static void dataCB(int descriptor, void *data, bool hangup);
    void receive();
    void takeMessages();
    bool startMessage();
    void handOn(std::size_t length);

    vintok::TCPSelect &m_loop;
    Handler m_handler;
    int m_descriptor = -1;
    bool m_owned = false;
    bool m_ended = false;
    std::vector<unsigned char> m_bytes; // what has come of the next messages
    std::uint64_t m_skip = 0;           // still to come of one that is too long
};

} // namespace control

#endif
