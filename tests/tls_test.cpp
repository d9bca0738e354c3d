// The secure channel of libvintok-tls: who is let in, who is turned away, and bytes in every size.
#include "platform/Socket.h"
#include "platform/Wait.h"
#include "support/LogFile.h"
#include "support/TLSEnds.h"
#include "vintok-tls/TLSFolder.h"
#include "vintok/StreamInternal.h"

#include <algorithm>
#include <filesystem>
#include <thread>

using namespace vintok;
using namespace vintok::test;

namespace {

class TLS : public testing::Test {
protected:
    TLS() {
        init();
        beginAnew();
    }
    ~TLS() override {
        ends.reset();
        fini();
    }

    void beginAnew() {
        ends = nullptr;
        ends = std::make_unique<TLSEnds>();
    }
    static bool isClosed(int fd) { return DescriptorState(fd).closed; }
    bool peerSendsRaw(const std::string &bytes) { return ends->pair.peerSends(bytes); }

    std::unique_ptr<TLSEnds> ends;
};

// ---- Certificates ----

const tls::Authority &stranger() {
    static const tls::Authority *const made = [] {
        auto *fresh = new tls::Authority;
        std::string words;
        fresh->create("a stranger", 0, 4000000000, words);
        return fresh;
    }();
    return *made;
}

void show(TLSOptions &options, const tls::Issued &issued) {
    options.certificate = issued.certificate;
    options.key = issued.key;
}

struct Certified {
    const char *name;
    void (*prepare)(TLSEnds &ends); // this side accepts
    TLSError mine, peer;
    const char *words; // of the side that is at fault's opposite
};

const Certified certified[] = {
    {"both known", [](TLSEnds &) {}, TLS_ERROR_NONE, TLS_ERROR_NONE, ""},
    {"for the expected address",
     [](TLSEnds &e) {
         show(e.mineOptions, certificateFor({"192.0.2.7", "2001:db8::7"}));
         e.peerOptions.expectedName = "2001:db8::7";
     },
     TLS_ERROR_NONE, TLS_ERROR_NONE, ""},
    {"for another name", [](TLSEnds &e) { e.peerOptions.expectedName = "yours.example"; },
     TLS_ERROR_REFUSED, TLS_ERROR_CERTIFICATE, "certificate verify failed: hostname mismatch"},
    {"for another address", [](TLSEnds &e) { e.peerOptions.expectedName = "192.0.2.8"; },
     TLS_ERROR_REFUSED, TLS_ERROR_CERTIFICATE, "IP address mismatch"},
    {"expired",
     [](TLSEnds &e) { show(e.mineOptions, certificateFor({"mine.example"}, -3000, -60)); },
     TLS_ERROR_REFUSED, TLS_ERROR_CERTIFICATE,
     "certificate verify failed: certificate has expired"},
    {"of an unknown authority",
     [](TLSEnds &e) { show(e.mineOptions, certificateFor({"mine.example"}, -60, 60, stranger())); },
     TLS_ERROR_REFUSED, TLS_ERROR_CERTIFICATE, "unable to get local issuer certificate"},
    {"not demanded and not shown", [](TLSEnds &e) { show(e.peerOptions, {}); }, TLS_ERROR_NONE,
     TLS_ERROR_NONE, ""},
    // With TLS 1.3 the caller is done before it is refused; see below.
    {"of a caller whom nobody knows",
     [](TLSEnds &e) { show(e.peerOptions, certificateFor({"peer.example"}, -60, 60, stranger())); },
     TLS_ERROR_CERTIFICATE, TLS_ERROR_NONE, "unable to get local issuer certificate"},
    {"demanded and not shown",
     [](TLSEnds &e) {
         e.mineOptions.demandCertificate = true;
         show(e.peerOptions, {});
     },
     TLS_ERROR_CERTIFICATE, TLS_ERROR_NONE, "peer did not return a certificate"},
};

TEST_F(TLS, ACertificateDecidesWhoIsLetIn) {
    for (const Certified &row : certified) {
        SCOPED_TRACE(row.name);
        beginAnew();
        row.prepare(*ends);
        ends->shakeHands();
        EXPECT_EQ(row.mine, ends->mineOutcome.error) << ends->mineOutcome.words;
        EXPECT_EQ(row.peer, ends->peerOutcome.error) << ends->peerOutcome.words;
        EXPECT_EQ(row.mine == TLS_ERROR_NONE, ends->mineOutcome.done);
        EXPECT_EQ(row.peer == TLS_ERROR_NONE, ends->peerOutcome.done);
        EXPECT_EQ(row.mine != TLS_ERROR_NONE, isClosed(ends->mine())) << "never plain after that";
        EXPECT_THAT(row.mine == TLS_ERROR_REFUSED ? ends->peerOutcome.words
                                                  : ends->mineOutcome.words,
                    HasSubstr(row.words));
    }
}

TEST_F(TLS, ACallerThatIsRefusedAfterItsHandshakeLearnsWhy) {
    ends->mineOptions.demandCertificate = true;
    show(ends->peerOptions, {});
    EXPECT_FALSE(ends->shakeHands());
    EXPECT_EQ("", ends->peerReads(1));
    EXPECT_THAT(lastErrorString(), HasSubstr("certificate required"));
    EXPECT_EQ(TLS_ERROR_REFUSED,
              static_cast<TLSError>(ends->peerTLS.lastSecureError(ends->peer())));
}

TEST_F(TLS, APersonLearnsWhoThePeerIsAndHowItIsGuarded) {
    ASSERT_TRUE(ends->shakeHands()) << ends->mineOutcome.words;
    std::size_t bits = 0;
    std::string text;
    ASSERT_TRUE(secureStatus(ends->mine(), bits, text));
    EXPECT_EQ(256U, bits);
    EXPECT_EQ("TLSv1.3 TLS_AES_256_GCM_SHA384", text);
    TCPCertInfo info;
    ASSERT_TRUE(certificateInfo(ends->mine(), info));
    EXPECT_EQ(0U, info.m_status);
    EXPECT_EQ("CN=peer.example", info.m_text1);
    EXPECT_EQ("CN=test authority", info.m_text2);
    EXPECT_THAT(info.m_text3, testing::MatchesRegex("20..-..-..T..:..:..Z"));
    EXPECT_EQ(95U, info.m_text4.size()) << info.m_text4;
    EXPECT_EQ(TLS_ERROR_NONE, static_cast<TLSError>(lastSecureError(ends->mine())));

    beginAnew();
    show(ends->peerOptions, {});
    ASSERT_TRUE(ends->shakeHands());
    ASSERT_TRUE(certificateInfo(ends->mine(), info));
    EXPECT_EQ(tlsNoCertificate, info.m_status);
    EXPECT_EQ("", info.m_text1);
}

struct Unusable {
    const char *name;
    void (*spoil)(TLSOptions &options);
    const char *words;
};

const Unusable unusable[] = {
    {"a key alone", [](TLSOptions &o) { o.certificate.clear(); }, "are needed together"},
    {"another certificate's key", [](TLSOptions &o) { o.key = certificateFor({"x"}).key; },
     "key values mismatch"},
    {"a chain that breaks off",
     [](TLSOptions &o) { o.certificate += o.certificate.substr(0, 200); }, "the chain in"},
    {"no such file", [](TLSOptions &o) { o.rootsFile = "/nowhere/ca.pem"; },
     "cannot read /nowhere/ca.pem: No such file"},
    {"certificates demanded of nobody",
     [](TLSOptions &o) {
         o.roots.clear();
         o.demandCertificate = true;
     },
     "to demand certificates takes roots"},
};

TEST_F(TLS, OptionsThatCannotBeUsedAreNamed) {
    for (const Unusable &row : unusable) {
        SCOPED_TRACE(row.name);
        TLSOptions options = ends->mineOptions;
        row.spoil(options);
        EXPECT_FALSE(ends->mineTLS.open(options));
        EXPECT_EQ(TCP_ERROR_SSL_TRANSPORT, lastError());
        EXPECT_THAT(lastErrorString(), HasSubstr(row.words));
    }
}

// ---- Peers without TLS, and peers that are silent ----

struct Stranger {
    const char *name, *bytes;
    bool required;
    TLSError error; // none: left plain
    const char *words;
};

class Strangers : public TLS {
protected:
    // The peer says its bytes; this side waits for a moment only.
    void meets(const Stranger &row) {
        beginAnew();
        ends->mineOptions.required = row.required;
        ends->mineOptions.acceptWait = ends->mineOptions.connectWait = 30;
        ends->mineOptions.handshakeTime = 50;
        ASSERT_TRUE(ends->mineTLS.open(ends->mineOptions));
        ASSERT_TRUE(*row.bytes == '\0' || peerSendsRaw(row.bytes));
    }
    void expect(const Stranger &row, bool done) {
        EXPECT_FALSE(done);
        EXPECT_THAT(lastErrorString(), HasSubstr(row.words));
        std::string words;
        EXPECT_EQ(row.error, ends->mineTLS.lastFailure(words));
        EXPECT_EQ(row.error != TLS_ERROR_NONE, isClosed(ends->mine()));
        EXPECT_FALSE(DescriptorState(ends->mine()).secure);
        if (row.error != TLS_ERROR_NONE) {
            rawClearSocket(ends->peer(), 10000);
            EXPECT_TRUE(awaitEnd(ends->peer())) << "the peer learns of it";
        } else if (*row.bytes != '\0') {
            EXPECT_EQ(row.bytes, ends->read(std::string(row.bytes).size())) << "nothing is lost";
        }
    }
};

TEST_F(Strangers, ACallerWithoutTLSIsServedPlainOrTurnedAway) {
    const Stranger rows[] = {
        {"says nothing", "", false, TLS_ERROR_NONE, "the caller does not begin with TLS"},
        {"says something else", "CONNECT ", false, TLS_ERROR_NONE, "speaks without TLS"},
        {"begins like a hello", "\x16\x03\x01x", false, TLS_ERROR_TIME, "did not finish"},
        {"seems to", "\x16\x03\x01\x01\x01\x02", false, TLS_ERROR_NONE, "speaks without TLS"},
        {"says nothing to one that demands", "", true, TLS_ERROR_PEER_PLAIN, "TLS is required"},
        {"speaks plain to one that demands", "CONNECT ", true, TLS_ERROR_PEER_PLAIN,
         "TLS is required"},
    };
    for (const Stranger &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_NO_FATAL_FAILURE(meets(row));
        LogFile log(LOG_ERROR);
        expect(row, secureAccept(ends->mine()));
        EXPECT_EQ(row.error != TLS_ERROR_NONE,
                  log.text().find("broken off: ") != std::string::npos);
    }
}

TEST_F(Strangers, AnAnswererWithoutTLSIsFoundBeforeTheHelloAndNoByteIsLost) {
    const Stranger rows[] = {
        {"speaks first", "hello frame", false, TLS_ERROR_NONE, "other side speaks without TLS"},
        {"speaks first to one that demands", "hello frame", true, TLS_ERROR_PEER_PLAIN,
         "TLS is required"},
        {"is silent for ever", "", false, TLS_ERROR_TIME, "did not finish the handshake in time"},
    };
    for (const Stranger &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_NO_FATAL_FAILURE(meets(row));
        const bool done = secureConnect(ends->mine(), "");
        EXPECT_EQ(row.error == TLS_ERROR_TIME, rawBytesPending(ends->peer()) > 0)
            << "what is sent to a plain peer would be read as a frame";
        expect(row, done);
    }
}

// One that demands TLS sends its hello at once. A plain party answers that in its own way.
TEST_F(Strangers, APlainAnswerToTheHelloBreaksTheConnectionOff) {
    ends->mineOptions.required = true;
    ASSERT_TRUE(ends->mineTLS.open(ends->mineOptions));
    std::thread plain([this] {
        awaitBytes(ends->peer(), 1);
        rawWriteBytes(ends->peer(), reinterpret_cast<const unsigned char *>("\0\0\1\0 frame"), 10,
                      true, nullptr);
    });
    EXPECT_FALSE(secureConnect(ends->mine(), ""));
    EXPECT_THAT(lastErrorString(), HasSubstr("the peer does not speak TLS"));
    EXPECT_TRUE(isClosed(ends->mine()));
    plain.join();
}

TEST_F(Strangers, AConnectWithoutANameMayBeLeftPlain) {
    ASSERT_TRUE(ends->mineTLS.open(ends->mineOptions));
    ends->mineTLS.setConnectsUnnamed(false);
    EXPECT_FALSE(secureConnect(ends->mine(), ""));
    EXPECT_THAT(lastErrorString(), HasSubstr("no name is given"));
    EXPECT_FALSE(isClosed(ends->mine()));
    EXPECT_EQ(0, rawBytesPending(ends->peer()));
}

// ---- Bytes ----

TEST_F(TLS, MegabytesTravelBothWaysAtOnceAndWhole) {
    ASSERT_TRUE(ends->shakeHands());
    const std::string text = pattern(1000000);
    std::string heard;
    std::thread reader([&] { heard = ends->peerReads(text.size()); });
    std::thread writer([&] { EXPECT_TRUE(ends->peerWrites(text)); });
    std::thread own([&] { EXPECT_EQ(1000000, ends->write(text)); });
    EXPECT_EQ(text, ends->readAll(text.size()));
    own.join();
    writer.join();
    reader.join();
    EXPECT_EQ(text, heard);
}

// What had no room is given again: to one that waits, too, for its first bytes are on the way.
TEST_F(TLS, WhatHadNoRoomGoesOnWhereItStopped) {
    for (const bool waits : {false, true}) {
        ends = nullptr;
        ends = std::make_unique<TLSEnds>();
        ASSERT_TRUE(ends->shakeHands());
        const std::string text = pattern(8000000);
        const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
        std::size_t sent = 0;
        const auto sendNow = [&] {
            const auto count =
                ends->mineTLS.sendNow(ends->mine(), bytes + sent, text.size() - sent);
            sent += static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
            return count;
        };
        while (sendNow() > 0) {
        }
        EXPECT_EQ(0, sendNow());
        ASSERT_LT(sent, text.size());
        std::string heard;
        std::thread reader([&] { heard = ends->peerReads(text.size()); });
        if (waits) {
            EXPECT_EQ(static_cast<std::int64_t>(text.size() - sent),
                      ends->write(text.substr(sent)));
        } else {
            while (sent < text.size() && sendNow() >= 0)
                platform::awaitSocket(ends->mine(), platform::Await::writable, 1000);
        }
        reader.join();
        EXPECT_TRUE(text == heard);
    }
}

TEST_F(TLS, RecordsOfOneByteAddUp) {
    ASSERT_TRUE(ends->shakeHands());
    const std::string text = pattern(100);
    for (const char c : text)
        ASSERT_TRUE(ends->peerWrites(std::string(1, c)));
    ASSERT_TRUE(ends->awaitPending(100)) << bytesPending(ends->mine());
    EXPECT_EQ(0, rawBytesPending(ends->mine())) << "a wait on the socket would not see them";
    std::string seen(100, '\0');
    EXPECT_EQ(100, peekBytes(ends->mine(), reinterpret_cast<unsigned char *>(seen.data()), 100));
    EXPECT_EQ(text, seen) << "across records";
    EXPECT_EQ(-1, peekBytes(ends->mine(), reinterpret_cast<unsigned char *>(seen.data()), 101));
    EXPECT_EQ(TCP_ERROR_WOULD_BLOCK, lastError());
    EXPECT_EQ(text.substr(0, 60), ends->read(60)) << "a peek takes nothing";
    EXPECT_EQ(40, bytesPending(ends->mine()));
    EXPECT_EQ(text.substr(60), ends->read(1000));
}

// The peer seals for a socket of its own, so that the test can pass its records on in pieces.
class Pieces : public TLS {
protected:
    // What the peer's `text` looks like on the wire.
    std::string sealed(const std::string &text) {
        EXPECT_TRUE(ends->peerWrites(text));
        std::size_t length = 0;
        while (length == 0)
            EXPECT_TRUE(awaitBytes(ends->mine(), 5) &&
                        platform::bytesWaiting(ends->mine(), length));
        std::string bytes(length, '\0');
        EXPECT_EQ(static_cast<std::int64_t>(length),
                  platform::receive(ends->mine(), reinterpret_cast<unsigned char *>(bytes.data()),
                                    length));
        return bytes;
    }
};

TEST_F(Pieces, ARecordThatWasTamperedWithEndsTheConnection) {
    ASSERT_TRUE(ends->shakeHands());
    std::string record = sealed("whole");
    record.back() = static_cast<char>(record.back() ^ 1);
    ASSERT_TRUE(peerSendsRaw(record));
    EXPECT_EQ(-1, bytesPending(ends->mine()));
    EXPECT_EQ(TLS_ERROR_PROTOCOL, static_cast<TLSError>(lastSecureError(ends->mine())));
    EXPECT_TRUE(awaitEnd(ends->mine())) << "whoever waits for it finds it";
    EXPECT_EQ("", ends->read(5));
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError());
    EXPECT_THAT(lastErrorString(), HasSubstr("bad record mac"));
    std::string words;
    int fd = -1;
    EXPECT_EQ(TLS_ERROR_PROTOCOL, ends->mineTLS.lastFailure(words, &fd));
    EXPECT_EQ(ends->mine(), fd);
    ends->mineTLS.clearFailure();
    ends->pair.shutDownMine();
    EXPECT_EQ(TLS_ERROR_NONE, ends->mineTLS.lastFailure(words)) << "told once";
}

