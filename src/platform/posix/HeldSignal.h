// A signal that a call would raise and nobody wants: held back on this thread while the object
// lives. For calls that have no flag against it.
#ifndef VINTOK_PLATFORM_POSIX_HELDSIGNAL_H
#define VINTOK_PLATFORM_POSIX_HELDSIGNAL_H

#include <cerrno>
#include <csignal>
#include <ctime>

namespace vintok::platform {

class HeldSignal {
public:
    explicit HeldSignal(int signal) {
        sigset_t waiting;
        sigpending(&waiting);
        m_wasWaiting = sigismember(&waiting, signal) == 1;
        sigemptyset(&m_signal);
        sigaddset(&m_signal, signal);
        pthread_sigmask(SIG_BLOCK, &m_signal, &m_before);
    }
    // Leaves `errno` as it was.
    ~HeldSignal() {
        const int code = errno;
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = code;
    }
    HeldSignal(const HeldSignal &) = delete;
    HeldSignal &operator=(const HeldSignal &) = delete;

    // The call has raised it: it is taken out again, unless somebody else's was there before.
    void takeOut() {
        const int code = errno;
        const timespec now = {};
        if (!m_wasWaiting)
            sigtimedwait(&m_signal, nullptr, &now);
        errno = code;
    }

private:
    sigset_t m_signal;
    sigset_t m_before;
    bool m_wasWaiting;
};

} // namespace vintok::platform

#endif
