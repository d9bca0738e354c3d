// OpenSSL's objects under owners, and what it says about its failures.
#ifndef VINTOK_TLS_OPENSSL_H
#define VINTOK_TLS_OPENSSL_H

#include "vintok-tls/TLSTransport.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>

namespace vintok::tls {

template <auto release>
struct Release {
    template <typename T>
    void operator()(T *object) const {
        release(object);
    }
};

using Bio = std::unique_ptr<BIO, Release<BIO_free_all>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Context = std::unique_ptr<SSL_CTX, Release<SSL_CTX_free>>;
using Connection = std::unique_ptr<SSL, Release<SSL_free>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;

struct Failure {
    TLSError error = TLS_ERROR_NONE;
    std::string words;
};

// Empties this thread's queue of failures. `words` are the reasons in it, the first cause last, or
// `otherwise` when there are none; `error` is what the first reason means.
Failure takeFailure(const std::string &otherwise);

// The first PEM text in memory that can be read to its end, without asking anybody for a pass
// phrase.
Bio memoryOf(std::string_view text);
int noPassPhrase(char *, int, int, void *);

// The whole of a memory BIO.
std::string textOf(BIO *memory);

// "CN=Ann,O=Example": RFC 2253, in UTF-8.
std::string nameText(const X509_NAME *name);
// "2030-01-31T12:00:00Z".
std::string timeText(const ASN1_TIME *time);
// SHA-256, "AB:CD:...".
std::string fingerprint(const X509 *certificate);

} // namespace vintok::tls

#endif
