// A child inherits exactly the handles of its standard streams: they stand in an explicit list, so
// that neither a handle that the application made inheritable, nor one that another thread is
// handing to another child, slips in.
#include "platform/Process.h"

#include <algorithm>
#include <cctype>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace vintok::platform {

namespace {

// What a child may write before somebody reads. The usual page would stop it after a few lines.
constexpr DWORD pipeCapacity = 65536;

constexpr DWORD pipePollMs = 5;

HANDLE asHandle(std::intptr_t value) {
    return reinterpret_cast<HANDLE>(value);
}
std::intptr_t asNumber(HANDLE handle) {
    return reinterpret_cast<std::intptr_t>(handle);
}

std::string errorText(DWORD code) {
    char text[512] = {};
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    DWORD length = FormatMessageA(flags, nullptr, code, 0, text, sizeof(text) - 1, nullptr);
    while (length > 0 && std::isspace(static_cast<unsigned char>(text[length - 1])))
        --length;
    return length > 0 ? std::string(text, length) : "error " + std::to_string(code);
}

// One argument as the C runtime of the child takes it apart again: backslashes count double before
// a quotation mark only.
std::string quoted(const std::string &argument) {
    if (!argument.empty() && argument.find_first_of(" \t\n\v\"") == std::string::npos)
        return argument;
    std::string result = "\"";
    std::size_t backslashes = 0;
    for (const char c : argument) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        result.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
        result += c;
        backslashes = 0;
    }
    return result.append(backslashes * 2, '\\') + '"';
}

std::string commandLine(const std::vector<std::string> &arguments) {
    std::string line;
    for (const std::string &argument : arguments)
        line += (line.empty() ? "" : " ") + quoted(argument);
    return line;
}

bool sameName(const std::string &left, const std::string &right) {
    return CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, left.c_str(), -1, right.c_str(), -1) ==
           CSTR_EQUAL;
}

// The environment of the child as one block: texts with their zero bytes, and one zero byte more.
std::string environmentBlock(const ProcessStart &start) {
    std::string block;
    char *own = GetEnvironmentStringsA();
    for (const char *variable = own; variable && *variable; variable += lstrlenA(variable) + 1) {
        const std::string text = variable;
        // Drive directories ("=C:=...") begin with the sign itself.
        const std::string name = text.substr(0, text.find('=', 1));
        const bool changed =
            std::any_of(start.environment.begin(), start.environment.end(),
                        [&](const auto &change) { return sameName(change.first, name); });
        if (!changed)
            block += text + '\0';
    }
    FreeEnvironmentStringsA(own);
    for (const auto &[name, value] : start.environment)
        if (value)
            block += name + '=' + *value + '\0';
    return block + '\0';
}

// One standard stream: the end that the child inherits, and ours where it is a pipe.
struct Stream {
    HANDLE child = INVALID_HANDLE_VALUE;
    HANDLE own = INVALID_HANDLE_VALUE;

    ~Stream() {
        drop(child);
        drop(own);
    }

    bool open(ChildStream kind, DWORD standard) {
        SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
        if (kind == ChildStream::ours) {
            const HANDLE ours = GetStdHandle(standard);
            const HANDLE self = GetCurrentProcess();
            if (ours && ours != INVALID_HANDLE_VALUE &&
                DuplicateHandle(self, ours, self, &child, 0, TRUE, DUPLICATE_SAME_ACCESS))
                return true;
        } else if (kind == ChildStream::pipe) {
            const bool toChild = standard == STD_INPUT_HANDLE;
            return CreatePipe(toChild ? &child : &own, toChild ? &own : &child, &inherit,
                              pipeCapacity) &&
                   SetHandleInformation(own, HANDLE_FLAG_INHERIT, 0);
        }
        child = CreateFileA("NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            &inherit, OPEN_EXISTING, 0, nullptr);
        return child != INVALID_HANDLE_VALUE;
    }

    std::intptr_t release() { return asNumber(std::exchange(own, INVALID_HANDLE_VALUE)); }

    static void drop(HANDLE &handle) {
        if (handle != INVALID_HANDLE_VALUE) {
            CloseHandle(handle);
            handle = INVALID_HANDLE_VALUE;
        }
    }
};

// The list of what a child inherits. It must outlive the start.
class InheritList {
public:
    explicit InheritList(std::vector<HANDLE> handles) : m_handles(std::move(handles)) {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_memory.resize(size);
        m_valid =
            InitializeProcThreadAttributeList(get(), 1, 0, &size) &&
            UpdateProcThreadAttribute(get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(),
                                      m_handles.size() * sizeof(HANDLE), nullptr, nullptr);
    }
    ~InheritList() { DeleteProcThreadAttributeList(get()); }
    InheritList(const InheritList &) = delete;
    InheritList &operator=(const InheritList &) = delete;

