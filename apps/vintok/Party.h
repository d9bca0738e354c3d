// One party of a meeting, from its start to its leaving: what `vintok host` and `vintok join` run.
#ifndef VINTOK_APP_PARTY_H
#define VINTOK_APP_PARTY_H

#include "ClusterCall.h"
#include "Command.h"
#include "Files.h"
#include "Inbox.h"
#include "Options.h"
#include "Person.h"
#include "Player.h"
#include "RecordWriter.h"
#include "Report.h"
#include "Seat.h"
#include "TunnelCall.h"
#include "TunnelOffer.h"
#include "Whereabouts.h"

#include <vintok/ConferenceParticipant.h>
#include <vintok/TCPSelect.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace app {

class Party {
public:
    // Both must outlive the party. Listens at once.
    Party(const Options &options, Report &report);

    // Hosts or calls, and stays in the meeting until it ends. Returns the exit code of the program.
    int run();

private:
    // The library's callbacks get the participant: this one knows its party.
    struct Participant : vintok::ConferenceParticipant {
        Participant(const Options &options, Party &its)
            : ConferenceParticipant(
                  Listening{options.port, options.exactPort, options.localOnly,
                            options.role == Role::join && options.port == 0 && !options.exactPort,
                            !options.listens}),
              party(its) {}
        Party &party;
    };

    // A party goes forward through these and may leave some out. What comes too late for a stage
    // does not bring it back.
    enum class Stage {
        starting,
        calling, // an own call has not been answered
        meeting, // from the answer on; a host from its start
        leaving, // the host has been told, and has not hung up yet
        done     // the loop ends after the pass that it is in
    };
    void enter(Stage stage);

    // ---- Start, loop and end (Party.cpp) ----
    void introduce();
    void setCallbacks();
    bool host();
    bool call();
    bool place(const CallPlan &plan);
    std::string callFailure(const Target &target);
    std::string whom() const;
    void loop();
    void afterPass();
    void awaitAnswer();
    void goOn();
    void finish(const std::string &reason);
    void fail(const std::string &reason);
    void meetingEnds(const std::string &reason);
    void leave();
    void part();

    // ---- What the meeting tells (PartyEvents.cpp) ----
    static Party &of(vintok::ConferenceParticipant *participant);
    void setTunnelCallbacks();
    void callPending(const vintok::ConferenceRosterEntry &entry);
    void joined(const vintok::ConferenceRosterEntry &entry);
    void left(const vintok::ConferenceRosterEntry &entry);
    void isSlow(const vintok::ConferenceRosterEntry &entry, std::uint64_t waiting);
    void changed(const vintok::ConferenceRosterEntry &entry);
    void heard(const unsigned char *data, std::size_t length);
    void leads(const vintok::ConferenceRosterEntry &entry);
    void leadAsked(const vintok::ConferenceRosterEntry &entry);
    void leadAnswered(bool granted);
    std::vector<Person> people() const;
    std::string secureServer() const;
    void tellSecurity(const Person &person);
    void callEnds(CallEvent event, const std::string &reason);
    void callFails(CallEvent event, const std::string &failure);
    void callBreaks();
    void turnedAway(const vintok::ConferenceRosterEntry &entry, const std::string &why);
    std::string tellBreak();
    void giveUp(const std::string &reason);
    Person self() const;

    // ---- A meeting with several hosts (PartyCluster.cpp) ----
    static constexpr unsigned int mostSentOn = 5; // times that a host sends a call elsewhere
    bool takeSeat();
    void tellCluster();
    void drain();
    bool told(const vintok::ConferenceRosterEntry &neighbour, const vintok::TCPMessage &message);
    std::string hostOf(const Person &person) const;
    bool comesBack() const { return m_hosts && !m_isOver; }
    void losesHost(const std::string &how);
    void move();
    void callHost();
    void sentOn(const std::string &name, unsigned short port, unsigned int retries);
    void accepted();
    bool wasThere(const Person &person);
    void tellMissing();

    // ---- Recording and playing (PartyRecording.cpp) ----
    bool openFiles();
    void record(const std::string &body);
    void play();
    void playMessage();

    // ---- What the person and the clock tell (PartyCommands.cpp) ----
    void take(Inbox::Kind kind, const std::string &text);
    void obey(const Command &command);
    bool mustWait(const Command &command);
    void say(const std::string &text);
    void tellTime();
    void answer(const Command &command);
    void askForLead();
    void answerForLead(bool give);
    void tick();

    const Options &m_options;
    Report &m_report;
    vintok::TCPSelect m_loop; // the thread's; also the participant's
    Participant m_participant;
    Inbox m_inbox;
    int m_listeners = 0;      // how many descriptors the loop had when nothing but listening was on
    int m_host = -1;          // the connection to the host, at a guest
    std::string m_hostBreak;  // why that was broken off, if it was
    std::string m_turnedAway; // why the own call was, if it was
    int m_exitCode = 0;
    unsigned int m_patience = 0; // ticks until it is left without the host's hanging up
    unsigned int m_seconds = 0;  // since the loop began
    unsigned int m_lastCall = 0;
    Stage m_stage = Stage::starting;
    bool m_inputEnded = false;
    bool m_saidMuch = false;  // at a host: perhaps more than the guests have taken
    bool m_wantsLead = false; // has asked for it and has not been answered
    bool m_leadAsked = false; // somebody waits for this party's answer
    bool m_playsNow = false;  // the next message of the recording may be due as well
    std::unique_ptr<TunnelCall> m_tunnelCall; // of a call by way of a multiplexer
    Target m_called;                          // of any other call: who is called now
    std::optional<CallPlan> m_sentOn;         // where the one who was called has sent the call
    bool m_isUnderWay = false;                // a call
    unsigned int m_callBegan = 0;             // in seconds since the loop began
    std::shared_ptr<TunnelOffer> m_offer;     // of a host at a multiplexer
    std::deque<Command> m_unsaid;             // typed before there was a meeting
    People m_people;
    Files m_files;
    std::map<unsigned int, vintok::TCPAddress> m_callers; // those who wait for an answer
    RecordWriter m_recorder;
    File m_playFile;
    std::uint64_t m_playSize = 0;     // in bytes, 0 when it is not known
    std::unique_ptr<Player> m_player; // until everything is played
    Pacing::TimePoint m_playsNext{};  // when the inbox wakes the loop for it
    std::string m_failure;            // told once the meeting is left

    std::unique_ptr<cluster::Seat> m_seat; // of a host that is one of several
    std::unique_ptr<ClusterCall> m_hosts;  // of a guest that looks for one of them
    cluster::Whereabouts m_whereabouts;    // as the host tells a guest
    bool m_isOver = false;                 // the host has said that it ends the meeting
    bool m_moves = false;                  // and that another host is to be called
    std::vector<Person> m_missing;         // were there when the host was lost
    unsigned int m_backSince = 0;          // in seconds since the loop began
};

} // namespace app

#endif
