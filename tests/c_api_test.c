// The interface for C, all of it: three parties of one loop, and a fourth that has no luck.
// It is compiled as C and as C++.
#include <vintok-c/vintok.h>
#ifdef VINTOK_TEST_TLS
#include <vintok-c/vintok-tls.h>
#endif

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define CHECK(what) check((what) ? 1 : 0, #what, __LINE__)
// Turns the loop until it holds.
#define UNTIL(what)                                                                                \
    for (time_t end = time(NULL) + 30; !(what);) {                                                 \
        check(time(NULL) < end, #what, __LINE__);                                                  \
        vintok_loop_poll(loop, 1);                                                                 \
    }
#define REFUSED(code, what) CHECK(!(what) && vintok_last_error() == (code))

// The events that are told.
enum { CALL_PENDING, JOIN, LEAVE, CHANGE, LEAD_CHANGE, LEAD_REQUEST, ACCEPTED, BUSY, REJECTED };
enum { RINGING = REJECTED + 1, NO_ANSWER, VERSION, AGAIN, RESPONSE, SECURITY, LEAD_REPLY, SAID };
enum { PRIVATE = SAID + 1, DELIVERY, MESSAGE, FILE_CAME, FILE_SENT, FILE_REFUSED, TURNED_AWAY };
enum { PROGRESS = TURNED_AWAY + 1, CLOCK, SLOW, DROP, EVENTS };

struct party {
    vintok_participant *self;
    int told[EVENTS];
    vintok_entry *caller; // a copy
    char speaker[16];     // of what was told last, and what it was
    char text[64];
    int64_t number;
};

static vintok_loop *loop;
static int calls; // of callbacks beside a participant's

static void check(int good, const char *what, int line) {
    if (good)
        return;
    fprintf(stderr, "line %d: not so: %s (%s: %s)\n", line, what,
            vintok_error_name(vintok_last_error()), vintok_last_error_text());
    fflush(stderr);
    _Exit(1);
}

static struct party *tell(vintok_participant *self, int event, void *user) {
    struct party *party = (struct party *)user;
    CHECK(party->self == self || party->self == NULL);
    ++party->told[event];
    return party;
}

static void keep(struct party *party, const vintok_entry *speaker, const void *text, size_t length,
                 int64_t number) {
    snprintf(party->speaker, sizeof party->speaker, "%s",
             vintok_entry_text(speaker, VINTOK_FIRST_NAME));
    snprintf(party->text, sizeof party->text, "%.*s", (int)length, (const char *)text);
    party->number = number;
}

static int has(const struct party *party, const char *speaker, const char *text, int64_t number) {
    return strcmp(party->speaker, speaker) == 0 && strcmp(party->text, text) == 0 &&
           party->number == number;
}

static int is(const struct party *party, int32_t state) {
    return (vintok_entry_state(vintok_self(party->self)) & state) != 0;
}

// ---- Callbacks ----

#define ENTRY_CALLBACK(name, event)                                                                \
    static void name(vintok_participant *self, const vintok_entry *entry, void *user) {            \
        keep(tell(self, event, user), entry, "", 0, 0);                                            \
    }
#define CALL_CALLBACK(name, event)                                                                 \
    static void name(vintok_participant *self, const char *called, const vintok_entry *entry,      \
                     void *user) {                                                                 \
        keep(tell(self, event, user), entry, called, strlen(called), 0);                           \
    }
#define DATA_CALLBACK(name, event)                                                                 \
    static void name(vintok_participant *self, const vintok_entry *speaker, const uint8_t *data,   \
                     size_t length, void *user) {                                                  \
        REFUSED(VINTOK_ERROR_UNSPECIFIED, vintok_participant_destroy(self));                       \
        keep(tell(self, event, user), speaker, data, length, 0);                                   \
    }
ENTRY_CALLBACK(on_join, JOIN)
ENTRY_CALLBACK(on_leave, LEAVE)
ENTRY_CALLBACK(on_change, CHANGE)
ENTRY_CALLBACK(on_lead_change, LEAD_CHANGE)
ENTRY_CALLBACK(on_lead_request, LEAD_REQUEST)
CALL_CALLBACK(on_accepted, ACCEPTED)
CALL_CALLBACK(on_busy, BUSY)
CALL_CALLBACK(on_rejected, REJECTED)
CALL_CALLBACK(on_ringing, RINGING)
CALL_CALLBACK(on_no_answer, NO_ANSWER)
CALL_CALLBACK(on_version, VERSION)
DATA_CALLBACK(on_said, SAID)
DATA_CALLBACK(on_private, PRIVATE)

static void on_call_pending(vintok_participant *self, const vintok_entry *caller, void *user) {
    tell(self, CALL_PENDING, user)->caller = vintok_entry_copy(caller);
}
static void on_again(vintok_participant *self, const char *name, const vintok_call_options *options,
                     void *user) {
    keep(tell(self, AGAIN, user), NULL, name, strlen(name), options->port);
}
static void on_response(vintok_participant *self, uint32_t status, const char *response,
                        void *user) {
    keep(tell(self, RESPONSE, user), NULL, response, strlen(response), (int64_t)status);
}
static void on_security(vintok_participant *self, int32_t changed, void *user) {
    keep(tell(self, SECURITY, user), NULL, "", 0, changed);
}
static void on_lead_reply(vintok_participant *self, int32_t granted, void *user) {
    keep(tell(self, LEAD_REPLY, user), NULL, "", 0, granted);
}
static void on_delivery(vintok_participant *self, uint32_t number, const vintok_entry *party,
                        int32_t taken, void *user) {
    keep(tell(self, DELIVERY, user), party, taken ? "taken" : "", 5, (int64_t)number);
}
static int32_t on_message(vintok_participant *self, const vintok_entry *neighbour,
                          const uint8_t *identifier, const uint8_t *data, size_t length,
                          void *user) {
    uint8_t expected[16];
    CHECK(vintok_message_identifier(50, expected) && memcmp(identifier, expected, 16) == 0);
    keep(tell(self, MESSAGE, user), neighbour, data, length, 0);
    return 1;
}
static void on_file(vintok_participant *self, const vintok_entry *neighbour, int32_t whole,
                    const char *path, void *user) {
    const size_t length = strlen(path);
    const char *end = length < 8 ? path : path + length - 8;
    keep(tell(self, FILE_CAME, user), neighbour, end, strlen(end), whole);
}
static void on_progress(vintok_participant *self, const vintok_entry *origin, uint64_t done,
                        uint64_t total, const char *path, void *user) {
    CHECK(total == 0 || done <= total);
    keep(tell(self, PROGRESS, user), origin, path, 0, (int64_t)done);
}
static void on_file_sent(vintok_participant *self, uint32_t number, int32_t outcome, void *user) {
    CHECK(number != 0);
    keep(tell(self, FILE_SENT, user), NULL, "", 0, outcome);
}
static void on_file_refused(vintok_participant *self, uint32_t number, const vintok_entry *party,
                            void *user) {
    CHECK(number != 0 && party != NULL);
    tell(self, FILE_REFUSED, user);
}
static void on_turned_away(vintok_participant *self, const vintok_entry *party, const char *why,
                           void *user) {
    keep(tell(self, TURNED_AWAY, user), party, why, strlen(why), 0);
}
/* Ten thousand bytes, each the last of its place. */
static size_t read_source(vintok_participant *self, uint64_t offset, uint8_t *buffer, size_t room,
                          void *user) {
    size_t count = 0;
    CHECK(self && user == self);
    for (; count < room && offset + count < 10000; ++count)
        buffer[count] = (uint8_t)(offset + count);
    return count;
}
static void on_clock(vintok_participant *self, int64_t added, int64_t subtracted, void *user) {
    keep(tell(self, CLOCK, user), NULL, "", 0, added - subtracted);
}
static void on_slow(vintok_participant *self, const vintok_entry *member, uint64_t waiting,
                    int32_t why, void *user) {
    CHECK(waiting > 0);
    keep(tell(self, SLOW, user), member, "", 0, why);
}
static int32_t on_drop(vintok_participant *self, const vintok_entry *member, const uint8_t *data,
                       size_t length, void *user) {
    keep(tell(self, DROP, user), member, data, 0, (int64_t)length);
    return 1;
}

static void on_descriptor(vintok_loop *of, int32_t descriptor, void *user) {
    CHECK(of == loop && descriptor >= 0 && user == &calls);
    ++calls;
}
static void on_wake(vintok_loop *of, void *user) {
    CHECK(of == loop && user == &calls && vintok_loop_is_running(of));
    vintok_loop_interrupt(of);
}
static void on_log(int32_t severity, const char *message, void *user) {
    if (severity == VINTOK_SEVERITY_WARNING && strcmp(message, "a word") == 0)
        ++*(int *)user;
}
static int32_t visit(const vintok_entry *party, void *user) {
    char *names = (char *)user;
    strcat(names, vintok_entry_text(party, VINTOK_FIRST_NAME));
    return names[0] != 'B'; // nobody behind Ben
}

// ---- Parties ----

static void begin(struct party *party, const char *name) {
    vintok_participant_options options;
    memset(&options, 0, sizeof options);
    options.size = sizeof options;
    options.flags = VINTOK_LOCAL_ONLY;
    memset(party, 0, sizeof *party);
    vintok_participant *self = vintok_participant_create(&options);
    CHECK(self);
    party->self = self;
    CHECK(vintok_set_text(self, VINTOK_FIRST_NAME, name));
    CHECK(vintok_on_join(self, on_join, party) && vintok_on_leave(self, on_leave, party));
    CHECK(vintok_on_change(self, on_change, party));
    CHECK(vintok_on_lead_change(self, on_lead_change, party));
    CHECK(vintok_on_accepted(self, on_accepted, party) && vintok_on_busy(self, on_busy, party));
    CHECK(vintok_on_rejected(self, on_rejected, party));
    CHECK(vintok_on_ringing(self, on_ringing, party));
    CHECK(vintok_on_no_answer(self, on_no_answer, party));
    CHECK(vintok_on_version(self, on_version, party) && vintok_on_proxy(self, on_again, party));
    CHECK(vintok_on_redirect(self, on_again, party));
    CHECK(vintok_on_server_response(self, on_response, party));
    CHECK(vintok_on_security(self, on_security, party));
    CHECK(vintok_on_lead_reply(self, on_lead_reply, party));
    CHECK(vintok_on_said(self, on_said, party) && vintok_on_private(self, on_private, party));
    CHECK(vintok_on_delivery(self, on_delivery, party));
    CHECK(vintok_on_message(self, on_message, party) && vintok_on_file(self, on_file, party));
    CHECK(vintok_on_file_progress(self, on_progress, party));
    CHECK(vintok_on_file_sent(self, on_file_sent, party));
    CHECK(vintok_on_file_refused(self, on_file_refused, party));
    CHECK(vintok_on_turned_away(self, on_turned_away, party));
    CHECK(vintok_on_clock(self, on_clock, party));
}

static vintok_call_options calling(const struct party *party) {
    vintok_call_options options;
    memset(&options, 0, sizeof options);
    options.size = sizeof options;
    options.port = vintok_entry_port(vintok_self(party->self));
    return options;
}

// ---- What is checked ----

static void check_library(void) {
    int logged = 0;
    CHECK(vintok_version() == (VINTOK_C_VERSION_MAJOR << 16 | VINTOK_C_VERSION_MINOR));
    REFUSED(VINTOK_ERROR_UNSPECIFIED, vintok_set_log_level(VINTOK_LOG_INFO)); // nothing has begun
    CHECK(vintok_start() && vintok_on_log(on_log, &logged) && vintok_set_log_file(NULL));
    CHECK(vintok_log_level() == VINTOK_LOG_NONE && vintok_set_log_level(VINTOK_LOG_WARNING));
    CHECK(vintok_log(VINTOK_SEVERITY_WARNING, "a word") && logged == 1);
    CHECK(!vintok_log(VINTOK_SEVERITY_INFO, "another"));
    CHECK(vintok_on_log(NULL, NULL) && vintok_set_log_level(VINTOK_LOG_NONE));
    CHECK(vintok_set_connect_timeout(20000) && vintok_set_peer_timeout(20000));
    CHECK(vintok_set_clock_offset(100) && vintok_set_clock_offset(-20));
    CHECK(vintok_clock_offset() == -20 && vintok_time() - (int64_t)time(NULL) <= -19);
    CHECK(strcmp(vintok_error_name(VINTOK_ERROR_SYSTEM), "TCP_ERROR_SYSTEM_ERROR") == 0);
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_host(NULL, ""));
    CHECK(strstr(vintok_last_error_text(), "vintok_host"));
    CHECK(vintok_participant_destroy(NULL) && vintok_entry_port(NULL) == 0);
}

// What a newer program knows is taken if it asks for none of it.
static void check_sizes(void) {
    struct {
        vintok_participant_options options;
        uint32_t more;
    } newer;
    memset(&newer, 0, sizeof newer);
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_participant_create(&newer.options));
    newer.options.size = sizeof newer;
    vintok_participant *made = vintok_participant_create(&newer.options);
    CHECK(made);
    vintok_participant_options taken = newer.options;
    taken.size = sizeof taken;
    taken.flags = VINTOK_EXACT_PORT;
    taken.port = vintok_entry_port(vintok_self(made));
    REFUSED(VINTOK_ERROR_SYSTEM, vintok_participant_create(&taken));
    CHECK(vintok_participant_destroy(made));
    const uint32_t places[] = {VINTOK_ANY_PORT | VINTOK_LOCAL_ONLY, VINTOK_NOWHERE};
    for (int i = 0; i < 2; ++i) {
        taken.flags = places[i];
        CHECK((made = vintok_participant_create(&taken)) != NULL);
        CHECK(i == 0 ? vintok_entry_port(vintok_self(made)) >= 49152
                     : vintok_entry_port(vintok_self(made)) == 9);
        CHECK(vintok_participant_destroy(made));
    }
    newer.more = 1;
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_participant_create(&newer.options));
    newer.more = 0;
    newer.options.flags = 1u << 31;
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_participant_create(&newer.options));
}