TEST_F(Pieces, AnEndInTheMiddleOfARecordIsATruncation) {
    ASSERT_TRUE(ends->shakeHands());
    const std::string record = sealed("whole");
    ASSERT_TRUE(peerSendsRaw(record.substr(0, record.size() / 2)));
    ends->pair.shutDownPeer();
    EXPECT_EQ("", ends->read(5));
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError());
    EXPECT_THAT(lastErrorString(), HasSubstr("unexpected eof"));
    EXPECT_TRUE(isClosed(ends->mine()));
    LogFile log(LOG_WARNING);
    ends->pair.shutDownMine();
    EXPECT_THAT(log.text(), HasSubstr("ended without a close of the channel"));
}

// Nobody reads in between.
TEST_F(TLS, ABareEndThatOnlyTheCloseMeetsIsATruncation) {
    ASSERT_TRUE(ends->shakeHands());
    ends->pair.resetPeer();
    ASSERT_TRUE(awaitEnd(ends->mine()));
    ends->pair.shutDownMine();
    std::string words;
    EXPECT_EQ(TLS_ERROR_TRUNCATED, ends->mineTLS.lastFailure(words));
}

TEST_F(TLS, ACloseInOrderIsToldFromATruncation) {
    ends->mineOptions.required = true;
    ASSERT_TRUE(ends->shakeHandsBackwards());
    ASSERT_TRUE(ends->peerWrites("last words"));
    ASSERT_TRUE(ends->peerTLS.removeSecureDescriptor(ends->peer()));
    EXPECT_EQ("last words", ends->readAll(10));
    LogFile log(LOG_WARNING);
    EXPECT_EQ("", ends->read(1));
    EXPECT_EQ(TLS_ERROR_CLOSED, static_cast<TLSError>(ends->mineTLS.lastSecureError(ends->mine())));
    ends->pair.shutDownMine();
    EXPECT_EQ("", log.text());
    std::string words;
    EXPECT_EQ(TLS_ERROR_NONE, ends->mineTLS.lastFailure(words)) << "the end may come later";
}

