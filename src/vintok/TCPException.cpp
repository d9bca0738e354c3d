#include "vintok/TCPException.h"

namespace vintok {

TCPException::TCPException() noexcept = default;
TCPException::TCPException(const TCPException &other) noexcept = default;
TCPException &TCPException::operator=(const TCPException &other) noexcept = default;
TCPException::~TCPException() = default;

const char *TCPException::what() const noexcept {
    return "vintok::TCPException";
}

} // namespace vintok
