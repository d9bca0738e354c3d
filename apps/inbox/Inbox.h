// What reaches the loop from elsewhere in the process: lines of the standard input, interrupts, the
// passing of time. Threads wait for these and wake the loop each time, so that everything the
// program does happens on the loop's thread.
#ifndef VINTOK_APP_INBOX_H
#define VINTOK_APP_INBOX_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vintok {
class TCPAddress;
class TCPSelect;
} // namespace vintok

namespace app {

// A longer line of the standard input is told as `longLine`.
inline constexpr std::size_t maxLine = 65536;

class Inbox {
public:
    enum class Kind : unsigned char {
        line,       // the text has no line end
        longLine,   // one that was too long; it is passed over
        endOfInput, // there will be no further line
        interrupt,  // Ctrl-C or a request to end
        tick,       // a second has passed
        alarm,      // the time of `wakeAt` has come
        addresses,  // the name has been looked up: see `lookUp`
    };
    using Handler = std::function<void(Kind, const std::string &)>;

    // Uses the loop for as long as this object lives.
    explicit Inbox(vintok::TCPSelect &loop);
    // The threads end by themselves; one that waits for the standard input does so with the
    // process.
    ~Inbox();
    Inbox(const Inbox &) = delete;
    Inbox &operator=(const Inbox &) = delete;

    // Has the loop call `handler` for each record. False when the loop cannot be woken.
    bool open(Handler handler);

    // Starts the thread that reads the standard input.
    void readStandardInput();
    // While held no further line is read. Those that have been read come all the same.
    void holdLines(bool held);
    // Looks a host name up, or an address, on a thread of its own, and then tells of `addresses`,
    // which are taken with `takeAddresses`: none if it is not known. False when there is no thread.
    bool lookUp(const std::string &name);
    std::vector<vintok::TCPAddress> takeAddresses(const std::string &name);
    // Takes over the signals that ask a program to end, for the life of the process, and starts the
    // thread that tells of them and of the time. A second signal ends the process at once.
    void watch();

    // Once `watch` has been called: neither Ctrl-C nor the end of the terminal makes a difference.
    static void ignoreTerminal();

    // Once `watch` has been called: one `alarm` at that time or up to a twentieth of a second after
    // it. The next call replaces a time that has not come yet.
    void wakeAt(std::chrono::steady_clock::time_point time);

    // One pass of the loop: waits for what comes next, here or on another descriptor, and handles
    // it.
    void pass();

private:
    struct Channel;
    static void awake(void *inbox);

    vintok::TCPSelect &m_loop;
    Handler m_handler;
    std::shared_ptr<Channel> m_channel; // shared with the threads, which may outlive this object
};

} // namespace app

#endif
