// Internal. What goes on inside a participant: its state besides what it knows of the meeting, and
// what its sources ask of each other.
#ifndef VINTOK_CONFERENCEPARTICIPANTWORKINGS_H
#define VINTOK_CONFERENCEPARTICIPANTWORKINGS_H

#include "vintok/AcceptGuard.h"
#include "vintok/ConferenceLink.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/Deadlines.h"
#include "vintok/Delivery.h"
#include "vintok/RelayRun.h"
#include "vintok/StreamBuffer.h"
#include "vintok/TCPBackgroundTransport.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace vintok {

// When something was said to everybody, and whether its sender's address is nobody's business.
struct ConferenceParticipant::Said {
    std::int64_t time = 0;
    bool hidden = false;
};

// Whom `placeCall` and `startCall` are to call, as they were asked.
struct ConferenceParticipant::CallTarget {
    const std::string &remoteName;
    unsigned short port;
    const std::string &proxyName;
    unsigned short proxyPort;
    const std::string &meetingID;
    const std::string &authentication;
    unsigned int retries;
};

// A call whose connection does not stand yet.
struct ConferenceParticipant::StartedCall {
    TempRosterEntry *call; // in `_pending`
    bool direct;
    int descriptor;
    std::vector<TCPAddress> addresses;
    std::size_t next; // of them to be tried
};

// What becomes of a connection that is to be secure. A plain one can go on; one that has failed can
// not.
enum class ConferenceParticipant::Shaken { secure, plain, failed, underWay };

// A handshake in the background.
struct ConferenceParticipant::Handshake {
    int descriptor;
    const TempRosterEntry *call; // in `_pending`, that has no other connection; or null
    std::function<void(Shaken how)> next;
};

// What the guards are set to, and what they keep count of.
struct ConferenceParticipant::GuardState {
    struct Stranger {
        int descriptor;
        TCPAddress from;
        bool saidHello; // when it was last looked at
    };

    // What members know of an entry, and whether it is a member that knows the others.
    struct Told {
        std::string body;
        bool hasRoster = false;
    };

    std::uint32_t helloTimeout = 0; // of outgoing calls
    std::uint32_t answerTimeout = 0;
    OutputLimits output;
    SlowMemberCallback slowMemberCB = nullptr;
    DropCallback dropCB = nullptr;
    CallerLimits callers;
    MeetingLimits meeting;
    bool rosterByDifferences = false;
    Deadlines::Clock::time_point nextChanges; // not to be sent before
    bool changesWait = false;                 // for that time
    bool backgroundHandshakes = false;
    std::unordered_map<const ConferenceRosterEntry *, Told> told;
    bool relaysFile = false;                      // in the run that is open
    std::vector<Stranger> strangers;              // who has connected and not joined, oldest first
    std::vector<ConferenceRosterEntry *> waiting; // who has asked to join too soon, oldest first
    Deadlines::Clock::time_point turnsTaken;      // until then, when each took its part of a second
    Deadlines::Clock::time_point nextTurn;        // not to be had before
};

// What is said, beside the told broadcast.
struct ConferenceParticipant::TalkState {
    // A message to one party, of which nothing has been heard.
    struct Awaited {
        std::uint32_t number;
        TCPAddress party;
        Deadlines::Clock::time_point end;
    };

    SaidCallback saidCB = nullptr;
    PrivateCallback privateCB = nullptr;
    DeliveryCallback deliveryCB = nullptr;
    MessageCallback messageCB = nullptr;
    std::uint32_t lastNumber = 0;
    std::vector<Awaited> awaited; // the earliest end first
};

// How often the progress of a file is told: of the one that goes out, or the one that comes in.
struct ConferenceParticipant::FilePace {
    std::uint64_t told = 0;                     // bytes
    std::chrono::steady_clock::time_point next; // not to be told before, except the last
};

// A file that goes out in the loop, or waits for that.
struct ConferenceParticipant::OutgoingFile {
    // The bytes from `offset` on; fewer than asked for at the end of what can be had.
    using Read = std::function<std::uint64_t(std::uint64_t offset, unsigned char *buffer,
                                             std::uint64_t room)>;
    enum class Stage { waits, goes, ended };
    // What was queued for somebody when the file had ended.
    struct Rest {
        std::shared_ptr<StreamBuffer> buffer;
        std::uint64_t end;
    };

