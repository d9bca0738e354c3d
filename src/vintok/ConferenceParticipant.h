// One party in a conference: who it is, whom it is connected to, and what it tells its application.
//
// A meeting is a star. The host is connected to every member; a member has one connection, to the
// host, and knows the other members from the roster only. A party in server mode relays as a host
// does and has no user of its own.
//
// Everything happens on the caller's thread: inside an operation, or inside the loop of a TCPSelect
// of the thread that made the participant. A participant belongs to one thread at a time and holds
// no lock. Callbacks run on that thread and may call any operation, `hangup` included; they must
// not destroy the participant. A reference that a callback receives is good until the callback
// returns.
//
// Operations that talk to the network block: they wait until a connection stands or is refused, and
// until the peer's side has taken what is written. A connect can be bounded (`setConnectTimeout`),
// and so can the silence of a peer (`setPeerTimeout`). Operations whose comment does not mention
// the network do not block. Nothing throws, but for the constructors and what takes a text or a
// callback that is kept, which throw std::bad_alloc and change nothing.
//
// Whatever returns false, or 0 for a number, leaves its reason as the thread's `lastError`, with a
// sentence in `lastErrorString`: TCP_ERROR_UNSPECIFIED_ERROR for what cannot be done now,
// TCP_ERROR_INVALID_ADDRESS where nobody has the address or waits, TCP_ERROR_INVALID_ARGUMENT for
// nothing to send. When the network or the system fails it is what the stream layer left. An
// operation that finds no memory in its course is refused too; what it has done so far stands.
//
// Callbacks are plain functions. An application that has state of its own derives from the class
// and casts the pointer that each callback gets:
//
//     struct Party : vintok::ConferenceParticipant {
//         static void joined(vintok::ConferenceParticipant *self,
//                            const vintok::ConferenceRosterEntry &entry) {
//             static_cast<Party *>(self)->names.insert(entry.firstName());
//         }
//         std::set<std::string> names;
//     };
//
// Ports are in host byte order, except inside a TCPAddress.
#ifndef VINTOK_CONFERENCEPARTICIPANT_H
#define VINTOK_CONFERENCEPARTICIPANT_H

#include "vintok/ConferenceRosterEntry.h"
#include "vintok/ConferenceTypes.h"
#include "vintok/Export.h"
#include "vintok/TempRosterEntry.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace vintok {

class TCPMessage;
class TCPSelect;
struct TCPGUID;

class VINTOK_API ConferenceParticipant : public ConferenceTypes {
public:
    // ---- The application's callbacks ----

