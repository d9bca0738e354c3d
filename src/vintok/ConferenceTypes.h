// The versions of a participant, its callbacks, and what its guards are set to.
// ConferenceParticipant inherits them, so that each is called
// `ConferenceParticipant::EntryCallback` and the like.
#ifndef VINTOK_CONFERENCETYPES_H
#define VINTOK_CONFERENCETYPES_H

#include "vintok/Export.h"

#include <cstdint>
#include <string>

namespace vintok {

class ConferenceParticipant;
class ConferenceRosterEntry;
class RosterBase;
class TCPAddress;
class TCPMessage;

// A service that a version of the protocol may offer.
enum ConfService {
    ConfServiceABI = 1,    // the message layout that is spoken here: since 4.0
    ConfServiceFIPS = 2,   // FIPS-grade security: since 3.2
    ConfServiceHideIP = 4, // hiding addresses: since 3.2
};

// Tells which security option changed, not its new value: ask the participant for that.
struct VINTOK_API ConfSecurityOptions {
    bool hideIP = false;  // `isHidingIPsRequired`
    bool FIPS = false;    // `isFIPSSecureRequired`
    bool SSLOnly = false; // `isSSLOnly`
};

struct ConferenceTypes {
    // ---- Versions ----

    static constexpr unsigned short s_majorVersion = 4; // of the protocol that is spoken here
    static constexpr unsigned short s_minorVersion = 0; // likewise
    // The first versions that offer each ConfService.
    static constexpr unsigned short s_majorVersionABI = 4;
    static constexpr unsigned short s_minorVersionABI = 0;
    static constexpr unsigned short s_majorVersionFIPS = 3;
    static constexpr unsigned short s_minorVersionFIPS = 2;
    static constexpr unsigned short s_majorVersionHideIP = 3;
    static constexpr unsigned short s_minorVersionHideIP = 2;

    // ---- The told callbacks ----

    // A null callback is skipped. The first argument is the participant that calls.

    // A party of the meeting, or a caller.
    using EntryCallback = void (*)(ConferenceParticipant *, const ConferenceRosterEntry &);
    // Bytes that belong to the library and are gone after the call, and their count.
    using DataCallback = void (*)(ConferenceParticipant *, unsigned char *, std::uint64_t);
    // An outgoing call: the name as `placeCall` got it, and what is known of the party.
    using CallCallback = void (*)(ConferenceParticipant *, const std::string &remoteName,
                                  const RosterBase &);
    // Which options have changed.
    using SecurityCallback = void (*)(ConferenceParticipant *, const ConfSecurityOptions &);
    // The neighbour that passed the file on, whether the file is whole, and its path here.
    using FileTransferCallback = void (*)(ConferenceParticipant *, const TCPAddress &, bool,
                                          const std::string &path);
    // Whose file it is, the bytes so far, the size of the file or 0 where it is not known, and the
    // path of the file here.
    using FileProgressCallback = void (*)(ConferenceParticipant *, const TCPAddress &origin,
                                          std::uint64_t done, std::uint64_t total,
                                          const std::string &path);
    // What a further `placeCall` would take.
    using ProxyCallback = void (*)(ConferenceParticipant *, const std::string &remoteName,
                                   unsigned short port, const std::string &proxyName,
                                   unsigned short proxyPort, const std::string &authentication,
                                   unsigned int retries, const std::string &meetingID);
    // What a proxy or multiplexer answered: the status of HTTP, 0 for none, and the head as it
    // came.
    using ServerResponseCallback = void (*)(ConferenceParticipant *, unsigned int status,
                                            const std::string &response);
    // The application's own.
    using AlarmCallback = void (*)();
    // A call that was turned away because of its caller's address: at the caller whom it has
    // called, at who was called the caller. `why` is a sentence.
    using TurnedAwayCallback = void (*)(ConferenceParticipant *, const ConferenceRosterEntry &party,
                                        const char *why, void *userData);

    // ---- What is said ----

    // The last argument is the participant's `userData`.

