/* A listener in C: joins a meeting, greets whoever comes, and prints what is said, with the name of
 * who said it, until the host ends the meeting.
 *
 *     c_chat Cora 192.0.2.7 7777
 */
#include <vintok-c/vintok.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct chat {
    vintok_loop *loop;
    int status;
};

static void end(struct chat *chat, int status) {
    chat->status = status;
    vintok_loop_interrupt(chat->loop);
}

static void joined(vintok_participant *self, const vintok_entry *party, void *user) {
    const char greeting[] = "Good morning";
    (void)user;
    printf("* %s is here\n", vintok_entry_text(party, VINTOK_FIRST_NAME));
    fflush(stdout);
    if (!vintok_broadcast(self, greeting, strlen(greeting)))
        fprintf(stderr, "%s\n", vintok_last_error_text());
}

static void left(vintok_participant *self, const vintok_entry *party, void *user) {
    (void)self;
    if ((vintok_entry_state(party) & VINTOK_STATE_HOST) != 0)
        end(user, 0);
}

static void said(vintok_participant *self, const vintok_entry *speaker, const uint8_t *data,
                 size_t length, void *user) {
    (void)self;
    (void)user;
    printf("%s: %.*s\n",
           speaker != NULL ? vintok_entry_text(speaker, VINTOK_FIRST_NAME) : "somebody",
           (int)length, (const char *)data);
    fflush(stdout);
}

static void failed(vintok_participant *self, const char *name, const vintok_entry *party,
                   void *user) {
    (void)self;
    (void)party;
    fprintf(stderr, "%s has not taken the call\n", name);
    end(user, 1);
}

int main(int count, char **arguments) {
    struct chat chat = {NULL, 1};
    vintok_call_options call = {0};
    vintok_participant *self;
    if (count != 4) {
        fprintf(stderr, "usage: c_chat NAME HOST PORT\n");
        return 2;
    }
    self = vintok_participant_create(NULL);
    chat.loop = vintok_loop_create();
    call.size = sizeof call;
    call.port = (uint16_t)atoi(arguments[3]);
    if (self != NULL && chat.loop != NULL &&
        vintok_set_text(self, VINTOK_FIRST_NAME, arguments[1]) &&
        vintok_on_join(self, joined, &chat) && vintok_on_leave(self, left, &chat) &&
        vintok_on_said(self, said, &chat) && vintok_on_rejected(self, failed, &chat) &&
        vintok_on_busy(self, failed, &chat) && vintok_on_no_answer(self, failed, &chat) &&
        vintok_call(self, arguments[2], &call))
        vintok_loop_run(chat.loop);
    else
        fprintf(stderr, "%s\n", vintok_last_error_text());
    vintok_loop_destroy(chat.loop);
    vintok_participant_destroy(self);
    return chat.status;
}