    std::uint32_t number = 0;
    std::string path; // as it is told here
    std::string name;
    std::uint64_t length = 0;
    Read read;
    Stage stage = Stage::waits;
    std::uint64_t sent = 0;
    bool failed = false; // something did not reach somebody
    bool atWork = false; // a callback may turn the loop meanwhile
    std::vector<Rest> rests;
    std::vector<TCPAddress> refusedBy;
};

struct ConferenceParticipant::OutgoingState {
    std::uint32_t lastNumber = 0;
    std::vector<std::shared_ptr<OutgoingFile>> files; // the first is the one that goes
    FileSentCallback sentCB = nullptr;
    FileRefusedCallback refusedCB = nullptr;
};

// What a link to other hosts has been told.
struct ConferenceParticipant::LinkState {
    ConferenceLink *link = nullptr;
    std::unordered_map<const ConferenceRosterEntry *, std::string> told; // what an entry says
    ConferenceRosterEntry *speaker = nullptr;                            // who spoke last elsewhere
    std::uint64_t speakerChanges = 0;                                    // `listChanges` then
    std::unordered_set<const ConferenceRosterEntry *> recolored; // as soon as there are colours
    // Who has left while what they said last was yet to come back.
    std::deque<ConferenceRosterEntry> departed;
};

// An entry that leaves its list is retired, and destroyed when the outermost operation ends.
// Until then a pointer or reference to it stays good, across callbacks too, and no new entry
// takes its place in memory: after a callback the one question is whether it is still listed.
struct ConferenceParticipant::Workings {
    std::vector<std::unique_ptr<ConferenceRosterEntry>> retiredEntries;
    std::vector<std::unique_ptr<TempRosterEntry>> retiredCalls;
    int operations = 0;       // how deep operations and dispatch are nested
    int hangups = 0;          // how deep `hangup` is nested
    int sweeps = 0;           // how deep `_bringOutYerDead` is nested
    bool hostsByCall = false; // the meeting was begun by a call, not by `hostMeeting`
    AcceptGuard acceptGuard;
    const ConferenceRosterEntry *fileNeighbour = nullptr; // whose connection brings the file
    std::chrono::steady_clock::time_point fileSign;       // when something of it came last
    std::string temporaryFile;                            // empty: written in its place
    std::string fileName;                                 // of what arrives, as its sender has it
    std::vector<TCPAddress> refusedFiles;                 // whose, until their ends come
    std::string fileFolder;                               // empty: the root of the process
    std::chrono::milliseconds fileInterval{0};            // of telling progress
    FilePace incomingPace;
    FilePace outgoingPace;
    bool sendsFile = false;             // inside `transferFile`
    std::unique_ptr<char[]> fileBuffer; // of `_fileTransferStream`
    std::uint64_t listChanges = 0;      // of `_attendees`
    std::unique_ptr<RelayRun> relay;    // see `Relaying::passOn`
    Said relayed;                       // the run's first
    std::vector<StartedCall> startedCalls;
    std::vector<Handshake> handshakes;
    GuardState guards;
    TalkState talk;
    OutgoingState outgoing;
    LinkState linking;
    TurnedAwayCallback turnedAwayCB = nullptr;
};

// Stands in every operation that can fire a callback or drop a party.
class ConferenceParticipant::Operation {
public:
    explicit Operation(ConferenceParticipant &participant);
    ~Operation();
    Operation(const Operation &) = delete;
    Operation &operator=(const Operation &) = delete;

private:
    Workings &m_workings;
};

// What became of the secure transport in a join.
struct ConferenceParticipant::SecureStep {
    bool wanted = false;      // by either side
    bool multiplexed = false; // the multiplexer encrypts: nothing to do
    bool failed = false;
    bool underWay = false; // in the background: the join goes on behind it
};

// What becomes of a party that asks to join.
enum class ConferenceParticipant::Admission { granted, decidesAnew, refused };