    // A security option changed its value.
    void setSecurityCB(SecurityCallback callback) { _securityCB = callback; }
    // Somebody wants to join: answer with `acceptCall` or `rejectCall`, at once or later. Without
    // this callback every caller is accepted.
    void setCallPendingCB(EntryCallback callback) { _callPendingCB = callback; }
    // A party joined, here or elsewhere in the meeting. Parties that are servers are not reported,
    // by this and the next three callbacks. `descriptorState`, not `isSecure`, tells of security.
    void setJoinCB(EntryCallback callback) { _joinCB = callback; }
    // A party left. Set this callback even if it does nothing: without it a member may not notice
    // that its host has left, and a host tells its members that somebody left without saying who.
    void setLeaveCB(EntryCallback callback) { _leaveCB = callback; }
    // The data of a party changed, or those of the own entry.
    void setUserDataCB(EntryCallback callback) { _userDataCB = callback; }
    // A new leader is known.
    void setLeadChangeCB(EntryCallback callback) { _leadChangeCB = callback; }
    // A party asks for the lead that this party holds. Without this callback it gets it.
    void setLeadRequestCB(EntryCallback callback) { _leadRequestCB = callback; }
    // What another party sent with `sendBroadcastData`.
    void setBroadcastDataCB(DataCallback callback) { _broadcastDataCB = callback; }
    // A file has arrived, or has failed to.
    void setFileTransferCB(FileTransferCallback callback) { _fileTransferCB = callback; }
    // Progress of a file: called once at its beginning, with 0 bytes done, and then for every
    // message that carries a part of it. The origin is the party that sends it, this one for a file
    // of its own. A receiver learns the size with the end, so there the total is 0; the end
    // itself is told by the file-transfer callback alone. A begin that stores nothing, because
    // there is no folder for files or the file cannot be opened, is told with an empty path, and
    // nothing more of that file. The callback may call any operation, but `transferFile` is false
    // inside it at the sender; a hang-up in it ends the transfer.
    void setFileProgressCB(FileProgressCallback callback) { _fileProgressCB = callback; }
    // The answer to the own request for the lead: one byte, 1 granted, 0 refused.
    void setLeadReplyCB(DataCallback callback) { _leadReplyCB = callback; }
    // The clock was compared with another party's: 16 bytes, two 64-bit values in host byte order,
    // the seconds that are added to the clock and those that are subtracted from it.
    void setSynchTimeCB(DataCallback callback) { _synchTimeCB = callback; }
    // The own call was accepted.
    void setAcceptedCB(CallCallback callback) { _acceptedCB = callback; }
    // The called party is in a meeting that cannot be joined through it.
    void setBusyCB(CallCallback callback) { _busyCB = callback; }
    // The own call was refused.
    void setRejectedCB(CallCallback callback) { _rejectedCB = callback; }
    // The called party has answered the connection and is being asked.
    void setRingingCB(CallCallback callback) { _ringingCB = callback; }
    // Never called: `placeCall` reports a bad address by its result.
    void setBadAddressCB(CallCallback callback) { _badAddressCB = callback; }
    // The own call ended without an answer.
    void setNoAnswerCB(CallCallback callback) { _noAnswerCB = callback; }
    // A call was turned away because the caller's address, with its port, is another party's in the
    // meeting: as happens behind different routers. The caller hears of it if the called party's
    // application has set this callback too, and then that there was no answer.
    void setTurnedAwayCB(TurnedAwayCallback callback);
    // A party spoke a version below 4 and was hung up. The name is empty for one that called us.
    void setVersionCB(CallCallback callback) { _versionCB = callback; }
    // A proxy or server demands authentication, and retries remain: call again with credentials.
    void setProxyCB(ProxyCallback callback) { _proxyCB = callback; }
    // A reply on the way through a proxy or multiplexer. The status is HTTP's, 0 for none.
    void setServerResponseCB(ServerResponseCallback callback) { _serverResponseCB = callback; }
    // The multiplexer sends the call elsewhere: call that name and port. Without this callback the
    // library does.
    void setRedirectCB(ProxyCallback callback) { _redirectCB = callback; }

    // Process-wide. Kept for the application's own use: nothing in the library calls it.
    static AlarmCallback alarmCB() { return _alarmCB; }
    static void setAlarmCB(AlarmCallback callback) { _alarmCB = callback; }

    // For the application: kept, handed to the callbacks that take it, and never looked at.
    void setUserData(void *data) { _userData = data; }
    void *userData() const { return _userData; }

    // ---- Life and listening sockets ----

    // Starts the library, listens, and prints "\nPORT:<port>\n" on the standard output (0 if
    // nothing listens). Listens on `port`, or on the configured port for 0, or with `exactPort`
    // false on the first free one of 255 from there on; with `localOnly` on loopback only, and
    // otherwise where whoever reaches the machine can call, also who only means to join others.
    // IPv4 and IPv6 share the port. A participant that could not start stays usable: its calls
    // fail.
    explicit ConferenceParticipant(bool localOnly = false, unsigned short port = 0,
                                   bool exactPort = false);
    // The same as `listening` says. A party that listens nowhere cannot be called and prints 0. Its
    // address is made up: 100::/64, where nothing is reached, 64 bits by chance, and port 9.
    explicit ConferenceParticipant(const Listening &listening);
    // Closes every connection without a word to anybody and without a callback.
    ~ConferenceParticipant();
    // A copy shares the loop, the sockets and the roster with its source, and takes no part in
    // starting and stopping the library: only one of the two may be destroyed.
    ConferenceParticipant(const ConferenceParticipant &);
    ConferenceParticipant &operator=(const ConferenceParticipant &);

    // The own entry. The first is all of it, good as long as this object.
    const ConferenceRosterEntry &ownEntry() const { return _self; }
    const std::string &firstName() const { return _self.firstName(); }
    const std::string &lastName() const { return _self.lastName(); }
    const std::string &title() const { return _self.title(); }
    const std::string &email() const { return _self.email(); }
    const std::string &phone() const { return _self.phone(); }
    // The others hear of a change with the next `sendRoster`.
    void setFirstName(const std::string &text) { _self.setFirstName(text); }
    void setLastName(const std::string &text) { _self.setLastName(text); }
    void setTitle(const std::string &text) { _self.setTitle(text); }
    void setEmail(const std::string &text) { _self.setEmail(text); }
    void setPhone(const std::string &text) { _self.setPhone(text); }

