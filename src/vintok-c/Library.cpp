// What is there once in the process: version, start and stop, errors, log, time-outs, the clock.
#include "vintok-c/Handles.h"

#include "vintok/StreamInternal.h"
#include "vintok/TCPStream.h"

using namespace vintok;
using c::attempt;
using c::textOf;

namespace {

c::Handler<vintok_log_callback> s_log;

void log(ErrSeverity severity, const char *message, void *) {
    s_log.call(static_cast<std::int32_t>(severity), message, s_log.user);
}

} // namespace

std::uint32_t vintok_version(void) {
    return VINTOK_C_VERSION_MAJOR << 16 | VINTOK_C_VERSION_MINOR;
}

// It has started too where it does not know this machine's own name.
std::int32_t vintok_start(void) {
    return attempt(
        __func__, [] { return init() || startedGlobals() != nullptr; });
}

std::int32_t vintok_stop(void) {
    return attempt(
        __func__, [] { return fini(); });
}

// ---- Errors and the log ----

std::int32_t vintok_last_error(void) {
    return static_cast<std::int32_t>(lastError());
}

const char *vintok_last_error_text(void) {
    thread_local char text[1024];
    text[0] = '\0';
    attempt(__func__, [] {
        const std::string whole = lastErrorString();
        text[whole.copy(text, sizeof text - 1)] = '\0';
    });
    return text;
}

const char *vintok_error_name(std::int32_t code) {
    return errorName(static_cast<TCPError>(code));
}

std::int32_t vintok_set_log_level(std::int32_t level) {
    return attempt(
        __func__, [=] { return setLogLevel(static_cast<LogLevel>(level)); });
}

std::int32_t vintok_log_level(void) {
    return static_cast<std::int32_t>(logLevel());
}

std::int32_t vintok_set_log_file(const char *path) {
    return attempt(
        __func__, [=] { static_cast<void>(setLogFileName(textOf(path))); });
}

std::int32_t vintok_on_log(vintok_log_callback callback, void *user) {
    s_log = {callback, user};
    return attempt(__func__, [=] { setLogCallback(callback != nullptr ? log : nullptr, nullptr); });
}

std::int32_t vintok_log(std::int32_t severity, const char *message) {
    return attempt(
        __func__,
        [=] { return logMessage(textOf(message).c_str(), static_cast<ErrSeverity>(severity)); });
}

// ---- For the whole process ----

std::int32_t vintok_set_connect_timeout(std::uint32_t milliseconds) {
    return attempt(
        __func__, [=] { return setConnectTimeout(milliseconds); });
}

std::int32_t vintok_set_peer_timeout(std::uint32_t milliseconds) {
    return attempt(
        __func__, [=] { return setPeerTimeout(milliseconds); });
}

std::int32_t vintok_set_file_root(const char *folder) {
    return attempt(
        __func__, [=] { return ConferenceParticipant::setFileRoot(textOf(folder)); });
}

std::int32_t vintok_set_file_links(std::int32_t on) {
    return attempt(
        __func__, [=] { return ConferenceParticipant::setFileLinks(on != 0); });
}

std::int64_t vintok_time(void) {
    return attempt(
        __func__, [] { return getTime(); });
}

std::int64_t vintok_clock_offset(void) {
    return attempt(
        __func__, [] { return getAddTime() - getSubtractTime(); });
}

std::int32_t vintok_set_clock_offset(std::int64_t seconds) {
    return attempt(
        __func__,
        [=] { return zeroTime() && (seconds < 0 ? subtractTime(-seconds) : addTime(seconds)); });
}
