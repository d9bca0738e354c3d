// The seam's operations over one channel for each secure descriptor.
//
// Both sides of a connection try a handshake as soon as it stands, and each may be without TLS. A
// party without it that was called speaks first, and one that calls waits for that. So the
// accepting side looks whether the first bytes are a handshake, for a short while since there may
// never be any, and the connecting side looks whether the other one speaks before it says its own
// hello: that hello would be read as a frame. Whoever finds the peer plain has sent and taken
// nothing, and the connection goes on plain, or is ended where TLS is required.
//
// From the first byte of a handshake on there is no way back: what fails then breaks the connection
// off. The library goes on with it, finds it closed, and drops it in its own way.
//
// `m_lock` guards the channels' table and is held for look-ups only. Where the library's locks are
// held, in `addSecureDescriptor` and `removeSecureDescriptor`, nothing waits.
#include "vintok-tls/TLSTransport.h"

#include "platform/Socket.h"
#include "platform/Wait.h"
#include "vintok-tls/Channel.h"
#include "vintok-tls/Settings.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <new>
#include <thread>

namespace vintok {

using tls::Channel;
using tls::Failure;
using tls::Role;
using tls::Settings;
using Progress = TCPBackgroundTransport::Progress;
using Step = TCPBackgroundTransport::Step;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t helloStart = 6; // bytes that tell a ClientHello
constexpr std::uint32_t moment = 20;  // milliseconds, when bytes are there but too few

Clock::time_point after(std::uint32_t milliseconds) {
    return Clock::now() + std::chrono::milliseconds(milliseconds);
}

// Milliseconds until then, rounded up; at least one.
std::uint32_t until(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    return static_cast<std::uint32_t>(std::max<std::int64_t>(1, left.count()));
}

// Whether the bytes begin, or might begin, a record with a ClientHello.
bool isHello(const unsigned char *bytes, std::size_t count) {
    const auto is = [&](std::size_t at, int least, int most) {
        return at >= count || (bytes[at] >= least && bytes[at] <= most);
    };
    return is(0, 0x16, 0x16) && is(1, 3, 3) && is(2, 0, 4) && is(5, 1, 1);
}

void logLine(ErrSeverity severity, int fd, const std::string &text) {
    if ((std::uint32_t{logLevel()} & std::uint32_t{severity}) != 0)
        logMessage(("TLS on descriptor " + std::to_string(fd) + ": " + text).c_str(), severity);
}

void logUp(int fd, const Channel &channel) {
    std::string strength;
    channel.strength(strength);
    TCPCertInfo peer;
    channel.describePeer(peer);
    logLine(SEVERITY_INFO, fd,
            strength + (peer.m_text1.empty() ? ", the peer shows no certificate"
                                             : ", the peer is " + peer.m_text1));
}

// The channel has a certain end, so its words come once.
void setError(TCPError code, const char *operation, const Failure &failure) {
    setLastError(code, std::string("vintok::TLSTransport::") + operation + '\n' + failure.words);
}

} // namespace

// A handshake under way. Up to `end` it waits for the peer's first bytes; once it has begun, for
// the rest.
struct tls::Handshake {
    std::shared_ptr<const Settings> settings;
    Role role;
    std::string name; // whom the peer must be
    Clock::time_point end;
    bool hasBegun = false;

    const char *operation() const {
        return role == Role::accepts ? "secureAccept" : "secureConnect";
    }
    bool isLate() const { return Clock::now() >= end; }
};

struct tls::State {
    using ChannelPtr = std::shared_ptr<Channel>;

    ChannelPtr find(int fd) const {
        const std::lock_guard guard(m_lock);
        const auto found = m_channels.find(fd);
        return found != m_channels.end() ? found->second : nullptr;
    }

    std::shared_ptr<const Settings> settings() const {
        const std::lock_guard guard(m_lock);
        return m_settings;
    }

