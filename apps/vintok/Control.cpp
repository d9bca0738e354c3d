// The control process is a child that the library starts, or with --wait anybody's. It is the one
// that holds the meeting; here is only the socket to it. What is typed becomes a request, what
// arrives is told. At the end of the input the control process is asked to end, and given some
// seconds for it; its end of the socket is closed when it has.
#include "Control.h"

#include "ControlCommands.h"
#include "ControlHome.h"
#include "ControlNotices.h"
#include "Failure.h"
#include "Inbox.h"
#include "MessageSocket.h"

#include <vintok/ConferenceControl.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPSelect.h>
#include <vintok/TCPStream.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <random>

namespace app {

namespace {

namespace fs = std::filesystem;

constexpr unsigned int partingSeconds = 3;

// A folder for the socket that nobody else may look into. A local socket's path is short, and the
// control process believes whoever is at its other end.
class SocketFolder {
public:
    SocketFolder() {
        std::random_device random;
        std::error_code error;
        const fs::path folder = fs::temp_directory_path(error) /
                                ("vintok-" + std::to_string(random()) + std::to_string(random()));
        if (!error && fs::create_directory(folder, error)) {
            m_path = folder;
            fs::permissions(m_path, fs::perms::owner_all, error);
        }
    }
    ~SocketFolder() {
        std::error_code ignored;
        if (!m_path.empty())
            fs::remove_all(m_path, ignored);
    }
    SocketFolder(const SocketFolder &) = delete;
    SocketFolder &operator=(const SocketFolder &) = delete;

    std::string socket() const { return (m_path / "control").string(); }
    bool made() const { return !m_path.empty(); }

private:
    fs::path m_path;
};

class Control : private vintok::ConferenceProcessCallback {
public:
    Control(const Options &options, Report &report)
        : m_options(options),
          m_report(report),
          m_inbox(m_loop),
          m_client(options),
          m_socket(m_loop, "control socket", control::maxBody,
                   [this](const vintok::TCPMessage &message) { tell(message); }) {}
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    int run();

private:
    // ---- The process ----
    void processStarted(int descriptor) override { m_descriptor = descriptor; }
    void processEnded() override {}
    void processError(vintok::ConferenceError error, const char *text) override {
        const bool notFound =
            error == vintok::CONFERENCE_NOT_INSTALLED || error == vintok::CONFERENCE_NO_ACCESS;
        m_error = std::string(text) + (notFound ? " (--install says where it is)" : "");
        if (m_descriptor != -1) // too late to be a reason for anything else
            m_report.problem(m_error);
    }

    bool startProcess();
    bool awaitProcess();
    static void acceptCB(int, void *data, bool) { static_cast<Control *>(data)->accept(); }
    void accept();
    std::string socketPath() const;
    bool connect();

    // ---- The loop ----
    void tell(const vintok::TCPMessage &message);
    void take(Inbox::Kind kind, const std::string &text);
    void obey(const std::string &line);
    void part();
    void end(const std::string &failure);

