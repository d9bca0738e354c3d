// TLS for the C interface, in the companion library.
#include "vintok-c/vintok-tls.h"

#include "vintok-c/Options.h"
#include "vintok-tls/TLSFolder.h"
#include "vintok-tls/TLSTransport.h"
#include "vintok/TCPStream.h"

#include <exception>
#include <iterator>
#include <sstream>
#include <vector>

using namespace vintok;
using c::textOf;

namespace {

constexpr std::uint32_t knownFlags = (VINTOK_TLS_NOT_TO_THE_UNNAMED << 1) - 1;

// For as long as the process lives: connections are still closed through it at the end.
TLSTransport &channel() {
    static TLSTransport &one = *new TLSTransport;
    return one;
}

bool refuse(TCPError code, const char *what) {
    setLastError(code, what);
    return false;
}

template <class Does>
std::int32_t attempt(Does does) noexcept {
    try {
        return does() ? 1 : 0;
    } catch (const std::exception &) {
        return refuse(TCP_ERROR_OUT_OF_MEMORY, "no memory") ? 1 : 0;
    }
}

TLSOptions settingsOf(const vintok_tls_options &options) {
    const auto has = [&](std::uint32_t flag) { return (options.flags & flag) != 0; };
    TLSOptions tls;
    tls.certificateFile = textOf(options.certificate_file);
    tls.keyFile = textOf(options.key_file);
    tls.rootsFile = textOf(options.roots_file);
    tls.rootsFolder = textOf(options.roots_folder);
    tls.expectedName = textOf(options.expected_name);
    tls.systemRoots = has(VINTOK_TLS_SYSTEM_ROOTS);
    tls.demandCertificate = has(VINTOK_TLS_DEMAND_CERTIFICATE);
    tls.required = has(VINTOK_TLS_REQUIRED);
    tls.FIPSOnly = has(VINTOK_TLS_FIPS_ONLY);
    tls.oldest = has(VINTOK_TLS_NEWEST) ? TLSVersion::TLS1_3 : TLSVersion::TLS1_2;
    const auto take = [](std::uint32_t given, std::uint32_t &time) {
        if (given != 0)
            time = given;
    };
    take(options.handshake_time, tls.handshakeTime);
    take(options.accept_wait, tls.acceptWait);
    take(options.connect_wait, tls.connectWait);
    if (has(VINTOK_TLS_CONNECTS_AT_ONCE))
        tls.connectWait = 0;
    return tls;
}

} // namespace

std::int32_t vintok_tls_install(const vintok_tls_options *given) {
    return attempt([=] {
        vintok_tls_options options;
        if (!c::fillOptions(given, options) || (options.flags & ~knownFlags) != 0)
            return refuse(TCP_ERROR_INVALID_ARGUMENT, "vintok_tls_install: unknown options");
        if (!channel().open(settingsOf(options)))
            return false;
        channel().setConnectsUnnamed((options.flags & VINTOK_TLS_NOT_TO_THE_UNNAMED) == 0);
        return (setTransport(&channel()) && setBackgroundTransport(&channel())) ||
               refuse(TCP_ERROR_NOT_INITIALIZED, "vintok_tls_install: the library is not started");
    });
}

std::int32_t vintok_tls_remove(void) {
    return attempt([] {
        return setTransport(nullptr) ||
               refuse(TCP_ERROR_NOT_INITIALIZED, "vintok_tls_remove: the library is not started");
    });
}

std::int32_t vintok_tls_take_failure(char *buffer, std::size_t size) {
    std::int32_t failure = VINTOK_TLS_ERROR_NONE;
    attempt([&] {
        std::string words;
        failure = static_cast<std::int32_t>(channel().lastFailure(words));
        channel().clearFailure();
        if (buffer != nullptr && size != 0)
            buffer[words.copy(buffer, size - 1)] = '\0';
        return true;
    });
    return failure;
}

std::int32_t vintok_tls_create_folder(const char *folder, const char *names) {
    return attempt([=] {
        std::istringstream words(textOf(names));
        const std::vector<std::string> all{std::istream_iterator<std::string>(words), {}};
        return createTLSFolder(textOf(folder), all);
    });
}