    bool valid() const { return m_valid; }
    LPPROC_THREAD_ATTRIBUTE_LIST get() {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_memory.data());
    }

private:
    std::vector<HANDLE> m_handles;
    std::vector<unsigned char> m_memory;
    bool m_valid = false;
};

// By the kind of system: only the one without protected priorities gets the highest.
DWORD priorityClass(const ProcessStart &start) {
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    if (!start.raisedPriority || !GetVersionExA(&version))
        return NORMAL_PRIORITY_CLASS;
    switch (version.dwPlatformId) {
    case VER_PLATFORM_WIN32_WINDOWS:
        return REALTIME_PRIORITY_CLASS;
    case VER_PLATFORM_WIN32_NT:
        return HIGH_PRIORITY_CLASS;
    default:
        return NORMAL_PRIORITY_CLASS;
    }
}

DWORD creationFlags(const ProcessStart &start) {
    return CREATE_NEW_PROCESS_GROUP | CREATE_DEFAULT_ERROR_MODE | priorityClass(start);
}

std::string commandText(const ProcessStart &start) {
    return start.commandLine.empty() ? commandLine(start.arguments) : start.commandLine;
}

bool createInWindow(const ProcessStart &start, PROCESS_INFORMATION &made) {
    STARTUPINFOA info = {};
    info.cb = sizeof(info);
    info.dwFlags =
        STARTF_USEPOSITION | STARTF_USECOUNTCHARS | STARTF_USEFILLATTRIBUTE | STARTF_USESHOWWINDOW;
    info.dwXCountChars = start.ownConsole->columns;
    info.dwYCountChars = start.ownConsole->lines;
    info.dwFillAttribute = start.ownConsole->attribute;
    info.wShowWindow = static_cast<WORD>(start.ownConsole->visible ? SW_SHOW : SW_HIDE);
    std::string line = commandText(start);
    std::string environment = environmentBlock(start);
    return CreateProcessA(start.arguments[0].c_str(), line.data(), nullptr, nullptr, FALSE,
                          creationFlags(start) | CREATE_NEW_CONSOLE,
                          start.environment.empty() ? nullptr : environment.data(), nullptr, &info,
                          &made);
}

bool createWithStreams(const ProcessStart &start, const Stream *streams,
                       PROCESS_INFORMATION &made) {
    InheritList inherited({streams[0].child, streams[1].child, streams[2].child});
    if (!inherited.valid())
        return false;
    STARTUPINFOEXA info = {};
    info.StartupInfo.cb = sizeof(info);
    info.StartupInfo.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
    info.StartupInfo.wShowWindow = SW_HIDE;
    info.StartupInfo.hStdInput = streams[0].child;
    info.StartupInfo.hStdOutput = streams[1].child;
    info.StartupInfo.hStdError = streams[2].child;
    info.lpAttributeList = inherited.get();
    std::string line = commandText(start);
    std::string environment = environmentBlock(start);
    return CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE,
                          creationFlags(start) | EXTENDED_STARTUPINFO_PRESENT, environment.data(),
                          nullptr, &info.StartupInfo, &made);
}

