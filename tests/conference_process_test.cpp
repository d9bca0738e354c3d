#include "vintok/ConferenceControl.h"

#include "support/Children.h"
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/SocketPair.h"
#include "support/TemporaryFolder.h"

#include "platform/Process.h"

#include <fstream>
#include <stdexcept>
#include <vector>

using namespace vintok;
using namespace vintok::test;
namespace fs = std::filesystem;

namespace {

const ConferenceProcessOptions noOptions;

struct Recorder : ConferenceProcessCallback {
    void processStarted(int its) override {
        descriptor = its;
        if (throws)
            throw std::runtime_error("of the application");
    }
    void processEnded() override { ++ended; }
    void processError(ConferenceError code, const char *text) override {
        codes.push_back(code);
        texts.emplace_back(text);
        if (throws)
            throw std::runtime_error("of the application");
    }

    int descriptor = -1;
    int ended = 0;
    bool throws = false;
    std::vector<ConferenceError> codes;
    std::vector<std::string> texts;
};

// A folder that PROOT and QOR_INSTALL may lead to, and a socket's path.
class ConferenceProcessTest : public testing::Test {
protected:
    void SetUp() override {
        init();
        const int listener = createUnixSocket(m_folder.path("probe"), 1, true);
        if (listener == -1)
            GTEST_SKIP() << "this system has no local sockets";
        shutdownSocket(listener);
        m_descriptors = openDescriptors();
    }
    void TearDown() override {
        if (!IsSkipped()) {
            EXPECT_FALSE(fs::exists(m_socketPath)) << "the socket's file is still there";
            EXPECT_EQ(m_descriptors, openDescriptors());
            EXPECT_EQ(0U, childCount(0)) << "a child is left";
            EXPECT_EQ(nullptr, ConferenceProcess::_getConferenceProcess(nullptr));
        }
        fini();
    }

    static std::ptrdiff_t openDescriptors() {
        std::error_code none;
        const fs::directory_iterator open("/proc/self/fd", none);
        return none ? 0 : std::distance(begin(open), end(open));
    }

    // The stand-in under this name, or what `content` says.
    std::string install(const std::string &name, const char *content = nullptr) {
        const fs::path path = m_folder.path("app/" + name + platform::programSuffix());
        fs::create_directories(path.parent_path());
        if (content != nullptr)
            std::ofstream(path) << content;
        else
            fs::create_symlink(VINTOK_TEST_CONTROL_CHILD, path);
        return path.string();
    }

    // How it starts; it ends at once. One that fails leaves nothing.
    ConferenceError outcome() {
        const ConferenceProcess process(&m_callback, noOptions, m_socketPath);
        const ConferenceError error = process.getLastError();
        EXPECT_TRUE(error == CONFERENCE_NO_ERROR || childCount(0) == 0);
        return error;
    }

    // What the system runs: the arguments, each with its end.
    static std::string commandLine(unsigned int id) {
        return contentOf("/proc/" + std::to_string(id) + "/cmdline");
    }

