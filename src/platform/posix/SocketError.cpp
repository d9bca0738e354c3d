#include "platform/posix/SocketError.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace vintok::platform {

namespace {

struct ErrorNumber {
    int system;
    int ours;
};

// The first five are plain numbers that the byte layer tests; the rest are rows of the system error
// table. EPIPE stands with ESHUTDOWN: a peer that is gone must be found lost by whoever writes to
// it.
constexpr ErrorNumber errorNumbers[] = {
    {EINTR, socketErrors::interrupted},
    {EBADF, socketErrors::badDescriptor},
    {ENOMEM, socketErrors::noMemory},
    {EINVAL, socketErrors::invalid},
    {EMFILE, socketErrors::tooManyDescriptors},
    {ENFILE, socketErrors::tooManyDescriptors},
    {EACCES, socketErrors::accessDenied},
    {EPERM, socketErrors::accessDenied}, // a packet filter that refuses
    {EFAULT, socketErrors::badAddress},
    {EWOULDBLOCK, socketErrors::wouldBlock},
    {EAGAIN, socketErrors::wouldBlock},
    {EINPROGRESS, socketErrors::inProgress},
    {EALREADY, socketErrors::alreadyInProgress},
    {ENOTSOCK, socketErrors::notSocket},
    {EDESTADDRREQ, socketErrors::noDestination},
    {EMSGSIZE, socketErrors::messageTooLong},
    {EPROTOTYPE, socketErrors::wrongProtocolType},
    {ENOPROTOOPT, socketErrors::noProtocolOption},
    {EPROTONOSUPPORT, socketErrors::noProtocol},
    {ESOCKTNOSUPPORT, socketErrors::noSocketType},
    {EOPNOTSUPP, socketErrors::notSupported},
    {EPFNOSUPPORT, socketErrors::noProtocolFamily},
    {EAFNOSUPPORT, socketErrors::noAddressFamily},
    {EADDRINUSE, socketErrors::addressInUse},
    {EADDRNOTAVAIL, socketErrors::addressNotAvailable},
    {ENETDOWN, socketErrors::networkDown},
    {ENETUNREACH, socketErrors::networkUnreachable},
    {ENETRESET, socketErrors::networkReset},
    {ECONNABORTED, socketErrors::connectionAborted},
    {ECONNRESET, socketErrors::connectionReset},
    {ENOBUFS, socketErrors::noBuffers},
    {EISCONN, socketErrors::isConnected},
    {ENOTCONN, socketErrors::notConnected},
    {ESHUTDOWN, socketErrors::shutDown},
    {EPIPE, socketErrors::shutDown},
    {ETOOMANYREFS, socketErrors::tooManyReferences},
    {ETIMEDOUT, socketErrors::timedOut},
    {ECONNREFUSED, socketErrors::connectionRefused},
    {ELOOP, socketErrors::linkLoop},
    {ENAMETOOLONG, socketErrors::nameTooLong},
    {EHOSTDOWN, socketErrors::hostDown},
    {EHOSTUNREACH, socketErrors::hostUnreachable},
    {ENOTEMPTY, socketErrors::notEmpty},
    {EUSERS, socketErrors::tooManyUsers},
    {EDQUOT, socketErrors::overQuota},
    {ESTALE, socketErrors::stale},
    {EREMOTE, socketErrors::remote},
    {ECANCELED, socketErrors::cancelled},
};

} // namespace

int translatedError(int error) {
    const auto *row =
        std::find_if(std::begin(errorNumbers), std::end(errorNumbers),
                     [error](const ErrorNumber &each) { return each.system == error; });
    return row == std::end(errorNumbers) ? error : row->ours;
}

bool succeeded(long long result) {
    if (result >= 0)
        return true;
    setSocketError(translatedError(errno));
    return false;
}

} // namespace vintok::platform