static void check_guards(vintok_participant *self) {
    vintok_slow_member_limits slow = {sizeof slow, 10000, 1000, 0};
    vintok_caller_limits callers = {sizeof callers, 64, 16, 10000, 10000, 150, 65536};
    vintok_meeting_limits meeting = {sizeof meeting, 900, 16384, 0, 64u << 20};
    CHECK(vintok_set_slow_member_limits(self, &slow) && vintok_set_caller_limits(self, &callers));
    CHECK(vintok_set_meeting_limits(self, &meeting) && vintok_set_members_only(self, 1));
    CHECK(vintok_set_call_timeouts(self, 10000, 10000) && vintok_set_largest_clock_step(self, 60));
    CHECK(vintok_set_roster_by_differences(self, 1) && vintok_set_temporary_files(self, 1));
    CHECK(vintok_set_background_handshakes(self, 1) && vintok_refused_messages(self) == 0);
    callers.size = 0;
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_set_caller_limits(self, &callers));
}

static void check_own_entry(struct party *ann) {
    char address[64], cut[4];
    const vintok_entry *self = vintok_self(ann->self);
    CHECK(vintok_set_text(ann->self, VINTOK_PHONE, "12") && vintok_set_color(ann->self, 7));
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_set_text(ann->self, 99, "x"));
    CHECK(strcmp(vintok_entry_text(self, VINTOK_PHONE), "12") == 0);
    CHECK(vintok_entry_color(self) == 7 && vintok_entry_version(self) == 4u << 16);
    const size_t length = vintok_entry_address(self, address, sizeof address);
    CHECK(length > 6 && length == strlen(address));
    CHECK(vintok_entry_address(self, cut, sizeof cut) == length && strncmp(cut, address, 3) == 0);
    CHECK(strlen(cut) == 3);
    CHECK(vintok_set_state(ann->self, VINTOK_STATE_HIDING_ADDRESS, 1) && ann->told[SECURITY] == 1);
    CHECK(ann->number == VINTOK_STATE_HIDING_ADDRESS && is(ann, VINTOK_STATE_HIDING_ADDRESS));
    CHECK(vintok_set_state(ann->self, VINTOK_STATE_HIDING_ADDRESS, 0));
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_set_state(ann->self, VINTOK_STATE_HOST, 1));
}