    // Where this party listens.
    const TCPAddress &address() const { return _self; }
    // The colour that the meeting gave this party; 65535: none.
    unsigned short colorIndex() const { return _self.colorIndex(); }
    void setColorIndex(unsigned short index) { _self.setColorIndex(index); }

    // The identifier is the application's alone. The name is that of the meeting, empty outside
    // one.
    const std::string &meetingID() const { return _self.meetingID(); }
    void setMeetingID(const std::string &meetingID) { _self.setMeetingID(meetingID); }
    const std::string &meetingName() const { return _self.meetingName(); }
    // False, and nothing changes, unless this party is the host.
    bool setMeetingName(const std::string &meetingName);

    // The bits of the own entry (ConferenceRosterEntry.h), as the others get them with it.
    bool isHost() const { return _self.isHost(); }
    bool isLeader() const { return _self.isLeader(); }
    bool isMeeting() const { return _self.isMeeting(); }
    bool isServer() const { return _self.isServer(); }
    bool isSecureAble() const { return _self.isSecureAble(); }
    bool isSecurePreferred() const { return _self.isSecurePreferred(); }
    bool isSecureRequired() const { return _self.isSecureRequired(); }
    bool isSSLOnly() const { return _self.isSSLOnly(); }
    bool isFIPSSecureRequired() const { return _self.isFIPSSecureRequired(); }
    bool isHidingIPsRequired() const { return _self.isHidingIPsRequired(); }
    bool isMUXEncrypt() const { return _self.isMUXEncrypt(); }
    bool isMUXRedirected() const { return _self.isMUXRedirected(); }

    // Change the bit alone. `setSecurePreferred` needs a party that is secure-able.
    void setMUXEncrypt(bool on) { _self.setMUXEncrypt(on); }
    void setMUXRedirected(bool on) { _self.setMUXRedirected(on); }
    void setSecureAble(bool on) { _self.setSecureAble(on); }
    // A server relays and has no user. `hangup` leaves the mode and clears `isServer` until the
    // mode is set again.
    void setServerMode(bool on);
    bool serverMode() const { return _serverMode; }

    static unsigned short majorVersion() { return s_majorVersion; } // of the protocol
    static unsigned short minorVersion() { return s_minorVersion; } // likewise

    // Process-wide switches for a louder log.
    static bool printDebug() { return s_printDebug; }
    static bool printRosterDebug() { return s_printRosterDebug; }
    static bool printVerboseDebug() { return s_printVerboseDebug; }
    static void setPrintDebug(bool on) { s_printDebug = on; }
    static void setPrintRosterDebug(bool on) { s_printRosterDebug = on; }
    static void setPrintVerboseDebug(bool on) { s_printVerboseDebug = on; }

    // ---- Calls ----

    // Starts a meeting with this party as its host; a host that is alone renames its meeting. False
    // if somebody is listed, and this party is in a meeting already or another one hosts one. Calls
    // the user-data callback.
    bool hostMeeting(const std::string &meetingName);

    // Calls a party. If neither is in a meeting the caller becomes the host; if both call each
    // other at once, one of them does. Blocks while names are resolved and until the connection
    // stands; true means that the call is under way, and a callback tells how it ends, out of the
    // loop: no callback comes before the result. Port 0 is the configured port, proxy port 0 is 80.
    // With a `meetingID` the call goes through a multiplexing server, behind the proxy if one is
    // named; `authentication` goes to them as it stands, and `retries` bounds how often a redirect
    // or a demand for credentials is followed. False: in a meeting and not its host, bad address,
    // that of `address()` itself, a call to that address is already listed, or no connection. By
    // other addresses of this machine, as 127.0.0.1, a party reaches itself: then no answer comes.
    bool placeCall(const std::string &remoteName, unsigned short port, const std::string &proxyName,
                   unsigned short proxyPort, const std::string &meetingID,
                   const std::string &authentication, unsigned int retries);

    // The same without waiting for the connection: the loop goes on meanwhile, and takes the steps
    // of the call. True means that it is under way; one that fails after that, or takes longer than
    // `setConnectTimeout` allows, ends with the no-answer callback. A name that has addresses of
    // both families, or several, is tried under each in turn. A secure channel is asked for the
    // name that is called, and not at all to a proxy or a multiplexing server. Blocks only while
    // names are resolved: a literal needs none of that.
    bool startCall(const std::string &remoteName, unsigned short port, const std::string &proxyName,
                   unsigned short proxyPort, const std::string &meetingID,
                   const std::string &authentication, unsigned int retries);

