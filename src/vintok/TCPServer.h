// A plain relay of messages: listens on one port, on IPv4 and IPv6, and passes every broadcast
// message of a client on to the others.
//
// Construct and run on one thread. Everything happens inside `run` (or another loop of the thread).
// A client that takes nothing stalls the server once 1 MiB waits for it.
#ifndef VINTOK_TCPSERVER_H
#define VINTOK_TCPSERVER_H

#include "vintok/Export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace vintok {

class AcceptGuard;
class RelayRun;
class StreamLoop;
class TCPMessage;
class TCPSelect;
struct Span;

class VINTOK_API TCPServer {
public:
    // Gets a broadcast's body, which lasts for the call, after it has been passed on.
    using DataCallback = void (*)(TCPServer *server, unsigned char *body, std::uint64_t length);

    // Listens on `port` (host order), or unless `exactPort` on the first free one of the 255 from
    // there; on the loopback addresses only when `localOnly`. Both families get the same port, or
    // the second none. A server that could not listen has port 0 and its `run` returns at once; the
    // log says why.
    TCPServer(unsigned short port, bool exactPort, bool localOnly);
    // Closes the connections and the listening sockets.
    ~TCPServer();

    // A copy shares the loop and the sockets; destroying either closes them for both.
    TCPServer(const TCPServer &other);
    TCPServer &operator=(const TCPServer &other);

    // Host byte order; 0 when it does not listen.
    unsigned short port() const { return m_port; }
    // What keep-alive messages carry as their message version; 0.0 at first.
    unsigned short majorVersion() const { return m_majorVersion; }
    unsigned short minorVersion() const { return m_minorVersion; }
    void setVersion(unsigned short major, unsigned short minor);
    // Null for none.
    void setDataCB(DataCallback function) { m_dataCB = function; }

    // The loop's, with no effect or false when the server does not listen.
    void run();
    bool running() const;
    void interrupt();

protected:
    // One message from a client: relays a broadcast, drops a client that hangs up, ignores the
    // rest.
    virtual void mf_handleMessage(TCPMessage &message);

    // To every client but the one that the message came from, in order of connection. What came
    // from a client leaves at the end of the loop's turn, or before anything else that is written,
    // and the result is true; otherwise it is written at once, and true means that every write
    // succeeded. A client that fails is found out at its next read.
    bool mf_broadcastMessage(TCPMessage &message);

    // Closes and forgets a client; nothing for a descriptor that is none.
    void mf_handleHangup(int descriptor);

    void mf_setBlockingBroadcast();
    void mf_setNonBlockingBroadcast();

private:
    void mf_closeListeners();
    void mf_release();
    void mf_connectPending(int listener);
    void mf_dataPending(int descriptor, bool hangup);
    // For an owner with a timer; the server has none and never calls it.
    bool mf_sendKeepAlive(int except);
    bool mf_writeClients(TCPMessage &message, int except, const char *complaint);
    void mf_shutdown();

    static void sf_spread(void *owner, StreamLoop &loop, int source, const Span &span);
    static void sf_connectCB(int descriptor, void *data, bool hangup);
    static void sf_dataCB(int descriptor, void *data, bool hangup);

    std::shared_ptr<TCPSelect> m_select;
    DataCallback m_dataCB = nullptr;
    std::vector<int> m_clients; // in order of connection
    int m_listenIPv4 = -1;
    int m_listenIPv6 = -1;
    unsigned short m_port = 0;
    unsigned short m_majorVersion = 0;
    unsigned short m_minorVersion = 0;
    std::shared_ptr<AcceptGuard> m_acceptGuard;
    std::shared_ptr<RelayRun> m_relay; // of this object alone
};

} // namespace vintok

#endif