// Ann asks herself for each caller: Cid is refused first.
static void meet(struct party *ann, struct party *ben, struct party *cid) {
    const vintok_call_options to_ann = calling(ann), to_ben = calling(ben);
    struct party dan;
    CHECK(vintok_host(ann->self, "Tuesday") &&
          vintok_on_call_pending(ann->self, on_call_pending, ann));
    CHECK(vintok_call(ben->self, "127.0.0.1", &to_ann));
    UNTIL(ann->told[CALL_PENDING] == 1 && ben->told[RINGING])
    CHECK(vintok_accept_call(ann->self, ann->caller) && ann->told[JOIN] == 1);
    vintok_entry_free(ann->caller);
    UNTIL(ben->told[ACCEPTED] && ben->told[JOIN])
    CHECK(strcmp(vintok_entry_text(vintok_self(ann->self), VINTOK_MEETING_NAME), "Tuesday") == 0);

    CHECK(vintok_start_call(cid->self, "127.0.0.1", &to_ann));
    UNTIL(ann->told[CALL_PENDING] == 2)
    CHECK(vintok_reject_call(ann->self, ann->caller));
    vintok_entry_free(ann->caller);
    UNTIL(cid->told[REJECTED])
    CHECK(vintok_on_call_pending(ann->self, NULL, NULL));
    vintok_call_options listed = to_ann;
    listed.addresses = "::1 127.0.0.1";
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_call(cid->self, "ann.example", &listed));
    CHECK(vintok_start_call(cid->self, "ann.example", &listed)); // nobody looks that up
    UNTIL(cid->told[ACCEPTED] && cid->told[JOIN] == 2 && ben->told[JOIN] == 2)

    begin(&dan, "Dan");
    CHECK(vintok_call(dan.self, "127.0.0.1", &to_ben));
    UNTIL(dan.told[BUSY])
    listed.addresses = "ann.example";
    REFUSED(VINTOK_ERROR_INVALID_ADDRESS, vintok_start_call(dan.self, "x", &listed));
    vintok_call_options way = calling(&dan); // where soon nobody listens
    CHECK(vintok_participant_destroy(dan.self));
    begin(&dan, "Dan");
    way.proxy = "127.0.0.1";
    way.proxy_port = way.port;
    if (vintok_entry_port(vintok_self(dan.self)) == way.port)
        way.proxy_port = 1;
    way.meeting_id = "Tuesday";
    CHECK(vintok_start_call(dan.self, "nobody.example", &way));
    CHECK(vintok_hangup(dan.self) && dan.told[NO_ANSWER] == 1 &&
          vintok_participant_destroy(dan.self));
}

