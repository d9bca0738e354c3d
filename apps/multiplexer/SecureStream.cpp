// OpenSSL between two memory buffers. One that reads takes exactly one record from its buffer at a
// time, so whatever follows the peer's end stays there.
#include "SecureStream.h"

#include <openssl/err.h>
#include <vintok-tls/Settings.h>

namespace mux {

namespace tls = vintok::tls;

namespace {

class OpenStream final : public SecureStream {
public:
    explicit OpenStream(tls::Connection connection) : m_connection(std::move(connection)) {
        SSL_set_bio(m_connection.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_mode(m_connection.get(), SSL_MODE_AUTO_RETRY | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
        // Empty is not the end.
        BIO_set_mem_eof_return(incoming(), -1);
    }

    void feed(std::string_view sealed) override {
        std::size_t written = 0;
        BIO_write_ex(incoming(), sealed.data(), sealed.size(), &written);
    }

    Result open(char *buffer, std::size_t length, std::size_t &count) override {
        ERR_clear_error();
        const int result = SSL_read_ex(m_connection.get(), buffer, length, &count);
        if (result == 1)
            return Result::bytes;
        switch (SSL_get_error(m_connection.get(), result)) {
        case SSL_ERROR_WANT_READ:
            return Result::more;
        case SSL_ERROR_ZERO_RETURN:
            return Result::ended;
        default:
            return Result::failed;
        }
    }

    bool hasBytes() const override {
        return SSL_has_pending(m_connection.get()) == 1 || BIO_ctrl_pending(incoming()) != 0;
    }

    std::string takeRest() override { return take(incoming()); }

    bool seal(std::string_view bytes) override {
        ERR_clear_error();
        std::size_t written = 0;
        return bytes.empty() ||
               (SSL_write_ex(m_connection.get(), bytes.data(), bytes.size(), &written) == 1 &&
                written == bytes.size());
    }

    void close() override {
        ERR_clear_error();
        SSL_shutdown(m_connection.get()); // nothing before the handshake is done
        ERR_clear_error();
    }

    std::string takeSealed() override { return take(SSL_get_wbio(m_connection.get())); }

private:
    BIO *incoming() const { return SSL_get_rbio(m_connection.get()); }

    static std::string take(BIO *memory) {
        std::string bytes(BIO_ctrl_pending(memory), '\0');
        std::size_t count = 0;
        if (!bytes.empty())
            BIO_read_ex(memory, bytes.data(), bytes.size(), &count);
        bytes.resize(count);
        return bytes;
    }

    tls::Connection m_connection;
};

class OpenContext final : public SecureContext {
public:
    explicit OpenContext(tls::Settings settings) : m_settings(std::move(settings)) {}

    std::unique_ptr<SecureStream> accept() const override {
        tls::Failure failure;
        tls::Connection connection =
            tls::makeConnection(m_settings, tls::Role::accepts, "", failure);
        return connection ? std::make_unique<OpenStream>(std::move(connection)) : nullptr;
    }

private:
    tls::Settings m_settings;
};

} // namespace

std::unique_ptr<SecureContext> makeSecureContext(const std::string &certificateFile,
                                                 const std::string &keyFile, std::string &failure) {
    vintok::TLSOptions options;
    options.certificateFile = certificateFile;
    options.keyFile = keyFile;
    tls::Settings settings;
    if (!tls::makeSettings(options, settings, failure))
        return nullptr;
    return std::make_unique<OpenContext>(std::move(settings));
}

} // namespace mux
