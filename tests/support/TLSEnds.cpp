#include "support/TLSEnds.h"
#include "support/Eventually.h"

#include "vintok/TCPStream.h"

#include <ctime>
#include <thread>

namespace vintok::test {

namespace {

std::int64_t now() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

std::string secondLine(const std::string &text) {
    const std::size_t end = text.find('\n');
    return end == std::string::npos ? "" : text.substr(end + 1);
}

TLSEnds::Outcome outcomeOf(bool done, const TLSTransport &transport) {
    TLSEnds::Outcome outcome{done, TLS_ERROR_NONE, done ? "" : secondLine(lastErrorString())};
    std::string words;
    outcome.error = transport.lastFailure(words);
    return outcome;
}

} // namespace

const tls::Authority &authority() {
    static const tls::Authority *const made = [] {
        auto *fresh = new tls::Authority;
        std::string words;
        EXPECT_TRUE(fresh->create("test authority", now() - 3600, now() + 3600, words)) << words;
        return fresh;
    }();
    return *made;
}

tls::Issued certificateFor(const std::vector<std::string> &names, std::int64_t from,
                           std::int64_t until, const tls::Authority &by) {
    tls::Issued issued;
    std::string words;
    EXPECT_TRUE(by.issue({names.empty() ? "nobody" : names[0], names, now() + from, now() + until},
                         issued, words))
        << words;
    return issued;
}

TLSOptions optionsFor(const std::string &name) {
    const tls::Issued own = certificateFor({name});
    TLSOptions options;
    options.certificate = own.certificate;
    options.key = own.key;
    options.roots = authority().own().certificate;
    options.acceptWait = 10000;
    options.connectWait = 1;
    options.handshakeTime = 10000;
    return options;
}

TLSEnds::TLSEnds()
    : mineOptions(optionsFor("mine.example")), peerOptions(optionsFor("peer.example")) {
    setTransport(&mineTLS);
}

TLSEnds::~TLSEnds() {
    peerTLS.removeSecureDescriptor(peer());
    pair.shutDownMine();
    setTransport(nullptr);
    pair.shutDownPeer();
}

template <typename Mine, typename Peer>
bool TLSEnds::together(Mine mineActs, Peer peerActs) {
    EXPECT_TRUE(mineTLS.open(mineOptions)) << lastErrorString();
    EXPECT_TRUE(peerTLS.open(peerOptions)) << lastErrorString();
    std::thread other([&] {
        peerTLS.addSecureDescriptor(peer());
        peerOutcome = outcomeOf(peerActs(), peerTLS);
    });
    mineOutcome = outcomeOf(mineActs(), mineTLS);
    other.join();
    return mineOutcome.done && peerOutcome.done;
}

bool TLSEnds::shakeHands() {
    return together([this] { return secureAccept(mine()); },
                    [this] { return peerTLS.secureConnect(peer(), nullptr); });
}

bool TLSEnds::shakeHandsBackwards() {
    return together([this] { return secureConnect(mine(), ""); },
                    [this] { return peerTLS.secureAccept(peer()); });
}

std::int64_t TLSEnds::write(const std::string &text) {
    return writeBytes(mine(), reinterpret_cast<const unsigned char *>(text.data()), text.size(),
                      nullptr);
}

std::string TLSEnds::read(std::size_t length) {
    std::string text(length, '\0');
    const std::int64_t count =
        readBytes(mine(), reinterpret_cast<unsigned char *>(text.data()), length, nullptr);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

std::string TLSEnds::readAll(std::size_t length) {
    std::string all;
    for (std::string part; all.size() < length; all += part) {
        part = read(length - all.size());
        if (part.empty())
            break;
    }
    return all;
}

bool TLSEnds::peerWrites(const std::string &text) {
    const auto *data = reinterpret_cast<const unsigned char *>(text.data());
    return peerTLS.secureSend(peer(), data, text.size()) == static_cast<std::int64_t>(text.size());
}

std::string TLSEnds::peerReads(std::size_t length) {
    std::string all(length, '\0');
    std::size_t got = 0;
    while (got < length) {
        const std::int64_t count = peerTLS.secureRecv(
            peer(), reinterpret_cast<unsigned char *>(all.data()) + got, length - got);
        if (count <= 0)
            break;
        got += static_cast<std::size_t>(count);
    }
    all.resize(got);
    return all;
}

bool TLSEnds::awaitPending(std::int64_t count) {
    return bool(eventually([&] { return bytesPending(mine()) == count; }));
}

} // namespace vintok::test