static void check_roster(struct party *ann, struct party *ben) {
    char names[16] = "";
    CHECK(vintok_visit_roster(ann->self, visit, names) == 1 && strcmp(names, "Ben") == 0);
    names[0] = '\0';
    CHECK(vintok_visit_roster(ben->self, visit, names) == 2 && strcmp(names, "AnnCid") == 0);
    const int changes = ann->told[CHANGE];
    CHECK(vintok_set_text(ben->self, VINTOK_TITLE, "Dr") && vintok_send_roster(ben->self));
    UNTIL(ann->told[CHANGE] > changes)
    const int before = ben->told[CHANGE];
    CHECK(vintok_request_roster(ben->self) && vintok_send_keep_alive(ann->self));
    UNTIL(ben->told[CHANGE] > before)
}

static void check_lead(struct party *ann, struct party *ben, struct party *cid) {
    CHECK(is(ann, VINTOK_STATE_LEADER) && vintok_on_lead_request(ann->self, on_lead_request, ann));
    CHECK(vintok_request_lead(ben->self));
    UNTIL(ann->told[LEAD_REQUEST])
    CHECK(vintok_reject_lead(ann->self));
    UNTIL(ben->told[LEAD_REPLY] == 1)
    CHECK(ben->number == 0 && vintok_request_lead(cid->self));
    UNTIL(ann->told[LEAD_REQUEST] == 2)
    CHECK(vintok_accept_lead(ann->self));
    UNTIL(is(cid, VINTOK_STATE_LEADER) && ben->told[LEAD_CHANGE])
    CHECK(vintok_request_lead(ann->self)); // Cid has no callback, and gives it
    UNTIL(is(ann, VINTOK_STATE_LEADER))
}