TEST_F(TLS, WithoutAHandshakeASecureDescriptorMovesNothing) {
    ASSERT_TRUE(setSecure(ends->mine(), true));
    EXPECT_EQ(-1, ends->write("secret"));
    EXPECT_EQ("", ends->read(1));
    EXPECT_EQ(-1, bytesPending(ends->mine()));
    EXPECT_EQ(0, rawBytesPending(ends->peer()));
}

// What a multiplexer does with an answer of "pLorMUX_Encrypt: false".
TEST_F(TLS, AChannelCanBeClosedAndTheStreamGoesOnPlain) {
    ASSERT_TRUE(ends->shakeHands());
    const std::string reply = "reply";
    EXPECT_EQ(5, ends->peerTLS.sendLast(ends->peer(),
                                        reinterpret_cast<const unsigned char *>(reply.data()), 5));
    ASSERT_TRUE(ends->awaitPending(5));
    EXPECT_EQ(reply, ends->read(5));
    ASSERT_TRUE(setSecure(ends->mine(), false));
    EXPECT_LE(rawBytesPending(ends->mine()), 0) << "the peer's close came with the reply";
    EXPECT_EQ(5, ends->write("Ready"));

    ASSERT_TRUE(awaitBytes(ends->peer(), 6));
    std::size_t pending = 0;
    EXPECT_FALSE(ends->peerTLS.secureBytesPending(ends->peer(), &pending, true));
    EXPECT_EQ(TLS_ERROR_CLOSED, static_cast<TLSError>(ends->peerTLS.lastSecureError(ends->peer())));
    ends->peerTLS.removeSecureDescriptor(ends->peer());
    ASSERT_TRUE(awaitBytes(ends->peer(), 5));
    std::string plain(5, '\0');
    EXPECT_EQ(5, rawReadBytes(ends->peer(), reinterpret_cast<unsigned char *>(plain.data()), 5,
                              true, nullptr));
    EXPECT_EQ("Ready", plain);
}

