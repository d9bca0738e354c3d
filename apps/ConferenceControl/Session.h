// One run of the control process: an application's requests on one side, a party of a meeting on
// the other, and one loop that drives both. What each request does and which notifications tell of
// it is written down in docs/control.md.
#ifndef VINTOK_CONTROL_SESSION_H
#define VINTOK_CONTROL_SESSION_H

#include "ControlParser.h"
#include "Inbox.h"
#include "MessageSocket.h"
#include "Options.h"
#include "Player.h"
#include "RecordWriter.h"
#include "Seat.h"

#include <vintok/ConferenceParticipant.h>
#include <vintok/TCPSelect.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace control {

class Session {
public:
    // The options must outlive the session.
    explicit Session(const Options &options);
    ~Session();

    // Connects to the application, or without one hosts a meeting at once; then runs until either
    // side or a signal ends it. Returns the exit code of the program.
    int run();

private:
    // The library's callbacks get the participant: this one knows its session.
    struct Participant;

    // ---- Life, loop and the table of requests (Session.cpp) ----
    // An empty result is success; otherwise it says why not, for the log.
    using Handler = std::string (Session::*)(const Text &);
    enum class Needs : unsigned char { nothing, startup, meeting };
    struct Request;
    static const Request *findRequest(const std::string &word);
    void take(const vintok::TCPMessage &message);
    void refuse(const Request &request, const std::string &reason);
    void takeEvent(app::Inbox::Kind kind, const std::string &text);
    bool connect();
    bool hostAlone();
    void loop();
    void settle();
    int fd() const { return m_socket.descriptor(); }
    static void warn(const std::string &text);

    // ---- The process itself (Session.cpp) ----
    std::string startup(const Text &text);
    bool openParticipant(unsigned short port);
    void introduce(const Text &text);
    void secureCalls(bool demanded);
    std::string putenv(const Text &text);
    std::string time(const Text &text);
    std::string keepAlive(const Text &text);
    std::string shutdown(const Text &text);
    void tellTime() const;

    // ---- What the meeting tells (SessionEvents.cpp) ----
    static Session &of(vintok::ConferenceParticipant *participant);
    void setCallbacks();
    void setCallCallbacks();
    void observe();
    void callPending(const vintok::ConferenceRosterEntry &entry);
    void joined(const vintok::ConferenceRosterEntry &entry);
    void left(const vintok::ConferenceRosterEntry &entry);
    void changed(const vintok::RosterBase &entry);
    void leadAsked(const vintok::ConferenceRosterEntry &entry);
    void leadAnswered(bool granted);
    vintok::TCPAddress ownAddress() const;
    vintok::RosterBase self() const;

    // ---- Meeting, calls, parties, lead, files (SessionMeeting.cpp) ----
    std::string conveneMeeting(const Text &text);
    bool convene();
    std::string adjournMeeting(const Text &text);
    std::string hangup(const Text &text);
    void leave();
    std::string placeCall(const Text &text);
    std::string callFails(const std::string &name);
    void startCall(const std::string &lookedUp);
    static const std::string &connectsTo(const Text &call);
    std::string answerCall(const Text &text);
    std::string roster(const Text &text);
    std::string enableUser(const Text &text);
    vintok::RosterBase *findParty(const vintok::TCPAddress &address);
    std::string startLeading(const Text &text);
    std::string stopLeading(const Text &text);
    std::string answerLead(const Text &text);
    std::string transferFile(const Text &text);

    // ---- A meeting with several hosts (SessionCluster.cpp) ----
    bool isClustered() const { return !m_options.cluster.empty(); }
    unsigned int mostMembers() const;
    void link();
    void takeSeat();
    bool admits(const vintok::TCPAddress &caller);

    // ---- Recording and playback (SessionRecording.cpp) ----
    std::string startRecording(const Text &text);
    std::string stopRecording(const Text &text);
    void record(const unsigned char *data, std::size_t length);
    std::string startPlayback(const Text &text);
    std::string stopPlayback(const Text &text);
    std::string pausePlayback(const Text &text);
    std::string resumePlayback(const Text &text);
    void play();
    void endPlayback(bool whole);
    void endRecordings();

    const Options &m_options;
    vintok::TCPSelect m_loop; // the thread's; also the participant's
    app::MessageSocket m_socket;
    app::Inbox m_inbox;
    std::unique_ptr<Participant> m_participant; // null before "startup"
    bool m_done = false;
    unsigned int m_seconds = 0; // since the last test of the connections

    bool m_inMeeting = false; // as the application was told; the next two too
    bool m_hosting = false;
    bool m_leading = false;
    bool m_convened = false; // the meeting stands until the application ends it
    std::string m_meetingName;
    int m_host = -1;                           // the connection to the host, at a member
    std::vector<vintok::RosterBase> m_parties; // the others, as the application knows them
    vintok::RosterBase m_self;                 // likewise
    std::deque<Text> m_calls;                  // whose names are being looked up
    std::deque<vintok::RosterBase> m_callers;  // those who wait; the application knows of the first
    bool m_wantsLead = false;                  // has asked and has not been answered
    bool m_stopsLeading = false;               // has asked the host to take the lead

    std::unique_ptr<app::cluster::Seat> m_seat; // while this party is one of several hosts
    bool m_isLinked = false;                    // or it was tried, since this party hosts

    app::RecordWriter m_recording;
    std::string m_recordPath;
    app::File m_playFile;
    std::unique_ptr<app::Player> m_player;
    bool m_playsOn = false; // there is more to be sent at once
};

struct Session::Participant : vintok::ConferenceParticipant {
    Participant(const Options &options, unsigned short port, Session &its)
        : ConferenceParticipant(options.local, port, false), session(its) {}
    Session &session;
};

} // namespace control

#endif