static void check_talk(struct party *ann, struct party *ben, struct party *cid) {
    uint8_t identifier[16];
    CHECK(vintok_broadcast(ben->self, "hello", 5));
    UNTIL(cid->told[SAID])
    CHECK(has(ann, "Ben", "hello", 0) && has(cid, "Ben", "hello", 0));
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_broadcast(ben->self, NULL, 0));

    CHECK(vintok_enable(ann->self, vintok_self(cid->self), 0) &&
          vintok_broadcast(ann->self, "no", 2));
    UNTIL(has(ben, "Ann", "no", 0))
    CHECK(vintok_enable(ann->self, vintok_self(cid->self), 1) &&
          vintok_broadcast(ann->self, "ye", 2));
    UNTIL(has(cid, "Ann", "ye", 0))
    CHECK(cid->told[SAID] == 2);

    const uint32_t number = vintok_send_private(ben->self, vintok_self(cid->self), "psst", 4);
    CHECK(number);
    UNTIL(ben->told[DELIVERY])
    CHECK(has(cid, "Ben", "psst", 0) && cid->told[PRIVATE] == 1 &&
          has(ben, "Cid", "taken", number));
    REFUSED(VINTOK_ERROR_INVALID_ADDRESS,
            vintok_send_private(ben->self, vintok_self(ben->self), "me", 2));

    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_message_identifier(47, identifier));
    CHECK(vintok_message_identifier(50, identifier));
    CHECK(vintok_send_message(ben->self, identifier, "own", 3));
    UNTIL(cid->told[MESSAGE])
    CHECK(has(ann, "Ben", "own", 0) && has(cid, "Ann", "own", 0));
    CHECK(vintok_entry_same(vintok_self(ann->self), vintok_self(ann->self)));
    CHECK(!vintok_entry_same(vintok_self(ann->self), vintok_self(ben->self)));
}

