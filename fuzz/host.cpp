// A whole host, or another party, with an application around it, and everybody whom it meets. The
// input is a play: who connects, what is said, how many of the bytes get through, when the loop
// runs, how time passes, and what the application does of its own accord or from inside a callback.
//
// Nothing waits, since time stands still meanwhile (Sandbox.h). With the guards that concern them
// an honest member takes part too, whom nobody else can harm.
#include "Caller.h"
#include "Fuzz.h"
#include "Sandbox.h"

#include "platform/Socket.h"
#include "platform/Thread.h"
#include "vintok/ByteOrder.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <utility>

using namespace vintok;
using fuzz::Caller;
using fuzz::Input;
using fuzz::require;
using fuzz::sandbox;

namespace {

namespace files = std::filesystem;

constexpr unsigned callers = 4;
constexpr unsigned longestPlay = 200; // steps
constexpr std::uint64_t mostWaiting = 32768;
constexpr std::uint64_t longestFrame = 16384;

// On the loopback interface, at a port that the system chooses.
int boundSocket(std::uint16_t &port) {
    const int descriptor = platform::openSocket(platform::FAMILY_IPV4);
    platform::Endpoint endpoint;
    const std::array<unsigned char, 4> ip = {127, 0, 0, 1};
    std::copy(ip.begin(), ip.end(), reinterpret_cast<unsigned char *>(&endpoint.ipv4));
    require(platform::bindSocket(descriptor, endpoint) &&
                platform::boundEndpoint(descriptor, platform::FAMILY_IPV4, endpoint),
            "a port of this machine");
    port = networkOrder(endpoint.port);
    return descriptor;
}

std::uint16_t freePort() {
    std::uint16_t port = 0;
    platform::closeSocket(boundSocket(port));
    return port;
}

// What there is once in a process: the library, the folder for files, and a port where calls go.
class House {
public:
    House();
    ~House();
    House(const House &) = delete;
    House &operator=(const House &) = delete;

    std::uint16_t port() const { return m_port; }
    // The connection of a call, or -1.
    int answers() const;
    void empties();

private:
    files::path m_place;
    int m_listener = -1;
    std::uint16_t m_port = 0;
};

House::House() {
    init();
    setLogLevel(LOG_NONE);
    m_place = files::temp_directory_path() /
              ("vintok-fuzz-" + std::to_string(platform::currentProcessId()));
    files::create_directories(m_place);
    sandbox().folder = (m_place / "files").string();
    sandbox().sent = (m_place / "sent.txt").string();
    std::ofstream(sandbox().sent) << std::string(3000, 's');
    m_listener = boundSocket(m_port);
    require(platform::listenSocket(m_listener, 100), "a port to call");
    platform::setBlockingMode(m_listener, false);
}

House::~House() {
    platform::closeSocket(m_listener);
    std::error_code ignored;
    files::remove_all(m_place, ignored);
    fini();
}

int House::answers() const {
    platform::Endpoint caller;
    const int descriptor = platform::acceptSocket(m_listener, platform::FAMILY_IPV4, caller);
    if (descriptor != -1)
        platform::setBlockingMode(descriptor, false);
    return descriptor;
}

// Nothing is beside the folder and the file that is sent.
void House::empties() {
    if (std::exchange(sandbox().filesTouched, 0) == 0)
        return;
    for (const files::directory_entry &entry : files::directory_iterator(m_place))
        require(entry.path() == sandbox().folder || entry.path() == sandbox().sent,
                "files in their folder");
    files::remove_all(sandbox().folder);
}

House &house() {
    static House only;
    return only;
}

// ---- The play ----

class Play;

struct Party : ConferenceParticipant {
    Party(Play &of, std::uint16_t port) : ConferenceParticipant(true, port, true), play(of) {}
    Play &play;
};

class Play {
public:
    explicit Play(Input &input);
    ~Play();
    Play(const Play &) = delete;
    Play &operator=(const Play &) = delete;