    void keep(int fd, const Failure &failure) {
        const std::lock_guard guard(m_lock);
        m_failure = failure;
        m_failedDescriptor = fd;
    }

    // How a channel has failed that was up, for `lastFailure`.
    void keepBreak(int fd, Channel &channel) {
        const Failure failure = channel.takeBreak();
        if (failure.error != TLS_ERROR_NONE)
            keep(fd, failure);
    }

    ChannelPtr findUp(int fd, const char *operation) const;
    Progress left(int fd, const char *operation, const Failure &failure);
    Progress breakOff(int fd, const char *operation, const Failure &failure);
    Progress plainPeer(int fd, const Handshake &handshake, const std::string &words);
    Step begin(int fd, Handshake handshake);
    Step goOn(int fd);
    bool finish(int fd, Step step);
    Step look(int fd, Handshake &handshake);
    Step start(int fd, Handshake &handshake);
    Step shake(int fd, const Handshake &handshake);
    std::int64_t send(int fd, const char *operation, const unsigned char *buffer,
                      std::size_t length, bool last);
    std::int64_t lost(int fd, Channel &channel, const char *operation);

    mutable std::mutex m_lock;
    std::map<int, ChannelPtr> m_channels;
    std::map<int, std::shared_ptr<Handshake>> m_handshakes;
    std::shared_ptr<const Settings> m_settings; // null until it is open
    Failure m_failure;
    int m_failedDescriptor = -1;
    bool m_connectsUnnamed = true;
};

// The channel of a descriptor whose handshake is done; null after setting the error.
tls::State::ChannelPtr tls::State::findUp(int fd, const char *operation) const {
    ChannelPtr channel = find(fd);
    if (channel != nullptr && channel->isUp())
        return channel;
    setError(TCP_ERROR_SSL_TRANSPORT, operation, {TLS_ERROR_SETTINGS, "no handshake was made"});
    return nullptr;
}

// ---- How a handshake does not come about ----

// Nothing was sent or taken: the connection can go on plain.
Progress tls::State::left(int fd, const char *operation, const Failure &failure) {
    logLine(SEVERITY_INFO, fd, "goes on plain: " + failure.words);
    setError(TCP_ERROR_SSL_TRANSPORT, operation, failure);
    return Progress::plain;
}

Progress tls::State::breakOff(int fd, const char *operation, const Failure &failure) {
    keep(fd, failure);
    logLine(SEVERITY_ERROR, fd, "broken off: " + failure.words);
    setClosed(fd);
    platform::shutdownBoth(fd);
    setError(TCP_ERROR_SSL_TRANSPORT, operation, failure);
    return Progress::failed;
}

Progress tls::State::plainPeer(int fd, const Handshake &handshake, const std::string &words) {
    if (handshake.settings->options.required)
        return breakOff(fd, handshake.operation(),
                        {TLS_ERROR_PEER_PLAIN, words + ", and TLS is required"});
    return left(fd, handshake.operation(), {TLS_ERROR_PEER_PLAIN, words});
}

// ---- How it does ----

Step tls::State::begin(int fd, Handshake handshake) {
    const auto begun = std::make_shared<Handshake>(std::move(handshake));
    {
        const std::lock_guard guard(m_lock);
        m_handshakes.insert_or_assign(fd, begun);
    }
    return goOn(fd);
}

Step tls::State::goOn(int fd) {
    std::shared_ptr<Handshake> handshake;
    {
        const std::lock_guard guard(m_lock);
        const auto found = m_handshakes.find(fd);
        if (found == m_handshakes.end())
            return {Progress::failed, 0};
        handshake = found->second;
    }
    const Step step = handshake->hasBegun ? shake(fd, *handshake) : look(fd, *handshake);
    if (step.milliseconds == 0) {
        const std::lock_guard guard(m_lock);
        m_handshakes.erase(fd);
    }
    return step;
}

