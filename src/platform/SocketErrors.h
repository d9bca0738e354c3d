// Names for the numbers that `socketError()` gives: the plain ones of the byte layer, and the rows
// of the system error table for the rest.
#ifndef VINTOK_PLATFORM_SOCKETERRORS_H
#define VINTOK_PLATFORM_SOCKETERRORS_H

namespace vintok::socketErrors {

inline constexpr int interrupted = 4;
inline constexpr int badDescriptor = 9;
inline constexpr int noMemory = 12;
inline constexpr int invalid = 22;
inline constexpr int tooManyDescriptors = 24;
inline constexpr int remoteIO = 121;
inline constexpr int wrongMedium = 124;
inline constexpr int accessDenied = 10013;
inline constexpr int badAddress = 10014;
inline constexpr int tooManySockets = 10024; // where the system tells sockets from files
inline constexpr int wouldBlock = 10035;
inline constexpr int inProgress = 10036;
inline constexpr int alreadyInProgress = 10037;
inline constexpr int notSocket = 10038;
inline constexpr int noDestination = 10039;
inline constexpr int messageTooLong = 10040;
inline constexpr int wrongProtocolType = 10041;
inline constexpr int noProtocolOption = 10042;
inline constexpr int noProtocol = 10043;
inline constexpr int noSocketType = 10044;
inline constexpr int notSupported = 10045;
inline constexpr int noProtocolFamily = 10046;
inline constexpr int noAddressFamily = 10047;
inline constexpr int addressInUse = 10048;
inline constexpr int addressNotAvailable = 10049;
inline constexpr int networkDown = 10050;
inline constexpr int networkUnreachable = 10051;
inline constexpr int networkReset = 10052;
inline constexpr int connectionAborted = 10053;
inline constexpr int connectionReset = 10054;
inline constexpr int noBuffers = 10055;
inline constexpr int isConnected = 10056;
inline constexpr int notConnected = 10057;
inline constexpr int shutDown = 10058;
inline constexpr int tooManyReferences = 10059;
inline constexpr int timedOut = 10060;
inline constexpr int connectionRefused = 10061;
inline constexpr int linkLoop = 10062;
inline constexpr int nameTooLong = 10063;
inline constexpr int hostDown = 10064;
inline constexpr int hostUnreachable = 10065;
inline constexpr int notEmpty = 10066;
inline constexpr int tooManyUsers = 10068;
inline constexpr int overQuota = 10069;
inline constexpr int stale = 10070;
inline constexpr int remote = 10071;
inline constexpr int cancelled = 10103;

} // namespace vintok::socketErrors

#endif
