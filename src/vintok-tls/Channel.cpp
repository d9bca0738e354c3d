// OpenSSL reads and writes through a BIO of ours. Its reads take what the socket has and never
// wait. They take more than OpenSSL asks for, which asks often and for little, until this side has
// said its close: behind the peer's close the stream may then go on plain. Its writes go to
// `m_sealed`, and from there to the socket when OpenSSL is not busy: so nobody waits for a socket
// while holding the lock, and a peer that does not read stops the writer and not the reader. Nor
// can a write raise a signal.
//
// Plaintext is kept in a buffer of our own because a peek may ask for bytes of several records.
#include "vintok-tls/Channel.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Wait.h"
#include "vintok/TCPStream.h"

#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <climits>
#include <utility>

namespace vintok::tls {

namespace {

using socketErrors::interrupted;
using socketErrors::wouldBlock;
constexpr std::size_t longestRecord = SSL3_RT_MAX_PLAIN_LENGTH;
constexpr std::size_t readAhead = 4 * longestRecord; // plaintext that nobody has asked for
constexpr std::size_t rawStep = 2 * longestRecord;
constexpr std::size_t writeStep = longestRecord; // the peer opens one while we seal the next
using Record = std::array<unsigned char, longestRecord>; // not to be filled beforehand
constexpr int handshakeRecord = 0x16;
constexpr int alertRecord = 0x15;

std::string systemWords(int error) {
    std::string text = sysErrorString(error);
    return text.substr(0, text.find('\n'));
}

} // namespace

// The BIO: its data is the channel.
struct SocketBio {
    static Channel &channel(BIO *bio) { return *static_cast<Channel *>(BIO_get_data(bio)); }

    static int read(BIO *bio, char *buffer, int length) {
        BIO_clear_retry_flags(bio);
        return channel(bio).receive(bio, buffer, length);
    }

    static int write(BIO *bio, const char *buffer, int length) {
        return channel(bio).hold(buffer, length);
    }

    static long control(BIO *bio, int command, long, void *) {
        if (command == BIO_CTRL_EOF)
            return channel(bio).m_socketEnded ? 1 : 0;
        return command == BIO_CTRL_FLUSH ? 1 : 0;
    }

    static BIO_METHOD *makeMethod() {
        BIO_METHOD *method =
            BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "vintok socket");
        if (method != nullptr) {
            BIO_meth_set_read(method, read);
            BIO_meth_set_write(method, write);
            BIO_meth_set_ctrl(method, control);
        }
        return method;
    }

    static BIO *make(Channel &channel) {
        static BIO_METHOD *const method = makeMethod(); // for as long as the process lives
        BIO *bio = method != nullptr ? BIO_new(method) : nullptr;
        if (bio != nullptr) {
            BIO_set_data(bio, &channel);
            BIO_set_init(bio, 1);
        }
        return bio;
    }
};

Channel::Channel(int descriptor) : m_descriptor(descriptor) {}

// As much as the socket has, unless it must be exact: OpenSSL asks for a few bytes at a time.
std::int64_t Channel::receiveRaw(unsigned char *buffer, std::size_t length) {
    if (m_rawTaken == m_rawEnd) {
        if (m_exact)
            return platform::receiveNow(m_descriptor, buffer, length);
        if (m_raw == nullptr)
            m_raw = std::make_unique_for_overwrite<unsigned char[]>(rawStep);
        m_rawTaken = m_rawEnd = 0;
        const std::int64_t count = platform::receiveNow(m_descriptor, m_raw.get(), rawStep);
        if (count <= 0) {
            m_raw.reset(); // the connection may be idle for long
            return count;
        }
        m_rawEnd = static_cast<std::size_t>(count);
    }
    const std::size_t count = std::min(length, m_rawEnd - m_rawTaken);
    std::copy_n(m_raw.get() + m_rawTaken, count, buffer);
    m_rawTaken += count;
    return static_cast<std::int64_t>(count);
}