    // What somebody said to everybody, and who it was. The speaker is null where that is not known:
    // a member learns it from what the speaker's library marks, and older ones mark nothing.
    using SaidCallback = void (*)(ConferenceParticipant *, const ConferenceRosterEntry *speaker,
                                  const unsigned char *data, std::uint64_t length, void *userData);
    // What a party said to this one alone.
    using PrivateCallback = void (*)(ConferenceParticipant *, const ConferenceRosterEntry &speaker,
                                     const unsigned char *data, std::uint64_t length,
                                     void *userData);
    // What became of a message of `sendPrivateData`: the party's application has it, or nobody.
    using DeliveryCallback = void (*)(ConferenceParticipant *, std::uint32_t number,
                                      const TCPAddress &party, bool taken, void *userData);
    // A message with an identifier that the library does not use, and the neighbour it came from.
    // The result says whether a host or server passes it on to the others.
    using MessageCallback = bool (*)(ConferenceParticipant *,
                                     const ConferenceRosterEntry &neighbour, TCPMessage &message,
                                     void *userData);

    // ---- Files that go out in the loop ----

    // Puts up to `room` bytes of a file in `buffer`, those from `offset` on, and returns how many:
    // 0 when they cannot be had. Each is asked for once, in order. `source` is the sender's own.
    using FileSource = std::uint64_t (*)(ConferenceParticipant *, std::uint64_t offset,
                                         unsigned char *buffer, std::uint64_t room, void *source);
    // How a file of `startFile` has ended.
    enum FileOutcome : int {
        FILE_SENT = 1,       // to everybody who is in the meeting; who could store it is not known
        FILE_INCOMPLETE = 2, // not all of it to everybody
        FILE_CANCELLED = 3,
        FILE_UNREADABLE = 4, // its source has come to an end too early
        FILE_UNWANTED = 5,   // everybody has refused it
        FILE_ALONE = 6,      // nobody is there any more
    };
    // Told once of each file.
    using FileSentCallback = void (*)(ConferenceParticipant *, std::uint32_t number,
                                      FileOutcome outcome, void *userData);
    // Who does not want a file.
    using FileRefusedCallback = void (*)(ConferenceParticipant *, std::uint32_t number,
                                         const ConferenceRosterEntry &party, void *userData);

    // Where a participant listens.
    struct Listening {
        unsigned short port = 0; // in host byte order; 0: the configured one
        bool exactPort = false;  // or else the first free one of 255 from there on
        bool localOnly = false;  // on loopback
        bool anyPort = false;    // a free one above 49151 in place of all that, by chance
        bool none = false;       // nowhere
    };

    // ---- Guards ----

    // For `setSlowMemberLimits`.
    struct SlowMemberLimits {
        std::uint64_t bytes = std::uint64_t{8} << 20;      // may wait for any time
        std::uint32_t milliseconds = 10000;                // that more may wait
        std::uint64_t mostBytes = std::uint64_t{64} << 20; // may wait at all; 0: no limits
    };
    // Why somebody is hung up who is too slow.
    enum SlowMember : int {
        SLOW_MEMBER_BEHIND = 1, // more than `bytes` has waited for too long
        SLOW_MEMBER_FULL = 2,   // more than `mostBytes` would have waited
    };
    // Who is about to be hung up, how many bytes waited for it, and why. The leave callback
    // follows.
    using SlowMemberCallback = void (*)(ConferenceParticipant *, const ConferenceRosterEntry &,
                                        std::uint64_t waiting, SlowMember why);
    // Whether a broadcast may be kept from a member that has more than `bytes` waiting. Not to call
    // anything of the participant.
    using DropCallback = bool (*)(ConferenceParticipant *, const ConferenceRosterEntry &,
                                  const unsigned char *data, std::uint64_t length);

    // For `setCallerLimits`; 0: no limit.
    struct CallerLimits {
        std::uint32_t connections = 0; // of those who have not joined
        std::uint32_t perAddress = 0;  // of these, from one address or network
        std::uint32_t helloTime = 0;   // milliseconds from the connect to the hello
        std::uint32_t joinTime = 0;    // milliseconds from the hello to the request to join
        std::uint64_t frameBytes = 0;  // of a message, with its header
        std::uint32_t joins = 0;       // in a second
    };

    // For `setMeetingLimits`; 0: no limit.
    struct MeetingLimits {
        std::uint32_t members = 0;    // besides the host
        std::uint64_t frameBytes = 0; // of a message, with its header
        std::uint32_t entryBytes = 0; // of a roster entry
    };
};

} // namespace vintok

#endif
