#include "MessageSocket.h"

#include <vintok/TCPSelect.h>
#include <vintok/TCPStream.h>

namespace app {

namespace {

constexpr std::size_t mostUnsent = 64 << 20;
constexpr std::size_t longestHeader = 60;

} // namespace

MessageSocket::MessageSocket(vintok::TCPSelect &loop, const char *name, std::size_t longestBody,
                             Handler handler)
    : m_loop(loop),
      m_name(name),
      m_longest(longestBody + longestHeader),
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
    return m_loop.addSocketCallback(m_descriptor, dataCB, this, true, false) &&
           vintok::bufferMessages(m_descriptor, m_longest, mostUnsent);
}

void MessageSocket::dataCB(int, void *data, bool) {
    static_cast<MessageSocket *>(data)->receive();
}

void MessageSocket::receive() {
    vintok::TCPMessage message(m_descriptor);
    if (message.read(-1, nullptr)) {
        m_handler(message);
        return;
    }
    const vintok::TCPError error = vintok::lastError();
    if (error == vintok::TCP_ERROR_CORRUPT_HEADER) {
        const std::string text = m_name + ": what is no message, or too long, is passed over";
        vintok::logMessage(text.c_str(), vintok::SEVERITY_WARNING);
    } else if (error != vintok::TCP_ERROR_WOULD_BLOCK) {
        m_ended = true;
        m_loop.removeCallback(m_descriptor, dataCB, this);
    }
}

} // namespace app
