// The constructor goes through claiming the one slot, listening, starting, accepting. The first
// step that fails says so and the rest is left out; what has come about until then is undone at the
// end of the constructor, but for the slot, which the object keeps until its destructor.
//
// While the process is waited for, both the listening socket and the process are asked in turn:
// neither a program that ends without a word nor one that never connects holds up the application.
#include "vintok/ConferenceControl.h"

#include "platform/File.h"
#include "platform/Process.h"
#include "platform/Wait.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMutex.h"
#include "vintok/TCPStream.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <utility>
#include <vector>

namespace vintok {

const char a_help[] = "-h";
const char a_verbose[] = "-verbose";
const char a_debug[] = "-debug";
const char a_roster[] = "-roster";
const char a_callBackPath[] = "-path";
const char a_clientPort[] = "-listen";
const char a_serverMode[] = "-server";
const char a_background[] = "-bg";
const char a_alarmDelta[] = "-alarm";
const char a_hideIP[] = "-hideIP";
const char a_local[] = "-local";
const char a_sslAuto[] = "-sslAuto";
const char a_sslFIPS[] = "-sslFIPS";
const char a_sslMUX[] = "-sslMUX";
const char a_userFirstName[] = "-uf";
const char a_userLastName[] = "-ul";
const char a_userTitle[] = "-ut";
const char a_userEmail[] = "-ue";
const char a_userPhone[] = "-up";
const char a_meetingID[] = "-mid";
const char a_meetingName[] = "-mn";
const char a_defaultFill[] = "u8jzPde0IgxLd6GncfBAepfJBd0Kh8oOOL8dKLzd/ocJ2isAjIhK"
                             "tJ0RlgLKOmxgJTeKdNnFRIBXuDL7DxtpYlSXpfKtHF4vUCsM/ehG"
                             "AkWvj7FAc9QeWJKY40uvSwMFLZDe1f8rESQedUStPKR0CsTy4Qwb";
static_assert(sizeof(a_defaultFill) == 156 + 1);

ConferenceProcess *ConferenceProcess::_conferenceProcess = nullptr;
std::atomic<unsigned int> ConferenceProcess::_connectTimeout{30000};

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t longestPath = 4096; // its zero byte counted
constexpr std::uint32_t settleAtStartMs = 2000;
constexpr std::uint32_t settleAtEndMs = 10000;
constexpr std::uint32_t endMs = 10000; // from the kill to the end
constexpr std::int32_t connectStepMs = 20;

// By error; the file and the line of the failure follow as arguments.
constexpr const char *errorTexts[] = {
    "No Error",
    "Conference Error %s line %d",
    "Conference Process already Running",
    "Conference Socket Error %s line %d",
    "Conference Exec Error",
    "Environment variable QOR_INSTALL not set",
    "Cannot access Conference Control Process",
    "Cannot shutdown Conference Control Process",
    "Cannot Lock Singleton Process",
};

template <typename Action>
ConferenceError underSingletonLock(TCPMutex &mutex, Action action) {
    if (mutex.lock() != 0)
        return CONFERENCE_SINGLETON_ERROR;
    action();
    return mutex.unlock() == 0 ? CONFERENCE_NO_ERROR : CONFERENCE_SINGLETON_ERROR;
}

std::string variable(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

// The words as a path below `root`.
std::string below(const std::string &root, std::initializer_list<const char *> words) {
    std::string path = root;
    for (const char *word : words)
        path.append(1, platform::pathSeparator()).append(word);
    return path + platform::programSuffix();
}

// Empty, with the reason, when it is nowhere.
std::string findProgram(ConferenceError &error) {
    const std::string install = variable("QOR_INSTALL");
    const std::string root = variable("PROOT");
    std::vector<std::string> candidates;
    if (!install.empty()) {
        candidates.push_back(below(install, {"Program", "ConferenceControl"}));
        candidates.push_back(below(install, {"ConferenceControl"}));
    }
    if (!root.empty())
        candidates.push_back(
            below(root, {"wntx64", "lib", "bin_x64", "release", "ConferenceControl"}));
    for (const std::string &path : candidates)
        if (path.size() < longestPath && platform::isReadableFile(path))
            return path;
    error = install.empty() ? CONFERENCE_NOT_INSTALLED : CONFERENCE_NO_ACCESS;
    return std::string();
}

std::vector<std::string> optionWords(const ConferenceProcessOptions &options) {
    using Options = ConferenceProcessOptions;
    static constexpr std::pair<bool Options::*, const char *> rows[] = {
        {&Options::debug, a_debug},     {&Options::verbose, a_verbose},
        {&Options::roster, a_roster},   {&Options::sslAuto, a_sslAuto},
        {&Options::sslFIPS, a_sslFIPS}, {&Options::hideIP, a_hideIP},
    };
    std::vector<std::string> words;
    for (const auto &[member, word] : rows)
        if (options.*member)
            words.emplace_back(word);
    return words;
}

platform::ProcessStart describeStart(const std::string &program, const std::string &socketPath,
                                     const ConferenceProcessOptions &options, bool debug) {
    platform::ProcessStart start;
    start.arguments = {program, a_callBackPath, socketPath};
    start.commandLine =
        formatText("\"%s\" %s \"%s\"", program.c_str(), a_callBackPath, socketPath.c_str());
    for (const std::string &word : optionWords(options)) {
        start.arguments.push_back(word);
        start.commandLine += " " + word;
    }
    start.ownConsole = {132, debug ? 9999U : 9U, 2, debug};
    start.output = start.error = debug ? platform::ChildStream::ours : platform::ChildStream::null;
    start.raisedPriority = true;
    return start;
}

// Nobody but the process is to connect to a socket, and it needs no second connection.
class SocketFile {
public:
    explicit SocketFile(const std::string &path) : m_path(path) {}
    ~SocketFile() { platform::removeFile(m_path); }
    SocketFile(const SocketFile &) = delete;
    SocketFile &operator=(const SocketFile &) = delete;

private:
    const std::string &m_path;
};

} // namespace

// ---- The one object ----

ConferenceProcess *ConferenceProcess::_getConferenceProcess(ConferenceError *error) {
    static TCPMutex mutex(LOCK_CONTROL_PROCESS);
    ConferenceProcess *process = nullptr;
    const ConferenceError result = underSingletonLock(mutex, [&] { process = _conferenceProcess; });
    if (error != nullptr)
        *error = result;
    return process;
}

ConferenceError ConferenceProcess::_setConferenceProcess(ConferenceProcess *process) {
    static TCPMutex mutex(LOCK_CONTROL_PROCESS);
    return underSingletonLock(mutex, [&] { _conferenceProcess = process; });
}

// Looks and takes in one go: of two threads that make an object at once, one gets the slot.
bool ConferenceProcess::_claimSingleton() {
    static TCPMutex mutex(LOCK_CONTROL_PROCESS);
    bool taken = false;
    const ConferenceError result = underSingletonLock(mutex, [&] {
        taken = _conferenceProcess != nullptr;
        if (!taken)
            _conferenceProcess = this;
    });
    if (result != CONFERENCE_NO_ERROR)
        _fail(result, SourcePlace::caller());
    else if (taken)
        _fail(CONFERENCE_ALREADY_RUNNING, SourcePlace::caller());
    return result == CONFERENCE_NO_ERROR && !taken;
}

void ConferenceProcess::setConnectTimeout(unsigned int milliseconds) {
    _connectTimeout = milliseconds;
}

// ---- Life ----

ConferenceProcess::ConferenceProcess(ConferenceProcessCallback *callback,
                                     const ConferenceProcessOptions &options,
                                     const std::string &socketPath)
    : _callback(callback), _debug(options.debug || options.verbose || options.roster) {
    init();
    try {
        _start(options, socketPath);
    } catch (...) {
        // Out of memory, or thrown by the callback. Beyond the constructor nobody would end the
        // process.
        _fail(CONFERENCE_ERROR, SourcePlace::caller());
    }
    if (_lastError != CONFERENCE_NO_ERROR) {
        _endProcess(false);
        _destroySocket();
    }
}

ConferenceProcess::~ConferenceProcess() {
    _endProcess(true);
    if (_getConferenceProcess(nullptr) == this)
        _setConferenceProcess(nullptr);
    _destroySocket();
    fini();
}

void ConferenceProcess::_start(const ConferenceProcessOptions &options,
                               const std::string &socketPath) {
    if (!_claimSingleton())
        return;
    _debug = _debug || variable("CONFERENCE_CONTROL_DEBUG") == "True" || isLogged(SEVERITY_DEBUG);
    _socket = createUnixSocket(socketPath, 1, true);
    if (_socket < 1)
        return _fail(CONFERENCE_SOCKET_ERROR, SourcePlace::caller());
    {
        const SocketFile file(socketPath);
        _execConfererencControl(socketPath, options);
    }
    if (_callback == nullptr)
        return _fail(CONFERENCE_ERROR, SourcePlace::caller());
    if (_lastError != CONFERENCE_NO_ERROR)
        return; // said already, and closer to the cause than anything here
    _callback->processStarted(_socket);
    VINTOK_LOG(SEVERITY_INFO,
               formatText("Conference Process started:\n\tPID = %u\n\tdescriptor = %d\n",
                          _processInfo ? _processInfo->id : 0xFFFFFFFFU, _socket));
}

void ConferenceProcess::_execConfererencControl(const std::string &socketPath,
                                                const ConferenceProcessOptions &options) {
    if (_launched)
        return _fail(CONFERENCE_ALREADY_RUNNING, SourcePlace::caller());
    ConferenceError error = CONFERENCE_NO_ERROR;
    const std::string program = findProgram(error);
    if (program.empty())
        return _fail(error, SourcePlace::caller());
    if (!_launch(program, socketPath, options))
        return _fail(CONFERENCE_EXEC_ERROR, SourcePlace::caller());
    const int connection = _awaitConnection() ? acceptAndCloseBoundSocket(_socket) : -1;
    if (connection < 1)
        return _fail(CONFERENCE_SOCKET_ERROR, SourcePlace::caller());
    _socket = connection;
}

bool ConferenceProcess::_launch(const std::string &program, const std::string &socketPath,
                                const ConferenceProcessOptions &options) {
    const platform::ProcessStart start = describeStart(program, socketPath, options, _debug);
    auto process = std::make_unique<platform::Process>();
    std::string failure;
    if (!platform::startProcess(start, *process, failure)) {
        VINTOK_LOG(SEVERITY_ERROR, "cannot start " + program + ": " + failure);
        return false;
    }
    _processInfo = std::move(process);
    platform::settleProcess(*_processInfo, settleAtStartMs);
    _launched = true;
    return true;
}

bool ConferenceProcess::_awaitConnection() {
    using platform::Await;
    const auto deadline = Clock::now() + std::chrono::milliseconds(_connectTimeout);
    while (!platform::awaitSocket(_socket, Await::readable, connectStepMs)) {
        // It may have connected just before its end, and left its last words.
        if (platform::waitProcess(*_processInfo, 0))
            return platform::awaitSocket(_socket, Await::readable, 0);
        if (Clock::now() >= deadline)
            return false;
    }
    return true;
}

void ConferenceProcess::_endProcess(bool tell) {
    if (_processInfo == nullptr)
        return;
    platform::settleProcess(*_processInfo, settleAtEndMs);
    // One that has closed its end of the socket is on its way out and is let go.
    const bool leaves = _launched && _socket >= 1 && platform::endArrived(_socket);
    if (!platform::waitProcess(*_processInfo, leaves ? settleAtEndMs : 0)) {
        const bool ended = platform::terminateProcess(*_processInfo) &&
                           platform::waitProcess(*_processInfo, endMs);
        if (tell && !ended)
            _fail(CONFERENCE_SHUTDOWN_ERROR, SourcePlace::caller());
        else if (tell && _callback != nullptr)
            _callback->processEnded();
    }
    platform::closeProcess(*_processInfo);
    _processInfo.reset();
}

void ConferenceProcess::_destroySocket() {
    if (_socket < 1)
        return;
    shutdownSocket(std::exchange(_socket, -1));
}

// Needs no memory, and no exception of the application's gets past it.
void ConferenceProcess::_fail(ConferenceError code, const SourcePlace &place) {
    _lastError = code;
    char text[1024];
    std::snprintf(text, sizeof(text), errorTexts[code], place.file, static_cast<int>(place.line));
    if (_debug)
        std::fprintf(stderr, "%s\n", text);
    try {
        if (_callback != nullptr)
            _callback->processError(code, text);
    } catch (...) {
        VINTOK_LOG(SEVERITY_ERROR, "an exception in processError was dropped");
    }
}

} // namespace vintok
