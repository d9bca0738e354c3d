// A folder with a small private authority and certificates under it, for trying out and for small
// circles.
#ifndef VINTOK_TLS_TLSFOLDER_H
#define VINTOK_TLS_TLSFOLDER_H

#include "vintok/Export.h"

#include <string>
#include <vector>

namespace vintok {

// Writes into `folder`, which is created if it does not exist, as PEM files:
// - ca.pem, ca.key      the authority; only ca.pem is to leave the folder. Ten years
// - host.pem, host.key  for whoever accepts: localhost, 127.0.0.1, ::1, this machine's name, and
//                       each of `names`, which are host names or IP addresses. Two years
// - guest.pem, guest.key  for a caller, where certificates are demanded. Two years
// All keys are EC keys on P-256, in files that only their owner can read, without a pass phrase.
// Nothing is overwritten: when one of the six exists, or anything else fails, nothing is left
// behind but the folder. Then false, with TCP_ERROR_SSL_TRANSPORT and the reason on the second line
// of its text. Blocks on the disk.
VINTOK_TLS_API bool createTLSFolder(const std::string &folder,
                                    const std::vector<std::string> &names);

} // namespace vintok

#endif
