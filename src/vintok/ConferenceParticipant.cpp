// The life of a participant, its listening sockets, and the road of a message from the dispatch
// loop to its handler.
//
// `sf_connectCB` and `sf_dataCB` are what the loop calls. One call of the second reads one whole
// message, and `Route::table` says who handles it and whether it is also passed on to the others.
// The handlers stand in the sources of their subjects: Join, Calls, Roster, Lead, Broadcast, Files,
// Clock.
//
// Several participants may live on one thread. They share the loop's table of registrations, so one
// that goes away leaves nothing of itself in it.
#include "vintok/ConferenceParticipant.h"

#include "platform/File.h"
#include "platform/Wait.h"
#include "vintok/ConferenceParticipantWorkings.h"
#include "vintok/Listeners.h"
#include "vintok/Log.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <stdexcept>

namespace vintok {

unsigned short ConferenceParticipant::s_defaultPort = 7777;
bool ConferenceParticipant::s_bindAnonymous = true;
bool ConferenceParticipant::s_printDebug = false;
bool ConferenceParticipant::s_printVerboseDebug = false;
bool ConferenceParticipant::s_printRosterDebug = false;
bool ConferenceParticipant::s_printSSLJoinData = false;
ConferenceParticipant::AlarmCallback ConferenceParticipant::_alarmCB = nullptr;

namespace {

constexpr std::size_t portSearch = 255;

// Turns a debug switch on when the environment says exactly "True", and the log up to `level`
// unless it lets `severity` through already.
void readDebugSwitch(const char *variable, ErrSeverity severity, LogLevel level, bool &flag) {
    const char *value = std::getenv(variable);
    if (value == nullptr || std::strcmp(value, "True") != 0)
        return;
    if ((static_cast<unsigned>(logLevel()) & static_cast<unsigned>(severity)) == 0)
        setLogLevel(level);
    flag = true;
}

// The value of the first line with this key in the configuration file; empty when there is none.
std::string configuredValue(const char *wanted) {
    std::string result;
    const char *root = std::getenv("QOR_INSTALL");
    if (root == nullptr)
        return result;
    const char separator = platform::pathSeparator();
    const std::string path = std::string(root) + separator + "etc" + separator + "conferencing.cfg";
    std::FILE *file = platform::openFile(path, "r");
    if (file == nullptr)
        return result;
    char line[512];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        char key[sizeof line] = {};
        char value[sizeof line] = {};
        if (std::sscanf(line, "%511s%511s", key, value) >= 1 && std::strcmp(key, wanted) == 0) {
            result = value;
            break;
        }
    }
    std::fclose(file);
    return result;
}

// Of those that are for everybody's own use, with all that are searched from there on.
unsigned short portByChance() {
    std::random_device random;
    return static_cast<unsigned short>(49152 + random() % (65536 - 49152 - portSearch));
}

// One that nobody else has, and nothing is reached at.
TCPAddress addressOfNobody() {
    constexpr unsigned short discard = 9;
    std::random_device random;
    std::array<unsigned char, 16> bytes = {0x01, 0x00};
    for (std::size_t i = 8; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(random());
    std::array<std::uint16_t, 8> words{};
    std::memcpy(words.data(), bytes.data(), bytes.size());
    TCPAddress address;
    address.setIPv6(words.data());
    address.setHostByteOrderPort(discard);
    return address;
}

} // namespace

// ---- Life ----

ConferenceParticipant::ConferenceParticipant(bool localOnly, unsigned short port, bool exactPort)
    : ConferenceParticipant(Listening{port, exactPort, localOnly}) {}

ConferenceParticipant::ConferenceParticipant(const Listening &listening) {
    init();
    try {
        sf_readDebugSwitches();
        sf_getDefaultPort();
        sf_getBindAnonymous();
        Life::start(*this, listening);
    } catch (const std::bad_alloc &) {
        Life::closeListeners(*this);
        VINTOK_LOG(SEVERITY_ERROR, "ConferenceParticipant could not allocate select object");
    } catch (const std::runtime_error &) {
        VINTOK_LOG(SEVERITY_ERROR, "ConferenceParticipant the system has no random numbers");
    }
}

void ConferenceParticipant::Life::start(ConferenceParticipant &owner, const Listening &listening) {
    if (!listen(owner, listening)) {
        VINTOK_LOG(SEVERITY_ERROR, "ConferenceParticipant could not create socket");
        return;
    }
    owner._self.setMajorVersion(s_majorVersion);
    owner._self.setMinorVersion(s_minorVersion);
    owner._self.setServer(owner._serverMode);
    owner._select = new TCPSelect;
    if (!listening.none)
        watchListeners(owner);
}

ConferenceParticipant::ConferenceParticipant(const ConferenceParticipant &) = default;
ConferenceParticipant &ConferenceParticipant::operator=(const ConferenceParticipant &) = default;

ConferenceParticipant::~ConferenceParticipant() {
    // Another participant may keep the thread's loop alive, and would meet what is left in it.
    for (const ConferenceRosterEntry *entry : _attendees)
        if (_select != nullptr && entry != nullptr && entry->descriptor() >= 0)
            _select->removeCallback(entry->descriptor(), sf_dataCB, this);
    if (_select != nullptr) { // who has none has begun nothing
        Calling::forgetStarted(*this, nullptr);
        Handshakes::forgetAll(*this);
        StreamLoop::ofThisThread()->removeSender(this);
        StreamLoop::ofThisThread()->letGoOn(this);
        StreamLoop::ofThisThread()->deadlines().clearAll(this);
    }
    _shutdown();
    Files::discardFile(*this);
    Life::closeListeners(*this);
    delete _select;
    for (TempRosterEntry *call : _pending)
        delete call;
    _workings.reset(); // it has a socket
    fini();
}

void ConferenceParticipant::sf_readDebugSwitches() {
    readDebugSwitch("CONFERENCE_PARTICIPANT_DEBUG", SEVERITY_DEBUG, LOG_DEBUG, s_printDebug);
    readDebugSwitch("CONFERENCE_ROSTER_DEBUG", SEVERITY_DEBUG, LOG_DEBUG, s_printRosterDebug);
    readDebugSwitch("CONFERENCE_PRINT_SSL_JOIN_DATA", SEVERITY_INFO, LOG_INFO, s_printSSLJoinData);
}

// Both read the configuration once in a process.
unsigned short ConferenceParticipant::sf_getDefaultPort() {
    static const bool read = [] {
        std::sscanf(configuredValue("CLIENT_PORT").c_str(), "%hu", &s_defaultPort);
        return true;
    }();
    static_cast<void>(read);
    return s_defaultPort;
}

bool ConferenceParticipant::sf_getBindAnonymous() {
    static const bool read = [] {
        const std::string value = configuredValue("BIND_ANONYMOUS");
        if (value == "True" || value == "False")
            s_bindAnonymous = value == "True";
        return true;
    }();
    static_cast<void>(read);
    return s_bindAnonymous;
}

// False when neither family could be listened on.
bool ConferenceParticipant::Life::listen(ConferenceParticipant &owner, const Listening &listening) {
    const std::size_t tries = listening.exactPort && !listening.anyPort ? 1 : portSearch;
    const unsigned short port = listening.anyPort     ? portByChance()
                                : listening.port != 0 ? listening.port
                                                      : s_defaultPort;
    Listeners listeners;
    if (listening.none)
        listeners.addressIPv6 = addressOfNobody();
    else if (listening.localOnly)
        listeners = Listeners::onLoopback(port, tries);
    else
        listeners = s_bindAnonymous ? Listeners::anywhere(port, tries)
                                    : Listeners::onOwnAddress(port, tries);
    owner._listenIPv4 = listeners.ipv4;
    owner._listenIPv6 = listeners.ipv6;
    if ((owner._listenIPv6 != -1 || listening.none) && listeners.addressIPv6.isIPv6())
        owner._self = listeners.addressIPv6;
    if (owner._listenIPv4 != -1 && listeners.addressIPv4.isIPv4())
        owner._self = listeners.addressIPv4;
    std::printf("\nPORT:%hu\n", listeners.port());
    std::fflush(stdout);
    return listening.none || listeners.exist();
}

void ConferenceParticipant::Life::watchListeners(ConferenceParticipant &owner) {
    watchListener(*owner._select, owner._listenIPv4, sf_connectCB, &owner);
    watchListener(*owner._select, owner._listenIPv6, sf_connectCB, &owner);
    if (owner._listenIPv4 != -1 || owner._listenIPv6 != -1)
        return;
    delete owner._select;
    owner._select = nullptr;
    VINTOK_LOG(SEVERITY_ERROR, "ConferenceParticipant could not add connect callback");
}

void ConferenceParticipant::Life::closeListeners(ConferenceParticipant &owner) {
    closeListener(owner._select, owner._listenIPv4, sf_connectCB, &owner);
    closeListener(owner._select, owner._listenIPv6, sf_connectCB, &owner);
}

bool ConferenceParticipant::setMeetingName(const std::string &meetingName) {
    return (_self.isHost() ||
            refuse(TCP_ERROR_UNSPECIFIED_ERROR, "setMeetingName: not the host")) &&
           _self.setMeetingName(meetingName);
}

void ConferenceParticipant::setServerMode(bool on) {
    _serverMode = on;
    _self.setServer(on);
}

void ConferenceParticipant::disableUser(const TCPAddress &address) {
    Relaying::closeRelay(*this); // what was said before still reaches the party
    if (ConferenceRosterEntry *peer = _getPeer(address))
        peer->setEnabled(false);
}

void ConferenceParticipant::enableUser(const TCPAddress &address) {
    Relaying::closeRelay(*this);
    if (ConferenceRosterEntry *peer = _getPeer(address))
        peer->setEnabled(true);
}

void ConferenceParticipant::_tell(EntryCallback callback, const ConferenceRosterEntry &party) {
    if (callback != nullptr && !party.isServer())
        callback(this, party);
}

void ConferenceParticipant::sf_signalHandler(int signal) {
    std::signal(signal, sf_signalHandler);
}

// ---- From the loop ----

void ConferenceParticipant::sf_connectCB(int socket, void *data, bool) {
    auto *participant = static_cast<ConferenceParticipant *>(data);
    if (participant != nullptr &&
        (socket == participant->_listenIPv4 || socket == participant->_listenIPv6))
        participant->mf_connectPending(socket);
}

void ConferenceParticipant::sf_dataCB(int descriptor, void *data, bool closed) {
    auto *participant = static_cast<ConferenceParticipant *>(data);
    if (participant == nullptr)
        VINTOK_LOG(SEVERITY_ERROR, "sf_dataCB no conference instance data");
    else if (participant->_attendees.empty())
        VINTOK_LOG(SEVERITY_ERROR, "sf_dataCB no attendees");
    else if (participant->_getPeer(descriptor) == nullptr)
        VINTOK_LOG(SEVERITY_ERROR, "Data Pending on non peer descriptor");
    else
        participant->mf_dataPending(descriptor, closed);
}

void ConferenceParticipant::mf_connectPending(int socket) {
    const Operation operation(*this);
    TCPAddress from;
    const int descriptor = _workings->acceptGuard.accept(socket, from);
    if (descriptor != -1 &&
        !_attempt("mf_connectPending", [&] { return Life::letIn(*this, descriptor, from); }))
        Life::turnAway(*this, descriptor);
}

// False when the connection is to be closed again.
bool ConferenceParticipant::Life::letIn(ConferenceParticipant &owner, int descriptor,
                                        const TCPAddress &from) {
    if (!Guards::letsIn(owner, descriptor, from))
        return false;
    if (platform::endArrived(descriptor)) {
        VINTOK_LOG(SEVERITY_INFO, "mf_connectPending the caller has gone again");
        return false;
    }
    const auto later = [&owner, descriptor](Shaken how) {
        if (!owner._attempt("mf_connectPending", [&] { return greet(owner, descriptor, how); }))
            turnAway(owner, descriptor);
    };
    const Shaken how = Handshakes::begin(owner, descriptor, Handshakes::Side::accepts, later);
    return how == Shaken::underWay || greet(owner, descriptor, how);
}

void ConferenceParticipant::Life::turnAway(ConferenceParticipant &owner, int descriptor) {
    Guards::forgetStranger(owner, descriptor);
    Handshakes::forget(owner, descriptor);
    if (owner._select != nullptr)
        owner._select->removeCallback(descriptor, sf_dataCB, &owner);
    shutdownSocket(descriptor);
}

// Says hello to who has connected. False when the connection is to be closed again.
bool ConferenceParticipant::Life::greet(ConferenceParticipant &owner, int descriptor, Shaken how) {
    if (how == Shaken::failed) {
        VINTOK_LOG(SEVERITY_INFO, "mf_connectPending the handshake has failed");
        return false;
    }
    if (owner._select == nullptr || !bufferFrames(descriptor) ||
        !owner._select->addSocketCallback(descriptor, sf_dataCB, &owner, true, false)) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_connectPending select failed");
        return false;
    }
    Guards::connected(owner, descriptor);
    if (Crossing::hostsNobody(owner) && !Crossing::hasOthers(owner, nullptr))
        Crossing::stepAside(owner, nullptr);
    const bool hosts = owner._self.isHost();
    if (!owner.mf_sendMe(descriptor, false, true)) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_connectPending send me failed");
        return false;
    }
    ConferenceRosterEntry *peer = owner._addDescriptor(descriptor);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_connectPending add descriptor failed");
        return false;
    }
    peer->m_toldHost = hosts;
    VINTOK_LOG(SEVERITY_INFO, "Connection accepted fd = " + std::to_string(descriptor));
    return true;
}