    // The same where the addresses of whom the socket goes to, the proxy or else the party, have
    // been looked up already; their ports do not count. Does not block.
    bool startCall(const std::vector<TCPAddress> &addresses, const std::string &remoteName,
                   unsigned short port, const std::string &proxyName, unsigned short proxyPort,
                   const std::string &meetingID, const std::string &authentication,
                   unsigned int retries);

    // The answer to the call-pending callback. False if nobody of this address waits, or if the
    // answer could not be sent. May call the join, user-data and lead-change callbacks, and the
    // leave callback where a connection proves dead. Block until the answer is written.
    bool acceptCall(const TCPAddress &address);
    bool rejectCall(const TCPAddress &address);

    // Leaves the meeting and ends every connection and every pending call; pending calls get the
    // no-answer callback, or the one that tells how they ended. Calls that a callback places
    // meanwhile stay. Blocks until the goodbyes are written.
    void hangup();

    // ---- Roster ----

    // Publishes the own data: a host sends the whole roster to everybody, a member its entry to the
    // host. True if it reached everybody, and there was somebody. Blocks until it is written; who
    // is found dead meanwhile is told by the leave callback.
    bool sendRoster();
    // Asks for the roster, which then comes by callbacks; a host calls the user-data callback for
    // each party at once. False for a member without a host, or if the request could not be sent.
    // Blocks until the request is written.
    bool requestRoster();
    // Copies of the entries of the others in the meeting, servers too. May throw std::bad_alloc.
    std::vector<ConferenceRosterEntry> roster() const;
    // The entry of this address, the own one included, or of who calls or is called there. Null for
    // nobody. Good until the next operation, or pass of the loop.
    const ConferenceRosterEntry *party(const TCPAddress &address) const;

    // ---- Lead ----

    // Asks for the lead; the answer comes by the lead-reply callback. True when this party leads
    // already, has asked already, or the question is under way, and for a member that knows of no
    // host to ask. False outside a meeting or if the question could not be sent; a party alone in
    // its meeting is refused and hangs up. May call the lead-reply and lead-change callbacks at
    // once. Blocks until the question is written.
    bool requestStartLeading();
    // The answers to the lead-request callback, at once or later. False if nobody waits for one, or
    // if it could not be sent to everybody it concerns. May call the lead-change callback. Block
    // until the answer is written.
    bool acceptLeadChange();
    bool rejectLeadChange();

    // ---- Broadcast and liveness ----

    // Sends the bytes, which are copied, to all parties of the meeting. False if there is nothing
    // to send or it did not reach everybody; connections found dead have then been dropped, and the
    // leave callback has told of them. Blocks until everybody's side has taken it.
    bool sendBroadcastData(const unsigned char *data, std::uint64_t length);
    // What others broadcast, with its speaker; the told callback is called behind it. A participant
    // that sets this also marks what it broadcasts itself with its address. A host passes on only
    // true marks with `setMembersOnly`.
    void setSaidCB(SaidCallback callback);
    // Sends the bytes, which are copied, to one party of the meeting, through the host where there
    // is no connection. Returns a number that is not 0, under which the delivery callback tells
    // what became of it, out of the loop: not later than after 10 seconds, for the host or the
    // party may be of an older version and ignore it. 0 if there is nothing to send, nobody of this
    // address, or the connection has failed. Blocks until it is written.
    std::uint32_t sendPrivateData(const TCPAddress &party, const unsigned char *data,
                                  std::uint64_t length);
    // Without the first of these nothing is taken.
    void setPrivateDataCB(PrivateCallback callback);
    void setDeliveryCB(DeliveryCallback callback);
    // Messages of the application's own: from a member to its host, from a host or server to all
    // members. False for an identifier that the library uses, for nothing to send, and when it did
    // not reach everybody. Blocks until it is written. One that comes without a callback is logged.
    bool sendMessage(const TCPGUID &identifier, const unsigned char *data, std::uint64_t length);
    void setMessageCB(MessageCallback callback); // what others send so
    // Tests every connection of the meeting. True if all took the message or nobody is listed;
    // who is found dead is told by the leave callback. Blocks until the messages are written.
    bool sendAllKeepAlive();
    // A disabled party gets no broadcast and no relayed message. Unknown addresses are ignored.
    void disableUser(const TCPAddress &address);
    void enableUser(const TCPAddress &address);

    static constexpr unsigned int _badReadKeepAliveDelta = 8; // to space keep-alives

    // ---- Files ----

