// A program run as a child of a test: it is fed lines, what it prints is collected, and every wait
// has a bound. What still runs at the end of the object is ended by force.
//
//     ChildProcess host({VINTOK_PROGRAM, "host", "--local"});
//     ASSERT_TRUE(host.printed("PORT:"));
//     host.type("/leave");
//     EXPECT_TRUE(host.ends(0));
#ifndef VINTOK_TESTS_CHILDPROCESS_H
#define VINTOK_TESTS_CHILDPROCESS_H

#include "platform/Process.h"
#include "support/Matchers.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vintok::test {

using Arguments = std::vector<std::string>;

// These, and those behind them.
inline Arguments with(Arguments arguments, const Arguments &more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

class ChildProcess {
public:
    using Environment = std::vector<std::pair<std::string, std::optional<std::string>>>;
    // Long enough for a loaded machine; nothing waits longer than its condition needs.
    static constexpr unsigned int patienceMs = 20000;

    // The first argument is the program. All three standard streams are pipes to this object. What
    // the library's programs read of the environment is not passed on but set here.
    explicit ChildProcess(std::vector<std::string> arguments, const Environment &environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    bool started() const { return m_process.id != 0; }
    unsigned int id() const { return m_process.id; }

    // Writes the line and its end. False when the child no longer reads.
    bool type(const std::string &line);
    void endInput() { platform::closePipe(m_process.input); }

    // Waits until a line of the standard output contains `text`, or holds what `wanted` asks, and
    // takes all lines up to that one: the next wait begins behind it. `line` gets it.
    testing::AssertionResult printed(const std::string &text, std::string *line = nullptr);
    testing::AssertionResult printed(const std::function<bool(const std::string &)> &wanted,
                                     std::string *line = nullptr);
    // The same for standard error.
    testing::AssertionResult complained(const std::string &text, std::string *line = nullptr);

    // Waits for the end. -1 when it does not come within the bound or the child was never started;
    // 128 + n where a signal n ended it.
    int exitCode(unsigned int milliseconds = patienceMs);
    // The same: it ends with this code, having said why on standard error.
    testing::AssertionResult ends(int code, const std::string &why = "");
    bool interrupt() { return platform::interruptProcess(m_process); }
    // Ends it by force and waits for that end.
    void kill();

    // Everything printed so far, taken or not.
    const std::string &output() const { return m_output.text; }
    const std::string &errors() const { return m_errors.text; }
    // What a failed assertion wants to show: command line, both outputs, end.
    std::string story() const;

private:
    struct Collected {
        std::string text;
        std::size_t taken = 0;
        bool ended = false;
    };

    testing::AssertionResult waitFor(Collected &stream,
                                     const std::function<bool(const std::string &)> &wanted,
                                     std::string *line);
    bool takeLine(Collected &stream, const std::function<bool(const std::string &)> &wanted,
                  std::string *line);
    // Reads what there is; with `milliseconds` waits for it on the standard output first.
    void collect(unsigned int milliseconds);
    void collectOthers() const;

    std::vector<std::string> m_arguments;
    mutable platform::Process m_process; // its end is noticed where it is told of
    std::string m_failure;
    Collected m_output;
    Collected m_errors;
};

} // namespace vintok::test

#endif