void ConferenceParticipant::mf_dataPending(int descriptor, bool closed) {
    const Operation operation(*this);
    ConferenceRosterEntry *peer = _getPeer(descriptor);
    if (peer == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_dataPending fd not in peer list removing CB");
        if (_select != nullptr) {
            _select->removeCallback(descriptor, sf_dataCB, this);
            shutdownSocket(descriptor);
        }
        return;
    }
    try {
        if (peer->isProxyPending() || peer->isMUXPending())
            Tunnels::readTunnel(*this, peer);
        else
            Life::readMessages(*this, peer, closed);
    } catch (const std::bad_alloc &) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_dataPending allocation failed");
    }
    Relaying::closeRelay(*this);
    if (ConferenceRosterEntry *left = _getPeer(descriptor))
        left->setBadRead(false);
}

// Up to a share of the messages that have come, so that the others have theirs. A handler may have
// removed the peer.
void ConferenceParticipant::Life::readMessages(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer, bool closed) {
    const int descriptor = peer->descriptor();
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(descriptor);
    const std::uint64_t changes = owner._workings->listChanges;
    TCPMessage message(descriptor);
    std::size_t taken = 0;
    do {
        if (closed ||
            !(buffer != nullptr ? message.readBuffered(*buffer) : message.read(-1, nullptr))) {
            Ending::readFailed(owner, peer, closed);
            break;
        }
        taken += static_cast<std::size_t>(message.rawBufferLength());
        if (message.messageMajorVersion() < s_majorVersion)
            owner._handleVersion(peer, message, ConfServiceABI);
        else
            owner._handleMessage(peer, message);
    } while (buffer != nullptr && buffer->offers(taken) &&
             (owner._workings->listChanges == changes || owner._isListed(peer)));
}