    // Sends a file, of 1 byte to 2 GiB - 1, to all parties of the meeting, and returns when the
    // last of it has been sent. The file is held in memory meanwhile. `relativePath` is where it
    // goes below each receiver's folder for files, and must be the end of `path` and occur nowhere
    // else in it. True if everybody was sent everything; whether they could store it is not
    // reported. Blocks for all of it: what arrives meanwhile is kept, but the loop does not run.
    // Calls the file-progress callback. False, sending nothing, from a callback that fires inside
    // it.
    bool transferFile(const std::string &path, const std::string &relativePath);

    // Sends a file under `name` while the loop goes on: one from anywhere, bytes, which are copied,
    // or what `read` gives. It is read as it goes, as the connections take it. Returns its number
    // at once; 0 if nobody is connected, or as `transferFile`. Files go one after the other, with
    // the file-progress callback (of bytes the path is the name) and in the end, once, the
    // file-sent callback, all out of the loop. Until the last has ended `transferFile` is false.
    std::uint32_t startFile(const std::string &path, const std::string &name);
    std::uint32_t startFile(const unsigned char *data, std::uint64_t length,
                            const std::string &name);
    std::uint32_t startFile(FileSource read, void *source, std::uint64_t length,
                            const std::string &name);
    // Ends a file of `startFile`, of which receivers keep nothing then. Calls the file-sent
    // callback. False for one that has ended, or that they have whole.
    bool cancelFile(std::uint32_t number);
    void setFileSentCB(FileSentCallback callback);
    // The rest of the file of this party that is arriving is not wanted: the part is removed, the
    // file-transfer callback called with false, and its sender, if it has used `startFile`, is told
    // by the file-refused callback. It decides; what everybody has refused ends. False if no file
    // of this party is arriving. Blocks until it is written.
    bool refuseFile(const TCPAddress &origin);
    void setFileRefusedCB(FileRefusedCallback callback);

    // Has progress told at most once in so many milliseconds for each file, but its begin and all
    // that has come of it in the end in any case. 0, as at first: for each message.
    void setFileProgressInterval(std::uint32_t milliseconds);

    // Where files that arrive here are stored from the next one on, in place of the folder of the
    // whole process. Empty, as at first: that one.
    void setFileFolder(const std::string &folder);
    // Where files that arrive are stored from now on, in the whole process: sets the environment
    // variable QOR_COLLAB_ROOT_LOCAL, which says so otherwise. Empty: nowhere, files are passed on
    // and not kept. The folder is made when a file needs it. False if the environment refuses. Not
    // to be called while another thread reads the environment.
    static bool setFileRoot(const std::string &folder);
    // Whether files may be stored in folders elsewhere to which links below the root lead, likewise
    // (QOR_COLLAB_ROOT_LINKS, "True"). Off at first. A file that is a link itself is never written.
    static bool setFileLinks(bool used);

    static constexpr std::uint64_t _fileTransferChunkSize = 1024; // bytes of a file in a message

    // ---- Versions and security ----

    // Whether a version offers the service. False, logged, for a value that is no service.
    static bool checkVersion(const ConferenceParticipant &party, ConfService service);
    static bool checkVersion(const ConferenceRosterEntry &party, ConfService service);
    static bool checkVersion(const TCPMessage &message, ConfService service);
    static bool checkVersion(unsigned short major, unsigned short minor, ConfService service);

    // What this party demands. The others see it with its entry; a change calls the security
    // callback.
    void setSSLOnly(bool on);
    void setFIPSSecureRequired(bool on);
    void setHidingIPsRequired(bool on);
    // True if it could be done: on needs a party that is secure-able, off one that nobody is
    // connected to.
    bool setSecurePreferred(bool on);

    // ---- Guards ----

    // Each is off until it is switched on; 0 switches it off. Limits on callers count for those who
    // connect from then on, others for connections that stand, too. See docs/guards.md.

    // How long an outgoing call waits, in milliseconds, for the hello of the other side and then
    // for its answer. A call that takes longer is hung up, with the no-answer callback. 0 waits for
    // ever.
    void setCallTimeouts(std::uint32_t hello, std::uint32_t answer);

    // What may wait to be sent to a member or a caller that takes it more slowly than it comes.
    // Whoever has more than `bytes` waiting for all of `milliseconds`, or would have more than
    // `mostBytes`, is hung up, as one that has died; a single message of any length is still given
    // to somebody who has no more than `bytes` waiting. With limits no operation waits for anybody,
    // `transferFile` excepted; a sender of files, and one that would fill up somebody who still
    // takes what he gets, is read more slowly meanwhile. They hold where this party is the host, or
    // a server; a member waits for its host as ever. `mostBytes` 0: no limits.
    void setSlowMemberLimits(const SlowMemberLimits &limits);
    void setSlowMemberCB(SlowMemberCallback callback); // before such a hang-up
    // With a drop callback only `mostBytes` leads to a hang-up.
    void setDropCB(DropCallback callback);
    // How many bytes wait for the member that most wait for: for an application that sends more
    // than its members may take.
    std::uint64_t waitingBytes() const;