// For who wants to wait.
bool tls::State::finish(int fd, Step step) {
    for (; step.milliseconds != 0; step = goOn(fd)) {
        if (step.progress == Progress::waits)
            std::this_thread::sleep_for(std::chrono::milliseconds(step.milliseconds));
        else
            platform::awaitSocket(fd,
                                  step.progress == Progress::waitsToRead
                                      ? platform::Await::readable
                                      : platform::Await::writable,
                                  static_cast<std::int32_t>(step.milliseconds));
    }
    return step.progress == Progress::done;
}

// At the peer's first bytes, which stay where they are.
Step tls::State::look(int fd, Handshake &handshake) {
    const bool accepts = handshake.role == Role::accepts;
    const bool readable = platform::awaitSocket(fd, platform::Await::readable, 0);
    const std::int64_t pending = rawBytesPending(fd);
    if (pending > 0) {
        unsigned char bytes[helloStart] = {};
        const auto count = static_cast<std::size_t>(
            std::max<std::int64_t>(0, rawPeekBytes(fd, bytes, sizeof bytes)));
        if (!accepts) // nobody says a hello to who connects
            return {plainPeer(fd, handshake, "the other side speaks without TLS"), 0};
        if (!isHello(bytes, count))
            return {plainPeer(fd, handshake, "the caller speaks without TLS"), 0};
        if (count == helloStart || handshake.isLate())
            return start(fd, handshake);
        return {Progress::waits, std::min(moment, until(handshake.end))};
    }
    if (pending < 0 || readable)
        return {breakOff(fd, handshake.operation(),
                         {TLS_ERROR_TRUNCATED,
                          accepts ? "the caller is gone" : "the other side is gone"}),
                0};
    if (!handshake.isLate())
        return {Progress::waitsToRead, until(handshake.end)};
    return accepts ? Step{plainPeer(fd, handshake, "the caller does not begin with TLS"), 0}
                   : start(fd, handshake);
}

Step tls::State::start(int fd, Handshake &handshake) {
    Failure failure;
    tls::Connection connection =
        tls::makeConnection(*handshake.settings, handshake.role, handshake.name, failure);
    const ChannelPtr channel = find(fd);
    if (connection == nullptr || channel == nullptr)
        return {breakOff(fd, handshake.operation(), failure), 0};
    handshake.end = after(handshake.settings->options.handshakeTime);
    handshake.hasBegun = true;
    channel->begin(std::move(connection));
    return shake(fd, handshake);
}

Step tls::State::shake(int fd, const Handshake &handshake) {
    const ChannelPtr channel = find(fd);
    Channel::Progress progress = Channel::Progress::ended;
    if (channel != nullptr)
        progress = channel->shake();
    if (progress == Channel::Progress::done) {
        logUp(fd, *channel);
        return {Progress::done, 0};
    }
    const bool isLate = progress != Channel::Progress::ended && handshake.isLate();
    if (isLate)
        channel->fail({TLS_ERROR_TIME, "the peer did not finish the handshake in time"});
    if (isLate || progress == Channel::Progress::ended)
        return {breakOff(fd, handshake.operation(),
                         channel != nullptr ? channel->failure() : Failure{}),
                0};
    return {progress == Channel::Progress::waitsToRead ? Progress::waitsToRead
                                                       : Progress::waitsToWrite,
            until(handshake.end)};
}

// The channel has ended, or failed, with nothing left to read.
std::int64_t tls::State::lost(int fd, Channel &channel, const char *operation) {
    keepBreak(fd, channel);
    setClosed(fd);
    setError(TCP_ERROR_CONNECTION_RESET, operation, channel.failure());
    return -1;
}

// ---- Life ----

TLSTransport::TLSTransport() : m_state(std::make_unique<tls::State>()) {}

TLSTransport::~TLSTransport() = default;

