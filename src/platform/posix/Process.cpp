// A child is started with posix_spawn, which reports a program that cannot be run to the caller and
// leaves no half-made child behind. Every descriptor above the standard three is closed in the
// child, those of the application too, which may not be close-on-exec.
//
// Waiting for a child has no time limit in POSIX, and a handler for its death would be the
// application's business, so a bounded wait asks again and again, with growing pauses.
#include "platform/Process.h"

#include "platform/posix/HeldSignal.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vintok::platform {

namespace {

constexpr int priorityStep = -10; // "high", between the usual 0 and the strongest -20
constexpr long longestPauseNs = 20'000'000;

// A pipe whose ends are above the standard streams, so that placing them in the child cannot
// overwrite one another when the application runs with a standard stream closed.
struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;

    bool open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        readEnd = raise(ends[0]);
        writeEnd = raise(ends[1]);
        return readEnd != -1 && writeEnd != -1;
    }

    ~Pipe() {
        drop(readEnd);
        drop(writeEnd);
    }

    static void drop(int &end) {
        if (end != -1) {
            close(end);
            end = -1;
        }
    }

private:
    static int raise(int end) {
        if (end > STDERR_FILENO)
            return end;
        const int raised = fcntl(end, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(end);
        return raised;
    }
};

// Says where a standard stream of the child goes. `childEnd` is the pipe's end that the child gets.
int placeStream(posix_spawn_file_actions_t &actions, ChildStream stream, int standard,
                int childEnd) {
    switch (stream) {
    case ChildStream::null:
        return posix_spawn_file_actions_addopen(&actions, standard, "/dev/null", O_RDWR, 0);
    case ChildStream::pipe:
        return posix_spawn_file_actions_adddup2(&actions, childEnd, standard);
    case ChildStream::ours:
        break;
    }
    // Onto itself: the way to say that a stream stays open across the start.
    return posix_spawn_file_actions_adddup2(&actions, standard, standard);
}

bool isChanged(const ProcessStart &start, const char *variable) {
    const char *equals = std::strchr(variable, '=');
    const std::string name(variable, equals ? static_cast<std::size_t>(equals - variable)
                                            : std::strlen(variable));
    for (const auto &change : start.environment)
        if (change.first == name)
            return true;
    return false;
}