    // What those who connect may cost before they have joined. When there are more connections than
    // `connections` the oldest that has not asked to join is closed, or else the new one; likewise
    // for those from one IPv4 address, or one IPv6 network of 64 bits. Whoever has not said hello,
    // or not asked to join, in its time is hung up, and so is who sends a longer frame. The
    // times are in milliseconds. Whoever asks to join when more than `joins` do in a second
    // waits for its turn; up to 32 (or `joins`, if less) come in at once. 0: any number, time or
    // length.
    void setCallerLimits(const CallerLimits &limits);

    // What a meeting may have: so many members besides the host, who refuses further ones as if
    // the application had; frames of at most so many bytes, longer ones are passed over and logged;
    // roster entries of at most so many bytes, whose senders are hung up. 0: any.
    void setMeetingLimits(const MeetingLimits &limits);

    // A host sends the whole roster to who is new, and to the others only the entries that have
    // changed since they were sent last, instead of the whole roster to everybody at each change.
    // What changes within 20 milliseconds, longer among thousands, is sent together.
    void setRosterByDifferences(bool on);

    // Takes messages only from those from whom they can come: hello, request to join, answer to a
    // call, goodbye and keep-alive from anybody, everything else from who is in the meeting. A
    // member speaks for itself, the host for everybody, and nobody moves the clock unasked. What an
    // entry says of this end's own knowledge, or of a role that its sender cannot have, is not
    // believed. An address is taken by who has joined with it. docs/protocol.md has the table.
    // The first message of a connection that is refused is logged. A reply to `sendEchoRequest`
    // counts as unasked when the application has called that itself.
    void setMembersOnly(bool on) { _membersOnly = on; }
    // How many messages that guard has refused so far.
    std::uint64_t refusedMessages() const { return _refusedMessages; }
    // By how many seconds at most another party's clock may move this one, 0 for any. A larger
    // correction is refused as a whole and logged, without the synch-time callback.
    void setLargestClockStep(std::int64_t seconds) { _largestClockStep = seconds; }
    // Writes a file that arrives under a name of its own, in the folder where it goes, and gives it
    // its name when it is whole. What had that name stays if the file breaks off. The callbacks
    // tell the final path all the time. A process that dies leaves a file ".vintok-<number>.part".
    void setTemporaryFiles(bool on) { _temporaryFiles = on; }

    // Has handshakes of the secure channel go on while the loop serves the others, where the
    // transport can do that (`setBackgroundTransport`): of those who connect, of calls, and in a
    // join. Then `placeCall` is true before its handshake is over, and one that fails ends the call
    // with the no-answer callback; likewise `acceptCall`, and the party stays pending meanwhile.
    void setBackgroundHandshakes(bool on);

private:
    friend class LinkedMeeting; // ConferenceLink.h
    // ---- What goes on inside (ConferenceParticipantWorkings.h) ----
    struct Workings;
    class Operation;
    struct Said;
    struct SecureStep;
    enum class Admission;
    enum class Shaken;
    struct Handshake;
    struct CallTarget;
    struct StartedCall;
    struct FilePace;
    struct GuardState;
    struct OutgoingFile;
    struct OutgoingState;
    struct RosterFrames;
    struct HTTPRequest;
    // Who does it, by subject.
    struct Calling;
    struct Clock;
    struct Crossing;
    struct Ending;
    struct Files;
    struct Guards;
    struct Handshakes;
    struct Joining;
    struct Lead;
    struct Life;
    struct Linking;
    struct LinkState;
    struct Lists;
    struct MembersOnly;
    struct Outgoing;
    struct Relaying;
    struct Roster;
    struct Security;
    struct Talk;
    struct TalkState;
    struct Tunnels;
    // A copy of a participant gets workings of its own: no operation is under way in it.
    class WorkingsPointer {
    public:
        WorkingsPointer();
        WorkingsPointer(const WorkingsPointer &) : WorkingsPointer() {}
        WorkingsPointer &operator=(const WorkingsPointer &) { return *this; }
        ~WorkingsPointer();
        Workings *operator->() const { return m_workings.get(); }
        Workings &operator*() const { return *m_workings; }
        void reset();

