// TLS for the library's connections: a TCPTransport made with OpenSSL, in a library of its own
// (target vintok::tls). Make one, `open` it, install it with `setTransport`.
//
//     vintok::TLSOptions options;
//     options.certificateFile = "host.pem";
//     options.keyFile = "host.key";
//     vintok::TLSTransport tls;
//     if (!tls.open(options))
//         complain(vintok::lastErrorString());
//     vintok::setTransport(&tls);
//     vintok::setBackgroundTransport(&tls); // for those who are not to wait
#ifndef VINTOK_TLS_TLSTRANSPORT_H
#define VINTOK_TLS_TLSTRANSPORT_H

#include "vintok/Export.h"
#include "vintok/TCPBackgroundTransport.h"
#include "vintok/TCPCertInfo.h"
#include "vintok/TCPTransport.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vintok {

namespace tls {
struct Handshake;
struct State;
} // namespace tls

// What `lastSecureError` answers of a descriptor that TLS carries, and `TLSTransport::lastFailure`
// of a handshake. The library's own three values are others.
enum TLSError : std::uint32_t {
    TLS_ERROR_NONE = 0,
    TLS_ERROR_SETTINGS = 256,    // the transport is not open, or was not told what it needs
    TLS_ERROR_PEER_PLAIN = 257,  // the peer speaks, but not TLS, or says nothing at all
    TLS_ERROR_TIME = 258,        // the handshake was not done in its time
    TLS_ERROR_CERTIFICATE = 259, // the peer's certificate was not accepted, or none was shown
    TLS_ERROR_REFUSED = 260,     // the peer refused: it sent an alert
    TLS_ERROR_PROTOCOL = 261,    // anything else that is wrong with what the peer sent
    TLS_ERROR_CLOSED = 262,      // the peer has closed the channel in order
    TLS_ERROR_TRUNCATED = 263,   // the stream ended without that: its last bytes may be missing
    TLS_ERROR_UNNAMED = 264      // left plain, as `setConnectsUnnamed` says
};

// Older ones are not spoken.
enum class TLSVersion { TLS1_2, TLS1_3 };

// All paths are PEM files; what is given in memory is PEM text, and counts before the file.
struct TLSOptions {
    // What this side shows: its certificate with those that lead to the root behind it, and its
    // key. Needed to accept; to connect, where the peer demands a certificate. A key under a
    // pass phrase is not taken.
    std::string certificateFile;
    std::string certificate;
    std::string keyFile;
    std::string key;

    // Whom this side trusts, all that are given together. `rootsFolder` is one that `openssl
    // rehash` has prepared.
    std::string rootsFile;
    std::string roots;
    std::string rootsFolder;
    bool systemRoots = false;

    // Whether a caller must show a certificate that leads to a root. One that is shown is checked
    // all the same if there are any roots. Who connects always checks that of the other side.
    bool demandCertificate = false;

    // The name or the IP address that the certificate of whom this side connects to must be for,
    // where the connect names nobody. Empty: any that leads to a root will do.
    std::string expectedName;

    // The oldest version that is spoken.
    TLSVersion oldest = TLSVersion::TLS1_2;
    // Only algorithms that FIPS 140 approves: AES-GCM, the NIST curves. Whether the cryptographic
    // module is a validated one is another matter.
    bool FIPSOnly = false;

    // Whether a peer without TLS is turned away, and a connection that is switched from secure to
    // plain is shut down. Otherwise it goes on plain, and anybody on the way can bring that about:
    // it guards against listeners alone.
    bool required = false;

    // Milliseconds. How long a whole handshake may take; how long the accepting side waits for its
    // first byte; how long the connecting side waits before that byte for a peer that speaks first,
    // as one without TLS does: a handshake sent to it would be read as a frame without end, and
    // stall it until the connection is closed. So the last is to be above the time there and back,
    // and below the second by as much; where every host has TLS it may be 0.
    std::uint32_t handshakeTime = 2000;
    std::uint32_t acceptWait = 600;
    std::uint32_t connectWait = 200;
};

// `TCPCertInfo::m_status` where the peer showed no certificate.
inline constexpr std::uint32_t tlsNoCertificate = 0xFFFFFFFF;

