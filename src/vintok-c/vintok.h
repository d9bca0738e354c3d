// The library for programs in C, for other languages that can call C, and for compilers whose C++
// is not the library's: Visual C++ links `vintok.lib`. It is a part of libvintok. The C++ headers
// say more of what the operations mean; docs/programming.md has a program.
//
// Holds for every function here, unless it says otherwise:
// - An int32_t result is 1 for done and 0 for refused; null and a number 0 are refusals too. A
//   refusal leaves its reason with the thread: `vintok_last_error`, `vintok_last_error_text`.
//   Success leaves that as it was; starting and stopping clear it. Nothing throws.
// - Texts are bytes that end in a zero, UTF-8 for people. A null text counts as an empty one. The
//   library copies what it keeps; what it gives belongs to the library.
// - A flag is 0 or 1. Ports are in host byte order. Times are milliseconds unless the name says
//   seconds.
// - Handles belong to the thread that made them, and all their functions and callbacks run there.
//   Only `vintok_loop_wake` and `vintok_loop_interrupt` may be called from anywhere.
// - What talks to the network may block until the other side's system has taken what is written,
//   where it says so. Everything else returns at once.
// - A structure that begins with `size` may grow: set all of it to zero and `size` to its sizeof.
//   Zero is what the library does by itself. What this version does not know is refused.
#ifndef VINTOK_C_VINTOK_H
#define VINTOK_C_VINTOK_H

#include <vintok/Export.h>

// NOLINTBEGIN: a header for C
#include <stddef.h>
#include <stdint.h>

// Of this interface, as the header has it.
#define VINTOK_C_VERSION_MAJOR 1
#define VINTOK_C_VERSION_MINOR 0

