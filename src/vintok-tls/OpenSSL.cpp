#include "vintok-tls/OpenSSL.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/sslerr.h>

#include <array>
#include <cstdio>
#include <ctime>

namespace vintok::tls {

namespace {

TLSError meaning(unsigned long error) {
    if (ERR_GET_LIB(error) != ERR_LIB_SSL)
        return TLS_ERROR_PROTOCOL;
    const int reason = ERR_GET_REASON(error);
    if (reason >= SSL_AD_REASON_OFFSET)
        return TLS_ERROR_REFUSED;
    switch (reason) {
    case SSL_R_CERTIFICATE_VERIFY_FAILED:
    case SSL_R_PEER_DID_NOT_RETURN_A_CERTIFICATE:
        return TLS_ERROR_CERTIFICATE;
    case SSL_R_UNEXPECTED_EOF_WHILE_READING:
        return TLS_ERROR_TRUNCATED;
    default:
        return TLS_ERROR_PROTOCOL;
    }
}

std::string reasonOf(unsigned long error) {
    if (const char *reason = ERR_reason_error_string(error))
        return reason;
    std::array<char, 256> text = {};
    ERR_error_string_n(error, text.data(), text.size());
    return text.data();
}

} // namespace

Failure takeFailure(const std::string &otherwise) {
    Failure failure{TLS_ERROR_PROTOCOL, ""};
    const char *detail = nullptr;
    int flags = 0;
    bool first = true;
    while (const unsigned long error =
               ERR_get_error_all(nullptr, nullptr, nullptr, &detail, &flags)) {
        std::string reason = reasonOf(error);
        if (detail != nullptr && *detail != '\0' && (flags & ERR_TXT_STRING) != 0 &&
            ERR_GET_LIB(error) != ERR_LIB_SSL)
            reason += std::string(" (") + detail + ')';
        if (first)
            failure = {meaning(error), reason};
        else if (failure.words != reason)
            failure.words = reason + ": " + failure.words;
        first = false;
    }
    if (first)
        failure.words = otherwise;
    return failure;
}

Bio memoryOf(std::string_view text) {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

int noPassPhrase(char *, int, int, void *) {
    return -1;
}

std::string textOf(BIO *memory) {
    char *data = nullptr;
    const long length = BIO_get_mem_data(memory, &data);
    return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

std::string nameText(const X509_NAME *name) {
    const Bio memory(BIO_new(BIO_s_mem()));
    const auto flags = static_cast<unsigned long>(XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    if (memory == nullptr || name == nullptr ||
        X509_NAME_print_ex(memory.get(), name, 0, flags) < 0)
        return "";
    return textOf(memory.get());
}

std::string timeText(const ASN1_TIME *time) {
    std::tm broken = {};
    std::array<char, 32> text = {};
    if (time == nullptr || ASN1_TIME_to_tm(time, &broken) != 1)
        return "";
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &broken);
    return text.data();
}

std::string fingerprint(const X509 *certificate) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
    unsigned int length = 0;
    if (X509_digest(certificate, EVP_sha256(), digest.data(), &length) != 1)
        return "";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        std::array<char, 4> byte = {};
        std::snprintf(byte.data(), byte.size(), i == 0 ? "%02X" : ":%02X", digest.at(i));
        text += byte.data();
    }
    return text;
}

} // namespace vintok::tls
