#include "MessageSocket.h"

#include <vintok/BufferManager.h>
#include <vintok/TCPSelect.h>
#include <vintok/TCPStream.h>

#include <algorithm>

namespace app {

namespace {

constexpr std::size_t STEP = 65536; // read in one pass, so that others get their turn
constexpr std::size_t LENGTH_SIZE = 4;
constexpr std::size_t LONGEST_HEADER = 60;

void warn(const std::string &text) {
    vintok::logMessage(text.c_str(), vintok::SEVERITY_WARNING);
}

} // namespace

MessageSocket::MessageSocket(vintok::TCPSelect &loop, const char *name, std::size_t longestBody,
                             Handler handler)
    : m_loop(loop),
      m_name(name),
      m_longest(longestBody + LONGEST_HEADER),
      m_handler(std::move(handler)) {}

MessageSocket::~MessageSocket() {
    if (m_descriptor != -1) {
        m_loop.removeCallback(m_descriptor, dataCB, this);
        if (m_owned)
            vintok::shutdownSocket(m_descriptor);
    }
}

bool MessageSocket::connect(const std::string &path) {
    const int descriptor = vintok::connectUnix(path);
    return descriptor != -1 && adopt(descriptor);
}

bool MessageSocket::adopt(int descriptor) {
    m_owned = true;
    return watch(descriptor);
}

bool MessageSocket::watch(int descriptor) {
    m_descriptor = descriptor;
    return m_loop.addSocketCallback(m_descriptor, dataCB, this, true, false);
}

void MessageSocket::dataCB(int, void *data, bool) {
    static_cast<MessageSocket *>(data)->receive();
}

void MessageSocket::receive() {
    const std::int64_t pending = vintok::bytesPending(m_descriptor);
    if (pending <= 0) {
        // Readable, and nothing to be read: the end, unless the bytes went elsewhere meanwhile.
        unsigned char byte = 0;
        if (vintok::peekBytes(m_descriptor, &byte, 1) != 1 &&
            vintok::lastError() != vintok::TCP_ERROR_WOULD_BLOCK) {
            m_ended = true;
            m_loop.removeCallback(m_descriptor, dataCB, this);
        }
        return;
    }
    const std::size_t before = m_bytes.size();
    const std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(pending), STEP);
    m_bytes.resize(before + count);
    const std::int64_t got =
        vintok::readBytes(m_descriptor, m_bytes.data() + before, count, nullptr);
    m_bytes.resize(before + static_cast<std::size_t>(std::max<std::int64_t>(got, 0)));
    takeMessages();
}

void MessageSocket::takeMessages() {
    while (startMessage()) {
        std::uint32_t length = 0;
        vintok::BufferManager(m_bytes.data(), LENGTH_SIZE).read(length);
        if (length < vintok::TCPHeader::s_sizeIPv4) {
            // Where the next message begins cannot be known: what has come is passed over.
            warn(m_name + ": a message of " + std::to_string(length) + " bytes is none");
            m_bytes.clear();
        } else if (length > m_longest) {
            warn(m_name + ": a message of " + std::to_string(length) +
                 " bytes is passed over: it is too long");
            m_skip = length;
        } else if (length > m_bytes.size()) {
            return;
        } else {
            handOn(length);
        }
    }
}

// Whether the length of a message has come, behind the rest of one that is passed over.
bool MessageSocket::startMessage() {
    const std::size_t passed =
        static_cast<std::size_t>(std::min<std::uint64_t>(m_skip, m_bytes.size()));
    m_skip -= passed;
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(passed));
    return m_bytes.size() >= LENGTH_SIZE;
}

void MessageSocket::handOn(std::size_t length) {
    vintok::TCPMessage message;
    bool whole = message.allocateRawBuffer(length);
    if (whole) {
        std::copy_n(m_bytes.begin(), length, message.rawBuffer());
        whole = message.readHeader();
    }
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(length));
    if (whole)
        m_handler(message);
    else
        warn(m_name + ": a message of " + std::to_string(length) + " bytes has no header");
}

} // namespace app
