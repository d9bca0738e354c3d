// The system error table: codes as Winsock numbers them, in ascending order, each with a headline
// and an explanation in the words of its public reference. The platform layer translates the errors
// of other systems to these codes, so that a context reads the same everywhere. Rows that this
// library never meets stay, since `sysErrorString` serves applications too.
#include "vintok/TCPStream.h"

namespace vintok {

namespace {

struct SystemError {
    int code;
    const char *text;
};

// clang-format off
constexpr SystemError systemErrors[] = {
    {6,
     "Specified event object handle is invalid.\n"
     "\tAn application attempts to use an event object, but the specified handle is not valid.\n"},
    {8,
     "Insufficient memory available.\n"
     "\tAn application used a Windows Sockets function that directly maps to a Windows function.\n"
     "\tThe Windows function is indicating a lack of required memory resources.\n"},
    {87,
     "One or more parameters are invalid.\n"
     "\tAn application used a Windows Sockets function which directly maps to a Windows\n"
     "\tfunction. The Windows function is indicating a problem with one or more parameters.\n"},
    {995,
     "Overlapped operation aborted.\n"
     "\tAn overlapped operation was canceled due to the closure of the socket, or the execution\n"
     "\tof the SIO_FLUSH command in WSAIoctl.\n"},
    {996,
     "Overlapped I/O event object not in signaled state.\n"
     "\tThe application has tried to determine the status of an overlapped operation which is\n"
     "\tnot yet completed. Applications that use WSAGetOverlappedResult (with the fWait flag set\n"
     "\tto FALSE) in a polling mode to determine when an overlapped operation has completed, get\n"
     "\tthis error code until the operation is complete.\n"},
    {997,
     "Overlapped operations will complete later.\n"
     "\tThe application has initiated an overlapped operation that cannot be completed\n"
     "\timmediately. A completion indication will be given later when the operation has been\n"
     "\tcompleted.\n"},
    {10004,
     "Interrupted function call.\n"
     "\tA blocking operation was interrupted by a call to WSACancelBlockingCall.\n"},
    {10009,
     "File handle is not valid.\n"
     "\tThe file handle supplied is not valid.\n"},
    {10013,
     "Permission denied.\n"
     "\tAn attempt was made to access a socket in a way forbidden by its access permissions. An\n"
     "\texample is using a broadcast address for sendto without broadcast permission being set\n"
     "\tusing setsockopt(SO_BROADCAST). Another possible reason for the WSAEACCES error is that\n"
     "\twhen the bind function is called (on Windows NT 4.0 with SP4 and later), another\n"
     "\tapplication, service, or kernel mode driver is bound to the same address with exclusive\n"
     "\taccess. Such exclusive access is a new feature of Windows NT 4.0 with SP4 and later, and\n"
     "\tis implemented by using the SO_EXCLUSIVEADDRUSE option.\n"},
    {10014,
     "Bad address.\n"
     "\tThe system detected an invalid pointer address in attempting to use a pointer argument\n"
     "\tof a call. This error occurs if an application passes an invalid pointer value, or if\n"
     "\tthe length of the buffer is too small. For instance, if the length of an argument, which\n"
     "\tis a sockaddr structure, is smaller than the sizeof(sockaddr).\n"},
    {10022,
     "Invalid argument.\n"
     "\tSome invalid argument was supplied (for example, specifying an invalid level to the\n"
     "\tsetsockopt function). In some instances, it also refers to the current state of the\n"
     "\tsocket - for instance, calling accept on a socket that is not listening.\n"},
    {10024,
     "Too many open files.\n"
     "\tToo many open sockets. Each implementation may have a maximum number of socket handles\n"
     "\tavailable, either globally, per process, or per thread.\n"},
    {10035,
     "Resource temporarily unavailable.\n"
     "\tThis error is returned from operations on nonblocking sockets that cannot be completed\n"
     "\timmediately, for example recv when no data is queued to be read from the socket. It is a\n"
     "\tnonfatal error, and the operation should be retried later. It is normal for\n"
     "\tWSAEWOULDBLOCK to be reported as the result from calling connect on a nonblocking\n"
     "\tSOCK_STREAM socket, since some time must elapse for the connection to be established.\n"},
    {10036,
     "Operation now in progress.\n"
     "\tA blocking operation is currently executing. Windows Sockets only allows a single\n"
     "\tblocking operation - per-task or thread - to be outstanding, and if any other function\n"
     "\tcall is made (whether or not it references that or any other socket) the function fails\n"
     "\twith the WSAEINPROGRESS error.\n"},
    {10037,
     "Operation already in progress.\n"
     "\tAn operation was attempted on a nonblocking socket with an operation already in progress\n"
     "\t- that is, calling connect a second time on a nonblocking socket that is already\n"
     "\tconnecting, or canceling an asynchronous request (WSAAsyncGetXbyY) that has already been\n"
     "\tcanceled or completed.\n"},
    {10038,
     "Socket operation on nonsocket.\n"
     "\tAn operation was attempted on something that is not a socket. Either the socket handle\n"
     "\tparameter did not reference a valid socket, or for select, a member of an fd_set was not\n"
     "\tvalid.\n"},
    {10039,
     "Destination address required.\n"
     "\tA required address was omitted from an operation on a socket. For example, this error is\n"
     "\treturned if sendto is called with the remote address of ADDR_ANY.\n"},
    {10040,
     "Message too long.\n"
     "\tA message sent on a datagram socket was larger than the internal message buffer or some\n"
     "\tother network limit, or the buffer used to receive a datagram was smaller than the\n"
     "\tdatagram itself.\n"},
    {10041,
     "Protocol wrong type for socket.\n"
     "\tA protocol was specified in the socket function call that does not support the semantics\n"
     "\tof the socket type requested. For example, the ARPA Internet UDP protocol cannot be\n"
     "\tspecified with a socket type of SOCK_STREAM.\n"},
    {10042,
     "Bad protocol option.\n"
     "\tAn unknown, invalid or unsupported option or level was specified in a getsockopt or\n"
     "\tsetsockopt call.\n"},
    {10043,
     "Protocol not supported.\n"
     "\tThe requested protocol has not been configured into the system, or no implementation for\n"
     "\tit exists. For example, a socket call requests a SOCK_DGRAM socket, but specifies a\n"
     "\tstream protocol.\n"},
    {10044,
     "Socket type not supported.\n"
     "\tThe support for the specified socket type does not exist in this address family. For\n"
     "\texample, the optional type SOCK_RAW might be selected in a socket call, and the\n"
     "\timplementation does not support SOCK_RAW sockets at all.\n"},
    {10045,
     "Operation not supported.\n"
     "\tThe attempted operation is not supported for the type of object referenced. Usually this\n"
     "\toccurs when a socket descriptor to a socket that cannot support this operation is trying\n"
     "\tto accept a connection on a datagram socket.\n"},
    {10046,
     "Protocol family not supported.\n"
     "\tThe protocol family has not been configured into the system or no implementation for it\n"
     "\texists. This message has a slightly different meaning from WSAEAFNOSUPPORT. However, it\n"
     "\tis interchangeable in most cases, and all Windows Sockets functions that return one of\n"
     "\tthese messages also specify WSAEAFNOSUPPORT.\n"},
    {10047,
     "Address family not supported by protocol family.\n"
     "\tAn address incompatible with the requested protocol was used. All sockets are created\n"
     "\twith an associated address family (that is, AF_INET for Internet Protocols) and a\n"
     "\tgeneric protocol type (that is, SOCK_STREAM). This error is returned if an incorrect\n"
     "\tprotocol is explicitly requested in the socket call, or if an address of the wrong\n"
     "\tfamily is used for a socket, for example, in sendto.\n"},
    {10048,
     "Address already in use.\n"
     "\tTypically, only one usage of each socket address (protocol/IP address/port) is\n"
     "\tpermitted. This error occurs if an application attempts to bind a socket to an IP\n"
     "\taddress/port that has already been used for an existing socket, or a socket that was not\n"
     "\tclosed properly, or one that is still in the process of closing. For server applications\n"
     "\tthat need to bind multiple sockets to the same port number, consider using setsockopt\n"
     "\t(SO_REUSEADDR). Client applications usually need not call bind at all - connect chooses\n"
     "\tan unused port automatically. When bind is called with a wildcard address (involving\n"
     "\tADDR_ANY), a WSAEADDRINUSE error could be delayed until the specific address is\n"
     "\tcommitted. This could happen with a call to another function later, including connect,\n"
     "\tlisten, WSAConnect, or WSAJoinLeaf.\n"},
    {10049,
     "Cannot assign requested address.\n"
     "\tThe requested address is not valid in its context. This normally results from an attempt\n"
     "\tto bind to an address that is not valid for the local computer. This can also result\n"
     "\tfrom connect, sendto, WSAConnect, WSAJoinLeaf, or WSASendTo when the remote address or\n"
     "\tport is not valid for a remote computer (for example, address or port 0).\n"},
    {10050,
     "Network is down.\n"
     "\tA socket operation encountered a dead network. This could indicate a serious failure of\n"
     "\tthe network system (that is, the protocol stack that the Windows Sockets DLL runs over),\n"
     "\tthe network interface, or the local network itself.\n"},
    {10051,
     "Network is unreachable.\n"
     "\tA socket operation was attempted to an unreachable network. This usually means the local\n"
     "\tsoftware knows no route to reach the remote host.\n"},
    {10052,
     "Network dropped connection on reset.\n"
     "\tThe connection has been broken due to keep-alive activity detecting a failure while the\n"
     "\toperation was in progress. It can also be returned by setsockopt if an attempt is made\n"
     "\tto set SO_KEEPALIVE on a connection that has already failed.\n"},
    {10053,
     "Software caused connection abort.\n"
     "\tAn established connection was aborted by the software in your host computer, possibly\n"
     "\tdue to a data transmission time-out or protocol error.\n"},
    {10054,
     "Connection reset by peer.\n"
     "\tAn existing connection was forcibly closed by the remote host. This normally results if\n"
     "\tthe peer application on the remote host is suddenly stopped, the host is rebooted, the host or\n"
     "\tremote network interface is disabled, or the remote host uses a hard close\n"
     "\t(see setsockopt for more information on the SO_LINGER option on the remote socket).\n"
     "\tThis error may also result if a connection was broken due to keep-alive activity detecting a failure\n"
     "\twhile one or more operations are in progress. Operations that were in progress fail with WSAENETRESET.\n"
     "\tSubsequent operations fail with WSAECONNRESET.\n"},
    {10055,
     "No buffer space available.\n"
     "\tAn operation on a socket could not be performed because the system lacked sufficient\n"
     "\tbuffer space or because a queue was full.\n"},
    {10056,
     "Socket is already connected.\n"
     "\tA connect request was made on an already-connected socket. Some implementations also\n"
     "\treturn this error if sendto is called on a connected SOCK_DGRAM socket (for SOCK_STREAM\n"
     "\tsockets, the to parameter in sendto is ignored) although other implementations treat\n"
     "\tthis as a legal occurrence.\n"},
    {10057,
     "Socket is not connected.\n"
     "\tA request to send or receive data was disallowed because the socket is not connected and\n"
     "\t(when sending on a datagram socket using sendto) no address was supplied. Any other type\n"
     "\tof operation might also return this error - for example, setsockopt setting SO_KEEPALIVE\n"
     "\tif the connection has been reset.\n"},
    {10058,
     "Cannot send after socket shutdown.\n"
     "\tA request to send or receive data was disallowed because the socket had already been\n"
     "\tshut down in that direction with a previous shutdown call. By calling shutdown a partial\n"
     "\tclose of a socket is requested, which is a signal that sending or receiving, or both\n"
     "\thave been discontinued.\n"},
    {10059,
     "Too many references.\n"
     "\tToo many references to some kernel object.\n"},
    {10060,
     "Connection timed out.\n"
     "\tA connection attempt failed because the connected party did not properly respond after a\n"
     "\tperiod of time, or the established connection failed because the connected host has\n"
     "\tfailed to respond.\n"},
    {10061,
     "Connection refused.\n"
     "\tNo connection could be made because the target computer actively refused it. This\n"
     "\tusually results from trying to connect to a service that is inactive on the foreign host\n"
     "\t- that is, one with no server application running.\n"},
    {10062,
     "Cannot translate name.\n"
     "\tCannot translate a name.\n"},
    {10063,
     "Name too long.\n"
     "\tA name component or a name was too long.\n"},
    {10064,
     "Host is down.\n"
     "\tA socket operation failed because the destination host is down. A socket operation\n"
     "\tencountered a dead host. Networking activity on the local host has not been initiated.\n"
     "\tThese conditions are more likely to be indicated by the error WSAETIMEDOUT.\n"},
    {10065,
     "No route to host.\n"
     "\tA socket operation was attempted to an unreachable host. See WSAENETUNREACH.\n"},
    {10066,
     "Directory not empty.\n"
     "\tCannot remove a directory that is not empty.\n"},
    {10067,
     "Too many processes.\n"
     "\tA Windows Sockets implementation may have a limit on the number of applications that can\n"
     "\tuse it simultaneously. WSAStartup may fail with this error if the limit has been\n"
     "\treached.\n"},
    {10068,
     "User quota exceeded.\n"
     "\tRan out of user quota.\n"},
    {10069,
     "Disk quota exceeded.\n"
     "\tRan out of disk quota.\n"},
    {10070,
     "Stale file handle reference.\n"
     "\tThe file handle reference is no longer available.\n"},
    {10071,
     "Item is remote.\n"
     "\tThe item is not available locally.\n"},
    {10091,
     "Network subsystem is unavailable.\n"
     "\tThis error is returned by WSAStartup if the Windows Sockets implementation cannot\n"
     "\tfunction at this time because the underlying system it uses to provide network services\n"
     "\tis currently unavailable. Users should check that the appropriate Windows Sockets DLL\n"
     "\tfile is in the current path, that they are not trying to use more than one Windows\n"
     "\tSockets implementation simultaneously, and the Windows Sockets implementation\n"
     "\tdocumentation to be sure all necessary components are currently installed and configured\n"
     "\tcorrectly.\n"},
    {10092,
     "Winsock.dll version out of range.\n"
     "\tThe current Windows Sockets implementation does not support the Windows Sockets\n"
     "\tversion requested by the application. Check that no old Windows Sockets\n"
     "\tDLL files are being accessed.\n"},
    {10093,
     "Successful WSAStartup not yet performed.\n"
     "\tEither the application has not called WSAStartup or WSAStartup failed. The application\n"
     "\tmay be accessing a socket that the current active task does not own (that is, trying to\n"
     "\tshare a socket between tasks), or WSACleanup has been called too many times.\n"},
    {10101,
     "Graceful shutdown in progress.\n"
     "\tReturned by WSARecv and WSARecvFrom to indicate that the remote party has initiated a\n"
     "\tgraceful shutdown sequence.\n"},
    {10102,
     "No more results.\n"
     "\tNo more results can be returned by the WSALookupServiceNext function.\n"},
    {10103,
     "Call has been canceled.\n"
     "\tA call to the WSALookupServiceEnd function was made while this call was still\n"
     "\tprocessing. The call has been canceled.\n"},
    {10104,
     "Procedure call table is invalid.\n"
     "\tThe service provider procedure call table is invalid. A service provider returned a\n"
     "\tbogus procedure table to Ws2_32.dll. This is usually caused by one or more of the\n"
     "\tfunction pointers being NULL.\n"},
    {10105,
     "Service provider is invalid.\n"
     "\tThe requested service provider is invalid. This error is returned by the\n"
     "\tWSCGetProviderInfo and WSCGetProviderInfo32 functions if the protocol entry specified\n"
     "\tcould not be found. This error is also returned if the service provider returned a\n"
     "\tversion number other than 2.0.\n"},
    {10106,
     "Service provider failed to initialize.\n"
     "\tThe requested service provider could not be loaded or initialized. This error is\n"
     "\treturned if either a service provider's DLL could not be loaded (LoadLibrary failed) or\n"
     "\tthe provider's WSPStartup or NSPStartup function failed.\n"},
    {10107,
     "System call failure.\n"
     "\tA system call that should never fail has failed. This is a generic error code, returned\n"
     "\tunder various conditions. Returned when a system call that should never fail does fail.\n"
     "\tFor example, if a call to WaitForMultipleEvents fails or one of the registry functions\n"
     "\tfails trying to manipulate the protocol/namespace catalogs. Returned when a provider\n"
     "\tdoes not return SUCCESS and does not provide an extended error code. Can indicate a\n"
     "\tservice provider implementation error.\n"},
    {10108,
     "Service not found.\n"
     "\tNo such service is known. The service cannot be found in the specified name space.\n"},
    {10109,
     "Class type not found.\n"
     "\tThe specified class was not found.\n"},
    {10110,
     "No more results.\n"
     "\tNo more results can be returned by the WSALookupServiceNext function.\n"},
    {10111,
     "Call was canceled.\n"
     "\tA call to the WSALookupServiceEnd function was made while this call was still\n"
     "\tprocessing. The call has been canceled.\n"},
    {10112,
     "Database query was refused.\n"
     "\tA database query failed because it was actively refused.\n"},
    {11001,
     "Host not found.\n"
     "\tNo such host is known. The name is not an official host name or alias, or it cannot be\n"
     "\tfound in the database(s) being queried. This error may also be returned for protocol and\n"
     "\tservice queries, and means that the specified name could not be found in the relevant\n"
     "\tdatabase.\n"},
    {11002,
     "Nonauthoritative host not found.\n"
     "\tThis is usually a temporary error during host name resolution and means that the local\n"
     "\tserver did not receive a response from an authoritative server. A retry at some time\n"
     "\tlater may be successful.\n"},
    {11003,
     "This is a nonrecoverable error.\n"
     "\tThis indicates that some sort of nonrecoverable error occurred during a database lookup.\n"
     "\tThis may be because the database files (for example, BSD-compatible HOSTS, SERVICES, or\n"
     "\tPROTOCOLS files) could not be found, or a DNS request was returned by the server with a\n"
     "\tsevere error.\n"},
    {11004,
     "Valid name, no data record of requested type.\n"
     "\tThe requested name is valid and was found in the database, but it does not have the\n"
     "\tcorrect associated data being resolved for. The usual example for this is a host\n"
     "\tname-to-address translation attempt (using gethostbyname or WSAAsyncGetHostByName) which\n"
     "\tuses the DNS (Domain Name Server). An MX record is returned but no A record - indicating\n"
     "\tthe host itself exists, but is not directly reachable.\n"},
    {11005,
     "QoS receivers.\n"
     "\tAt least one QoS reserve has arrived.\n"},
    {11006,
     "QoS senders.\n"
     "\tAt least one QoS send path has arrived.\n"},
    {11007,
     "No QoS senders.\n"
     "\tThere are no QoS senders.\n"},
    {11008,
     "QoS no receivers.\n"
     "\tThere are no QoS receivers.\n"},
    {11009,
     "QoS request confirmed.\n"
     "\tThe QoS reserve request has been confirmed.\n"},
    {11010,
     "QoS admission error.\n"
     "\tA QoS error occurred due to lack of resources.\n"},
    {11011,
     "QoS policy failure.\n"
     "\tThe QoS request was rejected because the policy system couldn't allocate the requested\n"
     "\tresource within the existing policy.\n"},
    {11012,
     "QoS bad style.\n"
     "\tAn unknown or conflicting QoS style was encountered.\n"},
    {11013,
     "QoS bad object.\n"
     "\tA problem was encountered with some part of the filterspec or the provider-specific\n"
     "\tbuffer in general.\n"},
    {11014,
     "QoS traffic control error.\n"
     "\tAn error with the underlying traffic control (TC) API as the generic QoS request was\n"
     "\tconverted for local enforcement by the TC API. This could be due to an out of memory\n"
     "\terror or to an internal QoS provider error.\n"},
    {11015,
     "QoS generic error.\n"
     "\tA general QoS error.\n"},
    {11016,
     "QoS service type error.\n"
     "\tAn invalid or unrecognized service type was found in the QoS flowspec.\n"},
    {11017,
     "QoS flowspec error.\n"
     "\tAn invalid or inconsistent flowspec was found in the QOS structure.\n"},
    {11018,
     "Invalid QoS provider buffer.\n"
     "\tAn invalid QoS provider-specific buffer.\n"},
    {11019,
     "Invalid QoS filter style.\n"
     "\tAn invalid QoS filter style was used.\n"},
    {11020,
     "Invalid QoS filter type.\n"
     "\tAn invalid QoS filter type was used.\n"},
    {11021,
     "Incorrect QoS filter count.\n"
     "\tAn incorrect number of QoS FILTERSPECs were specified in the FLOWDESCRIPTOR.\n"},
    {11022,
     "Invalid QoS object length.\n"
     "\tAn object with an invalid ObjectLength field was specified in the QoS provider-specific\n"
     "\tbuffer.\n"},
    {11023,
     "Incorrect QoS flow count.\n"
     "\tAn incorrect number of flow descriptors was specified in the QoS structure.\n"},
    {11024,
     "Unrecognized QoS object.\n"
     "\tAn unrecognized object was found in the QoS provider-specific buffer.\n"},
    {11025,
     "Invalid QoS policy object.\n"
     "\tAn invalid policy object was found in the QoS provider-specific buffer.\n"},
    {11026,
     "Invalid QoS flow descriptor.\n"
     "\tAn invalid QoS flow descriptor was found in the flow descriptor list.\n"},
    {11027,
     "Invalid QoS provider-specific flowspec.\n"
     "\tAn invalid or inconsistent flowspec was found in the QoS provider-specific buffer.\n"},
    {11028,
     "Invalid QoS provider-specific filterspec.\n"
     "\tAn invalid FILTERSPEC was found in the QoS provider-specific buffer.\n"},
    {11029,
     "Invalid QoS shape discard mode object.\n"
     "\tAn invalid shape discard mode object was found in the QoS provider-specific buffer.\n"},
    {11030,
     "Invalid QoS shaping rate object.\n"
     "\tAn invalid shaping rate object was found in the QoS provider-specific buffer.\n"},
    {11031,
     "Reserved policy QoS element type.\n"
     "\tA reserved policy element was found in the QoS provider-specific buffer.\n"},
};
// clang-format on

} // namespace

const char *sysErrorString(int code) {
    for (const SystemError &row : systemErrors)
        if (row.code == code)
            return row.text;
    return "Unknown Error";
}

} // namespace vintok