bool create(const ProcessStart &start, Stream *streams, PROCESS_INFORMATION &made) {
    if (start.ownConsole)
        return createInWindow(start, made);
    return streams[0].open(start.input, STD_INPUT_HANDLE) &&
           streams[1].open(start.output, STD_OUTPUT_HANDLE) &&
           streams[2].open(start.error, STD_ERROR_HANDLE) &&
           createWithStreams(start, streams, made);
}

} // namespace

bool startProcess(const ProcessStart &start, Process &process, std::string &failure) {
    process = Process();
    Stream streams[3];
    PROCESS_INFORMATION made = {};
    if (start.arguments.empty() || !create(start, streams, made)) {
        failure = errorText(start.arguments.empty() ? ERROR_INVALID_PARAMETER : GetLastError());
        return false;
    }
    if (start.raisedPriority && priorityClass(start) != REALTIME_PRIORITY_CLASS)
        SetThreadPriority(made.hThread, THREAD_PRIORITY_HIGHEST);
    CloseHandle(made.hThread);
    process.id = made.dwProcessId;
    process.handle = asNumber(made.hProcess);
    process.input = streams[0].release();
    process.output = streams[1].release();
    process.error = streams[2].release();
    return true;
}

const char *programSuffix() {
    return ".exe";
}

void settleProcess(Process &process, std::uint32_t milliseconds) {
    // Fails at once for a program that has a console and no window of its own making.
    WaitForInputIdle(asHandle(process.handle), milliseconds);
}

bool waitProcess(Process &process, std::uint32_t milliseconds) {
    if (process.id == 0)
        return false;
    if (!process.ended &&
        WaitForSingleObject(asHandle(process.handle), milliseconds) == WAIT_OBJECT_0) {
        DWORD code = 0;
        process.ended = true;
        if (GetExitCodeProcess(asHandle(process.handle), &code))
            process.exitCode = static_cast<int>(code);
    }
    return process.ended;
}

bool interruptProcess(Process &process) {
    // Ctrl-C itself is switched off in a process group of its own; Ctrl-Break gets through.
    return process.id != 0 && !process.ended &&
           GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, process.id);
}

bool terminateProcess(Process &process) {
    return process.id != 0 && !process.ended && TerminateProcess(asHandle(process.handle), 1);
}

void closeProcess(Process &process) {
    closePipe(process.input);
    closePipe(process.output);
    closePipe(process.error);
    closePipe(process.handle);
    process = Process();
}

std::optional<std::int64_t> readPipe(std::intptr_t pipe, char *buffer, std::size_t length,
                                     std::uint32_t milliseconds) {
    // A wait on a pipe's handle says nothing about its bytes: only asking does.
    for (DWORD waited = 0;; waited += pipePollMs) {
        DWORD waiting = 0;
        if (!PeekNamedPipe(asHandle(pipe), nullptr, 0, nullptr, &waiting, nullptr))
            return GetLastError() == ERROR_BROKEN_PIPE ? 0 : -1;
        if (waiting > 0)
            break;
        if (waited >= milliseconds)
            return std::nullopt;
        Sleep(pipePollMs);
    }
    DWORD count = 0;
    if (!ReadFile(asHandle(pipe), buffer, static_cast<DWORD>(length), &count, nullptr))
        return GetLastError() == ERROR_BROKEN_PIPE ? 0 : -1;
    return count;
}

std::int64_t writePipe(std::intptr_t pipe, const char *buffer, std::size_t length) {
    DWORD count = 0;
    return WriteFile(asHandle(pipe), buffer, static_cast<DWORD>(length), &count, nullptr) ? count
                                                                                          : -1;
}

void closePipe(std::intptr_t &pipe) {
    if (pipe != -1) {
        CloseHandle(asHandle(pipe));
        pipe = -1;
    }
}

} // namespace vintok::platform