static void check_started_files(struct party *ann, struct party *ben, struct party *cid) {
    uint32_t number;
    CHECK(vintok_set_file_folder(cid->self, "c_other") && vintok_set_file_folder(cid->self, ""));
    CHECK(vintok_enable(ann->self, vintok_self(cid->self), 0));
    CHECK(vintok_set_file_progress_interval(ben->self, 100));
    CHECK(vintok_start_file(ann->self, "./c_sent.x", "started.x"));
    CHECK(vintok_start_file_bytes(ann->self, "bytes", 5, "bytes.x"));
    CHECK(vintok_start_file_from(ann->self, read_source, ann->self, 10000, "source.x"));
    number = vintok_start_file_bytes(ann->self, "none", 4, "none.x");
    CHECK(number && vintok_cancel_file(ann->self, number) &&
          !vintok_cancel_file(ann->self, number));
    CHECK(ann->told[FILE_SENT] == 1 && has(ann, "", "", VINTOK_FILE_CANCELLED));
    UNTIL(ann->told[FILE_SENT] == 4 && ben->told[FILE_CAME] == 4)
    CHECK(has(ann, "", "", VINTOK_FILE_SENT) && has(ben, "Ann", "source.x", 1));
    CHECK(!vintok_start_file(ann->self, "./c_none.x", "c_none.x"));
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_start_file_from(ann->self, NULL, NULL, 5, "x"));
    REFUSED(VINTOK_ERROR_INVALID_ADDRESS, vintok_refuse_file(ben->self, vintok_self(ann->self)));
    CHECK(vintok_enable(ann->self, vintok_self(cid->self), 1));
}