bool TLSTransport::open(const TLSOptions &options) {
    auto settings = std::make_shared<Settings>();
    std::string words;
    if (!tls::makeSettings(options, *settings, words)) {
        setError(TCP_ERROR_SSL_TRANSPORT, "open", {TLS_ERROR_SETTINGS, words});
        return false;
    }
    const std::lock_guard guard(m_state->m_lock);
    m_state->m_settings = std::move(settings);
    return true;
}

void TLSTransport::setConnectsUnnamed(bool on) {
    const std::lock_guard guard(m_state->m_lock);
    m_state->m_connectsUnnamed = on;
}

TLSError TLSTransport::lastFailure(std::string &words, int *fd) const {
    const std::lock_guard guard(m_state->m_lock);
    words = m_state->m_failure.words;
    if (fd != nullptr)
        *fd = m_state->m_failedDescriptor;
    return m_state->m_failure.error;
}

void TLSTransport::clearFailure() {
    m_state->keep(-1, {});
}

bool TLSTransport::addSecureDescriptor(int fd) {
    try {
        auto channel = std::make_shared<Channel>(fd);
        const std::lock_guard guard(m_state->m_lock);
        m_state->m_channels.insert_or_assign(fd, std::move(channel));
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool TLSTransport::removeSecureDescriptor(int fd) {
    const tls::State::ChannelPtr channel = m_state->find(fd);
    if (channel == nullptr)
        return false;
    channel->close();
    const Failure failure = channel->failure();
    if (channel->isUp() && failure.error == TLS_ERROR_TRUNCATED)
        logLine(SEVERITY_WARNING, fd,
                "the stream ended without a close of the channel: " + failure.words);
    m_state->keepBreak(fd, *channel);
    const std::lock_guard guard(m_state->m_lock);
    m_state->m_channels.erase(fd);
    m_state->m_handshakes.erase(fd);
    // Nothing may go on in the open. A connection that ends anyway ends a moment earlier.
    if (channel->isUp() && m_state->m_settings != nullptr && m_state->m_settings->options.required)
        platform::shutdownBoth(fd);
    return true;
}

// ---- Handshakes ----

bool TLSTransport::secureAccept(int fd) {
    return m_state->finish(fd, beginAccept(fd));
}

bool TLSTransport::secureConnect(int fd, const char *peerName) {
    return m_state->finish(fd, beginConnect(fd, peerName));
}

Step TLSTransport::beginAccept(int fd) {
    constexpr const char *operation = "secureAccept";
    const tls::State::ChannelPtr channel = m_state->find(fd);
    const std::shared_ptr<const Settings> settings = m_state->settings();
    if (channel == nullptr || settings == nullptr)
        return {m_state->left(fd, operation, {TLS_ERROR_SETTINGS, "the transport is not open"}), 0};
    if (channel->isUp())
        return {Progress::done, 0};
    const tls::Handshake handshake = {settings, Role::accepts, "",
                                      after(settings->options.acceptWait)};
    if (!settings->hasCertificate)
        return {m_state->plainPeer(fd, handshake, "there is no certificate to accept with"), 0};
    return m_state->begin(fd, handshake);
}

Step TLSTransport::beginConnect(int fd, const char *peerName) {
    constexpr const char *operation = "secureConnect";
    const tls::State::ChannelPtr channel = m_state->find(fd);
    const std::shared_ptr<const Settings> settings = m_state->settings();
    if (channel == nullptr || settings == nullptr)
        return {m_state->left(fd, operation, {TLS_ERROR_SETTINGS, "the transport is not open"}), 0};
    if (channel->isUp())
        return {Progress::done, 0};
    {
        const std::lock_guard guard(m_state->m_lock);
        if (peerName == nullptr && !m_state->m_connectsUnnamed) {
            setError(TCP_ERROR_SSL_TRANSPORT, operation, {TLS_ERROR_UNNAMED, "no name is given"});
            return {Progress::plain, 0};
        }
    }
    return m_state->begin(fd, {settings, Role::connects,
                               peerName != nullptr ? peerName : settings->options.expectedName,
                               after(settings->options.connectWait)});
}

Step TLSTransport::continueHandshake(int fd) {
    return m_state->goOn(fd);
}

// ---- Bytes ----

bool TLSTransport::secureBytesPending(int fd, std::size_t *pending, bool socketHasData) {
    const tls::State::ChannelPtr channel = m_state->findUp(fd, "secureBytesPending");
    if (channel == nullptr)
        return false;
    *pending = socketHasData ? channel->takeIn() : channel->pending();
    if (*pending != 0)
        return true;
    const Failure failure = channel->failure();
    if (failure.error == TLS_ERROR_NONE)
        return true;
    // Whoever waits for this descriptor is to find it: its socket may hold nothing more.
    if (failure.error != TLS_ERROR_CLOSED) {
        m_state->keepBreak(fd, *channel);
        logLine(SEVERITY_ERROR, fd, failure.words);
        platform::shutdownBoth(fd);
    }
    setError(TCP_ERROR_SSL_TRANSPORT, "secureBytesPending", failure);
    return false;
}

std::int64_t TLSTransport::securePeek(int fd, unsigned char *buffer, std::size_t length) {
    const tls::State::ChannelPtr channel = m_state->findUp(fd, "securePeek");
    return channel != nullptr && channel->peek(buffer, length) ? static_cast<std::int64_t>(length)
                                                               : -1;
}

std::int64_t TLSTransport::secureRecv(int fd, unsigned char *buffer, std::size_t length) {
    const tls::State::ChannelPtr channel = m_state->findUp(fd, "secureRecv");
    while (channel != nullptr) {
        std::size_t count = 0;
        const Channel::Progress progress = channel->read(buffer, length, count);
        if (progress == Channel::Progress::done)
            return static_cast<std::int64_t>(count);
        if (progress == Channel::Progress::ended)
            return m_state->lost(fd, *channel, "secureRecv");
        platform::awaitSocket(fd, platform::Await::readable, -1);
    }
    return -1;
}

std::int64_t tls::State::send(int fd, const char *operation, const unsigned char *buffer,
                              std::size_t length, bool last) {
    const ChannelPtr channel = findUp(fd, operation);
    if (channel == nullptr)
        return -1;
    return channel->write(buffer, length, last) ? static_cast<std::int64_t>(length)
                                                : lost(fd, *channel, operation);
}

std::int64_t TLSTransport::secureSend(int fd, const unsigned char *buffer, std::size_t length) {
    return m_state->send(fd, "secureSend", buffer, length, false);
}

std::int64_t TLSTransport::sendLast(int fd, const unsigned char *buffer, std::size_t length) {
    return m_state->send(fd, "sendLast", buffer, length, true);
}

std::int64_t TLSTransport::sendNow(int fd, const unsigned char *buffer, std::size_t length) {
    const tls::State::ChannelPtr channel = m_state->findUp(fd, "sendNow");
    if (channel == nullptr)
        return -1;
    const std::int64_t count = channel->writeNow(buffer, length);
    return count >= 0 ? count : m_state->lost(fd, *channel, "sendNow");
}

// ---- Questions ----

bool TLSTransport::secureStatus(int fd, std::size_t &value, std::string &text) {
    const tls::State::ChannelPtr channel = m_state->findUp(fd, "secureStatus");
    if (channel != nullptr)
        value = channel->strength(text);
    return channel != nullptr;
}

bool TLSTransport::certificateInfo(int fd, TCPCertInfo &info) {
    const tls::State::ChannelPtr channel = m_state->findUp(fd, "certificateInfo");
    if (channel != nullptr)
        channel->describePeer(info);
    return channel != nullptr;
}

SecureError TLSTransport::lastSecureError(int fd) {
    const tls::State::ChannelPtr channel = m_state->find(fd);
    return channel != nullptr ? static_cast<SecureError>(channel->failure().error)
                              : SECURE_ERROR_NOT_SECURE;
}

} // namespace vintok