    private:
        std::unique_ptr<Workings> m_workings;
    };

    // ---- Life, listening sockets, dispatch (ConferenceParticipant.cpp) ----

    struct Route;
    static void sf_readDebugSwitches();
    static unsigned short sf_getDefaultPort();
    static bool sf_getBindAnonymous();
    static void sf_connectCB(int socket, void *data, bool closed);
    static void sf_dataCB(int descriptor, void *data, bool closed);
    static void sf_signalHandler(int signal);
    void mf_connectPending(int socket);
    void mf_dataPending(int descriptor, bool closed);
    void _handleMessage(ConferenceRosterEntry *peer, TCPMessage &message);
    bool _relays() const { return _self.isHost() || _self.isServer(); }
    // Servers have no user: nothing is told about them.
    void _tell(EntryCallback callback, const ConferenceRosterEntry &party);

    // ---- Lists (ConferenceParticipantLists.cpp) ----

    ConferenceRosterEntry *_addDescriptor(int descriptor);
    bool _addPending(TempRosterEntry *entry);
    bool _isListed(const ConferenceRosterEntry *entry) const;
    bool _isListed(const TempRosterEntry *entry) const;
    ConferenceRosterEntry *_getPeer(const TCPAddress &address) const;
    ConferenceRosterEntry *_getPeer(int descriptor) const;
    TempRosterEntry *_getPending(const TCPAddress &address) const;
    TempRosterEntry *_getPending(int descriptor) const;
    ConferenceRosterEntry *_getHost() const;
    ConferenceRosterEntry *_getLeader() const;
    ConferenceRosterEntry *_getPendingLeader() const;
    bool _removeDescriptor(const TCPAddress &address);
    bool _removePending(const TCPAddress &address);
    bool _removePending(int descriptor);
    bool _removePending(TempRosterEntry *entry);
    void _shutdown();
    // Calls `visit(entry)` for each entry listed now, in order, unless it has left meanwhile.
    template <class Visit>
    void _forEachAttendee(Visit visit);
    // Runs an operation, which is refused where there is no memory for it.
    template <class Does>
    bool _attempt(const char *operation, Does does);

    // ---- Ends (ConferenceParticipantEnd.cpp) ----

    bool mf_hangup(ConferenceRosterEntry *peer);
    void _handleHangup(ConferenceRosterEntry *peer);
    void _bringOutYerDead();
    bool _removeDescriptor(int descriptor);

    // ---- Joining (ConferenceParticipantJoin.cpp) ----

    bool mf_sendMe(int descriptor, bool proxyConnection, bool oldForm);
    bool _sendMe(ConferenceRosterEntry *peer);
    void _completeCall(ConferenceRosterEntry *peer, TempRosterEntry *pending);
    bool _ensureHost(ConferenceRosterEntry *peer);
    bool _preJoin(ConferenceRosterEntry *peer);
    bool _sendJoinRequest(ConferenceRosterEntry *peer);
    void _handleJoinRequest(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);
    bool mf_acceptCall(ConferenceRosterEntry *peer);
    bool mf_rejectCall(ConferenceRosterEntry *peer);
    void _handleJoinReply(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);

    // ---- Roster (ConferenceParticipantRoster.cpp) ----

    bool _requestRoster(ConferenceRosterEntry *peer);
    bool _sendRoster(ConferenceRosterEntry *peer);
    bool _isUnique(ConferenceRosterEntry *entry);
    void _handleRosterEntry(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);
    void _handleRosterReply(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);
    void _handleLeaveNotify(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);

    // ---- Lead (ConferenceParticipantLead.cpp) ----

    void _handleLeadRequest(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);
    void _handleLeadReply(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);
    void _handleLeadChangeNotify(ConferenceRosterEntry *peer, unsigned char *body,
                                 std::uint64_t length);
    void _handleStopLeadRequest(ConferenceRosterEntry *peer, unsigned char *body,
                                std::uint64_t length);
    void _assureLeader();
    bool _writeLeadReply(const ConferenceRosterEntry &party, int accepted);
    void _notifyLeadRequestAccepted();
    void _notifyLeadRequestDenied();

    // ---- Broadcast and liveness (ConferenceParticipantBroadcast.cpp) ----

    static bool _formatBroadcastMessage(TCPMessage &message, const unsigned char *data,
                                        std::uint64_t length);
    bool _broadcastData(ConferenceRosterEntry *source, TCPMessage &message);
    static bool sf_sendKeepAlive(int descriptor);
    void _setBlockingBroadcast();
    void _setNonBlockingBroadcast();