// A CONNECT to the multiplexing server, or with `mux` false to the proxy.
struct ConferenceParticipant::HTTPRequest {
    const std::string &authentication;
    const std::string &remoteName;
    unsigned short port;
    const std::string &proxyName;
    unsigned short proxyPort;
    const std::string &meetingID;
    bool mux;
};

// Counts how deep something is nested.
class Nested {
public:
    explicit Nested(int &depth) : m_depth(depth) { ++m_depth; }
    ~Nested() { --m_depth; }
    Nested(const Nested &) = delete;
    Nested &operator=(const Nested &) = delete;

private:
    int &m_depth;
};

// How a pending call is to end when it hangs up. 4 and 6 are not used; they end like noAnswer.
enum CallOutcome : int {
    OUTCOME_COMPLETING = 0, // the pre-join check refused, and the application is being told
    OUTCOME_NO_ANSWER = 1,
    OUTCOME_REFUSED = 2,
    OUTCOME_TOLD = 3, // the application knows: of an old version, or of the end that is under way
    OUTCOME_AUTHENTICATE = 5,
    OUTCOME_REDIRECTED = 7,
    OUTCOME_SERVER_ERROR = 8
};

// ---- What a participant does, by subject: a struct is defined in the source of its subject ----

struct ConferenceParticipant::Life {
    static bool listen(ConferenceParticipant &owner, const Listening &listening);
    static void watchListeners(ConferenceParticipant &owner);
    static void closeListeners(ConferenceParticipant &owner);
    static void start(ConferenceParticipant &owner, const Listening &listening);
    static bool letIn(ConferenceParticipant &owner, int descriptor, const TCPAddress &from);
    static bool greet(ConferenceParticipant &owner, int descriptor, Shaken how);
    static void turnAway(ConferenceParticipant &owner, int descriptor);
    static void readMessages(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                             bool closed);
};

// Files that this party sends.
struct ConferenceParticipant::Outgoing {
    static bool sendAtOnce(ConferenceParticipant &owner, const std::string &path,
                           const std::string &relativePath, const unsigned char *bytes,
                           std::size_t length);
    // By and by.
    static std::uint32_t start(ConferenceParticipant &owner,
                               const std::function<bool(OutgoingFile &file)> &open);
    static bool isFirst(const ConferenceParticipant &owner, const OutgoingFile &file);
    static bool mayGoOn(void *owner);
    static bool hasRoom(const ConferenceParticipant &owner);
    static bool membersHaveRoom(const ConferenceParticipant &owner);
    static bool hasLeft(const OutgoingFile &file);
    static void turnHasCome(int, void *owner);
    static void goOn(ConferenceParticipant &owner, OutgoingFile &file);
    static void begin(ConferenceParticipant &owner, OutgoingFile &file);
    static void sendRound(ConferenceParticipant &owner, OutgoingFile &file);
    static bool readRound(const ConferenceParticipant &owner, const OutgoingFile &file,
                          unsigned char *bytes, std::uint64_t length);
    static void finish(ConferenceParticipant &owner, OutgoingFile &file);
    static bool queue(ConferenceParticipant &owner, TCPMessage &frames);
    static void breakOff(ConferenceParticipant &owner, OutgoingFile &file, FileOutcome outcome);
    static void end(ConferenceParticipant &owner, OutgoingFile &file, FileOutcome outcome);
    static void endAll(ConferenceParticipant &owner);
    static void refused(ConferenceParticipant &owner, const ConferenceRosterEntry &party,
                        std::string_view name);
    static bool isUnwanted(const ConferenceParticipant &owner, const OutgoingFile &file);
};

struct ConferenceParticipant::Relaying {
    static bool isRelayed(const TCPGUID &identifier);
    static void dispatch(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                         TCPMessage &message);
    static void handle(ConferenceParticipant &owner, ConferenceRosterEntry *speaker,
                       const Span &frames, bool isRelayed);
    static bool broadcastFrames(ConferenceParticipant &owner, const ConferenceRosterEntry *source,
                                const Span &frames, const Said &said,
                                Delivery::When when = Delivery::When::now);
    static void passOn(ConferenceParticipant &owner, ConferenceRosterEntry *source,
                       TCPMessage &message);
    static void closeRelay(ConferenceParticipant &owner);
    static void spread(void *owner, StreamLoop &loop, int source, const Span &span);
    static void logUndelivered(const ConferenceParticipant &owner,
                               const ConferenceRosterEntry &peer, const Said &said);
};

