// The multiplexer run as a child, and clients and parties of raw bytes around it.
#ifndef VINTOK_TESTS_MULTIPLEXER_H
#define VINTOK_TESTS_MULTIPLEXER_H

#include "support/ChildProcess.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace vintok::test {

// What a client writes once its tunnel stands, and how the reply to that begins.
inline const std::string READY = "pLorMUX_Response: Ready\n\n";
inline const std::string OPENED = "HTTP/1.0 200 ";
// A header of one who answers for a meeting.
inline const std::string OFFER = "pLorMUX_Offer: true\r\n";

// A client of raw bytes. Reads wait, with a bound; writes wait.
class Client {
public:
    // Calls a port of this machine, and says something at once.
    explicit Client(unsigned short port, const std::string &bytes = "");
    struct Accepted {
        int descriptor;
    };
    explicit Client(Accepted accepted) : m_descriptor(accepted.descriptor) {}
    ~Client() { closes(); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    bool sends(const std::string &bytes);
    // Sends as much as goes without waiting; how much that was.
    std::size_t pours(const std::string &bytes);
    // So many bytes; fewer when the stream ends or nothing more comes.
    std::string receives(std::size_t length);
    std::string takes();  // what comes next, however much it is; empty at the end
    std::string answer(); // the head of a reply
    std::string rest() { return receives(1 << 16); } // up to the end
    bool seesTheEnd();
    bool hasBytes() { return waits(0); }
    void endsSending();
    void resets();
    void closes();

private:
    bool waits(unsigned int milliseconds);

    int m_descriptor;
};

// A party of this machine that is called.
class Called {
public:
    Called();
    ~Called() { stops(); }
    Called(const Called &) = delete;
    Called &operator=(const Called &) = delete;

    unsigned short port() const { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }
    // The test fails when nobody calls; the client is then one whose stream has ended.
    std::unique_ptr<Client> picksUp();
    void stops();

private:
    int m_listener;
    unsigned short m_port = 0;
};

class Multiplexer : public ChildProcess {
public:
    // Port 0: a free one, which most proxies do not connect to, for it is written with a sign.
    explicit Multiplexer(const std::vector<std::string> &options = {}, unsigned short port = 0);

    unsigned short port() const { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }

    // A number of the status page.
    std::size_t count(const std::string &name) const;
    testing::AssertionResult comesTo(const std::string &name, std::size_t value) const;

private:
    unsigned short m_port = 0;
};

// A call as a participant writes it.
std::string request(const std::string &host, unsigned short port, const std::string &meeting,
                    const std::string &more = "");
// That of one that knows nothing but the multiplexer and the meeting.
std::string callTo(const Multiplexer &mux, const std::string &meeting,
                   const std::string &more = "");
// What is written ahead of a call to a proxy.
std::string jump(const std::string &more = "");

} // namespace vintok::test

#endif