    // ---- Files (ConferenceParticipantFiles.cpp) ----

    void _handleFileTransferBegin(ConferenceRosterEntry *peer, unsigned char *body,
                                  std::uint64_t length);
    void _fixPath();
    void _handleFileTransferData(ConferenceRosterEntry *peer, unsigned char *body,
                                 std::uint64_t length);
    void _handleFileTransferEnd(ConferenceRosterEntry *peer, unsigned char *body,
                                std::uint64_t length);
    void _handleFileTransferAck(ConferenceRosterEntry *peer, unsigned char *body,
                                std::uint64_t length, bool hasAddress);

    // ---- Clock (ConferenceParticipantClock.cpp) ----

    void _handleEchoRequest(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);
    void _handleEchoReply(ConferenceRosterEntry *peer, unsigned char *body, std::uint64_t length);

    // ---- Versions and security (ConferenceParticipantSecurity.cpp) ----

    static bool sf_checkVersion(unsigned short major, unsigned short minor, ConfService service);
    void _handleVersion(ConferenceRosterEntry *peer, const TCPMessage &message,
                        ConfService service);
    void _printSSLInfo(ConferenceRosterEntry *peer, bool ssl, bool muxMode);

    // ---- Tunnels (ConferenceParticipantTunnel.cpp) ----

    // The formats of the requests, for `printf`.
    static const char _httpProxy[];
    static const char _httpProxyAuthorized[];
    static const char _http_pLorMUX[];
    static const char _pLorMUX_Encrypt[];
    static const char _pLorMUX_Reason[];
    static bool sf_sendHttpRequest(int descriptor, const std::string &authentication,
                                   const std::string &remoteName, unsigned short port,
                                   const std::string &proxyName, unsigned short proxyPort,
                                   const std::string &meetingID, bool mux);
    static int sf_readHttpResponse(int descriptor, std::string &response);
    static std::string _httpHeaderValue(const std::string &response, const char *name);
    void _handleRedirect(ConferenceRosterEntry *peer, const TCPAddress &address);

    // ---- State ----
    TCPSelect *_select = nullptr; // owned; null: the participant failed to start
    ConferenceRosterEntry _self;
    std::vector<ConferenceRosterEntry *> _attendees; // owned; every connection and every shadow
    std::vector<TempRosterEntry *> _pending;         // owned; outgoing calls that have not ended
    bool _serverMode = false;
    SecurityCallback _securityCB = nullptr;
    EntryCallback _callPendingCB = nullptr;
    EntryCallback _joinCB = nullptr;
    EntryCallback _leaveCB = nullptr;
    EntryCallback _userDataCB = nullptr;
    EntryCallback _leadChangeCB = nullptr;
    EntryCallback _leadRequestCB = nullptr;
    DataCallback _broadcastDataCB = nullptr;
    FileTransferCallback _fileTransferCB = nullptr;
    DataCallback _leadReplyCB = nullptr;
    DataCallback _synchTimeCB = nullptr;
    CallCallback _acceptedCB = nullptr;
    CallCallback _busyCB = nullptr;
    CallCallback _rejectedCB = nullptr;
    CallCallback _ringingCB = nullptr;
    CallCallback _badAddressCB = nullptr;
    CallCallback _noAnswerCB = nullptr;
    CallCallback _versionCB = nullptr;
    ProxyCallback _proxyCB = nullptr;
    ServerResponseCallback _serverResponseCB = nullptr;
    ProxyCallback _redirectCB = nullptr;
    char _fileTransferPath[1024] = {};
    char _fileTransferName[1024] = {};
    std::FILE *_fileTransferStream = nullptr;
    std::uint64_t _fileTransferReceived = 0;
    std::uint64_t _fileTransferWritten = 0;
    TCPAddress _fileTransferOrigin; // empty: no file is being received
    int _listenIPv4 = -1;
    int _listenIPv6 = -1;
    unsigned int _nextColorIndex = 0;
    WorkingsPointer _workings;
    FileProgressCallback _fileProgressCB = nullptr;
    void *_userData = nullptr;
    bool _membersOnly = false;
    bool _temporaryFiles = false;
    std::uint64_t _refusedMessages = 0;
    std::int64_t _largestClockStep = 0;

    static unsigned short s_defaultPort;
    static bool s_bindAnonymous;
    static bool s_printDebug;
    static bool s_printVerboseDebug;
    static bool s_printRosterDebug;
    static bool s_printSSLJoinData;
    static AlarmCallback _alarmCB;
};

} // namespace vintok

#endif
