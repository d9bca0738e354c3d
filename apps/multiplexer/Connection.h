// One connection that never waits: what the socket does not take is kept, and sent when it does.
// Whoever feeds it looks at `hasBacklog` first, so that no more is kept than one piece.
#ifndef MULTIPLEXER_CONNECTION_H
#define MULTIPLEXER_CONNECTION_H

#include "Endpoints.h"
#include "SecureStream.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <platform/Poller.h>
#include <string>
#include <string_view>

namespace mux {

// What the poller tells that something can be done.
class Watched {
public:
    virtual void ready(bool readable, bool writable) = 0;

protected:
    ~Watched() = default;
};

class Session;

class Connection final : public Watched {
public:
    // Takes the descriptor over, and makes it one that does not wait.
    Connection(vintok::platform::Poller &poller, int descriptor, const Endpoint &peer);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Starts a connection to `peer`; null when that fails at once. Once it can be written,
    // `connected` says whether it stands.
    static std::unique_ptr<Connection> call(vintok::platform::Poller &poller, const Endpoint &peer);
    bool connected() const;
    // It fails when the other side's system shows no sign of life for so long.
    void setPeerTimeout(std::chrono::seconds timeout) const;
    // Whether the other side has ended its stream, whatever of it has not been received.
    bool peerEnded() const;

    // Who is told of this one. It may change.
    void belongsTo(Session *session) { m_session = session; }
    void ready(bool readable, bool writable) override;

    // Watches for what there is to do: room for the backlog, and bytes to come if `reading`.
    void watch(bool reading, bool writing = false);

    enum class Result { bytes, blocked, ended, lost };
    // Not `fromSocket`: only what has been taken from there already.
    Result receive(char *buffer, std::size_t length, std::size_t &count, bool fromSocket = true);
    // Gives bytes back, to be received again first.
    void unread(std::string_view bytes) { m_unread.insert(0, bytes); }
    // Some bytes will be received of which no socket tells any more.
    bool hasUnread() const;

    // False when the connection is lost. Nothing may be sent behind `endSending`.
    bool send(std::string_view bytes);
    bool flush();
    bool hasBacklog() const { return !m_backlog.empty(); }
    std::size_t held() const { return m_unread.size() + m_backlog.size(); }
    // Ends this side of the stream behind what has been sent.
    void endSending();

    // From now on all goes through `secure`, beginning with what has been given back.
    void secure(std::unique_ptr<SecureStream> secure);
    bool isSecure() const { return m_secure != nullptr; }
    // Sends the last bytes that go through it; the other side's end of it is the last that is
    // received through it, and what follows is plain.
    bool sendLastSecure(std::string_view bytes);

    const Endpoint &peer() const { return m_peer; }
    // Our end of it.
    bool ownEnd(Endpoint &endpoint) const;

    bool isClosed() const { return m_descriptor == -1; }
    void close();

private:
    Result receiveRaw(char *buffer, std::size_t length, std::size_t &count);
    Result receiveSecure(char *buffer, std::size_t length, std::size_t &count, bool fromSocket);
    bool sendRaw(std::string_view bytes);
    bool sendSealed();

    vintok::platform::Poller &m_poller;
    int m_descriptor;
    Endpoint m_peer;
    Session *m_session = nullptr;
    std::unique_ptr<SecureStream> m_secure;
    bool m_sendsPlain = false; // while the other side may still be secure
    std::string m_unread;
    std::string m_backlog;
    bool m_ending = false;
    bool m_reading = false; // what it is watched for
    bool m_writing = false;
};

} // namespace mux

#endif
