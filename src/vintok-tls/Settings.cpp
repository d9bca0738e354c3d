// From the options to OpenSSL's context, and from that to one connection. One context serves both
// roles; what differs between them is set on the connection.
#include "vintok-tls/Settings.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace vintok::tls {

namespace {

constexpr char modernCiphers[] = "ECDHE+AESGCM:ECDHE+CHACHA20";
constexpr char approvedCiphers[] = "ECDHE+AESGCM";
constexpr char approvedSuites[] = "TLS_AES_256_GCM_SHA384:TLS_AES_128_GCM_SHA256";
constexpr char approvedGroups[] = "P-256:P-384:P-521";
constexpr char approvedSignatures[] =
    "ECDSA+SHA256:ECDSA+SHA384:ECDSA+SHA512:RSA-PSS+SHA256:RSA-PSS+SHA384:RSA-PSS+SHA512:"
    "RSA+SHA256:RSA+SHA384:RSA+SHA512";
constexpr int securityLevel = 2; // 112 bits

bool failed(std::string &words, const std::string &what) {
    const std::string reason = takeFailure("").words;
    words = reason.empty() ? what : what + ": " + reason;
    return false;
}

// What PEM text is read from, and how messages call it.
struct Source {
    std::string text;
    std::string name;
};

bool readSource(const std::string &memory, const std::string &path, const char *what,
                Source &source, std::string &words) {
    source = {memory, what};
    if (!memory.empty() || path.empty())
        return true;
    source.name = path;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    if (!file || !(content << file.rdbuf())) {
        words = "cannot read " + path + ": " + std::strerror(errno);
        return false;
    }
    source.text = content.str();
    return true;
}

Certificate nextCertificate(BIO *pem) {
    return Certificate(PEM_read_bio_X509(pem, nullptr, noPassPhrase, nullptr));
}

// Whether reading certificates has stopped for lack of another one.
bool atEnd() {
    const unsigned long error = ERR_peek_last_error();
    if (ERR_GET_LIB(error) != ERR_LIB_PEM || ERR_GET_REASON(error) != PEM_R_NO_START_LINE)
        return false;
    ERR_clear_error();
    return true;
}

bool useCertificate(SSL_CTX *context, const Source &source, std::string &words) {
    const Bio pem = memoryOf(source.text);
    const Certificate own = nextCertificate(pem.get());
    if (own == nullptr || SSL_CTX_use_certificate(context, own.get()) != 1)
        return failed(words, "no certificate to use in " + source.name);
    while (Certificate next = nextCertificate(pem.get())) {
        if (SSL_CTX_add0_chain_cert(context, next.get()) != 1)
            return failed(words, "the chain in " + source.name);
        [[maybe_unused]] X509 *const taken = next.release();
    }
    return atEnd() || failed(words, "the chain in " + source.name);
}

bool useKey(SSL_CTX *context, const Source &source, std::string &words) {
    const Bio pem = memoryOf(source.text);
    const Key key(PEM_read_bio_PrivateKey(pem.get(), nullptr, noPassPhrase, nullptr));
    if (key == nullptr || SSL_CTX_use_PrivateKey(context, key.get()) != 1 ||
        SSL_CTX_check_private_key(context) != 1)
        return failed(words, "no key to use in " + source.name);
    return true;
}

bool useOwn(const TLSOptions &options, Settings &settings, std::string &words) {
    Source certificate;
    Source key;
    if (!readSource(options.certificate, options.certificateFile, "the certificate", certificate,
                    words) ||
        !readSource(options.key, options.keyFile, "the key", key, words))
        return false;
    if (certificate.text.empty() && key.text.empty() && options.certificateFile.empty() &&
        options.keyFile.empty())
        return true;
    if (certificate.text.empty() || key.text.empty()) {
        words = "a certificate and its key are needed together";
        return false;
    }
    settings.hasCertificate = true;
    return useCertificate(settings.context.get(), certificate, words) &&
           useKey(settings.context.get(), key, words);
}

bool addRoots(X509_STORE *store, const Source &source, std::string &words) {
    const Bio pem = memoryOf(source.text);
    bool any = false;
    while (const Certificate root = nextCertificate(pem.get())) {
        if (X509_STORE_add_cert(store, root.get()) != 1)
            return failed(words, "the roots in " + source.name);
        any = true;
    }
    return (any && atEnd()) || failed(words, "no roots in " + source.name);
}

bool useRoots(const TLSOptions &options, Settings &settings, std::string &words) {
    X509_STORE *store = SSL_CTX_get_cert_store(settings.context.get());
    for (const auto &[memory, path] :
         {std::pair{options.roots, std::string()}, std::pair{std::string(), options.rootsFile}}) {
        if (memory.empty() && path.empty())
            continue;
        Source source;
        if (!readSource(memory, path, "the roots", source, words) ||
            !addRoots(store, source, words))
            return false;
        settings.hasRoots = true;
    }
    if (!options.rootsFolder.empty()) {
        if (X509_STORE_load_path(store, options.rootsFolder.c_str()) != 1)
            return failed(words, "the roots in " + options.rootsFolder);
        settings.hasRoots = true;
    }
    if (options.systemRoots) {
        if (X509_STORE_set_default_paths(store) != 1)
            return failed(words, "the roots of the system");
        settings.hasRoots = true;
    }
    if (options.demandCertificate && !settings.hasRoots) {
        words = "to demand certificates takes roots that they lead to";
        return false;
    }
    return true;
}

bool restrict(const TLSOptions &options, SSL_CTX *context) {
    SSL_CTX_set_options(context,
                        SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET | SSL_OP_NO_COMPRESSION);
    // Meetings are long and calls are rare: resuming one would not be worth what it keeps.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_NO_AUTO_CHAIN);
    SSL_CTX_set_security_level(context, securityLevel);
    SSL_CTX_set_default_passwd_cb(context, noPassPhrase);
    const int oldest = options.oldest == TLSVersion::TLS1_3 ? TLS1_3_VERSION : TLS1_2_VERSION;
    if (SSL_CTX_set_num_tickets(context, 0) != 1 ||
        SSL_CTX_set_min_proto_version(context, oldest) != 1 ||
        SSL_CTX_set_max_proto_version(context, 0) != 1)
        return false;
    if (!options.FIPSOnly)
        return SSL_CTX_set_cipher_list(context, modernCiphers) == 1;
    return SSL_CTX_set_cipher_list(context, approvedCiphers) == 1 &&
           SSL_CTX_set_ciphersuites(context, approvedSuites) == 1 &&
           SSL_CTX_set1_groups_list(context, approvedGroups) == 1 &&
           SSL_CTX_set1_sigalgs_list(context, approvedSignatures) == 1;
}

bool expectName(SSL *connection, const std::string &name) {
    X509_VERIFY_PARAM *verification = SSL_get0_param(connection);
    if (X509_VERIFY_PARAM_set1_ip_asc(verification, name.c_str()) == 1)
        return true;
    ERR_clear_error();
    SSL_set_hostflags(connection, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set1_host(connection, name.c_str()) == 1 &&
           SSL_set_tlsext_host_name(connection, name.c_str()) == 1;
}

int verifyMode(const Settings &settings, Role role) {
    if (role == Role::connects)
        return SSL_VERIFY_PEER;
    if (settings.options.demandCertificate)
        return SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT;
    return settings.hasRoots ? SSL_VERIFY_PEER : SSL_VERIFY_NONE;
}

} // namespace

bool makeSettings(const TLSOptions &options, Settings &settings, std::string &words) {
    ERR_clear_error();
    settings.options = options;
    settings.context.reset(SSL_CTX_new(TLS_method()));
    if (settings.context == nullptr || !restrict(options, settings.context.get()))
        return failed(words, "OpenSSL cannot be set up");
    return useOwn(options, settings, words) && useRoots(options, settings, words);
}

Connection makeConnection(const Settings &settings, Role role, const std::string &name,
                          Failure &failure) {
    if (role == Role::accepts && !settings.hasCertificate) {
        failure = {TLS_ERROR_SETTINGS, "there is no certificate to accept with"};
        return nullptr;
    }
    ERR_clear_error();
    Connection connection(SSL_new(settings.context.get()));
    if (connection == nullptr ||
        (role == Role::connects && !name.empty() && !expectName(connection.get(), name))) {
        failure = takeFailure("no memory");
        failure.error = TLS_ERROR_SETTINGS;
        return nullptr;
    }
    SSL_set_verify(connection.get(), verifyMode(settings, role), nullptr);
    if (role == Role::accepts)
        SSL_set_accept_state(connection.get());
    else
        SSL_set_connect_state(connection.get());
    return connection;
}

} // namespace vintok::tls