struct ConferenceParticipant::Calling {
    static bool mayCall(const ConferenceParticipant &owner, const TempRosterEntry &call,
                        bool direct);
    static bool place(ConferenceParticipant &owner, const CallTarget &target,
                      const std::vector<TCPAddress> *addresses);
    static void prepare(TempRosterEntry &call, const CallTarget &target);
    static bool isDirect(const CallTarget &target, const TempRosterEntry &call);
    static bool connectCall(ConferenceParticipant &owner, std::unique_ptr<TempRosterEntry> call,
                            bool direct);
    static bool attend(ConferenceParticipant &owner, TempRosterEntry *call, int descriptor,
                       bool direct);
    static bool makeSecure(ConferenceParticipant &owner, TempRosterEntry *call, int descriptor,
                           bool direct);
    // Calls whose connections do not stand yet.
    static bool startConnect(ConferenceParticipant &owner, std::unique_ptr<TempRosterEntry> call,
                             const std::vector<TCPAddress> &addresses, bool direct);
    static bool connectNext(ConferenceParticipant &owner, StartedCall started);
    static void connectEnded(int descriptor, void *owner);
    static void connectIsLate(int descriptor, void *owner);
    static void abandon(ConferenceParticipant &owner, TempRosterEntry *call, int descriptor);
    static void endConnect(ConferenceParticipant &owner, int descriptor, bool inTime);
    static bool goesOn(ConferenceParticipant &owner, const StartedCall &started, bool inTime);
    static void forgetConnect(ConferenceParticipant &owner, int descriptor);
    // Of one call, or of all.
    static void forgetStarted(ConferenceParticipant &owner, const TempRosterEntry *call);
};

struct ConferenceParticipant::Clock {
    static void ask(ConferenceRosterEntry *peer);
    static void tellSynchTime(ConferenceParticipant &owner, std::int64_t added,
                              std::int64_t subtracted);
};