TEST_F(TLS, NothingGoesOnPlainWhereTLSIsRequired) {
    ends->mineOptions.required = true;
    ASSERT_TRUE(ends->shakeHands());
    ASSERT_TRUE(setSecure(ends->mine(), false));
    EXPECT_GE(0, ends->write("in the open"));
    EXPECT_EQ("", ends->peerReads(1));
    EXPECT_EQ(TLS_ERROR_CLOSED, static_cast<TLSError>(ends->peerTLS.lastSecureError(ends->peer())));
}

// ---- The folder for trying out ----

TEST(TLSFolder, IsMadeOnceItsKeysArePrivateAndItsCertificatesWork) {
    namespace fs = std::filesystem;
    const fs::path folder = testing::TempDir() + "vintok-tls-folder";
    fs::remove_all(folder);
    init();
    ASSERT_TRUE(createTLSFolder(folder.string(), {"meeting.example", "192.0.2.7"}))
        << lastErrorString();
    for (const char *key : {"ca.key", "host.key", "guest.key"})
        EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write,
                  fs::status(folder / key).permissions())
            << key;
    {
        TLSEnds ends;
        ends.mineOptions = ends.peerOptions = {};
        ends.mineOptions.rootsFile = ends.peerOptions.rootsFile = (folder / "ca.pem").string();
        ends.mineOptions.certificateFile = (folder / "host.pem").string();
        ends.mineOptions.keyFile = (folder / "host.key").string();
        ends.peerOptions.certificateFile = (folder / "guest.pem").string();
        ends.peerOptions.keyFile = (folder / "guest.key").string();
        ends.mineOptions.demandCertificate = true;
        ends.peerOptions.expectedName = "192.0.2.7";
        EXPECT_TRUE(ends.shakeHands()) << ends.mineOutcome.words << ends.peerOutcome.words;
    }
    const auto before = fs::last_write_time(folder / "host.key");
    fs::remove(folder / "ca.key");
    EXPECT_FALSE(createTLSFolder(folder.string(), {}));
    EXPECT_THAT(lastErrorString(), HasSubstr("ca.pem: File exists"));
    EXPECT_FALSE(fs::exists(folder / "ca.key")) << "nothing is left behind";
    EXPECT_EQ(before, fs::last_write_time(folder / "host.key"));
    EXPECT_FALSE(createTLSFolder((folder / "other").string(), {"bad name"}));
    EXPECT_THAT(lastErrorString(), HasSubstr("'bad name' is neither"));
    fs::remove_all(folder);
    fini();
}

} // namespace
