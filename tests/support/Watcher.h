// Hears of every step of a transfer, and may act and end it.
#ifndef VINTOK_TESTS_SUPPORT_WATCHER_H
#define VINTOK_TESTS_SUPPORT_WATCHER_H

#include "support/Matchers.h"
#include "vintok/TCPStatusCallback.h"

#include <functional>
#include <string>
#include <vector>

namespace vintok::test {

class Watcher : public TCPStatusCallback {
public:
    // Each step as "4+6": so many bytes are done, so many remain; "4+6!" where the transfer is
    // about to end.
    using Steps = std::vector<std::string>;
    Steps messages, reads, writes;
    // Whether the transfer goes on. Without one it does what it is about to do.
    std::function<bool()> onMessage, onByte;

    void messageRead(int, bool, const TCPGUID &, std::size_t done, std::size_t left,
                     bool *keepGoing) override {
        note(messages, done, left, onMessage, keepGoing);
    }
    void messageWrite(int, bool, const TCPGUID &, std::size_t done, std::size_t left,
                      bool *keepGoing) override {
        note(messages, done, left, onMessage, keepGoing);
    }
    void byteRead(int, bool secure, std::size_t done, std::size_t left, bool *keepGoing) override {
        EXPECT_FALSE(secure);
        note(reads, done, left, onByte, keepGoing);
    }
    void byteWrite(int, bool secure, std::size_t done, std::size_t left, bool *keepGoing) override {
        EXPECT_FALSE(secure);
        note(writes, done, left, onByte, keepGoing);
    }

private:
    static void note(Steps &steps, std::size_t done, std::size_t left,
                     const std::function<bool()> &wish, bool *keepGoing) {
        steps.push_back(std::to_string(done) + '+' + std::to_string(left) +
                        (*keepGoing ? "" : "!"));
        if (wish)
            *keepGoing = wish();
    }
};

} // namespace vintok::test

#endif