// One for the process, as `setTransport` takes it; any number of threads may use it. It must
// outlive the descriptors that it secures. The operations of the seam are documented in
// TCPTransport.h; this is what they mean here:
// - `secureAccept` and `secureConnect` block, at most as long as the options say, and with them
//   whoever runs the loop that they were called from (see TCPBackgroundTransport below). False
//   without a byte sent or taken leaves the connection plain. A handshake that has begun and
//   failed, or a plain peer where TLS is required, breaks the connection off: it is closed for the
//   library, and its socket is shut down. On a descriptor that is secure already they are true at
//   once.
// - As a TCPBackgroundTransport it does the same in steps, which block nowhere and are bounded by
//   the same times. A handshake goes by the options that stood when it began.
// - `secureRecv` blocks for the first byte and gives what there is, `secureSend` until all is sent.
// - `secureStatus`: the strength of the cipher in bits, and "TLSv1.3 TLS_AES_256_GCM_SHA384".
// - `certificateInfo`: `m_status` is 0 for a certificate that was checked, tlsNoCertificate when
//   the peer showed none, else OpenSSL's number of what is wrong with it. The texts: subject,
//   issuer, end of validity ("2030-01-31T12:00:00Z"), SHA-256 fingerprint ("AB:CD:...").
// Each failure sets the thread's error: the operation, and on a line below it OpenSSL's own words.
class VINTOK_TLS_API TLSTransport final : public TCPTransport, public TCPBackgroundTransport {
public:
    TLSTransport();
    ~TLSTransport();
    TLSTransport(const TLSTransport &) = delete;
    TLSTransport &operator=(const TLSTransport &) = delete;

    // Reads certificates and keys. What is secure already stays as it is; what follows goes by the
    // new options. False with TCP_ERROR_SSL_TRANSPORT, and nothing has changed.
    bool open(const TLSOptions &options);

    // Whether `secureConnect` without a name makes a handshake (it does). A call through a proxy
    // connects without a name first, to the proxy, which speaks no TLS, and by name to the server
    // behind it later: turn this off while such a call is placed.
    void setConnectsUnnamed(bool on);

    // What became of the last connection that was broken off on any thread since `clearFailure` or
    // the start, in its handshake or later: the value, and the words of `lastErrorString`'s second
    // line. A stream that ended without a close of the channel is one of these. `fd` gets its
    // descriptor, which may have a new owner since. TLS_ERROR_NONE and no words if there was none.
    TLSError lastFailure(std::string &words, int *fd = nullptr) const;
    void clearFailure();

    // As `secureSend`, but the last that this side says: the close of the channel goes out with the
    // same write, so that it arrives with these bytes. For who turns a connection plain. The peer's
    // own close has come when `secureBytesPending` fails with TLS_ERROR_CLOSED; from then on
    // `setSecure(fd, false)` leaves whatever the peer sent behind it to plain reads.
    std::int64_t sendLast(int fd, const unsigned char *buffer, std::size_t length);

    bool secureAccept(int fd) override;
    bool secureConnect(int fd, const char *peerName) override;
    std::int64_t securePeek(int fd, unsigned char *buffer, std::size_t length) override;
    std::int64_t secureRecv(int fd, unsigned char *buffer, std::size_t length) override;
    std::int64_t secureSend(int fd, const unsigned char *buffer, std::size_t length) override;
    bool secureBytesPending(int fd, std::size_t *pending, bool socketHasData) override;
    bool addSecureDescriptor(int fd) override;
    bool removeSecureDescriptor(int fd) override;
    bool secureStatus(int fd, std::size_t &value, std::string &text) override;
    bool certificateInfo(int fd, TCPCertInfo &info) override;
    SecureError lastSecureError(int fd) override;

    Step beginAccept(int fd) override;
    Step beginConnect(int fd, const char *peerName) override;
    Step continueHandshake(int fd) override;
    std::int64_t sendNow(int fd, const unsigned char *buffer, std::size_t length) override;

private:
    std::unique_ptr<tls::State> m_state;
};

} // namespace vintok

#endif
