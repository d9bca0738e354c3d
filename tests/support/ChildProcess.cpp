#include "support/ChildProcess.h"

#include <chrono>

namespace vintok::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int turnMs = 10;

// What the machine's owner may have set for runs by hand.
constexpr const char *ownersSettings[] = {"VINTOK_ERROR_LOG_LEVEL",
                                          "VINTOK_ERROR_LOG_FILE",
                                          "VINTOK_ERROR_PRINT",
                                          "CONFERENCE_PARTICIPANT_DEBUG",
                                          "CONFERENCE_ROSTER_DEBUG",
                                          "QOR_INSTALL",
                                          "PROOT",
                                          "CONFERENCE_CONTROL_DEBUG",
                                          "NO_COLOR",
                                          "TCP_MESSAGE_DEBUG"};

// Reads all that is there, waiting at most so long for the first bytes.
bool readAll(std::intptr_t pipe, std::string &text, unsigned int milliseconds) {
    char buffer[4096];
    while (const auto count = platform::readPipe(pipe, buffer, sizeof(buffer), milliseconds)) {
        if (*count <= 0)
            return false;
        text.append(buffer, static_cast<std::size_t>(*count));
        milliseconds = 0;
    }
    return true;
}

// All that live. One that nobody reads stops when its pipe is full, and with it those that it talks
// to; so whoever waits for one reads them all.
std::vector<ChildProcess *> &children() {
    static std::vector<ChildProcess *> all;
    return all;
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments, const Environment &environment)
    : m_arguments(arguments) {
    platform::ProcessStart start;
    start.arguments = std::move(arguments);
    for (const char *name : ownersSettings)
        start.environment.emplace_back(name, std::nullopt);
    start.environment.insert(start.environment.end(), environment.begin(), environment.end());
    start.input = start.output = start.error = platform::ChildStream::pipe;
    platform::startProcess(start, m_process, m_failure);
    children().push_back(this);
}

ChildProcess::~ChildProcess() {
    kill();
    platform::closeProcess(m_process);
    std::erase(children(), this);
}

bool ChildProcess::type(const std::string &line) {
    std::string rest = line + '\n';
    while (!rest.empty() && m_process.input != -1) {
        const std::int64_t count = platform::writePipe(m_process.input, rest.data(), rest.size());
        if (count <= 0)
            return false;
        rest.erase(0, static_cast<std::size_t>(count));
    }
    return rest.empty();
}

testing::AssertionResult ChildProcess::printed(const std::string &text, std::string *line) {
    return printed([&](const std::string &one) { return one.find(text) != std::string::npos; },
                   line);
}

testing::AssertionResult
ChildProcess::printed(const std::function<bool(const std::string &)> &wanted, std::string *line) {
    return waitFor(m_output, wanted, line);
}

testing::AssertionResult ChildProcess::complained(const std::string &text, std::string *line) {
    return waitFor(
        m_errors, [&](const std::string &one) { return one.find(text) != std::string::npos; },
        line);
}

testing::AssertionResult
ChildProcess::waitFor(Collected &stream, const std::function<bool(const std::string &)> &wanted,
                      std::string *line) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(patienceMs);
    while (!takeLine(stream, wanted, line)) {
        if (stream.ended || !started() || Clock::now() >= deadline)
            return testing::AssertionFailure() << "in vain, " << story();
        collectOthers();
        collect(turnMs);
    }
    return testing::AssertionSuccess();
}

bool ChildProcess::takeLine(Collected &stream,
                            const std::function<bool(const std::string &)> &wanted,
                            std::string *line) {
    // Looks for the line first and takes only then: a wait in vain leaves everything as it was.
    std::size_t begin = stream.taken;
    for (std::size_t end = 0; (end = stream.text.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        std::string one = stream.text.substr(begin, end - begin);
        if (!one.empty() && one.back() == '\r')
            one.pop_back();
        if (wanted(one)) {
            stream.taken = end + 1;
            if (line)
                *line = one;
            return true;
        }
    }
    return false;
}

void ChildProcess::collect(unsigned int milliseconds) {
    if (m_process.error != -1 && !m_errors.ended) {
        m_errors.ended =
            !readAll(m_process.error, m_errors.text, m_output.ended ? milliseconds : 0);
    }
    if (m_process.output != -1 && !m_output.ended)
        m_output.ended = !readAll(m_process.output, m_output.text, milliseconds);
}

void ChildProcess::collectOthers() const {
    for (ChildProcess *child : children())
        if (child != this)
            child->collect(0);
}

testing::AssertionResult ChildProcess::ends(int code, const std::string &why) {
    return exitCode() == code && m_errors.text.find(why) != std::string::npos
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << "not " << code << " of " << why << '\n'
                                             << story();
}

int ChildProcess::exitCode(unsigned int milliseconds) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    // A child that prints more than a pipe holds ends only if somebody reads.
    while (started() && !platform::waitProcess(m_process, turnMs)) {
        collectOthers();
        collect(0);
        if (Clock::now() >= deadline)
            return -1;
    }
    collect(0);
    return m_process.ended ? m_process.exitCode : -1;
}

void ChildProcess::kill() {
    if (started() && !m_process.ended) {
        platform::terminateProcess(m_process);
        exitCode();
    }
}

std::string ChildProcess::story() const {
    platform::waitProcess(m_process, 0);
    std::string story = "command:";
    for (const std::string &argument : m_arguments)
        story += " " + argument;
    story += "\n--- standard output:\n" + m_output.text + "--- standard error:\n" + m_errors.text;
    if (!started())
        return story + "--- was not started: " + m_failure;
    return story + (m_process.ended ? "--- ended with " + std::to_string(m_process.exitCode)
                                    : "--- still runs");
}

} // namespace vintok::test
