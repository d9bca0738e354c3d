// The log. An entry is built in one string and written with one call, and the file is opened and
// closed for it: a crash loses nothing, the file can be moved between entries, and no lock is
// needed. What goes wrong here cannot be logged, so it goes to `perror`.
#include "vintok/TCPStream.h"

#include "platform/File.h"
#include "platform/Thread.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <new>

namespace vintok {

namespace {

const char *prefixOf(ErrSeverity severity) {
    switch (severity) {
    case SEVERITY_FATAL:
        return "ERROR:";
    case SEVERITY_ERROR:
        return "Error:";
    case SEVERITY_WARNING:
        return "Warning:";
    case SEVERITY_INFO:
        return "Info:";
    case SEVERITY_DEBUG:
        return "Debug:";
    case SEVERITY_TRACE:
        return "trace:";
    default:
        return "log:";
    }
}

struct Sink {
    LogCallback callback;
    void *data;
};
Sink s_sink = {nullptr, nullptr};

// False when nobody wants to be told, or is being told already.
bool tellSink(const char *message, ErrSeverity severity) {
    static thread_local bool isTelling = false;
    if (s_sink.callback == nullptr || isTelling)
        return false;
    isTelling = true;
    s_sink.callback(severity, message, s_sink.data);
    isTelling = false;
    return true;
}

std::string timeStamp() {
    std::tm local = {};
    if (!platform::localTime(std::time(nullptr), local))
        return {};
    char text[256];
    const std::size_t length = std::strftime(text, sizeof text, " - %Y-%m-%d %H:%M:%S - ", &local);
    return std::string(text, length);
}

std::string entryOf(const char *message, ErrSeverity severity) {
    const auto thread = static_cast<unsigned long>(platform::currentThreadId());
    return prefixOf(severity) +
           formatText(" [ %u -- %lu ] ", platform::currentProcessId(), thread) + timeStamp() +
           "\n{\n" + message + "\n}\n";
}

// Null when the log goes to standard error.
std::FILE *openLogFile() {
    const Globals *globals = s_globals;
    if (globals == nullptr || globals->m_logFileName.empty())
        return nullptr;
    std::FILE *file = platform::openFile(globals->m_logFileName, "a");
    if (file == nullptr)
        std::perror(("logMessage: error opening log file" + globals->m_logFileName).c_str());
    return file;
}

bool writeEntry(const std::string &entry, std::FILE *stream) {
    if (std::fputs(entry.c_str(), stream) < 0) {
        std::perror("logMessage: error writing to log file");
        return false;
    }
    std::fflush(stream);
    return true;
}

bool isByte(char c, int least, int most) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= least && byte <= most;
}

// How many bytes the control character at `at` has; 0 for another character.
std::size_t controlLength(const std::string &text, std::size_t at) {
    if (isByte(text[at], 0, 0x1F) || text[at] == 0x7F)
        return 1;
    const bool second =
        isByte(text[at], 0xC2, 0xC2) && at + 1 < text.size() && isByte(text[at + 1], 0x80, 0x9F);
    return second ? 2 : 0;
}

void removeAll(std::string &text, const std::string &part) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at))
        text.erase(at, part.size());
}

} // namespace

LogLevel logLevel() {
    const Globals *globals = s_globals;
    return globals != nullptr ? globals->m_logLevel.load() : LOG_ERROR;
}

bool setLogLevel(LogLevel level) {
    Globals *globals = s_globals;
    if (globals == nullptr)
        return false;
    globals->m_logLevel = level;
    return true;
}

bool setLogFileName(const std::string &name) {
    try {
        if (Globals *globals = s_globals)
            globals->m_logFileName = name;
    } catch (const std::bad_alloc &) { // the old name stays
    }
    return false; // also after storing it: callers have always been given this
}

void setLogCallback(LogCallback callback, void *data) {
    s_sink = {callback, data};
}

bool logMessage(const char *message, ErrSeverity severity) {
    if (message == nullptr || !isLogged(severity))
        return false;
    try {
        const bool isTold = tellSink(message, severity);
        std::FILE *file = openLogFile();
        if (file == nullptr)
            return isTold || writeEntry(entryOf(message, severity), stderr);
        const bool written = writeEntry(entryOf(message, severity), file);
        std::fclose(file);
        return written;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

std::string visibleText(const std::string &text, std::size_t most) {
    std::string result;
    for (std::size_t at = 0; at < text.size() && result.size() <= most;) {
        std::size_t control = controlLength(text, at);
        if (control == 0)
            result += text[at++];
        for (; control != 0; --control)
            result += formatText("\\x%02x",
                                 static_cast<unsigned>(static_cast<unsigned char>(text[at++])));
    }
    if (result.size() <= most)
        return result;
    while (most != 0 && isByte(result[most], 0x80, 0xBF)) // in the middle of a character
        --most;
    return result.substr(0, most) + "...";
}

void logAt(const SourcePlace &place, ErrSeverity severity, const std::string &message) {
    if (!isLogged(SEVERITY_TRACE)) {
        logMessage(message.c_str(), severity);
        return;
    }
    const std::string decorated = formatText("%s:  %u  -- ", place.file, place.line) + message +
                                  "< " + qualifiedName(place.function) + " >\n";
    logMessage(decorated.c_str(), severity);
}

std::string qualifiedName(const std::string &signature) {
    std::string name = signature;
    removeAll(name, "{anonymous}::");
    removeAll(name, "(anonymous namespace)::");
    const std::size_t end = name.find('(');
    if (end == std::string::npos)
        return "vintok::" + name;
    // Back over the name to the end of the result type, whose template arguments may hold blanks.
    std::size_t begin = end;
    for (int depth = 0; begin > 0; begin--) {
        const char c = name[begin - 1];
        depth += c == '>' ? 1 : c == '<' ? -1 : 0;
        if (depth == 0 && (c == ' ' || c == '*' || c == '&'))
            break;
    }
    return name.substr(begin, end - begin);
}

std::string formatText(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

} // namespace vintok