int Channel::receive(BIO *bio, char *buffer, int length) {
    const std::int64_t count =
        receiveRaw(reinterpret_cast<unsigned char *>(buffer), static_cast<std::size_t>(length));
    if (count > 0) {
        if (m_firstByte < 0)
            m_firstByte = static_cast<unsigned char>(*buffer);
        return static_cast<int>(count);
    }
    if (count == 0) {
        m_socketEnded = true;
        return 0;
    }
    const int error = platform::socketError();
    if (error == wouldBlock || error == interrupted)
        BIO_set_retry_read(bio);
    else
        m_socketFailure = systemWords(error);
    return -1;
}

int Channel::hold(const char *buffer, int length) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(buffer); // or it goes byte by byte
    m_sealed.insert(m_sealed.end(), bytes, bytes + length);
    return length;
}

// ---- The handshake ----

void Channel::begin(Connection connection) {
    const std::lock_guard guard(m_lock);
    BIO *bio = SocketBio::make(*this);
    SSL_set_bio(connection.get(), bio, bio);
    m_connection = std::move(connection);
    if (bio == nullptr)
        m_failure = {TLS_ERROR_SETTINGS, "no memory"};
}

Channel::Progress Channel::shake() {
    Progress progress = Progress::done;
    {
        const std::lock_guard guard(m_lock);
        if (m_failure.error != TLS_ERROR_NONE)
            return Progress::ended;
        ERR_clear_error();
        const int result = SSL_do_handshake(m_connection.get());
        progress = result == 1 ? Progress::done : explain(result);
    }
    const std::lock_guard writing(m_writing);
    const Flushed flushed = flush(false); // an alert, too
    if (progress == Progress::ended)
        return progress;
    const std::lock_guard guard(m_lock);
    if (m_failure.error != TLS_ERROR_NONE)
        return Progress::ended;
    if (flushed != Flushed::all)
        return Progress::waitsToWrite;
    m_up = progress == Progress::done;
    return progress;
}

bool Channel::isUp() const {
    const std::lock_guard guard(m_lock);
    return m_up;
}

// What a call that did not succeed says, told when it is the end.
Channel::Progress Channel::explain(int result) {
    const int reason = SSL_get_error(m_connection.get(), result);
    if (reason == SSL_ERROR_WANT_READ)
        return Progress::waitsToRead;
    if (reason == SSL_ERROR_ZERO_RETURN) {
        m_failure = {TLS_ERROR_CLOSED, "the peer has closed the channel"};
        return Progress::ended;
    }
    m_failure = takeFailure("the stream has ended");
    if (!m_socketFailure.empty())
        m_failure = {TLS_ERROR_TRUNCATED, m_socketFailure};
    else if (reason == SSL_ERROR_SYSCALL && m_socketEnded)
        m_failure.error = TLS_ERROR_TRUNCATED;
    const long verified = SSL_get_verify_result(m_connection.get());
    if (m_failure.error == TLS_ERROR_CERTIFICATE && verified != X509_V_OK)
        m_failure.words += std::string(": ") + X509_verify_cert_error_string(verified);
    if (!m_up && m_firstByte >= 0 && m_firstByte != handshakeRecord && m_firstByte != alertRecord)
        m_failure = {TLS_ERROR_PEER_PLAIN, "the peer does not speak TLS: " + m_failure.words};
    return Progress::ended;
}

// ---- Reading ----

std::size_t Channel::take(unsigned char *buffer, std::size_t length) {
    const std::size_t count = std::min(length, ready());
    std::copy_n(m_plain.begin() + static_cast<std::ptrdiff_t>(m_taken), count, buffer);
    m_taken += count;
    if (m_taken == m_plain.size()) {
        m_plain.clear();
        m_taken = 0;
    }
    return count;
}

void Channel::keep(const unsigned char *plain, std::size_t length) {
    // A peer that is faster than the reader never lets the buffer run empty.
    if (m_taken >= ready()) {
        m_plain.erase(m_plain.begin(), m_plain.begin() + static_cast<std::ptrdiff_t>(m_taken));
        m_taken = 0;
    }
    m_plain.insert(m_plain.end(), plain, plain + length);
}

// The plaintext of the next record that holds any.
Channel::Progress Channel::openRecord(unsigned char *buffer, std::size_t &count) {
    count = 0;
    if (m_failure.error != TLS_ERROR_NONE)
        return Progress::ended;
    if (!m_up)
        return Progress::waitsToRead;
    ERR_clear_error();
    const int result = SSL_read_ex(m_connection.get(), buffer, longestRecord, &count);
    return result == 1 ? Progress::done : explain(result);
}

