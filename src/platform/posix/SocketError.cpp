#include "platform/posix/SocketError.h"

#include "platform/Socket.h"

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
    {EINTR, 4},
    {EBADF, 9},
    {ENOMEM, 12},
    {EINVAL, 22},
    {EMFILE, 24},
    {ENFILE, 24},
    {EACCES, 10013},
    {EPERM, 10013}, // a packet filter that refuses
    {EFAULT, 10014},
    {EWOULDBLOCK, 10035},
    {EAGAIN, 10035},
    {EINPROGRESS, 10036},
    {EALREADY, 10037},
    {ENOTSOCK, 10038},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, 10040},
    {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},
    {EPROTONOSUPPORT, 10043},
    {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},
    {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, 10053},
    {ECONNRESET, 10054},
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ESHUTDOWN, 10058},
    {EPIPE, 10058},
    {ETOOMANYREFS, 10059},
    {ETIMEDOUT, 10060},
    {ECONNREFUSED, 10061},
    {ELOOP, 10062},
    {ENAMETOOLONG, 10063},
    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},
    {ENOTEMPTY, 10066},
    {EUSERS, 10068},
    {EDQUOT, 10069},
    {ESTALE, 10070},
    {EREMOTE, 10071},
    {ECANCELED, 10103},
};

thread_local int t_error = 0;

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
    t_error = translatedError(errno);
    return false;
}

int socketError() {
    return t_error;
}

void setSocketError(int error) {
    t_error = error;
}

} // namespace vintok::platform
