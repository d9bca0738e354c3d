// The error of each thread. Its record is made on first need, and destroyed when the thread ends.
// Who uses the library later than the library's own end, from the destructor of another static
// object, finds no record: the error is then dropped and reads as none.
#include "vintok/TCPStream.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Thread.h"
#include "vintok/Log.h"

#include <atomic>
#include <iterator>
#include <memory>
#include <new>

namespace vintok {

namespace {

struct LastErrorRecord {
    TCPError code = TCP_ERROR_NO_ERROR;
    ErrorContext context = "";
    std::string built; // for the context to point at
    std::uint32_t failures = 0;
};

platform::ThreadSlot &slot() {
    static platform::ThreadSlot records(
        [](void *record) { delete static_cast<LastErrorRecord *>(record); });
    return records;
}

// The end of the library.
const struct SlotEnd {
    ~SlotEnd() { slot().release(); }
} s_slotEnd;

LastErrorRecord *threadRecord() {
    auto *record = static_cast<LastErrorRecord *>(slot().get());
    if (record != nullptr)
        return record;
    std::unique_ptr<LastErrorRecord> made(new (std::nothrow) LastErrorRecord);
    return slot().set(made.get()) ? made.release() : nullptr;
}

std::atomic<bool> s_errorDebug{false};

constexpr const char *errorNames[] = {
    "TCP_ERROR_NO_ERROR",           "TCP_ERROR_UNSPECIFIED_ERROR",   "TCP_ERROR_NOT_INITIALIZED",
    "TCP_ERROR_WOULD_BLOCK",        "TCP_ERROR_BAD_FILE_DESCRIPTOR", "TCP_ERROR_LOCK_FAILED",
    "TCP_ERROR_UNLOCK_FAILED",      "TCP_ERROR_INTERRUPT",           "TCP_ERROR_CONNECTION_RESET",
    "TCP_ERROR_CONNECTION_REFUSED", "TCP_ERROR_MAX_DESCRIPTORS",     "TCP_ERROR_OUT_OF_MEMORY",
    "TCP_ERROR_CORRUPT_HEADER",     "TCP_ERROR_SSL_TRANSPORT",       "TCP_ERROR_STREAM_BUFFER",
    "TCP_ERROR_INVALID_ADDRESS",    "TCP_ERROR_INVALID_ARGUMENT",    "TCP_ERROR_SYSTEM_ERROR",
};

void printError(const LastErrorRecord &record) {
    const bool known = record.code < std::size(errorNames);
    const std::string line = formatText("lastError (%s)\n%s\n", errorName(record.code),
                                        known ? record.context.text().c_str() : "");
    logMessage(line.c_str(), record.code == TCP_ERROR_NO_ERROR ? SEVERITY_DEBUG : SEVERITY_ERROR);
}

// The numbers that keep their plain form because the byte layer tests them so.
int tableRow(int error) {
    switch (error) {
    case socketErrors::interrupted:
        return 10004;
    case socketErrors::badDescriptor:
        return 10009;
    case socketErrors::noMemory:
        return 8;
    case socketErrors::invalid:
        return 10022;
    case socketErrors::tooManyDescriptors:
        return socketErrors::tooManySockets;
    default:
        return error;
    }
}

} // namespace

std::string ErrorContext::text() const {
    std::string text = m_built != nullptr ? *m_built : m_literal;
    if (const std::size_t at = m_hasNumber ? text.find("%d") : std::string::npos;
        at != std::string::npos)
        text.replace(at, 2, std::to_string(m_number));
    if (m_hasSystemText)
        text.append("\n").append(sysErrorString(tableRow(m_systemError)));
    return text;
}

ErrorContext ErrorContext::keptIn(std::string &built) const {
    ErrorContext kept = *this;
    if (m_built != nullptr) {
        built = *m_built;
        kept.m_built = &built;
    }
    return kept;
}

bool keepError(TCPError code, const ErrorContext &context) {
    LastErrorRecord *record = threadRecord();
    if (record == nullptr)
        return false;
    record->code = code;
    record->failures += code != TCP_ERROR_NO_ERROR ? 1 : 0;
    try {
        record->context = context.keptIn(record->built);
        if (s_errorDebug)
            printError(*record);
    } catch (const std::bad_alloc &) {
        // The code stands; a text that does not fit into memory is given up.
        record->context = "";
    }
    return true;
}

std::uint32_t failuresKept() {
    const LastErrorRecord *record = threadRecord();
    return record != nullptr ? record->failures : 0;
}

const char *errorName(TCPError code) {
    return code < std::size(errorNames) ? errorNames[code] : "??";
}

bool setLastError(TCPError code, const std::string &text) {
    return keepError(code, text);
}

TCPError lastError() {
    const LastErrorRecord *record = threadRecord();
    return record != nullptr ? record->code : TCP_ERROR_NO_ERROR;
}

std::string lastErrorString() {
    const LastErrorRecord *record = threadRecord();
    try {
        return record != nullptr ? record->context.text() : std::string();
    } catch (const std::bad_alloc &) {
        return {};
    }
}

void setErrorDebug(bool on) {
    s_errorDebug = on;
}

ErrorContext withNumber(const ErrorContext &context, int number) {
    ErrorContext both = context;
    both.m_hasNumber = true;
    both.m_number = number;
    return both;
}

ErrorContext withSystemText(const ErrorContext &context, int error) {
    ErrorContext both = context;
    both.m_hasSystemText = true;
    both.m_systemError = error;
    return both;
}

ErrorContext withSystemText(const ErrorContext &context) {
    return withSystemText(context, platform::socketError());
}

void errorAt(const SourcePlace &place, TCPError code, const ErrorContext &context) {
    if (isLogged(SEVERITY_TRACE)) {
        try {
            const std::string name = qualifiedName(place.function);
            keepError(code, place.file + formatText(": %u -- < %s >", place.line, name.c_str()) +
                                context.text());
            return;
        } catch (const std::bad_alloc &) {
        }
    }
    keepError(code, context);
}

} // namespace vintok
