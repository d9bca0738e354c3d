#ifndef VINTOK_TCPEXCEPTION_H
#define VINTOK_TCPEXCEPTION_H

#include "vintok/Export.h"

#include <exception>

namespace vintok {

// For applications that turn a failure of the library into an exception; the library itself throws
// none. Code and context stay with the thread: see `lastError` and `lastErrorString`.
class VINTOK_API TCPException : public std::exception {
public:
    TCPException() noexcept;
    TCPException(const TCPException &other) noexcept;
    TCPException &operator=(const TCPException &other) noexcept;
    ~TCPException() override;

    // "vintok::TCPException"
    const char *what() const noexcept override;
};

} // namespace vintok

#endif
