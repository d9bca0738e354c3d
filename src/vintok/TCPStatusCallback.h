// Progress of a transfer, told to whoever waits for it.
#ifndef VINTOK_TCPSTATUSCALLBACK_H
#define VINTOK_TCPSTATUSCALLBACK_H

#include "vintok/Export.h"

#include <cstddef>

namespace vintok {

struct TCPGUID;

// Implemented by callers and passed to a read or a write. Every operation runs on the thread that
// called the transfer, with no lock held, after each step of it. `*keepGoing` comes in as the
// transfer's own decision for the step and may be changed: false ends the transfer after this step,
// true keeps it going after an error that would have ended it, a lost connection excepted.
// Without a callback a transfer that would block sleeps longer and longer; with one it calls back
// and tries again at once, so the callback is what paces it.
class VINTOK_API TCPStatusCallback {
public:
    // One message being read or written; the counts are bytes of its frame.
    virtual void messageRead(int socket, bool secure, const TCPGUID &messageID,
                             std::size_t bytesDone, std::size_t bytesRemaining,
                             bool *keepGoing) = 0;
    virtual void messageWrite(int socket, bool secure, const TCPGUID &messageID,
                              std::size_t bytesDone, std::size_t bytesRemaining,
                              bool *keepGoing) = 0;

    // One call that receives or sends bytes on a plain socket; `secure` is always false.
    virtual void byteRead(int socket, bool secure, std::size_t bytesDone,
                          std::size_t bytesRemaining, bool *keepGoing) = 0;
    virtual void byteWrite(int socket, bool secure, std::size_t bytesDone,
                           std::size_t bytesRemaining, bool *keepGoing) = 0;

protected:
    // The library never deletes one: not virtual.
    ~TCPStatusCallback() = default;
};

} // namespace vintok

#endif