struct ConferenceParticipant::Crossing {
    static bool hostsNobody(const ConferenceParticipant &owner);
    static bool hasOthers(const ConferenceParticipant &owner, const ConferenceRosterEntry *peer);
    static bool joinsAnother(const ConferenceParticipant &owner, const ConferenceRosterEntry *peer);
    static void stepAside(ConferenceParticipant &owner, const ConferenceRosterEntry *peer);
    static Admission admission(const ConferenceParticipant &owner,
                               const ConferenceRosterEntry *peer);
    static bool isAdmitted(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static bool crosses(const ConferenceParticipant &owner, const ConferenceRosterEntry *peer);
    static void giveUpForTwin(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static void endCrossing(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static void answerCall(ConferenceParticipant &owner, TempRosterEntry *call,
                           const ConferenceRosterEntry &peer);
};

struct ConferenceParticipant::Ending {
    static bool dropAll(ConferenceParticipant &owner);
    static void dropAllWithoutMemory(ConferenceParticipant &owner);
    static void leaveMeeting(ConferenceParticipant &owner);
    static void dismiss(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static bool endCall(ConferenceParticipant &owner, TempRosterEntry *call);
    static void endLost(ConferenceParticipant &owner);
    static void tellNoAnswer(ConferenceParticipant &owner, const TempRosterEntry &call);
    static void readFailed(ConferenceParticipant &owner, ConferenceRosterEntry *peer, bool closed);
    static ConferenceRosterEntry *findDead(ConferenceParticipant &owner);
    static bool dropConnection(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static bool removeAttendee(ConferenceParticipant &owner, ConferenceRosterEntry *entry);
    static void loseCall(const ConferenceParticipant &owner, TempRosterEntry *call,
                         const ConferenceRosterEntry &party);
};

struct ConferenceParticipant::Files {
    static void tellFileProgress(ConferenceParticipant &owner, FilePace &pace,
                                 const TCPAddress &origin, std::uint64_t done, std::uint64_t total,
                                 const char *path);
    static void tellArrived(ConferenceParticipant &owner, bool isLast);
    static void openFile(ConferenceParticipant &owner, const std::string &relativePath);
    static std::FILE *openPlace(ConferenceParticipant &owner);
    static void bufferFile(ConferenceParticipant &owner);
    static void endFile(ConferenceParticipant &owner, const TCPAddress &neighbour, bool success);
    static void abandonFile(ConferenceParticipant &owner);
    static bool forgetRefused(ConferenceParticipant &owner, const TCPAddress &origin);
    static bool discardFile(ConferenceParticipant &owner);
    static bool keepFile(ConferenceParticipant &owner);
    static void removeFile(ConferenceParticipant &owner);
    static void sendFileTransferAck(ConferenceParticipant &owner, const TCPAddress &origin,
                                    bool success, const std::string &name);
};

struct ConferenceParticipant::Guards {
    static bool areOn(const ConferenceParticipant &owner);
    static bool areOn(const CallerLimits &callers);

    // For connections as they come, join and go.
    static bool letsIn(ConferenceParticipant &owner, int descriptor, const TCPAddress &from);
    static void connected(ConferenceParticipant &owner, int descriptor);
    static void joined(ConferenceParticipant &owner, const ConferenceRosterEntry &peer);
    static void left(ConferenceParticipant &owner, const ConferenceRosterEntry &peer);
    static void strangerIsLate(int descriptor, void *owner);
    static void forgetStranger(ConferenceParticipant &owner, int descriptor);
    static void limitOutput(ConferenceParticipant &owner, const ConferenceRosterEntry &peer);
    static bool isStranger(const ConferenceParticipant &owner, int descriptor);
    static void closeStranger(ConferenceParticipant &owner, int descriptor, const char *why);
    static bool waitsForItsTurn(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static bool takesTurn(GuardState &guards);
    static void awaitTurn(ConferenceParticipant &owner);
    static void turnsAreDue(int, void *owner);

    static bool sendChangesInTime(ConferenceParticipant &owner);
    static void tellChangesBefore(ConferenceParticipant &owner,
                                  const ConferenceRosterEntry *speaker);
    static void changesAreDue(int, void *owner);

    // For outgoing calls.
    static void callBegins(ConferenceParticipant &owner, int descriptor);
    static void callRings(ConferenceParticipant &owner, int descriptor);
    static void callIsLate(int descriptor, void *owner);

    static bool closesCorrupt(ConferenceParticipant &owner, int descriptor);
    static bool isFull(const ConferenceParticipant &owner);
    static bool takesEntry(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                           std::uint64_t length);
    static void tellSlow(ConferenceParticipant &owner, const ConferenceRosterEntry &peer);
    // Queues what is relayed, without the broadcasts that may be kept from a member.
    static void spread(ConferenceParticipant &owner, StreamLoop &loop, int source,
                       const Span &span);
    static void relayKept(ConferenceParticipant &owner, const ConferenceRosterEntry &peer,
                          StreamBuffer &buffer, Span run);
    static bool drops(ConferenceParticipant &owner, const ConferenceRosterEntry &peer,
                      const Span &frame);
    // Between the rounds of a file of one's own.
    static void awaitSlow(ConferenceParticipant &owner);
};

struct ConferenceParticipant::Handshakes {
    enum class Side { accepts, connects };
    using Next = std::function<void(Shaken how)>;
    // Makes a connection secure, as `secureAccept` and `secureConnect` do. `next` is called at the
    // end of one that is under way. Who drops the connection forgets the handshake; one of a call
    // goes with the call.
    static Shaken begin(ConferenceParticipant &owner, int descriptor, Side side, Next next,
                        const TempRosterEntry *call = nullptr);
    // Of a party that is listed: its connection is out of the loop meanwhile.
    static Shaken beginJoin(ConferenceParticipant &owner, const ConferenceRosterEntry &peer,
                            Side side, const Next &next);
    // How many of those that have been accepted are under way.
    static std::size_t joining(const ConferenceParticipant &owner);
    static bool isUnderWay(const ConferenceParticipant &owner, int descriptor);
    static bool forget(ConferenceParticipant &owner, int descriptor);
    static void forgetCall(ConferenceParticipant &owner, const TempRosterEntry *call);
    static void forgetAll(ConferenceParticipant &owner);
    static Shaken result(TCPBackgroundTransport::Progress progress);
    static void await(ConferenceParticipant &owner, int descriptor,
                      const TCPBackgroundTransport::Step &step);
    static void goOn(int descriptor, void *owner);
    static void stopWaiting(ConferenceParticipant &owner, int descriptor);
    static bool returnToLoop(ConferenceParticipant &owner, int descriptor);
};

struct ConferenceParticipant::Joining {
    static bool startJoin(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                          TempRosterEntry *pending);
    static void welcome(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static bool callAccepted(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                             const TempRosterEntry &call, const SecureStep &secure);
    static bool meetsAnotherHost(ConferenceParticipant &owner, const ConferenceRosterEntry *peer,
                                 const TempRosterEntry &call);
    static void endReply(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                         TempRosterEntry *pending, bool hangsUp);
    static void decide(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static bool completeAccept(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                               const SecureStep &secure);
    static SecureStep endStep(ConferenceRosterEntry *peer, SecureStep step, Shaken how,
                              const char *failure);
    static void admit(ConferenceParticipant &owner, ConferenceRosterEntry *peer, bool called);
    static bool wantsSecure(const ConferenceParticipant &owner, const ConferenceRosterEntry *peer);
    static SecureStep acceptSecurely(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static SecureStep connectSecurely(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
};

struct ConferenceParticipant::Lead {
    static bool memberAsksToLead(ConferenceParticipant &owner);
    static bool hostAsksToLead(ConferenceParticipant &owner);
    static bool openLeadRequest(ConferenceParticipant &owner, TCPMessage &message);
    static void hostIsAsked(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                            const unsigned char *body, std::uint64_t length);
    static bool passLeadRequestOn(ConferenceParticipant &owner, const ConferenceRosterEntry &leader,
                                  const unsigned char *body, std::uint64_t length);
    static ConferenceRosterEntry *whoDecides(ConferenceParticipant &owner);
    static void leaderIsAsked(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                              const unsigned char *body, std::uint64_t length);
    static void decideOnLead(ConferenceParticipant &owner, const ConferenceRosterEntry &asking);
    static bool giveLead(ConferenceParticipant &owner);
    static void announceLeader(ConferenceParticipant &owner, ConferenceRosterEntry *leader);
    static void leaveLeadTo(ConferenceParticipant &owner, const ConferenceRosterEntry *leader);
};

// One of several hosts: what goes to the link, and what comes from it. Without a link each of these
// changes nothing, and there is nobody but those who are connected.
struct ConferenceParticipant::Linking {
    static bool isLinked(const ConferenceParticipant &owner);
    static bool isOrdered(const ConferenceParticipant &owner);
    static bool hasRoom(const ConferenceParticipant &owner);
    static bool mayGoOn(void *owner);
    // Whether this party decides about the lead: the host, or of several the one with authority.
    static bool decides(const ConferenceParticipant &owner);

    // Who is here.
    static ConferenceRosterEntry publicEntry(const ConferenceRosterEntry &entry);
    static void publish(ConferenceParticipant &owner);
    static void publish(ConferenceParticipant &owner, const ConferenceRosterEntry &entry);
    static void joins(ConferenceParticipant &owner, const ConferenceRosterEntry &member);
    static void left(ConferenceParticipant &owner, const ConferenceRosterEntry &entry);
    static void began(ConferenceParticipant &owner);
    static void ended(ConferenceParticipant &owner);
    static void leadsNow(ConferenceParticipant &owner, const ConferenceRosterEntry &leader);

    // What is said here. `sayToAll` is for what this party itself says.
    static bool sayToAll(ConferenceParticipant &owner, const Span &frames, const Said &said,
                         Delivery::When when);
    static bool sayToAll(ConferenceParticipant &owner, const TCPMessage &message);
    static void pass(ConferenceParticipant &owner, const ConferenceRosterEntry &speaker,
                     const unsigned char *frames, std::size_t length);
    static bool keepsForOrder(ConferenceParticipant &owner, const ConferenceRosterEntry &speaker,
                              const TCPMessage &message);
    // To a party that is connected here, or at another host.
    static bool write(ConferenceParticipant &owner, const ConferenceRosterEntry &party,
                      TCPMessage &message);
    static bool writeTo(ConferenceParticipant &owner, const TCPAddress &party,
                        const TCPAddress &sender, const TCPMessage &message);
    static bool writeToAuthority(ConferenceParticipant &owner, const TCPAddress &sender,
                                 const TCPMessage &message);
    static bool ask(ConferenceParticipant &owner, const TCPGUID &identifier,
                    const TCPAddress &sender, const unsigned char *body, std::uint64_t length);

    // What comes from elsewhere.
    struct Frames;
    static ConferenceRosterEntry *elsewhere(const ConferenceParticipant &owner,
                                            const TCPAddress &party);
    static bool isElsewhere(const ConferenceParticipant &owner, const ConferenceRosterEntry &party);
    static ConferenceRosterEntry *inMeeting(const ConferenceParticipant &owner,
                                            const TCPAddress &party);
    static ConferenceRosterEntry *departed(const ConferenceParticipant &owner,
                                           const TCPAddress &party);
    static ConferenceRosterEntry *speakerOf(ConferenceParticipant &owner,
                                            const TCPAddress &address);
    static bool takeEntry(ConferenceParticipant &owner, const ConferenceRosterEntry &entry);
    static bool takeLeft(ConferenceParticipant &owner, const TCPAddress &party);
    static bool takeSaid(ConferenceParticipant &owner, const TCPAddress &speaker, Frames frames);
    static void deliver(ConferenceParticipant &owner, const ConferenceRosterEntry *speaker,
                        const Span &frames);
    static void answerClock(ConferenceParticipant &owner, const ConferenceRosterEntry &sender,
                            TCPMessage &message);
    static void askClock(ConferenceParticipant &owner);
    static bool takeLeader(ConferenceParticipant &owner, const TCPAddress &leader);
};

struct ConferenceParticipant::Lists {
    static bool findsNoMemory(const char *operation); // false, logged
    static ConferenceRosterEntry *getCaller(const ConferenceParticipant &owner,
                                            const TCPAddress &address);
    static bool retire(ConferenceParticipant &owner, ConferenceRosterEntry *entry);
};

// The guard that `setMembersOnly` switches on. Off, each of these changes nothing.
struct ConferenceParticipant::MembersOnly {
    struct Case;
    static bool takes(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                      const TCPMessage &message);
    // Whether the guard would take it, on or off.
    static bool mayCome(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                        const TCPMessage &message);
    static void logRefused(const ConferenceParticipant &owner, const ConferenceRosterEntry &peer,
                           const TCPMessage &message);
    static void believe(const ConferenceParticipant &owner, ConferenceRosterEntry &entry,
                        const ConferenceRosterEntry &known);
    static void settle(const ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                       bool called);
    static bool hasAddress(const ConferenceParticipant &owner, const ConferenceRosterEntry &entry);
    static bool isOwnAddress(const ConferenceParticipant &owner,
                             const ConferenceRosterEntry &entry);
    static void preferOwnCall(ConferenceParticipant &owner, const ConferenceRosterEntry *peer);
    static bool mayBeginFile(ConferenceParticipant &owner, const ConferenceRosterEntry *peer,
                             const TCPMessage &message);
    static bool mayEndFile(const ConferenceParticipant &owner, const ConferenceRosterEntry *peer,
                           const TCPMessage &message);
};

struct ConferenceParticipant::Talk {
    struct Letter;
    static bool isLibrarys(const TCPGUID &identifier);
    static void said(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                     TCPMessage &message);
    static void isOwn(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                      TCPMessage &message);
    static void privateCame(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                            TCPMessage &message);
    static void answerCame(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                           TCPMessage &message);
    static void refuseFile(ConferenceParticipant &owner, const ConferenceRosterEntry &neighbour,
                           const TCPAddress &origin, const std::string &name);
    static void fileRefused(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                            TCPMessage &message);
    static const ConferenceRosterEntry *speaker(const ConferenceParticipant &owner,
                                                const ConferenceRosterEntry *peer,
                                                const TCPMessage &message);
    static bool passOn(ConferenceParticipant &owner, const ConferenceRosterEntry *peer,
                       TCPMessage &message, const TCPAddress &party);
    static void answer(ConferenceParticipant &owner, const ConferenceRosterEntry *peer,
                       const Letter &letter, const TCPAddress &to, bool taken);
    static bool write(ConferenceParticipant &owner, const ConferenceRosterEntry &neighbour,
                      const TCPGUID &identifier, const Letter &letter);
    static void left(ConferenceParticipant &owner, const ConferenceRosterEntry &party);
    static void awaitAnswers(ConferenceParticipant &owner);
    static void answersAreDue(int, void *owner);
    static void tell(ConferenceParticipant &owner, const TalkState::Awaited &awaited, bool taken);
};

struct ConferenceParticipant::Roster {
    static std::vector<ConferenceRosterEntry *> allMembers(const ConferenceParticipant &owner);
    static bool writeRoster(ConferenceParticipant &owner, RosterFrames &roster);
    static bool sendRosterTo(ConferenceParticipant &owner,
                             const std::vector<ConferenceRosterEntry *> &receivers, bool waits);
    static bool sendChanges(ConferenceParticipant &owner);
    static ConferenceRosterEntry *getTwin(const ConferenceParticipant &owner,
                                          const ConferenceRosterEntry *entry);
    static void turnAway(ConferenceParticipant &owner, const ConferenceRosterEntry &peer);
    static void turnedAway(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static void tellTurnedAway(ConferenceParticipant &owner, const ConferenceRosterEntry &party,
                               const char *why);
    static void logDuplicate(const ConferenceParticipant &owner,
                             const ConferenceRosterEntry &listed,
                             const ConferenceRosterEntry &entry);
    static void takeOwnEntry(ConferenceParticipant &owner, const ConferenceRosterEntry &entry);
    static bool broadcastLeave(ConferenceParticipant &owner, const ConferenceRosterEntry &party);
    static void giveColor(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
};

struct ConferenceParticipant::Security {
    static void tellSecurity(ConferenceParticipant &owner, bool ConfSecurityOptions::*changed);
};

struct ConferenceParticipant::Tunnels {
    static std::string httpRequest(const HTTPRequest &request);
    static bool writeRequest(int descriptor, const HTTPRequest &request);
    static bool startTunnel(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                            TempRosterEntry *call, bool direct);
    static bool requestTunnel(const TempRosterEntry &call, bool mux);
    static void awaitMultiplexer(ConferenceRosterEntry *peer);
    static void readTunnel(ConferenceParticipant &owner, ConferenceRosterEntry *peer);
    static void passProxy(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                          const TempRosterEntry *call);
    static void openTunnel(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                           const std::string &response);
    static void dropToPlain(ConferenceRosterEntry *peer);
    static void sentElsewhere(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                              const TCPMessage &message);
    static void redirect(ConferenceParticipant &owner, ConferenceRosterEntry *peer,
                         const std::string &name, unsigned short port);
    static bool askForCredentials(ConferenceParticipant &owner, const TempRosterEntry &call);
};

// Runs an operation, which is refused where there is no memory for it.
template <class Does>
bool ConferenceParticipant::_attempt(const char *operation, Does does) {
    const Operation counted(*this);
    try {
        return does();
    } catch (const std::bad_alloc &) {
        return Lists::findsNoMemory(operation);
    }
}

template <class Visit>
void ConferenceParticipant::_forEachAttendee(Visit visit) {
    const std::vector<ConferenceRosterEntry *> listed = _attendees;
    const std::uint64_t changes = _workings->listChanges;
    for (ConferenceRosterEntry *entry : listed)
        if (entry != nullptr && (_workings->listChanges == changes || _isListed(entry)))
            visit(entry);
}

} // namespace vintok

#endif