static void check_file(struct party *ann, struct party *ben, struct party *cid) {
    FILE *file = fopen("c_sent.x", "wb");
    CHECK(file && fputs("some bytes", file) >= 0 && fclose(file) == 0);
    CHECK(vintok_set_file_root("c_received") && vintok_set_file_links(0));
    CHECK(vintok_enable(ann->self, vintok_self(cid->self), 0)); // they would share the folder
    CHECK(vintok_send_file(ann->self, "./c_sent.x", "c_sent.x"));
    CHECK(ann->told[PROGRESS] == 2 && has(ann, "Ann", "", 10));
    UNTIL(ben->told[FILE_CAME])
    CHECK(has(ben, "Ann", "c_sent.x", 1) && ben->told[PROGRESS] == 2);
    CHECK(vintok_enable(ann->self, vintok_self(cid->self), 1));
    CHECK(!vintok_send_file(ann->self, "./c_none.x", "c_none.x"));
    check_started_files(ann, ben, cid);
    remove("c_sent.x");
}

static void check_clock(struct party *ann, struct party *ben, struct party *cid) {
    const int exchanges = ben->told[CLOCK];
    CHECK(vintok_request_time(ben->self, vintok_self(ann->self)));
    UNTIL(ben->told[CLOCK] > exchanges)
    CHECK(ben->number == vintok_clock_offset());
    REFUSED(VINTOK_ERROR_INVALID_ADDRESS, vintok_request_time(ben->self, vintok_self(cid->self)));
}

static void check_loop(struct party *ben) {
    vintok_watched watched[64];
    const size_t count = vintok_loop_watched(loop, watched, 64);
    CHECK(count > 3 && count <= 64 && vintok_loop_watched(loop, NULL, 0) == count);
    CHECK(vintok_loop_timeout(loop) >= -1 && vintok_loop_nested_descriptor(loop) >= -1);
    for (size_t i = 0; i < count; ++i) {
        const int32_t descriptor = watched[i].descriptor;
        CHECK(watched[i].reading || watched[i].writing);
        CHECK(i % 2 ? vintok_loop_add_readable(loop, descriptor, on_descriptor, &calls)
                    : vintok_loop_add_socket(loop, descriptor, 0, on_descriptor, &calls));
        CHECK(!vintok_loop_add_readable(loop, descriptor, on_descriptor, &calls));
    }
    CHECK(vintok_broadcast(ben->self, "again", 5));
    UNTIL(calls >= 2)
    for (size_t i = 0; i < count; ++i)
        CHECK(vintok_loop_remove(loop, watched[i].descriptor, on_descriptor, &calls));
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT,
            vintok_loop_remove(loop, watched[0].descriptor, on_descriptor, &calls));

    CHECK(vintok_loop_on_wake(loop, on_wake, &calls));
    vintok_loop_wake(loop);
    CHECK(vintok_loop_run(loop) && !vintok_loop_is_running(loop));
    CHECK(vintok_loop_on_wake(loop, NULL, NULL));
    vintok_loop *other = vintok_loop_create();
    CHECK(other && vintok_loop_add_readable(other, watched[0].descriptor, on_descriptor, &calls));
    vintok_loop_destroy(other); // with what it has registered
}

// While the loop does not run nobody takes anything: a broadcast is dropped, and then the member.
static void check_slow_members(struct party *ann) {
    enum { SIZE = 1 << 20 };
    vintok_slow_member_limits limits = {sizeof limits, 60000, 1000, 4 * SIZE};
    char *much = (char *)calloc(1, SIZE);
    CHECK(much && vintok_set_slow_member_limits(ann->self, &limits));
    CHECK(vintok_on_drop(ann->self, on_drop, ann) &&
          vintok_on_slow_member(ann->self, on_slow, ann));
    for (int i = 0; i < 64 && ann->told[DROP] == 0; ++i)
        vintok_broadcast(ann->self, much, SIZE);
    CHECK(ann->told[DROP] && ann->number == SIZE && vintok_waiting_bytes(ann->self) > 1000);
    CHECK(vintok_on_drop(ann->self, NULL, NULL) && ann->told[SLOW] == 0);
    for (int i = 0; i < 64 && ann->told[SLOW] == 0; ++i)
        vintok_broadcast(ann->self, much, SIZE);
    CHECK(ann->told[SLOW]);
    free(much);
    UNTIL(ann->told[LEAVE] == 2)
}

