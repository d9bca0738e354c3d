// An application that does not run a ConferenceParticipant in its own loop lets a process of its
// own do it: the program `ConferenceControl`, which a ConferenceProcess starts and ends. The two
// talk over a local socket. The application writes requests (ControlRequest.h) to it and reads
// messages with the identifier TCP_conferenceControlReply from it (ControlNotify.h).
#ifndef VINTOK_CONFERENCECONTROL_H
#define VINTOK_CONFERENCECONTROL_H

#include "vintok/Export.h"

#include <atomic>
#include <memory>
#include <string>

namespace vintok {

struct SourcePlace;
namespace platform {
struct Process;
}

// What became of the control process.
enum ConferenceError {
    CONFERENCE_NO_ERROR = 0,
    CONFERENCE_ERROR = 1, // no callback, no memory, or a callback that threw
    CONFERENCE_ALREADY_RUNNING = 2,
    CONFERENCE_SOCKET_ERROR = 3,    // no socket at that path, or nobody connected to it
    CONFERENCE_EXEC_ERROR = 4,      // found, but the system would not start it
    CONFERENCE_NOT_INSTALLED = 5,   // QOR_INSTALL is not set, and PROOT leads nowhere
    CONFERENCE_NO_ACCESS = 6,       // QOR_INSTALL is set, and leads to no such program
    CONFERENCE_SHUTDOWN_ERROR = 7,  // the process could not be ended
    CONFERENCE_SINGLETON_ERROR = 8, // the lock failed
};

// What the control process is started with.
struct ConferenceProcessOptions {
    bool debug = false;     // it logs in detail
    bool verbose = false;   // it logs what happens
    bool roster = false;    // it logs every roster
    bool reserved4 = false; // no effect
    bool reserved5 = false; // no effect
    bool sslAuto = false;   // secure connections where possible
    bool sslFIPS = false;   // FIPS-grade security only
    bool hideIP = false;    // demand that addresses are hidden
};

// Implemented by the application. All of it is called on the thread that makes, or destroys, the
// ConferenceProcess, from within its constructor and destructor, with no lock held.
class VINTOK_API ConferenceProcessCallback {
public:
    virtual ~ConferenceProcessCallback() = default;
    // Once, when the process has connected. The descriptor is in blocking mode. It belongs to the
    // ConferenceProcess, which closes it at its end; what goes over it is the application's.
    virtual void processStarted(int descriptor) = 0;
    // The destructor has ended the process. Not called for one that had ended by itself.
    virtual void processEnded() = 0;
    // `text` lives for the length of the call.
    virtual void processError(ConferenceError code, const char *text) = 0;
};

// A control process, from the constructor to the destructor. One at a time in an application, made
// and destroyed on any thread.
//
// The program is the first that can be read of
//     QOR_INSTALL/Program/ConferenceControl, QOR_INSTALL/ConferenceControl,
//     PROOT/wntx64/lib/bin_x64/release/ConferenceControl
// with the names standing for environment variables that are set and not empty, and the separator
// and suffix for those of the system. CONFERENCE_CONTROL_DEBUG=True shows its console window, where
// there are such; elsewhere its output goes where ours goes.
class VINTOK_API ConferenceProcess {
public:
    // Starts the program and waits until it has connected, has ended, or the time of
    // `setConnectTimeout` has passed. A file must not exist at `socketPath`, which is shorter than
    // 108 bytes; none is left there. After a failure, which `getLastError` and `processError` tell,
    // the object stands without a process. The callback is not owned and must outlive the object;
    // null is a failure.
    ConferenceProcess(ConferenceProcessCallback *callback, const ConferenceProcessOptions &options,
                      const std::string &socketPath);
    // Ends the process, whatever it does, and closes the descriptor. The other parties see a
    // connection that was lost: for a farewell, `requestShutdown` and wait for the socket's end
    // before. A process that has closed its end gets up to 10 seconds for the rest.
    ~ConferenceProcess();
    ConferenceProcess(const ConferenceProcess &) = delete;
    ConferenceProcess &operator=(const ConferenceProcess &) = delete;

    // Of this object; CONFERENCE_NO_ERROR as long as nothing has failed.
    ConferenceError getLastError() const { return _lastError; }

    // For processes started from now on; 30,000 milliseconds at first.
    static void setConnectTimeout(unsigned int milliseconds);

    // The one object, null for none. `error`, unless null, becomes 0, or 8 when the lock failed.
    static ConferenceProcess *_getConferenceProcess(ConferenceError *error);
    // Returns 0, or 8 when the lock failed.
    static ConferenceError _setConferenceProcess(ConferenceProcess *process);

private:
    void _start(const ConferenceProcessOptions &options, const std::string &socketPath);
    bool _claimSingleton();
    void _execConfererencControl(const std::string &socketPath,
                                 const ConferenceProcessOptions &options);
    bool _launch(const std::string &program, const std::string &socketPath,
                 const ConferenceProcessOptions &options);
    bool _awaitConnection();
    void _fail(ConferenceError code, const SourcePlace &place);
    void _endProcess(bool tell);
    void _destroySocket();

    // The death of the process is not watched: the end of the socket tells it.
    static void _installSignalHandler() {}
    void _handleSignal(int) {}
    void _handleSIGCHLD() {}
    static void _signalHandler(int) {}

    static ConferenceProcess *_conferenceProcess; // lock id 10
    static std::atomic<unsigned int> _connectTimeout;

    ConferenceProcessCallback *_callback;
    int _socket = -1; // the listening one, and once the process has connected the connection
    bool _launched = false;
    std::unique_ptr<platform::Process> _processInfo;
    bool _debug = false;
    ConferenceError _lastError = CONFERENCE_NO_ERROR;
};

// The options of the program. Those with a value take it as the next argument.
extern VINTOK_API const char a_help[];
extern VINTOK_API const char a_verbose[];
extern VINTOK_API const char a_debug[];
extern VINTOK_API const char a_roster[];
extern VINTOK_API const char a_callBackPath[];
extern VINTOK_API const char a_clientPort[];
extern VINTOK_API const char a_serverMode[];
extern VINTOK_API const char a_background[];
extern VINTOK_API const char a_alarmDelta[];
extern VINTOK_API const char a_hideIP[];
extern VINTOK_API const char a_local[];
extern VINTOK_API const char a_sslAuto[];
extern VINTOK_API const char a_sslFIPS[];
extern VINTOK_API const char a_sslMUX[];
extern VINTOK_API const char a_userFirstName[];
extern VINTOK_API const char a_userLastName[];
extern VINTOK_API const char a_userTitle[];
extern VINTOK_API const char a_userEmail[];
extern VINTOK_API const char a_userPhone[];
extern VINTOK_API const char a_meetingID[];
extern VINTOK_API const char a_meetingName[];
// 156 characters without a meaning to the library.
extern VINTOK_API const char a_defaultFill[];

} // namespace vintok

#endif