    void run();
    // From a callback.
    void called(const ConferenceRosterEntry *entry);

private:
    void listen();
    void setCallbacks();
    void setGuards(unsigned which);
    void admitHonest();
    void step();
    void act();
    void actOnOthers(unsigned what, const TCPAddress &address);
    void change();
    void call();
    void answer();
    void pass();
    bool pump();
    std::vector<const ConferenceRosterEntry *> listed();
    void checkRoster();
    void end();
    void checkHonest();
    void checkHonestRoster();
    const char *wrongInRoster();

    Caller &anyCaller() { return *m_callers[m_input.below(callers)]; }
    std::uint32_t place() { return ++s_places / 2 % 0xFFFFF0 + 2; }

    static std::uint32_t s_places;

    Input &m_input;
    TCPSelect m_select;
    std::vector<std::unique_ptr<Caller>> m_callers;
    Caller m_honest{"Honest", 99};
    test::WireEntry m_self;
    std::vector<const test::WireEntry *> m_parties;
    unsigned m_guards;
    unsigned m_manners;
    std::unique_ptr<Party> m_party;
    std::uint16_t m_port = 0;
    int m_watchedBefore = 0;
    unsigned m_depth = 0; // of operations within callbacks
    bool m_acted = false; // the application did something in this pass
    bool m_hasCalled = false;
    bool m_honestStays = false;
    std::vector<const ConferenceRosterEntry *> *m_listed = nullptr;
};

std::uint32_t Play::s_places = 0;

// Of `m_guards`.
enum Guard : unsigned {
    guardSlow = 1,
    guardCallers = 2,
    guardMeeting = 4,
    guardDifferences = 8,
    guardMembersOnly = 16,
    guardFiles = 32,
    guardClock = 64,
    guardCalls = 128
};

// Of `m_manners`.
enum Manner : unsigned {
    hosts = 1,
    isServer = 2,
    screensCalls = 4,
    decidesOnLead = 8,
    storesFiles = 16,
    acts = 32, // in callbacks
    drops = 64,
    isRedirected = 128
};

Play &playOf(ConferenceParticipant *party) {
    return static_cast<Party *>(party)->play;
}

void onEntry(ConferenceParticipant *party, const ConferenceRosterEntry &entry) {
    playOf(party).called(&entry);
}

template <class... Arguments>
void onAny(ConferenceParticipant *party, Arguments...) {
    playOf(party).called(nullptr);
}

Play::Play(Input &input) : m_input(input), m_guards(input.byte()), m_manners(input.byte()) {
    sandbox().now = std::chrono::hours(1);
    zeroTime();
    ConferenceParticipant::setFileRoot((m_manners & storesFiles) != 0 ? sandbox().folder : "");
    for (unsigned i = 0; i < callers; ++i) {
        m_callers.push_back(
            std::make_unique<Caller>(std::string(1, static_cast<char>('A' + i)), i));
        m_parties.push_back(&m_callers.back()->entry);
    }
    m_parties.push_back(&m_honest.entry);
    m_parties.push_back(&m_self);
    m_watchedBefore = m_select.numDescriptors();
    listen();
    m_self = test::WireEntry::party("Self", 0);
    std::array<unsigned char, 24> address{};
    m_party->address().write(address.data(), address.size());
    test::WireReader reader(address.data(), address.size());
    m_self.address.read(reader);
    sandbox().ports = {m_port, house().port()};
    sandbox().relieve = [this] { return pump(); };
    setCallbacks();
    setGuards(m_guards);
    m_party->setServerMode((m_manners & isServer) != 0);
    if ((m_manners & hosts) != 0)
        m_party->hostMeeting("Plan");
    if ((m_guards & guardMembersOnly) != 0 && (m_guards & guardSlow) != 0 &&
        (m_manners & (hosts | screensCalls | acts)) == hosts)
        admitHonest();
}

// At the port of the last time, unless somebody has taken it meanwhile.
void Play::listen() {
    static std::uint16_t port = freePort();
    for (int tries = 0; tries < 10 && m_select.numDescriptors() == m_watchedBefore; ++tries) {
        port = tries == 0 ? port : freePort();
        m_party = std::make_unique<Party>(*this, port);
    }
    require(m_select.numDescriptors() != m_watchedBefore, "a port that the host listens on");
    m_port = port;
}

Play::~Play() {
    sandbox().relieve = nullptr;
}

void Play::setCallbacks() {
    m_party->setJoinCB(onEntry);
    m_party->setLeaveCB(onEntry);
    m_party->setUserDataCB(onEntry);
    m_party->setLeadChangeCB(onEntry);
    m_party->setBroadcastDataCB(onAny);
    m_party->setFileTransferCB(onAny);
    m_party->setFileProgressCB(onAny);
    m_party->setFileSentCB(onAny);
    m_party->setFileRefusedCB(onAny);
    m_party->setLeadReplyCB(onAny);
    m_party->setSynchTimeCB(onAny);
    m_party->setAcceptedCB(onAny);
    m_party->setBusyCB(onAny);
    m_party->setRejectedCB(onAny);
    m_party->setRingingCB(onAny);
    m_party->setNoAnswerCB(onAny);
    m_party->setVersionCB(onAny);
    m_party->setServerResponseCB(onAny);
    m_party->setProxyCB(onAny);
    if ((m_manners & screensCalls) != 0)
        m_party->setCallPendingCB(onEntry);
    if ((m_manners & decidesOnLead) != 0)
        m_party->setLeadRequestCB(onEntry);
    if ((m_manners & isRedirected) == 0)
        m_party->setRedirectCB(onAny);
    if ((m_manners & drops) != 0)
        m_party->setDropCB([](ConferenceParticipant *, const ConferenceRosterEntry &,
                              const unsigned char *data, std::uint64_t) { return *data != 'x'; });
}

// Small ones, so that a play of a few steps meets them.
void Play::setGuards(unsigned which) {
    const auto has = [which](Guard guard) { return (which & guard) != 0; };
    if (has(guardSlow))
        m_party->setSlowMemberLimits({4096, 50, mostWaiting});
    if (has(guardCallers))
        m_party->setCallerLimits({3, 2, 200, 200, 4096});
    if (has(guardMeeting))
        m_party->setMeetingLimits({3, longestFrame, 1024});
    m_party->setRosterByDifferences(has(guardDifferences));
    m_party->setMembersOnly(has(guardMembersOnly));
    m_party->setTemporaryFiles(has(guardFiles));
    if (has(guardClock))
        m_party->setLargestClockStep(3600);
    if (has(guardCalls))
        m_party->setCallTimeouts(100, 100);
}

void Play::admitHonest() {
    m_honest.connects(m_port, place());
    m_honest.saysHello();
    m_honest.asksToJoin();
    m_honest.letThroughAll();
    for (int passes = 0; passes < 3; ++passes)
        pass();
    m_honestStays = true;
    checkHonest();
}

void Play::run() {
    for (unsigned steps = 0; steps < longestPlay && !m_input.empty(); ++steps)
        step();
    end();
}

void Play::step() {
    const fuzz::Grammar grammar{m_input, m_parties};
    const unsigned what = m_input.below(16);
    Caller &caller = anyCaller();
    switch (what) {
    case 0:
        caller.connects(m_port, place());
        break;
    case 1:
    case 2:
        caller.says(grammar.frame(caller));
        caller.letThroughAll();
        break;
    case 3:
        caller.says(grammar.frame(caller));
        break;
    case 4:
        caller.letThrough(m_input.byte());
        break;
    case 5:
        caller.letThroughAll();
        pass();
        break;
    case 6:
        caller.connects(m_port, place());
        [[fallthrough]];
    case 7:
        caller.saysHello();
        caller.asksToJoin();
        caller.letThroughAll();
        pass();
        break;
    case 8:
        (m_input.flag()) ? caller.halfCloses() : caller.ends();
        break;
    case 9:
    case 10:
        act();
        break;
    case 11:
        sandbox().now += std::chrono::milliseconds(m_input.byte() * 4);
        break;
    case 12:
        caller.reads = !caller.reads;
        break;
    case 13:
        caller.says(grammar.reply(house().port()));
        caller.letThroughAll();
        break;
    case 14:
        caller.entry.state = m_input.word();
        break;
    default:
        call();
        break;
    }
    if (m_input.flag())
        pass();
}

// ---- The application ----

void Play::called(const ConferenceRosterEntry *entry) {
    if (m_listed != nullptr) {
        m_listed->push_back(entry);
        return;
    }
    if ((m_manners & acts) == 0 || m_depth >= 3)
        return;
    const unsigned wish = m_input.byte();
    if (wish % 4 != 0)
        return;
    m_acted = true;
    if (wish % 8 == 0 && entry != nullptr) {
        const TCPAddress address(*entry);
        m_party->acceptCall(address);
    } else {
        act();
    }
}

void Play::act() {
    ++m_depth;
    const unsigned what = m_input.below(20);
    const TCPAddress address = anyCaller().address();
    const std::string text = what < 2 ? m_input.text() + '.' : std::string(4000, 'y');
    switch (what) {
    case 0:
    case 1:
    case 2:
        m_party->sendBroadcastData(reinterpret_cast<const unsigned char *>(text.data()),
                                   text.size());
        break;
    case 3:
        m_party->sendRoster();
        break;
    case 4:
        m_party->requestRoster();
        break;
    case 5:
        m_party->requestStartLeading();
        break;
    case 6:
        m_party->acceptLeadChange();
        break;
    case 7:
        m_party->rejectLeadChange();
        break;
    case 8:
        m_party->sendAllKeepAlive();
        m_party->refuseFile(address);
        break;
    case 9:
        if ((m_guards & guardFiles) != 0)
            m_party->startFile(sandbox().sent, "sent.txt");
        else
            m_party->transferFile(sandbox().sent, "sent.txt");
        break;
    case 10:
        m_party->acceptCall(address);
        break;
    case 11:
        call();
        break;
    case 12:
        pass();
        break;
    default:
        actOnOthers(what, address);
        break;
    }
    --m_depth;
}

// What may cost somebody who has done nothing his place.
void Play::actOnOthers(unsigned what, const TCPAddress &address) {
    m_honestStays = false;
    switch (what) {
    case 13:
        m_party->rejectCall(address);
        break;
    case 14:
        m_party->hangup();
        break;
    case 15:
        m_party->disableUser(address);
        break;
    case 16:
        m_party->enableUser(address);
        break;
    case 17:
        m_party->hostMeeting(m_input.text());
        break;
    case 18:
        m_party->setServerMode(m_input.flag());
        break;
    default:
        change();
        break;
    }
}

void Play::change() {
    const bool on = m_input.flag();
    switch (m_input.below(6)) {
    case 0:
        m_party->setHidingIPsRequired(on);
        break;
    case 1:
        m_party->setFIPSSecureRequired(on);
        break;
    case 2:
        m_party->setSSLOnly(on);
        break;
    case 3:
        m_party->setSecureAble(on);
        m_party->setSecurePreferred(on);
        break;
    case 4:
        m_party->setFirstName(m_input.text());
        m_party->setMeetingName(m_input.text());
        break;
    default:
        m_party->setMembersOnly(on);
        m_guards &= ~static_cast<unsigned>(guardMembersOnly);
        break;
    }
}

// Somebody is called, directly or through a proxy or a multiplexing server, all of whom listen at
// one port. Whoever has no connection picks up.
void Play::call() {
    const unsigned how = m_input.byte();
    const std::string proxy = (how & 1) != 0 ? "127.0.0.1" : "";
    const std::string meeting = (how & 2) != 0 ? "some meeting" : "";
    const std::string credentials = (how & 4) != 0 ? "dXNlcjpwYXNz" : "";
    const std::string name = (how & 8) != 0 ? "party.example" : "127.0.0.1";
    const auto place = (how & 16) != 0 ? &ConferenceParticipant::placeCall
                                       : static_cast<decltype(&ConferenceParticipant::placeCall)>(
                                             &ConferenceParticipant::startCall);
    (*m_party.*place)(name, house().port(), proxy, house().port(), meeting, credentials,
                      how >> 5 & 3);
    m_hasCalled = true;
    answer();
}

void Play::answer() {
    for (const auto &caller : m_callers) {
        if (caller->isConnected() && !caller->hasEnded())
            continue;
        const int descriptor = house().answers();
        if (descriptor == -1)
            return;
        caller->takes(descriptor);
        caller->isText = true;
    }
}

// ---- The loop ----

bool Play::pump() {
    bool any = m_honest.pump();
    for (const auto &caller : m_callers)
        any = caller->pump() || any;
    return any;
}

void Play::pass() {
    m_honest.pump();
    for (const auto &caller : m_callers)
        if (caller->reads)
            caller->pump();
    m_acted = false;
    sandbox().waits = sandbox().sleeps = 0;
    m_select.pollDescriptors(true);
    if (m_hasCalled)
        answer();
    if (m_acted || m_depth > 0)
        return;
    require(sandbox().waits == 0, "the loop waits for nobody");
    // Without these guards it rests over a connection that was let go in the same pass.
    if ((m_guards & (guardSlow | guardCallers | guardMembersOnly)) != 0)
        require(sandbox().sleeps == 0, "the loop does not rest over what it cannot handle");
    if ((m_guards & guardSlow) != 0)
        require(m_party->waitingBytes() <= mostWaiting + longestFrame, "what waits is bounded");
    checkRoster();
}

// Whom the application of a host would be told of.
std::vector<const ConferenceRosterEntry *> Play::listed() {
    std::vector<const ConferenceRosterEntry *> listed;
    m_listed = &listed;
    m_party->requestRoster();
    m_listed = nullptr;
    return listed;
}

// Who has joined has a connection, and nobody else has the same.
void Play::checkRoster() {
    if (!m_party->isHost() || m_party->isServer())
        return;
    std::set<int> descriptors;
    for (const ConferenceRosterEntry *entry : listed()) {
        if (entry->doBroadcast())
            require(entry->descriptor() != -1, "a member has a connection");
        if (entry->descriptor() != -1)
            require(descriptors.insert(entry->descriptor()).second, "of its own");
    }
    require(m_select.numDescriptors() >= m_watchedBefore + static_cast<int>(descriptors.size()),
            "connections are watched");
}

void Play::checkHonest() {
    if (!m_honestStays)
        return;
    const std::size_t before = m_honest.echoes().size();
    m_honest.says(test::id::echoRequest32, {1, 2, 3, 4});
    m_honest.letThroughAll();
    for (int passes = 0; passes < 50 && m_honest.echoes().size() == before; ++passes)
        pass();
    m_honest.pump();
    require(m_honest.echoes().size() == before + 1, "an honest member is served");
}

// When all is quiet a member knows whom the host has, and nobody else. What others have sent
// meanwhile has to be gone through first.
void Play::checkHonestRoster() {
    if (!m_honestStays || !m_party->isHost() || m_party->isServer())
        return;
    checkHonest();
    const char *wrong = "";
    for (int passes = 0; passes < 50 && wrong != nullptr; ++passes) {
        sandbox().now += std::chrono::milliseconds(30);
        pass();
        m_honest.pump();
        wrong = wrongInRoster();
    }
    require(wrong == nullptr, wrong);
}

const char *Play::wrongInRoster() {
    const auto has = [](const auto &entries, const TCPAddress &address) {
        return std::any_of(entries.begin(), entries.end(),
                           [&](const TCPAddress &entry) { return entry == address; });
    };
    std::vector<TCPAddress> members;
    for (const ConferenceRosterEntry *entry : listed()) {
        members.push_back(*entry);
        if (!has(m_honest.roster(), *entry))
            return "a member is told of everybody";
    }
    for (const ConferenceRosterEntry &entry : m_honest.roster())
        if (!entry.isServer() && static_cast<const TCPAddress &>(entry) != m_party->address() &&
            !has(members, entry))
            return "a member is told of who has left";
    return nullptr;
}

void Play::end() {
    checkHonestRoster();
    m_honestStays = false;
    m_party->hangup();
    m_party.reset();
    sandbox().relieve = nullptr;
    require(m_select.numDescriptors() == m_watchedBefore, "nothing of a party is watched for ever");
    for (const auto &caller : m_callers)
        caller->ends();
    m_honest.ends();
    for (int descriptor = 0; m_hasCalled && descriptor != -1;)
        if ((descriptor = house().answers()) != -1)
            platform::closeSocket(descriptor);
    house().empties();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    house();
    const int sockets = sandbox().sockets;
    {
        Input input(data, size);
        Play play(input);
        play.run();
    }
    require(sandbox().sockets == sockets, "every socket is closed");
    return 0;
}
