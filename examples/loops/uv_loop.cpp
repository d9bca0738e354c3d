// A meeting in the loop of libuv. Before each wait `arm` says for what and for how long; behind it
// `pass` does what can be done.
#include "meeting.h"

#include <uv.h>

namespace {

struct Nest {
    Meeting meeting;
    uv_loop_t *loop = uv_default_loop();
    uv_prepare_t before;
    uv_check_t behind;
    uv_poll_t descriptor;
    uv_timer_t timer;
};

void nothing(uv_poll_t *, int, int) {}
void onTime(uv_timer_t *) {}

void arm(uv_prepare_t *handle) {
    Nest &nest = *static_cast<Nest *>(handle->data);
    nest.meeting.loop.nestedDescriptor(); // it learns what is to be waited for now
    const int timeout = nest.meeting.loop.timeout();
    uv_timer_stop(&nest.timer);
    if (timeout >= 0) {
        uv_update_time(nest.loop);
        uv_timer_start(&nest.timer, onTime, static_cast<std::uint64_t>(timeout), 0);
    }
}

void pass(uv_check_t *handle) {
    Nest &nest = *static_cast<Nest *>(handle->data);
    nest.meeting.loop.pollDescriptors(true);
    if (nest.meeting.isOver)
        uv_stop(nest.loop);
}

} // namespace

int main() {
    Nest nest;
    uv_prepare_init(nest.loop, &nest.before);
    uv_check_init(nest.loop, &nest.behind);
    uv_timer_init(nest.loop, &nest.timer);
    uv_poll_init(nest.loop, &nest.descriptor, nest.meeting.loop.nestedDescriptor());
    nest.before.data = nest.behind.data = &nest;
    uv_prepare_start(&nest.before, arm);
    uv_check_start(&nest.behind, pass);
    uv_poll_start(&nest.descriptor, UV_READABLE, nothing);
    uv_run(nest.loop, UV_RUN_DEFAULT);
}