    const Options &m_options;
    Report &m_report;
    vintok::TCPSelect m_loop;
    Inbox m_inbox;
    ControlClient m_client;
    int m_listening = -1; // while somebody is waited for
    int m_descriptor = -1;
    std::string m_error;                  // the last one of the process
    std::optional<SocketFolder> m_folder; // unless the path of the socket is given
    // Null for one that was started by hand. It closes the descriptor that the socket watches, and
    // so goes after it.
    std::unique_ptr<vintok::ConferenceProcess> m_process;
    MessageSocket m_socket;
    unsigned int m_parting = 0; // seconds left for the control process to end
    bool m_done = false;
    int m_exitCode = 0;
};

int Control::run() {
    if (!m_inbox.open([this](Inbox::Kind kind, const std::string &text) { take(kind, text); })) {
        end(withLastFailure("cannot make sockets on the loopback address"));
    } else if (connect()) {
        m_inbox.readStandardInput();
        m_report.notice(
            {"control", "The control process is there. /help tells what can be typed.", Fields()});
        if (m_options.control.startup) {
            const std::string complaint = m_client.startup();
            if (!complaint.empty())
                end(complaint);
        }
        while (!m_done) {
            m_inbox.pass();
            if (m_socket.ended() && !m_done)
                end(m_parting != 0 ? "" : "the control process has ended");
        }
    }
    return m_exitCode;
}

bool Control::connect() {
    if (m_options.control.socket.empty() && !m_folder.emplace().made()) {
        end("cannot make a folder for the control socket");
        return false;
    }
    if (!(m_options.control.waits ? awaitProcess() : startProcess()))
        return false;
    m_client.setDescriptor(m_descriptor);
    // The process keeps the descriptor of its own.
    if (!(m_process ? m_socket.watch(m_descriptor) : m_socket.adopt(m_descriptor))) {
        end(withLastFailure("cannot watch the control socket"));
        return false;
    }
    return true;
}

std::string Control::socketPath() const {
    return m_options.control.socket.empty() ? m_folder->socket() : m_options.control.socket;
}

// Until it is there, Ctrl-C ends the program in the usual way: the process ends by itself when it
// has nobody to connect to.
bool Control::startProcess() {
    setControlHome(m_options.control.install, m_options.control.program);
    vintok::ConferenceProcessOptions options;
    options.debug = m_options.control.debug;
    options.verbose = m_options.control.verbose;
    options.hideIP = m_options.control.hideIP;
    options.sslAuto = m_options.control.secure;
    vintok::ConferenceProcessCallback *const callback = this; // in private
    m_process = std::make_unique<vintok::ConferenceProcess>(callback, options, socketPath());
    if (m_process->getLastError() != 0 || m_descriptor == -1) {
        end("cannot start the control process: " + m_error);
        return false;
    }
    m_inbox.watch();
    return true;
}

bool Control::awaitProcess() {
    const std::string path = socketPath();
    m_listening = vintok::createUnixSocket(path, 1, true);
    if (m_listening == -1 || !m_loop.addSocketCallback(m_listening, acceptCB, this, false, false)) {
        end(withLastFailure("cannot listen on '" + path + "'"));
        return false;
    }
    m_inbox.watch();
    m_report.notice(
        {"waiting", "Waiting for: ConferenceControl -path " + path, Fields().text("path", path)});
    while (m_listening != -1 && !m_done)
        m_inbox.pass();
    std::error_code ignored;
    fs::remove(path, ignored); // nobody else is to come
    if (m_listening != -1) {
        m_loop.removeCallback(m_listening, acceptCB, this);
        vintok::shutdownSocket(m_listening);
    }
    return !m_done;
}

void Control::accept() {
    m_loop.removeCallback(m_listening, acceptCB, this);
    m_descriptor = vintok::acceptAndCloseBoundSocket(m_listening);
    if (m_descriptor == -1)
        end(withLastFailure("nobody comes to '" + socketPath() + "'"));
}

void Control::tell(const vintok::TCPMessage &message) {
    control::Text text;
    std::string complaint;
    if (control::parse(message, text, complaint) != control::ParseError::none)
        return m_report.problem("the control process says what nobody understands: " + complaint);
    if (text.direction() != control::Direction::notification)
        return m_report.problem("the control process requests '" + text.word() + "'");
    m_client.note(text);
    m_report.notice(noticeOf(text, m_client.hides()));
}

void Control::take(Inbox::Kind kind, const std::string &text) {
    switch (kind) {
    case Inbox::Kind::line:
        return obey(text);
    case Inbox::Kind::longLine:
        return m_report.problem("a line of more than " + std::to_string(maxLine) +
                                " bytes is no command");
    case Inbox::Kind::endOfInput:
        return m_options.stay ? void() : part();
    case Inbox::Kind::interrupt:
        return part();
    case Inbox::Kind::tick:
        if (m_parting != 0 && --m_parting == 0)
            end("the control process did not end when it was asked to");
        return;
    case Inbox::Kind::addresses:
    case Inbox::Kind::alarm:
        return;
    }
}

void Control::obey(const std::string &line) {
    const auto [word, argument] = splitCommand(line);
    if (word == "/help" && argument.empty())
        return m_report.help("A line that begins with a slash is a command:", controlHelp());
    if (word == "/shutdown" && argument.empty())
        return part();
    const std::string complaint = m_client.obey(line);
    if (!complaint.empty())
        m_report.problem(complaint);
}

void Control::part() {
    if (m_listening != -1)
        return end("nobody came to '" + socketPath() + "'");
    if (m_parting == 0 && !m_done) {
        m_parting = partingSeconds;
        m_client.shutdown(); // if it is gone already, its end of the socket tells
    }
}

void Control::end(const std::string &failure) {
    m_done = true;
    if (failure.empty()) {
        m_report.ended("The control process has ended.");
    } else {
        m_exitCode = 1;
        m_report.failed(failure);
    }
}

} // namespace

int runControl(const Options &options, Report &report) {
    return Control(options, report).run();
}

} // namespace app
