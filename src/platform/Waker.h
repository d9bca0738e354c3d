// A descriptor that can be made readable from any thread and from a signal handler.
#ifndef VINTOK_PLATFORM_WAKER_H
#define VINTOK_PLATFORM_WAKER_H

namespace vintok::platform {

class Waker {
public:
    Waker() = default;
    ~Waker();
    Waker(const Waker &) = delete;
    Waker &operator=(const Waker &) = delete;

    // False with `socketError()`. On Windows the sockets have been started.
    bool open();
    // Readable from a `wake` on until the next `clear`. -1 before it is open.
    int descriptor() const { return m_readEnd; }
    void wake() const;
    void clear() const;

private:
    int m_readEnd = -1;
    int m_writeEnd = -1;
};

} // namespace vintok::platform

#endif