#ifdef VINTOK_TEST_TLS
static void check_tls(void) {
    static const char *const made[] = {"ca.pem",   "ca.key",    "host.pem",
                                       "host.key", "guest.pem", "guest.key"};
    struct party ann, ben;
    char words[8] = "x", path[64];
    vintok_tls_options options;
    for (size_t i = 0; i < 6; ++i) {
        snprintf(path, sizeof path, "c_tls/%s", made[i]);
        remove(path);
    }
    CHECK(vintok_tls_create_folder("c_tls", "a.example b.example"));
    REFUSED(VINTOK_ERROR_SSL_TRANSPORT, vintok_tls_create_folder("c_tls", ""));
    memset(&options, 0, sizeof options);
    REFUSED(VINTOK_ERROR_INVALID_ARGUMENT, vintok_tls_install(&options));
    options.size = sizeof options;
    options.certificate_file = "c_tls/host.pem";
    options.key_file = "c_tls/none.key";
    REFUSED(VINTOK_ERROR_SSL_TRANSPORT, vintok_tls_install(&options));
    options.key_file = "c_tls/host.key";
    options.roots_file = "c_tls/ca.pem";
    CHECK(vintok_tls_install(&options));
    begin(&ann, "Ann");
    begin(&ben, "Ben");
    CHECK(vintok_set_state(ann.self, VINTOK_STATE_SECURE_ABLE, 1));
    CHECK(vintok_set_state(ben.self, VINTOK_STATE_SECURE_ABLE, 1));
    CHECK(vintok_set_state(ann.self, VINTOK_STATE_SECURE_PREFERRED, 1));
    CHECK(vintok_set_background_handshakes(ann.self, 1));
    CHECK(vintok_set_background_handshakes(ben.self, 1));
    const vintok_call_options to_ann = calling(&ann);
    CHECK(vintok_host(ann.self, "Secret") && vintok_start_call(ben.self, "127.0.0.1", &to_ann));
    UNTIL(ben.told[ACCEPTED] && ann.told[JOIN])
    CHECK(vintok_broadcast(ann.self, "hello", 5));
    UNTIL(has(&ben, "Ann", "hello", 0))
    CHECK(vintok_tls_take_failure(words, sizeof words) == VINTOK_TLS_ERROR_NONE && !words[0]);
    CHECK(vintok_participant_destroy(ben.self) && vintok_participant_destroy(ann.self));
    CHECK(vintok_tls_remove());
}
#endif

int main(void) {
    struct party ann, ben, cid;
    check_library();
    check_sizes();
    loop = vintok_loop_create();
    CHECK(loop && vintok_loop_poll(loop, 1) == -1);
    begin(&ann, "Ann");
    begin(&ben, "Ben");
    begin(&cid, "Cid");
    check_guards(ann.self);
    check_own_entry(&ann);
    meet(&ann, &ben, &cid);
    check_roster(&ann, &ben);
    check_lead(&ann, &ben, &cid);
    check_talk(&ann, &ben, &cid);
    check_file(&ann, &ben, &cid);
    check_clock(&ann, &ben, &cid);
    check_loop(&ben);
    check_slow_members(&ann);
    CHECK(vintok_hangup(ann.self) && !is(&ann, VINTOK_STATE_MEETING));
    CHECK(vintok_participant_destroy(cid.self) && vintok_participant_destroy(ben.self));
    CHECK(vintok_participant_destroy(ann.self));
#ifdef VINTOK_TEST_TLS
    check_tls();
#endif
    vintok_loop_destroy(loop);
    CHECK(vintok_stop());
    REFUSED(VINTOK_ERROR_NOT_INITIALIZED, vintok_stop());
    puts("done");
    return 0;
}