Channel::Progress Channel::read(unsigned char *buffer, std::size_t length, std::size_t &count) {
    Progress progress = Progress::done;
    {
        const std::lock_guard guard(m_lock);
        if (ready() != 0) {
            count = take(buffer, length);
        } else if (length >= longestRecord) {
            progress = openRecord(buffer, count);
        } else {
            Record record;
            progress = openRecord(record.data(), count);
            keep(record.data(), count);
            count = take(buffer, length);
        }
    }
    flushAside();
    return progress;
}

bool Channel::peek(unsigned char *buffer, std::size_t length) const {
    const std::lock_guard guard(m_lock);
    if (length > ready())
        return false;
    std::copy_n(m_plain.begin() + static_cast<std::ptrdiff_t>(m_taken), length, buffer);
    return true;
}

std::size_t Channel::takeIn() {
    std::size_t count = 0;
    {
        const std::lock_guard guard(m_lock);
        Record record;
        for (std::size_t opened = 0;
             ready() < readAhead && openRecord(record.data(), opened) == Progress::done;)
            keep(record.data(), opened);
        count = ready();
    }
    flushAside();
    return count;
}

// As on a plain stream the count grows while bytes come: a frame's length may be cut by the end of
// a record, and its reader waits for the rest of it. While there is much, the socket is not asked.
std::size_t Channel::pending() {
    {
        const std::lock_guard guard(m_lock);
        if (ready() >= longestRecord || (ready() == 0 && m_rawTaken == m_rawEnd))
            return ready();
    }
    return takeIn();
}

// Holds the right to write.
class Channel::Writing {
public:
    explicit Writing(Channel &channel) : m_channel(channel), m_lock(channel.m_writing) { enter(); }
    Writing(Channel &channel, std::try_to_lock_t) : m_channel(channel) {
        if (channel.m_writer == std::this_thread::get_id())
            return;
        m_lock = std::unique_lock(channel.m_writing, std::try_to_lock);
        if (held())
            enter();
    }
    ~Writing() {
        if (held())
            m_channel.m_writer = std::thread::id();
    }
    Writing(const Writing &) = delete;
    Writing &operator=(const Writing &) = delete;

    bool held() const { return m_lock.owns_lock(); }

private:
    void enter() { m_channel.m_writer = std::this_thread::get_id(); }

    Channel &m_channel;
    std::unique_lock<std::mutex> m_lock;
};

// ---- Writing ----

bool Channel::encrypt(const unsigned char *buffer, std::size_t length) {
    const std::lock_guard guard(m_lock);
    // The peer's close ends its side alone.
    if (!m_up || (m_failure.error != TLS_ERROR_NONE && m_failure.error != TLS_ERROR_CLOSED))
        return false;
    std::size_t count = 0;
    ERR_clear_error();
    const int result = SSL_write_ex(m_connection.get(), buffer, length, &count);
    if (result != 1)
        explain(result);
    return result == 1;
}

bool Channel::write(const unsigned char *buffer, std::size_t length, bool last) {
    const Writing writing(*this);
    if (m_uncounted != 0 && flush(true) != Flushed::all)
        return false;
    for (std::size_t done = std::exchange(m_uncounted, 0); done < length;) {
        const std::size_t step = std::min(length - done, writeStep);
        if (!encrypt(buffer + done, step))
            return false;
        done += step;
        if (last && done == length) {
            const std::lock_guard guard(m_lock);
            m_exact = true;
            SSL_shutdown(m_connection.get());
        }
        if (flush(true) != Flushed::all)
            return false;
    }
    if (length > longestRecord) {
        m_sending.shrink_to_fit();
        const std::lock_guard guard(m_lock);
        m_sealed.shrink_to_fit();
    }
    return true;
}

// A record counts when all of it has gone: what waits in here is never more than one.
std::int64_t Channel::writeNow(const unsigned char *buffer, std::size_t length) {
    const Writing writing(*this);
    for (std::size_t done = 0;;) {
        const Flushed flushed = flush(false);
        if (flushed != Flushed::all)
            return flushed == Flushed::some ? static_cast<std::int64_t>(done) : -1;
        done += std::exchange(m_uncounted, 0);
        if (done >= length)
            return static_cast<std::int64_t>(done);
        const std::size_t step = std::min(length - done, writeStep);
        if (!encrypt(buffer + done, step))
            return -1;
        m_uncounted = step;
    }
}

