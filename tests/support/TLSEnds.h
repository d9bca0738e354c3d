// Two connected ends under TLS, each with options of its own, and certificates made on the spot.
#ifndef VINTOK_TESTS_SUPPORT_TLSENDS_H
#define VINTOK_TESTS_SUPPORT_TLSENDS_H

#include "support/SocketPair.h"
#include "vintok-tls/Authority.h"
#include "vintok-tls/TLSTransport.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vintok::test {

// One authority for the whole run, and what it signs.
const tls::Authority &authority();
tls::Issued certificateFor(const std::vector<std::string> &names, std::int64_t from = -3600,
                           std::int64_t until = 3600, const tls::Authority &by = authority());

// Of a party that has a certificate for the name and trusts the authority.
TLSOptions optionsFor(const std::string &name);

// This side goes through the library, the peer talks to its transport itself, as another process
// would.
class TLSEnds {
public:
    TLSEnds();
    ~TLSEnds();
    TLSEnds(const TLSEnds &) = delete;
    TLSEnds &operator=(const TLSEnds &) = delete;

    // What the next handshake goes by. At first: certificates for "mine.example" and
    // "peer.example", each side trusting the authority, no name expected, short waits.
    TLSOptions mineOptions;
    TLSOptions peerOptions;

    struct Outcome {
        bool done = false;
        TLSError error = TLS_ERROR_NONE;
        std::string words; // the second line of the thread's error
    };
    Outcome mineOutcome;
    Outcome peerOutcome;

    // This side accepts and the peer connects, both at once. True when both are done.
    bool shakeHands();
    // The other way round.
    bool shakeHandsBackwards();

    int mine() const { return pair.mine(); }
    int peer() const { return pair.peer(); }

    std::int64_t write(const std::string &text);
    // As much as there is, at most `length`; waits for the first byte.
    std::string read(std::size_t length);
    // All of it.
    std::string readAll(std::size_t length);
    bool peerWrites(const std::string &text);
    std::string peerReads(std::size_t length);
    bool awaitPending(std::int64_t count);

    SocketPair pair;
    TLSTransport mineTLS;
    TLSTransport peerTLS;

private:
    template <typename Mine, typename Peer>
    bool together(Mine mineActs, Peer peerActs);
};

} // namespace vintok::test

#endif