#ifdef __cplusplus
extern "C" {
#endif

// ---- Version ----

// Of this interface, as the library has it: the major number times 65536, plus the minor one. With
// another major number it cannot be used; a higher minor one has more functions.
VINTOK_API uint32_t vintok_version(void);

// ---- Start, errors, log ----

// Starts the library, or joins it; each success needs its `vintok_stop`. A participant does both by
// itself: this is for what is wanted before or after there is one. May block in the resolver.
VINTOK_API int32_t vintok_start(void);
VINTOK_API int32_t vintok_stop(void);

enum {
    VINTOK_ERROR_NONE = 0,
    VINTOK_ERROR_UNSPECIFIED = 1, // what cannot be done now, among others: the text says it
    VINTOK_ERROR_NOT_INITIALIZED = 2,
    VINTOK_ERROR_WOULD_BLOCK = 3,
    VINTOK_ERROR_BAD_FILE_DESCRIPTOR = 4,
    VINTOK_ERROR_LOCK_FAILED = 5,
    VINTOK_ERROR_UNLOCK_FAILED = 6,
    VINTOK_ERROR_INTERRUPT = 7,
    VINTOK_ERROR_CONNECTION_RESET = 8,
    VINTOK_ERROR_CONNECTION_REFUSED = 9,
    VINTOK_ERROR_MAX_DESCRIPTORS = 10,
    VINTOK_ERROR_OUT_OF_MEMORY = 11,
    VINTOK_ERROR_CORRUPT_HEADER = 12,
    VINTOK_ERROR_SSL_TRANSPORT = 13,
    VINTOK_ERROR_STREAM_BUFFER = 14,
    VINTOK_ERROR_INVALID_ADDRESS = 15,  // nobody's, or none
    VINTOK_ERROR_INVALID_ARGUMENT = 16, // a null handle, nothing to send, an unknown constant
    VINTOK_ERROR_SYSTEM = 17
};

// One of the numbers above, of this thread.
VINTOK_API int32_t vintok_last_error(void);
// A sentence for people, cut after 1023 bytes. Good until the thread asks again.
VINTOK_API const char *vintok_last_error_text(void);
// "TCP_ERROR_CONNECTION_RESET" and so on, "??" for a number that is none. Good for ever.
VINTOK_API const char *vintok_error_name(int32_t code);

enum {
    VINTOK_LOG_NONE = 0,
    VINTOK_LOG_FATAL = 1,
    VINTOK_LOG_ERROR = 3,
    VINTOK_LOG_WARNING = 7,
    VINTOK_LOG_INFO = 15,
    VINTOK_LOG_DEBUG = 31,
    VINTOK_LOG_TRACE = 63
};
enum {
    VINTOK_SEVERITY_FATAL = 1,
    VINTOK_SEVERITY_ERROR = 2,
    VINTOK_SEVERITY_WARNING = 4,
    VINTOK_SEVERITY_INFO = 8,
    VINTOK_SEVERITY_DEBUG = 16,
    VINTOK_SEVERITY_TRACE = 32
};
// `severity` is one of the numbers above; `message` is good until the callback returns.
typedef void (*vintok_log_callback)(int32_t severity, const char *message, void *user);

// Each level includes those above it. `vintok_start` sets it to VINTOK_LOG_NONE, or to what the
// environment's VINTOK_ERROR_LOG_LEVEL says. Refused before.
VINTOK_API int32_t vintok_set_log_level(int32_t level);
VINTOK_API int32_t vintok_log_level(void);
// The log is appended to this file; empty: it goes to the standard error. Neither this nor the next
// may be called while another thread may log.
VINTOK_API int32_t vintok_set_log_file(const char *path);
// Messages go to the callback in place of the standard error, on the thread that logs. For the
// whole process. Null: as before.
VINTOK_API int32_t vintok_on_log(vintok_log_callback callback, void *user);
// Writes one message, if the level lets it through: then 1.
VINTOK_API int32_t vintok_log(int32_t severity, const char *message);

// ---- For the whole process ----

// How long a connect waits for an answer, and how long the other side of a connection may show no
// sign of life; 0: as long as the system. Refused before `vintok_start`; its end sets both back.
VINTOK_API int32_t vintok_set_connect_timeout(uint32_t milliseconds);
VINTOK_API int32_t vintok_set_peer_timeout(uint32_t milliseconds);
// Where files that arrive are stored; empty: nowhere, they are passed on only. Sets an environment
// variable: not while another thread reads the environment.
VINTOK_API int32_t vintok_set_file_root(const char *folder);
// Whether files may go where links below that folder lead. Off at first.
VINTOK_API int32_t vintok_set_file_links(int32_t on);

// The meeting's time, in seconds since 1970 UTC: the system's clock, corrected.
VINTOK_API int64_t vintok_time(void);
// By how many seconds it is ahead of the system's clock.
VINTOK_API int64_t vintok_clock_offset(void);
VINTOK_API int32_t vintok_set_clock_offset(int64_t seconds);

// ---- Entries: who a party is ----

// A callback's entry is good until it returns. A copy is the caller's, to be freed; it stays as it
// was. Either names the party to the functions that take one: it is found by its address.
typedef struct vintok_entry vintok_entry;
VINTOK_API vintok_entry *vintok_entry_copy(const vintok_entry *entry);
VINTOK_API void vintok_entry_free(vintok_entry *copy);
// Whether both are the same party, which is one that has the same address and port.
VINTOK_API int32_t vintok_entry_same(const vintok_entry *one, const vintok_entry *other);

enum {
    VINTOK_FIRST_NAME = 0,
    VINTOK_LAST_NAME = 1,
    VINTOK_TITLE = 2,
    VINTOK_EMAIL = 3,
    VINTOK_PHONE = 4,
    VINTOK_MEETING_NAME = 5,
    VINTOK_MEETING_ID = 6
};
// Never null; empty for an unknown field. Good as long as the entry does not change.
VINTOK_API const char *vintok_entry_text(const vintok_entry *entry, int32_t field);
// The IP address as text: writes at most `size` bytes with the zero, and returns how many bytes the
// whole text has without it, as snprintf does. "0.0.0.0" where none is known.
VINTOK_API size_t vintok_entry_address(const vintok_entry *entry, char *buffer, size_t size);
VINTOK_API uint16_t vintok_entry_port(const vintok_entry *entry);
// The colour that the meeting gave the party; 65535: none.
VINTOK_API uint16_t vintok_entry_color(const vintok_entry *entry);
// The version of the protocol that the party speaks, as `vintok_version`.
VINTOK_API uint32_t vintok_entry_version(const vintok_entry *entry);

enum {
    VINTOK_STATE_MEETING = 0x1, // is in a meeting
    VINTOK_STATE_HOST = 0x2,
    VINTOK_STATE_LEADER = 0x4,
    VINTOK_STATE_SERVER = 0x8,        // relays and has no user; callbacks do not tell of it
    VINTOK_STATE_JOIN_PENDING = 0x10, // waits for an answer
    VINTOK_STATE_SHADOW = 0x20,       // without a connection of its own to here
    VINTOK_STATE_LEAD_PENDING = 0x40, // has asked for the lead
    VINTOK_STATE_SECURE = 0x80,       // its connection runs over the secure channel
    VINTOK_STATE_SECURE_ABLE = 0x100,
    VINTOK_STATE_SECURE_PREFERRED = 0x200,
    VINTOK_STATE_SECURE_REQUIRED = 0x400,
    VINTOK_STATE_SECURE_ONLY = 0x800, // takes secure connections only
    VINTOK_STATE_FIPS_REQUIRED = 0x1000,
    VINTOK_STATE_HIDING_ADDRESS = 0x2000, // its address is to be hidden from others
    VINTOK_STATE_MUX_ENCRYPT = 0x4000,
    VINTOK_STATE_MUX_REDIRECTED = 0x8000
};
// All that hold, added.
VINTOK_API int32_t vintok_entry_state(const vintok_entry *entry);

// ---- A participant ----

// One party in a meeting.
typedef struct vintok_participant vintok_participant;

enum {
    VINTOK_LOCAL_ONLY = 0x1, // listens on loopback
    VINTOK_EXACT_PORT = 0x2, // and not on one of the 254 ports behind it
    VINTOK_ANY_PORT = 0x4,   // on one above 49151 by chance, in place of `port`
    VINTOK_NOWHERE = 0x8     // cannot be called; its address is made up
};
// How to listen: `flags` are those above.
typedef struct vintok_participant_options {
    uint32_t size;
    uint32_t flags;
    uint16_t port; // 0: the configured one, or 7777
    uint16_t reserved;
} vintok_participant_options;

// Starts the library and listens, on IPv4 and IPv6; prints "\nPORT:<port>\n" on the standard
// output. The options may be null. Null if it cannot listen.
VINTOK_API vintok_participant *vintok_participant_create(const vintok_participant_options *options);
// Closes every connection without a word to anybody (see `vintok_hangup`) and frees the handle.
// From inside a callback of this participant it is refused. Null is fine.
VINTOK_API int32_t vintok_participant_destroy(vintok_participant *participant);

// The own entry. Good as long as the participant; changes with it.
VINTOK_API const vintok_entry *vintok_self(const vintok_participant *participant);
// The others hear of a change with `vintok_send_roster`. The name of the meeting is its host's.
VINTOK_API int32_t vintok_set_text(vintok_participant *participant, int32_t field,
                                   const char *text);
VINTOK_API int32_t vintok_set_color(vintok_participant *participant, uint16_t color);
// What this party is and demands: VINTOK_STATE_SERVER, and those from VINTOK_STATE_SECURE_ABLE on,
// without VINTOK_STATE_SECURE_REQUIRED. To prefer secure connections needs a party that is able to
// make them; not to prefer them, one that nobody is connected to.
VINTOK_API int32_t vintok_set_state(vintok_participant *participant, int32_t state, int32_t on);

// ---- Meetings and calls ----

// Becomes the host of a meeting, or renames that of a host who is alone.
VINTOK_API int32_t vintok_host(vintok_participant *participant, const char *meeting_name);

// How to call: each that is zero or null is left to the library.
typedef struct vintok_call_options {
    uint32_t size;
    uint32_t retries;    // how often a redirect or a demand for credentials is followed
    uint16_t port;       // 0: the configured one
    uint16_t proxy_port; // 0: 80
    uint32_t reserved;
    const char *proxy;      // the name of an HTTP proxy
    const char *meeting_id; // goes through a multiplexing server, behind the proxy if there is one
    const char *authentication; // goes to them as it stands
    const char *addresses;      // IP addresses of whom to connect to, with blanks in between, for
                                // `vintok_start_call`: nothing is looked up, so it does not block
} vintok_call_options;

// Calls a party. 1: the call is under way, and one of the callbacks below tells how it ends. The
// first blocks until the connection stands. With the second the loop goes on meanwhile, and only
// names that have to be looked up block. The options may be null.
VINTOK_API int32_t vintok_call(vintok_participant *participant, const char *name,
                               const vintok_call_options *options);
VINTOK_API int32_t vintok_start_call(vintok_participant *participant, const char *name,
                                     const vintok_call_options *options);
// The answer to who waits since `vintok_on_call_pending`, at once or later. Block.
VINTOK_API int32_t vintok_accept_call(vintok_participant *participant, const vintok_entry *caller);
VINTOK_API int32_t vintok_reject_call(vintok_participant *participant, const vintok_entry *caller);
// Leaves the meeting, and ends every connection and every call. Blocks until the goodbyes are
// written.
VINTOK_API int32_t vintok_hangup(vintok_participant *participant);

// ---- Callbacks about parties and calls ----

// A callback may call any function, but not destroy its participant. There is one for each event; a
// further one replaces it, and null takes it out. `user` is handed over as it is.

typedef void (*vintok_entry_callback)(vintok_participant *participant, const vintok_entry *party,
                                      void *user);
// `name` is what was called, empty for who called here; `party` is what is known of it.
typedef void (*vintok_call_callback)(vintok_participant *participant, const char *name,
                                     const vintok_entry *party, void *user);
// What a further `vintok_call` would take.
typedef void (*vintok_again_callback)(vintok_participant *participant, const char *name,
                                      const vintok_call_options *options, void *user);
// The status is HTTP's, 0: none.
typedef void (*vintok_response_callback)(vintok_participant *participant, uint32_t status,
                                         const char *response, void *user);
// VINTOK_STATE_HIDING_ADDRESS, VINTOK_STATE_FIPS_REQUIRED or VINTOK_STATE_SECURE_ONLY, added.
typedef void (*vintok_security_callback)(vintok_participant *participant, int32_t changed,
                                         void *user);

// Somebody wants to join: answer. Without this callback everybody is accepted.
VINTOK_API int32_t vintok_on_call_pending(vintok_participant *participant,
                                          vintok_entry_callback callback, void *user);
VINTOK_API int32_t vintok_on_join(vintok_participant *participant, vintok_entry_callback callback,
                                  void *user);
// Set it even if it does nothing: without it a member may not notice that its host has left.
VINTOK_API int32_t vintok_on_leave(vintok_participant *participant, vintok_entry_callback callback,
                                   void *user);
// The data of a party changed, or the own ones.
VINTOK_API int32_t vintok_on_change(vintok_participant *participant, vintok_entry_callback callback,
                                    void *user);
VINTOK_API int32_t vintok_on_lead_change(vintok_participant *participant,
                                         vintok_entry_callback callback, void *user);
// A party asks for the lead that this party holds: answer. Without this callback it gets it.
VINTOK_API int32_t vintok_on_lead_request(vintok_participant *participant,
                                          vintok_entry_callback callback, void *user);
// A security option of this party changed.
VINTOK_API int32_t vintok_on_security(vintok_participant *participant,
                                      vintok_security_callback callback, void *user);

// The own call was accepted; found the party in a meeting that cannot be joined through it; was
// refused; is being answered; ended without an answer; or found a party of an older version.
VINTOK_API int32_t vintok_on_accepted(vintok_participant *participant,
                                      vintok_call_callback callback, void *user);
VINTOK_API int32_t vintok_on_busy(vintok_participant *participant, vintok_call_callback callback,
                                  void *user);
VINTOK_API int32_t vintok_on_rejected(vintok_participant *participant,
                                      vintok_call_callback callback, void *user);
VINTOK_API int32_t vintok_on_ringing(vintok_participant *participant, vintok_call_callback callback,
                                     void *user);
VINTOK_API int32_t vintok_on_no_answer(vintok_participant *participant,
                                       vintok_call_callback callback, void *user);
VINTOK_API int32_t vintok_on_version(vintok_participant *participant, vintok_call_callback callback,
                                     void *user);
// A call was turned away because the caller's address, with its port, is another party's in the
// meeting: here, or there if the application there has set this callback too. `why` is a sentence.
typedef void (*vintok_reason_callback)(vintok_participant *participant, const vintok_entry *party,
                                       const char *why, void *user);
VINTOK_API int32_t vintok_on_turned_away(vintok_participant *participant,
                                         vintok_reason_callback callback, void *user);
// A proxy or server demands credentials: call again with them.
VINTOK_API int32_t vintok_on_proxy(vintok_participant *participant, vintok_again_callback callback,
                                   void *user);
// The multiplexer sends the call elsewhere: call there. Without this callback the library does.
VINTOK_API int32_t vintok_on_redirect(vintok_participant *participant,
                                      vintok_again_callback callback, void *user);
// A reply on the way through a proxy or multiplexer.
VINTOK_API int32_t vintok_on_server_response(vintok_participant *participant,
                                             vintok_response_callback callback, void *user);

// ---- Roster and lead ----

// Publishes the own data; a host publishes the whole roster. 0 where nobody is there. Blocks.
VINTOK_API int32_t vintok_send_roster(vintok_participant *participant);
// Asks for the roster, which comes by `vintok_on_change`. Blocks.
VINTOK_API int32_t vintok_request_roster(vintok_participant *participant);
// Shows the others of the meeting, as they were at the call, until the visitor returns 0. The
// result is how many it was shown.
typedef int32_t (*vintok_visitor)(const vintok_entry *party, void *user);
VINTOK_API uint32_t vintok_visit_roster(const vintok_participant *participant,
                                        vintok_visitor visitor, void *user);

// Asks for the lead. A refusal comes by `vintok_on_lead_reply`, a grant by `vintok_on_lead_change`,
// and by the other as well if another party than the host gave the lead. Blocks.
VINTOK_API int32_t vintok_request_lead(vintok_participant *participant);
// The answers to `vintok_on_lead_request`, at once or later. Block.
VINTOK_API int32_t vintok_accept_lead(vintok_participant *participant);
VINTOK_API int32_t vintok_reject_lead(vintok_participant *participant);
typedef void (*vintok_reply_callback)(vintok_participant *participant, int32_t granted, void *user);
VINTOK_API int32_t vintok_on_lead_reply(vintok_participant *participant,
                                        vintok_reply_callback callback, void *user);

// ---- What is said ----

// To all parties of the meeting. The bytes are copied. 0 too if somebody was not reached. Blocks.
VINTOK_API int32_t vintok_broadcast(vintok_participant *participant, const void *data,
                                    size_t length);
// To one party. The result is a number, under which `vintok_on_delivery` tells within 10 seconds
// what became of it. Blocks.
VINTOK_API uint32_t vintok_send_private(vintok_participant *participant, const vintok_entry *party,
                                        const void *data, size_t length);
// A message of the application's own, from a member to its host, from the host to all members. The
// identifier is any 16 bytes that the library does not use. Blocks.
VINTOK_API int32_t vintok_send_message(vintok_participant *participant, const uint8_t *identifier,
                                       const void *data, size_t length);
// Writes one of the identifiers that are kept for applications into 16 bytes: 48 to 99.
VINTOK_API int32_t vintok_message_identifier(int32_t number, uint8_t *identifier);
// Tests every connection; the leave callback tells who is found dead. Blocks.
VINTOK_API int32_t vintok_send_keep_alive(vintok_participant *participant);
// A party that is not enabled gets nothing that is said to all.
VINTOK_API int32_t vintok_enable(vintok_participant *participant, const vintok_entry *party,
                                 int32_t on);

// The bytes are the library's, and good until the callback returns. The speaker is null where it is
// not known: a party that does not set `vintok_on_said` does not say who it is.
typedef void (*vintok_data_callback)(vintok_participant *participant, const vintok_entry *speaker,
                                     const uint8_t *data, size_t length, void *user);
VINTOK_API int32_t vintok_on_said(vintok_participant *participant, vintok_data_callback callback,
                                  void *user);
// Without this callback nothing private is taken.
VINTOK_API int32_t vintok_on_private(vintok_participant *participant, vintok_data_callback callback,
                                     void *user);
// 1: the party's application has it.
typedef void (*vintok_delivery_callback)(vintok_participant *participant, uint32_t number,
                                         const vintok_entry *party, int32_t taken, void *user);
VINTOK_API int32_t vintok_on_delivery(vintok_participant *participant,
                                      vintok_delivery_callback callback, void *user);
// A message of an application's own, from this neighbour. Result 1: a host passes it on to the
// others.
typedef int32_t (*vintok_message_callback)(vintok_participant *participant,
                                           const vintok_entry *neighbour, const uint8_t *identifier,
                                           const uint8_t *data, size_t length, void *user);
VINTOK_API int32_t vintok_on_message(vintok_participant *participant,
                                     vintok_message_callback callback, void *user);

// ---- Files and the clock ----

// Sends a file to all parties of the meeting. `relative_path`, the end of `path`, is where it goes
// below each receiver's folder (`vintok_set_file_root`). Blocks for all of it.
VINTOK_API int32_t vintok_send_file(vintok_participant *participant, const char *path,
                                    const char *relative_path);
// The same while the loop goes on: a file from anywhere, bytes, which are copied, or `length` bytes
// that `source` puts, from `offset` on, into the buffer; it returns how many, 0 when they cannot be
// had. `name` is where it goes below each receiver's folder. The result is a number, under which
// `vintok_on_file_sent` tells the end, once; files go one after the other.
VINTOK_API uint32_t vintok_start_file(vintok_participant *participant, const char *path,
                                      const char *name);
VINTOK_API uint32_t vintok_start_file_bytes(vintok_participant *participant, const void *data,
                                            size_t length, const char *name);
typedef size_t (*vintok_file_source)(vintok_participant *participant, uint64_t offset,
                                     uint8_t *buffer, size_t room, void *user);
VINTOK_API uint32_t vintok_start_file_from(vintok_participant *participant,
                                           vintok_file_source source, void *user, uint64_t length,
                                           const char *name);
// Receivers keep nothing of it. Refused for one that has ended.
VINTOK_API int32_t vintok_cancel_file(vintok_participant *participant, uint32_t number);
enum {
    VINTOK_FILE_SENT = 1,       // to everybody who is in the meeting
    VINTOK_FILE_INCOMPLETE = 2, // not all of it to everybody
    VINTOK_FILE_CANCELLED = 3,
    VINTOK_FILE_UNREADABLE = 4,
    VINTOK_FILE_UNWANTED = 5, // everybody has refused it
    VINTOK_FILE_ALONE = 6     // nobody is there any more
};
typedef void (*vintok_file_sent_callback)(vintok_participant *participant, uint32_t number,
                                          int32_t outcome, void *user);
VINTOK_API int32_t vintok_on_file_sent(vintok_participant *participant,
                                       vintok_file_sent_callback callback, void *user);
// The rest of what arrives from this party is not wanted; the part that is here is removed. The
// sender's application is told, if it has started the file as above. Blocks.
VINTOK_API int32_t vintok_refuse_file(vintok_participant *participant, const vintok_entry *origin);
typedef void (*vintok_file_refused_callback)(vintok_participant *participant, uint32_t number,
                                             const vintok_entry *party, void *user);
VINTOK_API int32_t vintok_on_file_refused(vintok_participant *participant,
                                          vintok_file_refused_callback callback, void *user);
// Progress is told at most once in so many milliseconds for each file, its begin and its end
// always; 0: for each message.
VINTOK_API int32_t vintok_set_file_progress_interval(vintok_participant *participant,
                                                     uint32_t milliseconds);
// Where files that arrive here are stored, in place of the folder of the whole process; empty: that
// one.
VINTOK_API int32_t vintok_set_file_folder(vintok_participant *participant, const char *folder);
// A file has arrived whole, or has failed to. The neighbour passed it on; `path` is where it is.
typedef void (*vintok_file_callback)(vintok_participant *participant, const vintok_entry *neighbour,
                                     int32_t whole, const char *path, void *user);
VINTOK_API int32_t vintok_on_file(vintok_participant *participant, vintok_file_callback callback,
                                  void *user);
// For each part of a file, first with 0 bytes done. `total` is 0 where it is not known. The path is
// empty where nothing is stored.
typedef void (*vintok_progress_callback)(vintok_participant *participant,
                                         const vintok_entry *origin, uint64_t done, uint64_t total,
                                         const char *path, void *user);
VINTOK_API int32_t vintok_on_file_progress(vintok_participant *participant,
                                           vintok_progress_callback callback, void *user);

// Asks a party that has a connection to here for its time, and moves the clock to it. Blocks.
VINTOK_API int32_t vintok_request_time(vintok_participant *participant, const vintok_entry *party);
// The clock was compared with another party's: the whole correction, of which one is 0.
typedef void (*vintok_clock_callback)(vintok_participant *participant, int64_t added_seconds,
                                      int64_t subtracted_seconds, void *user);
VINTOK_API int32_t vintok_on_clock(vintok_participant *participant, vintok_clock_callback callback,
                                   void *user);

// ---- Guards ----

// Each is off until it is switched on, and 0 switches it off (docs/guards.md).

// How long an own call waits for the hello of the other side, and then for its answer.
VINTOK_API int32_t vintok_set_call_timeouts(vintok_participant *participant, uint32_t hello,
                                            uint32_t answer);

// Who has more than `bytes` waiting for so long, or would have more than `most_bytes`, is hung up.
typedef struct vintok_slow_member_limits {
    uint32_t size;
    uint32_t milliseconds;
    uint64_t bytes;
    uint64_t most_bytes; // 0: no limits
} vintok_slow_member_limits;
VINTOK_API int32_t vintok_set_slow_member_limits(vintok_participant *participant,
                                                 const vintok_slow_member_limits *limits);
enum { VINTOK_SLOW_BEHIND = 1, VINTOK_SLOW_FULL = 2 }; // by `bytes`, by `most_bytes`
typedef void (*vintok_slow_callback)(vintok_participant *participant, const vintok_entry *member,
                                     uint64_t waiting_bytes, int32_t why, void *user);
VINTOK_API int32_t vintok_on_slow_member(vintok_participant *participant,
                                         vintok_slow_callback callback, void *user);
// Result 1: this broadcast may be kept from a member that has more than `bytes` waiting, who then
// is not hung up for that. Not to call anything of the participant.
typedef int32_t (*vintok_drop_callback)(vintok_participant *participant, const vintok_entry *member,
                                        const uint8_t *data, size_t length, void *user);
VINTOK_API int32_t vintok_on_drop(vintok_participant *participant, vintok_drop_callback callback,
                                  void *user);
// The bytes that wait for the member for whom the most wait.
VINTOK_API uint64_t vintok_waiting_bytes(const vintok_participant *participant);

// What those who connect may cost before they have joined.
typedef struct vintok_caller_limits {
    uint32_t size;
    uint32_t connections;
    uint32_t per_address;
    uint32_t hello_time;
    uint32_t join_time;
    uint32_t joins; // a second
    uint64_t frame_bytes;
} vintok_caller_limits;
VINTOK_API int32_t vintok_set_caller_limits(vintok_participant *participant,
                                            const vintok_caller_limits *limits);

// What a meeting may have: members besides the host, bytes of a roster entry and of a message.
typedef struct vintok_meeting_limits {
    uint32_t size;
    uint32_t members;
    uint32_t entry_bytes;
    uint32_t reserved;
    uint64_t frame_bytes;
} vintok_meeting_limits;
VINTOK_API int32_t vintok_set_meeting_limits(vintok_participant *participant,
                                             const vintok_meeting_limits *limits);

// A host tells its members only of entries that have changed.
VINTOK_API int32_t vintok_set_roster_by_differences(vintok_participant *participant, int32_t on);
// Messages count only from those from whom they can come; and how many were refused so far.
VINTOK_API int32_t vintok_set_members_only(vintok_participant *participant, int32_t on);
VINTOK_API uint64_t vintok_refused_messages(const vintok_participant *participant);
// How far another party may move the clock at once.
VINTOK_API int32_t vintok_set_largest_clock_step(vintok_participant *participant, int64_t seconds);
// A file gets its name when it is whole.
VINTOK_API int32_t vintok_set_temporary_files(vintok_participant *participant, int32_t on);
// Handshakes of the secure channel go on beside the loop.
VINTOK_API int32_t vintok_set_background_handshakes(vintok_participant *participant, int32_t on);

// ---- The loop ----

// Drives every participant of its thread. Several loops of one thread share what they watch. It may
// be destroyed from inside a callback, while it runs too; null is fine.
typedef struct vintok_loop vintok_loop;
VINTOK_API vintok_loop *vintok_loop_create(void);
VINTOK_API void vintok_loop_destroy(vintok_loop *loop);

// Waits and calls back until `vintok_loop_interrupt`, or until there is nothing to watch.
VINTOK_API int32_t vintok_loop_run(vintok_loop *loop);
// One pass: waits, or with `immediate` only looks, and calls back. The number of descriptors that
// could be read; -1: nothing to watch, or the wait was interrupted.
VINTOK_API int32_t vintok_loop_poll(vintok_loop *loop, int32_t immediate);
VINTOK_API int32_t vintok_loop_is_running(const vintok_loop *loop);

// Ends `vintok_loop_run` once its wait has ended: from another thread call `vintok_loop_wake`
// behind it. Any thread, and signal handlers.
VINTOK_API void vintok_loop_interrupt(vintok_loop *loop);
// Ends the wait, or the next one, and has the wake callback called on the loop's thread, once for
// any number of calls. Any thread. Nothing without `vintok_loop_on_wake`, which comes first;
// a thread has one such callback, the last that was set.
VINTOK_API void vintok_loop_wake(const vintok_loop *loop);
typedef void (*vintok_wake_callback)(vintok_loop *loop, void *user);
VINTOK_API int32_t vintok_loop_on_wake(vintok_loop *loop, vintok_wake_callback callback,
                                       void *user);

// Has the callback called when a descriptor of the program's own can be read. The first is for
// sockets that the library is to know and may read and write, `secure` over the secure channel; the
// second for whatever the system can wait for, on Windows sockets. The descriptor stays the
// caller's. The third takes back what was registered with the same three.
typedef void (*vintok_descriptor_callback)(vintok_loop *loop, int32_t descriptor, void *user);
VINTOK_API int32_t vintok_loop_add_socket(vintok_loop *loop, int32_t descriptor, int32_t secure,
                                          vintok_descriptor_callback callback, void *user);
VINTOK_API int32_t vintok_loop_add_readable(vintok_loop *loop, int32_t descriptor,
                                            vintok_descriptor_callback callback, void *user);
VINTOK_API int32_t vintok_loop_remove(vintok_loop *loop, int32_t descriptor,
                                      vintok_descriptor_callback callback, void *user);

// ---- The loop inside another one ----

// Before each of its waits the other loop asks what to wait for and for how long, and behind it
// calls `vintok_loop_poll(loop, 1)`.

// One of those to wait for: until it can be read, has room to be written to, or for either.
typedef struct vintok_watched {
    int32_t descriptor;
    int32_t reading;
    int32_t writing;
} vintok_watched;
// Fills at most `capacity` of them, and returns how many there are.
VINTOK_API size_t vintok_loop_watched(const vintok_loop *loop, vintok_watched *watched,
                                      size_t capacity);
// A single descriptor that can be read while one of those can go on, and stays the same; brought up
// to date by the call. -1 where the system has no such thing (Windows).
VINTOK_API int32_t vintok_loop_nested_descriptor(const vintok_loop *loop);
// Milliseconds; 0: at once, -1: any time.
VINTOK_API int32_t vintok_loop_timeout(const vintok_loop *loop);

#ifdef __cplusplus
}
#endif
// NOLINTEND

#endif