// Sends what is sealed; `m_writing` is held. Without `wait` as far as there is room.
Channel::Flushed Channel::flush(bool wait) {
    for (;;) {
        if (m_sent == m_sending.size()) {
            m_sending.clear();
            m_sent = 0;
            const std::lock_guard guard(m_lock);
            m_sending.swap(m_sealed);
        }
        if (m_sending.empty())
            return Flushed::all;
        const std::int64_t count =
            platform::sendNow(m_descriptor, m_sending.data() + m_sent, m_sending.size() - m_sent);
        if (count > 0) {
            m_sent += static_cast<std::size_t>(count);
            continue;
        }
        const int error = count == 0 ? wouldBlock : platform::socketError();
        if (error != wouldBlock && error != interrupted) {
            if (isUp())
                takeIn(); // the peer may have said its close before it went
            if (failure().error == TLS_ERROR_NONE)
                fail({TLS_ERROR_TRUNCATED, systemWords(error)});
            return Flushed::failed;
        }
        if (!wait)
            return Flushed::some;
        // What arrives meanwhile may be for this very channel.
        awaitRoom(m_descriptor);
    }
}

// What a read has made OpenSSL want to send: an answer to a change of keys, or an alert. Whoever is
// writing takes it along.
void Channel::flushAside() {
    {
        const std::lock_guard guard(m_lock);
        if (m_sealed.empty())
            return;
    }
    const Writing writing(*this, std::try_to_lock);
    if (writing.held())
        flush(false);
}

void Channel::close() {
    takeIn();
    const Writing writing(*this, std::try_to_lock);
    if (!writing.held())
        return;
    {
        const std::lock_guard guard(m_lock);
        if (!m_up || (m_failure.error != TLS_ERROR_NONE && m_failure.error != TLS_ERROR_CLOSED))
            return;
        ERR_clear_error();
        SSL_shutdown(m_connection.get()); // nothing when it was said before
        ERR_clear_error();
    }
    flush(false);
}

// ---- Questions ----

Failure Channel::failure() const {
    const std::lock_guard guard(m_lock);
    return m_failure;
}

Failure Channel::takeBreak() {
    const std::lock_guard guard(m_lock);
    const bool broken =
        m_up && m_failure.error != TLS_ERROR_NONE && m_failure.error != TLS_ERROR_CLOSED;
    return broken && !std::exchange(m_breakTaken, true) ? m_failure : Failure{};
}

void Channel::fail(const Failure &failure) {
    const std::lock_guard guard(m_lock);
    if (m_failure.error == TLS_ERROR_NONE || m_failure.error == TLS_ERROR_CLOSED)
        m_failure = failure;
}

std::size_t Channel::strength(std::string &text) const {
    const std::lock_guard guard(m_lock);
    const SSL_CIPHER *cipher = m_up ? SSL_get_current_cipher(m_connection.get()) : nullptr;
    if (cipher == nullptr)
        return 0;
    text =
        std::string(SSL_get_version(m_connection.get())) + ' ' + SSL_CIPHER_standard_name(cipher);
    return static_cast<std::size_t>(SSL_CIPHER_get_bits(cipher, nullptr));
}

void Channel::describePeer(TCPCertInfo &info) const {
    info.clear();
    const std::lock_guard guard(m_lock);
    const Certificate shown(m_connection != nullptr ? SSL_get1_peer_certificate(m_connection.get())
                                                    : nullptr);
    info.m_status = tlsNoCertificate;
    if (shown == nullptr)
        return;
    info.m_status = static_cast<std::uint32_t>(SSL_get_verify_result(m_connection.get()));
    info.m_text1 = nameText(X509_get_subject_name(shown.get()));
    info.m_text2 = nameText(X509_get_issuer_name(shown.get()));
    info.m_text3 = timeText(X509_get0_notAfter(shown.get()));
    info.m_text4 = fingerprint(shown.get());
}

} // namespace vintok::tls
