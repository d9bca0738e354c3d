// How the library logs and sets errors: the two macros, and the one way to build their texts.
#ifndef VINTOK_LOG_H
#define VINTOK_LOG_H

#include "vintok/TCPStream.h"

#include <cstdint>
#include <new>
#include <string>

namespace vintok {

// Where an error or a message is reported. As the default argument of a helper that reports for its
// callers, `SourcePlace::caller()` is the place of the call: the trace decoration then names the
// operation and not the helper.
struct SourcePlace {
    const char *file;
    unsigned line;
    const char *function; // as the compiler prints it, with result and arguments, or the bare name

    static constexpr SourcePlace caller(const char *file = __builtin_FILE(),
                                        unsigned line = __builtin_LINE(),
                                        const char *function = __builtin_FUNCTION()) {
        return {file, line, function};
    }
};

// What an error says of itself, in the parts of which the text is made when somebody reads it: most
// errors are never read. A view, so a std::string must outlive it; one that is made on the spot
// serves for the expression that it stands in.
class ErrorContext {
public:
    // Of a literal alone, which need not be copied.
    consteval ErrorContext(const char *literal) : m_literal(literal) {}
    ErrorContext(const std::string &built) : m_literal(nullptr), m_built(&built) {}

    std::string text() const;

    // The same for as long as `built`, which takes a copy unless the words are a literal.
    ErrorContext keptIn(std::string &built) const;

private:
    friend ErrorContext withNumber(const ErrorContext &context, int number);
    friend ErrorContext withSystemText(const ErrorContext &context, int error);

    const char *m_literal;
    const std::string *m_built = nullptr;
    bool m_hasNumber = false;
    int m_number = 0;
    bool m_hasSystemText = false;
    int m_systemError = 0;
};

inline bool isLogged(ErrSeverity severity) {
    return (std::uint32_t{logLevel()} & std::uint32_t{severity}) != 0;
}

// What the macros call. Without memory an error goes without the decoration of the trace level.
void logAt(const SourcePlace &place, ErrSeverity severity, const std::string &message);
void errorAt(const SourcePlace &place, TCPError code, const ErrorContext &context);

// `setLastError` for a context of whatever kind. A literal costs no memory, with a number and
// system text neither; what was built and finds no room is left out.
bool keepError(TCPError code, const ErrorContext &context);

// How many failures this thread has kept so far.
std::uint32_t failuresKept();

// What an operation that fails leaves as the error: that of what failed on its way, or else its own
// words.
class Reason {
public:
    explicit Reason(const SourcePlace &place = SourcePlace::caller())
        : m_place(place), m_before(failuresKept()) {}

    // Returns `done`.
    bool unless(bool done, TCPError code, const ErrorContext &context) const {
        if (!done && failuresKept() == m_before)
            errorAt(m_place, code, context);
        return done;
    }

private:
    const SourcePlace m_place;
    const std::uint32_t m_before;
};

// Leaves the error of an operation that is refused. Returns false.
inline bool refuse(TCPError code, const ErrorContext &context,
                   const SourcePlace &place = SourcePlace::caller()) {
    errorAt(place, code, context);
    return false;
}

// The name alone: "bool vintok::TCPMutex::lock(int)" gives "vintok::TCPMutex::lock", and "init"
// gives "vintok::init".
std::string qualifiedName(const std::string &signature);

// As `printf` of the C standard on every system, into a string. A failure to format gives an empty
// text.
#if defined(__clang__)
[[gnu::format(printf, 1, 2)]]
#else
[[gnu::format(gnu_printf, 1, 2)]]
#endif
std::string
formatText(const char *format, ...);

// `context`, a literal, with the number in place of its "%d", if it has one.
ErrorContext withNumber(const ErrorContext &context, int number);

// `context`, a newline and the row of the system error table for `error`, or for the thread's last
// socket error. The plain numbers (4, 9, 12, 22, 24) show the row that is named like them.
ErrorContext withSystemText(const ErrorContext &context, int error);
ErrorContext withSystemText(const ErrorContext &context);

} // namespace vintok

#define VINTOK_HERE (::vintok::SourcePlace{__FILE__, __LINE__, __PRETTY_FUNCTION__})

// The message is built only when the level lets `severity` through, and is lost when there is no
// memory for it. A helper that logs for its callers gives their place.
#define VINTOK_LOG_AT(place, severity, message)                                                    \
    do {                                                                                           \
        if (::vintok::isLogged(severity)) {                                                        \
            try {                                                                                  \
                ::vintok::logAt((place), (severity), (message));                                   \
            } catch (const std::bad_alloc &) {                                                     \
            }                                                                                      \
        }                                                                                          \
    } while (false)

#define VINTOK_LOG(severity, message) VINTOK_LOG_AT(VINTOK_HERE, severity, message)

#define VINTOK_ERROR(code, context) ::vintok::errorAt(VINTOK_HERE, (code), (context))

#endif
