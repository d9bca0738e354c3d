// What the application is told, on its way to it. An application that does not read, because it is
// busy or hangs, must not hold up the meeting: what it has not taken yet waits in memory.
#ifndef VINTOK_CONTROL_OUTBOX_H
#define VINTOK_CONTROL_OUTBOX_H

#include <memory>

namespace control {

class Outbox {
public:
    Outbox() = default;
    // To be destroyed once the connection is shut down: nothing is written to it any more then.
    ~Outbox();
    Outbox(const Outbox &) = delete;
    Outbox &operator=(const Outbox &) = delete;

    // From now on passes messages to this connection, which the caller owns and nobody else writes
    // to. False when no pair of sockets can be had.
    bool open(int connection);

    // Where the messages are written; -1 before `open` and after `close`. Does not wait for the
    // application before 64 MiB are waiting for it.
    int descriptor() const { return m_descriptor; }

    // No more messages. Waits until the application has taken all of them, but not for long.
    void close();

private:
    struct Queue;

    int m_descriptor = -1;
    std::shared_ptr<Queue> m_queue; // shared with the threads, which may outlive this object
};

} // namespace control

#endif