std::vector<std::string> childEnvironment(const ProcessStart &start) {
    std::vector<std::string> variables;
    for (char **variable = environ; variable && *variable; ++variable)
        if (!isChanged(start, *variable))
            variables.emplace_back(*variable);
    for (const auto &[name, value] : start.environment)
        if (value)
            variables.push_back(name + "=" + *value);
    return variables;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> result;
    result.reserve(texts.size() + 1);
    for (std::string &text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

int setAttributes(posix_spawnattr_t &attributes, bool ownSession) {
    sigset_t signals;
    sigfillset(&signals);
    // Signals that the application ignores would stay ignored in the child.
    int error = posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    error = error ? error : posix_spawnattr_setsigmask(&attributes, &signals);
    error = error ? error : posix_spawnattr_setpgroup(&attributes, 0);
    // A new session comes with a new group; asking for both fails.
    const int group = ownSession ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP;
    const int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | group;
    return error ? error : posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
}

// Returns the number of the child, or 0 with the system's error.
pid_t spawn(const ProcessStart &start, int input, int output, int error, int &failure) {
    std::vector<std::string> arguments = start.arguments;
    std::vector<std::string> environment = childEnvironment(start);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    failure = posix_spawn_file_actions_init(&actions);
    if (failure != 0)
        return 0;
    failure = posix_spawnattr_init(&attributes);
    if (failure != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return 0;
    }
    pid_t child = 0;
    failure = setAttributes(attributes, start.ownConsole.has_value());
    failure = failure ? failure : placeStream(actions, start.input, STDIN_FILENO, input);
    failure = failure ? failure : placeStream(actions, start.output, STDOUT_FILENO, output);
    failure = failure ? failure : placeStream(actions, start.error, STDERR_FILENO, error);
    failure = failure ? failure : posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    failure = failure ? failure
                      : posix_spawnp(&child, arguments[0].c_str(), &actions, &attributes,
                                     pointers(arguments).data(), pointers(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return failure == 0 ? child : 0;
}

// Takes the end of the child, if it has ended, out of the process table.
bool reap(Process &process) {
    int status = 0;
    pid_t result = 0;
    do {
        result = waitpid(static_cast<pid_t>(process.id), &status, WNOHANG);
    } while (result == -1 && errno == EINTR);
    if (result == 0)
        return false;
    // -1: the application ignores the death of children, or has waited for all of them itself.
    process.ended = true;
    if (result != -1)
        process.exitCode = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return true;
}

long long nowMilliseconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1'000'000;
}

bool alive(const Process &process) {
    return process.id != 0 && !process.ended;
}

} // namespace

bool startProcess(const ProcessStart &start, Process &process, std::string &failure) {
    process = Process();
    Pipe input;
    Pipe output;
    Pipe error;
    int code = start.arguments.empty() ? EINVAL : 0;
    if (code == 0 && ((start.input == ChildStream::pipe && !input.open()) ||
                      (start.output == ChildStream::pipe && !output.open()) ||
                      (start.error == ChildStream::pipe && !error.open())))
        code = errno;
    if (code == 0) {
        process.id = static_cast<std::uint32_t>(
            spawn(start, input.readEnd, output.writeEnd, error.writeEnd, code));
    }
    if (code != 0) {
        failure = std::strerror(code);
        return false;
    }
    if (start.raisedPriority)
        setpriority(PRIO_PROCESS, process.id, priorityStep);
    process.input = std::exchange(input.writeEnd, -1);
    process.output = std::exchange(output.readEnd, -1);
    process.error = std::exchange(error.readEnd, -1);
    return true;
}

const char *programSuffix() {
    return "";
}

void settleProcess(Process &, std::uint32_t) {}

bool waitProcess(Process &process, std::uint32_t milliseconds) {
    if (process.id == 0)
        return false;
    const long long deadline = nowMilliseconds() + milliseconds;
    timespec pause = {0, 500'000};
    while (!process.ended && !reap(process)) {
        if (nowMilliseconds() >= deadline)
            return false;
        nanosleep(&pause, nullptr);
        pause.tv_nsec = pause.tv_nsec * 2 < longestPauseNs ? pause.tv_nsec * 2 : longestPauseNs;
    }
    return true;
}

bool interruptProcess(Process &process) {
    return alive(process) && kill(static_cast<pid_t>(process.id), SIGINT) == 0;
}

bool terminateProcess(Process &process) {
    // Its number is the number of its group. As long as it is not waited for, nobody else gets it.
    return alive(process) && kill(-static_cast<pid_t>(process.id), SIGKILL) == 0;
}

void closeProcess(Process &process) {
    closePipe(process.input);
    closePipe(process.output);
    closePipe(process.error);
    process = Process();
}

std::optional<std::int64_t> readPipe(std::intptr_t pipe, char *buffer, std::size_t length,
                                     std::uint32_t milliseconds) {
    pollfd wanted = {static_cast<int>(pipe), POLLIN, 0};
    const int ready = poll(&wanted, 1, static_cast<int>(milliseconds));
    if (ready == 0 || (ready == -1 && errno == EINTR))
        return std::nullopt;
    return ready == -1 ? -1 : read(static_cast<int>(pipe), buffer, length);
}

std::int64_t writePipe(std::intptr_t pipe, const char *buffer, std::size_t length) {
    HeldSignal broken(SIGPIPE);
    const ssize_t written = write(static_cast<int>(pipe), buffer, length);
    if (written == -1 && errno == EPIPE)
        broken.takeOut();
    return written;
}

void closePipe(std::intptr_t &pipe) {
    if (pipe != -1) {
        close(static_cast<int>(pipe));
        pipe = -1;
    }
}

} // namespace vintok::platform