    TemporaryFolder m_folder;
    const std::string m_socketPath = m_folder.path("socket");
    const ScopedEnvironment m_root{"PROOT"};
    const ScopedEnvironment m_install{"QOR_INSTALL", m_folder.path("app")};
    Recorder m_callback;
    std::ptrdiff_t m_descriptors = 0;
};

TEST_F(ConferenceProcessTest, StartsTheProgramAndEndsItWithTheObject) {
    install("ConferenceControl");
    const LogFile log(LOG_INFO);
    {
        const ConferenceProcess process(&m_callback, noOptions, m_socketPath);
        ASSERT_EQ(CONFERENCE_NO_ERROR, process.getLastError());
        EXPECT_GT(m_callback.descriptor, 0);
        EXPECT_EQ(&process, ConferenceProcess::_getConferenceProcess(nullptr));
        EXPECT_FALSE(fs::exists(m_socketPath));
        const auto running = children();
        if (running) {
            ASSERT_EQ(1U, running->size());
            EXPECT_TRUE(
                log.has("Conference Process started:\n\tPID = " + std::to_string(running->front()) +
                        "\n\tdescriptor = " + std::to_string(m_callback.descriptor) + "\n"))
                << log.text();
        }
        EXPECT_EQ(0, m_callback.ended);
    }
    EXPECT_EQ(1, m_callback.ended);
    EXPECT_TRUE(m_callback.codes.empty());
}

TEST_F(ConferenceProcessTest, TheCommandLineHoldsThePathAndTheOptionsInTheirOrder) {
    const std::string program = install("ConferenceControl");
    const ConferenceProcessOptions all{true, true, true, true, true, true, true, true};
    const std::pair<ConferenceProcessOptions, std::vector<std::string>> cases[] = {
        {noOptions, {}},
        {all, {"-debug", "-verbose", "-roster", "-sslAuto", "-sslFIPS", "-hideIP"}},
    };
    for (const auto &[options, words] : cases) {
        const ConferenceProcess process(&m_callback, options, m_socketPath);
        const auto running = children();
        if (!running)
            GTEST_SKIP() << "this system does not show its children";
        ASSERT_EQ(1U, running->size());
        std::string expected = program + '\0' + "-path" + '\0' + m_socketPath + '\0';
        for (const std::string &word : words)
            expected += word + '\0';
        EXPECT_EQ(expected, commandLine(running->front()));
    }
}

TEST_F(ConferenceProcessTest, FindsTheProgramInThreePlacesInTheirOrder) {
    const std::string places[] = {"Program/ConferenceControl", "ConferenceControl",
                                  "wntx64/lib/bin_x64/release/ConferenceControl"};
    const ScopedEnvironment root("PROOT", m_folder.path("app"));
    for (int last = 2; last >= 0; --last) {
        const std::string expected = install(places[last]);
        const ConferenceProcess process(&m_callback, noOptions, m_socketPath);
        ASSERT_EQ(CONFERENCE_NO_ERROR, process.getLastError()) << places[last];
        const auto running = children();
        if (running) {
            ASSERT_EQ(1U, running->size());
            EXPECT_EQ(expected, commandLine(running->front()).c_str());
        }
    }
    const ScopedEnvironment unset("QOR_INSTALL");
    EXPECT_EQ(CONFERENCE_NO_ERROR, outcome()) << "by PROOT alone";
}

TEST_F(ConferenceProcessTest, WithoutAProgramItSaysWhatIsMissing) {
    struct Case {
        std::optional<std::string> install, root;
        ConferenceError error;
        const char *text;
    };
    const Case cases[] = {
        {{}, {}, CONFERENCE_NOT_INSTALLED, "Environment variable QOR_INSTALL not set"},
        {"/nowhere", "/nowhere", CONFERENCE_NO_ACCESS, "Cannot access Conference Control Process"},
    };
    for (const Case &row : cases) {
        const ScopedEnvironment install("QOR_INSTALL", row.install), root("PROOT", row.root);
        m_callback = {};
        EXPECT_EQ(row.error, outcome());
        EXPECT_THAT(m_callback.codes, ElementsAre(row.error));
        EXPECT_THAT(m_callback.texts, ElementsAre(row.text));
        EXPECT_EQ(0, m_callback.ended);
    }
}

TEST_F(ConferenceProcessTest, AFileThatIsNoProgramIsAnExecError) {
    install("ConferenceControl", "no program at all");
    EXPECT_EQ(CONFERENCE_EXEC_ERROR, outcome());
    EXPECT_THAT(m_callback.texts, ElementsAre("Conference Exec Error"));
}

// Both would otherwise keep the application in the constructor for ever.
TEST_F(ConferenceProcessTest, AProgramThatDoesNotConnectIsASocketError) {
    install("ConferenceControl");
    const std::pair<const char *, unsigned int> cases[] = {{"die", 3'600'000}, {"sleep", 100}};
    for (const auto &[what, timeout] : cases) {
        ConferenceProcess::setConnectTimeout(timeout);
        const ScopedEnvironment control("VINTOK_TEST_CONTROL", what);
        m_callback = {};
        EXPECT_EQ(CONFERENCE_SOCKET_ERROR, outcome()) << what;
        EXPECT_THAT(m_callback.texts, ElementsAre(testing::MatchesRegex(
                                          "Conference Socket Error .*\\.cpp line [0-9]+")));
        EXPECT_EQ(-1, m_callback.descriptor);
        EXPECT_EQ(0, m_callback.ended);
    }
    ConferenceProcess::setConnectTimeout(30000);
}

TEST_F(ConferenceProcessTest, ASecondObjectIsRefusedAndDisturbsNothing) {
    install("ConferenceControl");
    const ConferenceProcess first(&m_callback, noOptions, m_socketPath);
    Recorder other;
    {
        const ConferenceProcess second(&other, noOptions, m_folder.path("other"));
        EXPECT_EQ(CONFERENCE_ALREADY_RUNNING, second.getLastError());
        EXPECT_FALSE(fs::exists(m_folder.path("other")));
    }
    EXPECT_THAT(other.texts, ElementsAre("Conference Process already Running"));
    EXPECT_EQ(&first, ConferenceProcess::_getConferenceProcess(nullptr));
    EXPECT_EQ(1U, childCount(1));
    EXPECT_EQ(0, m_callback.ended);
}

TEST_F(ConferenceProcessTest, ASocketPathThatIsTakenKeepsItsFile) {
    install("ConferenceControl");
    const std::string taken = m_folder.holding("taken", "mine");
    for (const std::string &path : {taken, m_folder.path("no/folder"), std::string(200, 'x')}) {
        Recorder callback;
        const ConferenceProcess process(&callback, noOptions, path);
        EXPECT_EQ(CONFERENCE_SOCKET_ERROR, process.getLastError()) << path;
        EXPECT_EQ(0U, childCount(0));
    }
    EXPECT_EQ("mine", m_folder.content("taken"));
}

TEST_F(ConferenceProcessTest, ACallbackThatIsMissingOrThrowsLeavesNoProcess) {
    install("ConferenceControl");
    m_callback.throws = true;
    for (Recorder *callback : {static_cast<Recorder *>(nullptr), &m_callback}) {
        const ConferenceProcess process(callback, noOptions, m_socketPath);
        EXPECT_EQ(CONFERENCE_ERROR, process.getLastError());
        EXPECT_EQ(0U, childCount(0));
    }
    ASSERT_EQ(1U, m_callback.texts.size());
    EXPECT_THAT(m_callback.texts[0], StartsWith("Conference Error "));
}

} // namespace
