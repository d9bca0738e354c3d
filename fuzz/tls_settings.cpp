// Certificates, keys and roots that a secure channel is opened with: usable, or refused in words.
// A name, a byte of flags and three texts, each behind a byte that says how it is written and two
// with its length; binary ones are put in the form of text here, so that their insides are met.
#include "Fuzz.h"

#include "Base64.h"
#include "vintok-tls/Settings.h"

#include <openssl/err.h>

using namespace vintok;
using fuzz::require;

namespace {

std::string pem(const char *what, std::string_view bytes) {
    const std::string text = app::base64(bytes);
    std::string result = std::string("-----BEGIN ") + what + "-----\n";
    for (std::size_t at = 0; at < text.size(); at += 64)
        result += text.substr(at, 64) + '\n';
    return result + "-----END " + what + "-----\n";
}

std::string source(fuzz::Input &input) {
    const unsigned kind = input.below(4);
    const unsigned length = input.word();
    const std::string_view bytes = input.take(length);
    return kind == 0   ? std::string(bytes)
           : kind == 1 ? pem("CERTIFICATE", bytes)
           : kind == 2 ? pem("PRIVATE KEY", bytes)
                       : pem("CERTIFICATE", bytes) + pem("CERTIFICATE", bytes);
}

TLSOptions optionsOf(fuzz::Input &input) {
    TLSOptions options;
    const unsigned flags = input.byte();
    options.demandCertificate = (flags & 1) != 0;
    options.FIPSOnly = (flags & 2) != 0;
    options.oldest = (flags & 4) != 0 ? TLSVersion::TLS1_3 : TLSVersion::TLS1_2;
    options.certificate = source(input);
    options.key = source(input);
    options.roots = source(input);
    return options;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string name = input.text();
    const TLSOptions options = optionsOf(input);
    tls::Settings settings;
    std::string words;
    if (!tls::makeSettings(options, settings, words)) {
        require(!words.empty(), "what is refused is refused in words");
        return 0;
    }
    require(words.empty() && ERR_peek_error() == 0, "no failure where there is none");
    tls::Failure failure;
    const bool accepts = tls::makeConnection(settings, tls::Role::accepts, "", failure) != nullptr;
    require(accepts == !options.certificate.empty(), "who has a certificate can accept");
    const bool connects =
        tls::makeConnection(settings, tls::Role::connects, name, failure) != nullptr;
    require(connects || failure.error == TLS_ERROR_SETTINGS, "a refused name is told");
    return 0;
}
