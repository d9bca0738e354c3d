#include "vintok-tls/Authority.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <ctime>

namespace vintok::tls {

namespace {

using Number = std::unique_ptr<BIGNUM, Release<BN_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>>;
using Address = std::unique_ptr<ASN1_OCTET_STRING, Release<ASN1_OCTET_STRING_free>>;

constexpr int serialBits = 127; // random, so that authorities of the same name do not clash
constexpr char digitsAndLetters[] =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool isAddress(const std::string &name) {
    const Address address(a2i_IPADDRESS(name.c_str()));
    ERR_clear_error();
    return address != nullptr;
}

bool isHostName(const std::string &name) {
    return !name.empty() &&
           name.find_first_not_of(std::string(digitsAndLetters) + "-_.*") == std::string::npos;
}

bool alternativeNames(const std::vector<std::string> &names, std::string &text,
                      std::string &words) {
    for (const std::string &name : names) {
        const bool address = isAddress(name);
        if (!address && !isHostName(name)) {
            words = "'" + name + "' is neither a host's name nor an address";
            return false;
        }
        text += (text.empty() ? "" : ",") + std::string(address ? "IP:" : "DNS:") + name;
    }
    return true;
}

bool setSerial(X509 *certificate) {
    const Number number(BN_new());
    return number != nullptr &&
           BN_rand(number.get(), serialBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
           BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool setName(X509_NAME *name, const std::string &commonName) {
    return X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char *>(commonName.data()),
                                      static_cast<int>(commonName.size()), -1, 0) == 1;
}

bool setTimes(X509 *certificate, std::int64_t from, std::int64_t until) {
    return ASN1_TIME_set(X509_getm_notBefore(certificate), static_cast<std::time_t>(from)) !=
               nullptr &&
           ASN1_TIME_set(X509_getm_notAfter(certificate), static_cast<std::time_t>(until)) !=
               nullptr;
}

struct Stated {
    int id;
    std::string value;
};

bool addExtensions(X509 *certificate, X509 *issuer, const std::vector<Stated> &extensions) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    for (const Stated &stated : extensions) {
        const Extension extension(
            X509V3_EXT_conf_nid(nullptr, &context, stated.id, stated.value.c_str()));
        if (extension == nullptr || X509_add_ext(certificate, extension.get(), -1) != 1)
            return false;
    }
    return true;
}

bool writeOut(X509 *certificate, EVP_PKEY *key, Issued &issued) {
    const Bio certificateText(BIO_new(BIO_s_mem()));
    const Bio keyText(BIO_new(BIO_s_mem()));
    if (certificateText == nullptr || keyText == nullptr ||
        PEM_write_bio_X509(certificateText.get(), certificate) != 1 ||
        PEM_write_bio_PrivateKey(keyText.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return false;
    issued = {textOf(certificateText.get()), textOf(keyText.get())};
    return true;
}

// A certificate with everything but its issuer's name, extensions and signature.
Certificate draft(const std::string &commonName, std::int64_t from, std::int64_t until,
                  EVP_PKEY *key) {
    Certificate certificate(X509_new());
    if (certificate == nullptr || key == nullptr ||
        X509_set_version(certificate.get(), X509_VERSION_3) != 1 || !setSerial(certificate.get()) ||
        !setName(X509_get_subject_name(certificate.get()), commonName) ||
        !setTimes(certificate.get(), from, until) || X509_set_pubkey(certificate.get(), key) != 1)
        return nullptr;
    return certificate;
}

bool sign(X509 *certificate, X509 *issuer, EVP_PKEY *key, const std::vector<Stated> &extensions) {
    return X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
           addExtensions(certificate, issuer, extensions) &&
           X509_sign(certificate, key, EVP_sha256()) != 0;
}

} // namespace

bool Authority::create(const std::string &commonName, std::int64_t from, std::int64_t until,
                       std::string &words) {
    ERR_clear_error();
    m_key.reset(EVP_EC_gen("P-256"));
    m_certificate = draft(commonName, from, until, m_key.get());
    if (m_certificate != nullptr &&
        sign(m_certificate.get(), m_certificate.get(), m_key.get(),
             {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
              {NID_key_usage, "critical,keyCertSign,cRLSign"},
              {NID_subject_key_identifier, "hash"}}) &&
        writeOut(m_certificate.get(), m_key.get(), m_own))
        return true;
    words = takeFailure("no memory").words;
    return false;
}

bool Authority::issue(const Request &request, Issued &issued, std::string &words) const {
    ERR_clear_error();
    std::string names;
    if (!alternativeNames(request.names, names, words))
        return false;
    std::vector<Stated> extensions = {{NID_basic_constraints, "critical,CA:FALSE"},
                                      {NID_key_usage, "critical,digitalSignature"},
                                      {NID_ext_key_usage, "serverAuth,clientAuth"},
                                      {NID_subject_key_identifier, "hash"},
                                      {NID_authority_key_identifier, "keyid:always"}};
    if (!names.empty())
        extensions.push_back({NID_subject_alt_name, names});
    const Key key(EVP_EC_gen("P-256"));
    const Certificate certificate =
        draft(request.commonName, request.from, request.until, key.get());
    if (certificate != nullptr &&
        sign(certificate.get(), m_certificate.get(), m_key.get(), extensions) &&
        writeOut(certificate.get(), key.get(), issued))
        return true;
    words = takeFailure("no memory").words;
    return false;
}

} // namespace vintok::tls