// ---- Dispatch ----

// What is done with a message. The row's version flag says that the message shows which version its
// sender speaks.
struct ConferenceParticipant::Route {
    using Party = ConferenceParticipant;
    using Peer = ConferenceRosterEntry;
    enum Relay { RELAY_NEVER, RELAY_BEFORE, RELAY_AFTER };

    const TCPGUID *identifier;
    Relay relay;
    bool showsVersion;
    void (*handle)(Party &self, Peer *peer, TCPMessage &message);

    static const Route table[];

    static const Route *find(const TCPGUID &identifier);

    // For the handlers that need no more than the body.
    template <void (Party::*handler)(Peer *, unsigned char *, std::uint64_t)>
    static void body(Party &self, Peer *peer, TCPMessage &message) {
        (self.*handler)(peer, message.messageBuffer(), message.messageBufferLength());
    }

    static void broadcast(Party &self, Peer *peer, TCPMessage &message) {
        Talk::said(self, peer, message);
        if (self._broadcastDataCB != nullptr)
            self._broadcastDataCB(&self, message.messageBuffer(), message.messageBufferLength());
    }
    static void fileBegin(Party &self, Peer *peer, TCPMessage &message) {
        if (!MembersOnly::mayBeginFile(self, peer, message))
            return;
        if (self._fileTransferOrigin.isIPv4() || self._fileTransferOrigin.isIPv6())
            return; // one file at a time
        Files::forgetRefused(self, message.originAddress());
        self._fileTransferOrigin = message.originAddress();
        self._workings->fileNeighbour = peer;
        self._workings->fileSign = std::chrono::steady_clock::now();
        body<&Party::_handleFileTransferBegin>(self, peer, message);
    }
    static void fileData(Party &self, Peer *peer, TCPMessage &message) {
        if (self._fileTransferOrigin == message.originAddress() &&
            self._workings->fileNeighbour == peer) { // whatever others call themselves
            self._workings->fileSign = std::chrono::steady_clock::now();
            body<&Party::_handleFileTransferData>(self, peer, message);
        }
    }
    // Of whatever origin, deliberately: an end is how a transfer that hangs is got rid of.
    static void fileEnd(Party &self, Peer *peer, TCPMessage &message) {
        if (Files::forgetRefused(self, message.originAddress()) ||
            !MembersOnly::mayEndFile(self, peer, message))
            return;
        body<&Party::_handleFileTransferEnd>(self, peer, message);
        self._fileTransferOrigin.clear();
        self._workings->fileNeighbour = nullptr;
    }
    static void fileAck(Party &self, Peer *peer, TCPMessage &message) {
        self._handleFileTransferAck(peer, message.messageBuffer(), message.messageBufferLength(),
                                    true);
    }
    static void rosterRequest(Party &self, Peer *peer, TCPMessage &) { self._sendRoster(peer); }
    static void hangup(Party &self, Peer *peer, TCPMessage &) { self._handleHangup(peer); }
    static void privateMessage(Party &self, Peer *peer, TCPMessage &message) {
        Talk::privateCame(self, peer, message);
    }
    static void privateAnswer(Party &self, Peer *peer, TCPMessage &message) {
        Talk::answerCame(self, peer, message);
    }
    static void fileRefusal(Party &self, Peer *peer, TCPMessage &message) {
        Talk::fileRefused(self, peer, message);
    }
    static void turnedAway(Party &self, Peer *peer, TCPMessage &message) {
        if (message.messageBufferLength() == 1 && message.messageBuffer()[0] == 1)
            Roster::turnedAway(self, peer);
    }
    static void sentElsewhere(Party &self, Peer *peer, TCPMessage &message) {
        Tunnels::sentElsewhere(self, peer, message);
    }
    static void keepAlive(Party &, Peer *, TCPMessage &) {
        VINTOK_LOG(SEVERITY_TRACE, "Keep Alive");
    }
};

