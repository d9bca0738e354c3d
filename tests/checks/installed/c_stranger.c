#include <stdio.h>
#include <vintok-c/vintok.h>

int main(void) {
    vintok_participant *party = vintok_participant_create(NULL);
    vintok_loop *loop = vintok_loop_create();
    int good = party && loop && vintok_host(party, "Tuesday") && vintok_loop_poll(loop, 1) == 0 &&
               vintok_participant_destroy(party) &&
               vintok_version() >> 16 == VINTOK_C_VERSION_MAJOR;
    vintok_loop_destroy(loop);
    if (!good)
        puts(vintok_last_error_text());
    return !good;
}