const ConferenceParticipant::Route ConferenceParticipant::Route::table[] = {
    {&TCP_broadcastMessage, RELAY_AFTER, false, broadcast},
    {&TCP_fileTransferData, RELAY_BEFORE, false, fileData},
    {&TCP_fileTransferBegin, RELAY_BEFORE, false, fileBegin},
    {&TCP_fileTransferEnd, RELAY_BEFORE, false, fileEnd},
    {&TCP_fileTransferAck, RELAY_BEFORE, false, fileAck},
    {&TCP_joinRequest, RELAY_NEVER, true, body<&Party::_handleJoinRequest>},
    {&TCP_joinReply, RELAY_NEVER, false, body<&Party::_handleJoinReply>},
    {&TCP_rosterRequest, RELAY_NEVER, false, rosterRequest},
    {&TCP_rosterReply, RELAY_NEVER, false, body<&Party::_handleRosterReply>},
    {&TCP_rosterEntry, RELAY_NEVER, true, body<&Party::_handleRosterEntry>},
    {&TCP_leaveNotify, RELAY_NEVER, false, body<&Party::_handleLeaveNotify>},
    {&TCP_hangup, RELAY_NEVER, false, hangup},
    {&TCP_leadRequest, RELAY_NEVER, false, body<&Party::_handleLeadRequest>},
    {&TCP_leadChangeNotify, RELAY_NEVER, false, body<&Party::_handleLeadChangeNotify>},
    {&TCP_leadReply, RELAY_NEVER, false, body<&Party::_handleLeadReply>},
    {&TCP_stopLeadRequest, RELAY_NEVER, false, body<&Party::_handleStopLeadRequest>},
    {&TCP_keepAlive, RELAY_NEVER, false, keepAlive},
    {&TCP_echoRequest32, RELAY_NEVER, false, body<&Party::_handleEchoRequest>},
    {&TCP_echoReply32, RELAY_NEVER, false, body<&Party::_handleEchoReply>},
    {&TCP_messageID_46, RELAY_NEVER, false, privateMessage},
    {&TCP_messageID_47, RELAY_NEVER, false, privateAnswer},
    {&TCP_RECYCLE_ME_1, RELAY_NEVER, false, fileRefusal},
    {&TCP_RECYCLE_ME_2, RELAY_NEVER, false, turnedAway},
    {&TCP_RECYCLE_ME_3, RELAY_NEVER, false, sentElsewhere},
};

const ConferenceParticipant::Route *ConferenceParticipant::Route::find(const TCPGUID &identifier) {
    for (const Route &route : table)
        if (*route.identifier == identifier)
            return &route;
    return nullptr;
}

bool ConferenceParticipant::Talk::isLibrarys(const TCPGUID &identifier) {
    return Route::find(identifier) != nullptr;
}

bool ConferenceParticipant::Relaying::isRelayed(const TCPGUID &identifier) {
    const Route *route = Route::find(identifier);
    return route != nullptr && route->relay != Route::RELAY_NEVER;
}

// For a message of the library's that has come another way than by a connection.
void ConferenceParticipant::Relaying::dispatch(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer, TCPMessage &message) {
    if (const Route *route = Route::find(message.messageID()))
        route->handle(owner, peer, message);
}

void ConferenceParticipant::_handleMessage(ConferenceRosterEntry *peer, TCPMessage &message) {
    const Route *route = Route::find(message.messageID());
    if (route == nullptr && _workings->talk.messageCB == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "_handleMessage Unknow message");
        return;
    }
    if (!MembersOnly::takes(*this, peer, message))
        return;
    if ((route == nullptr || route->relay != Route::RELAY_NEVER) &&
        Linking::keepsForOrder(*this, *peer, message))
        return;
    if (route == nullptr) {
        Talk::isOwn(*this, peer, message);
        return;
    }
    if (route->showsVersion) {
        peer->setMajorVersion(message.messageMajorVersion());
        peer->setMinorVersion(message.messageMinorVersion());
    }
    if (route->relay == Route::RELAY_BEFORE && _relays())
        Relaying::passOn(*this, peer, message);
    route->handle(*this, peer, message);
    // Whoever sent it may have gone meanwhile; the others are owed it all the same.
    if (route->relay == Route::RELAY_AFTER && _relays())
        Relaying::passOn(*this, peer, message);
}

} // namespace vintok
