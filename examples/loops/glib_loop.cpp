// A meeting in the main loop of GLib, as a source of its own.
#include "meeting.h"

#include <glib-unix.h>

namespace {

struct Source {
    GSource base;
    Meeting *meeting;
    gpointer tag; // of the nested descriptor
};

gboolean prepare(GSource *source, gint *timeout) {
    vintok::TCPSelect &loop = reinterpret_cast<Source *>(source)->meeting->loop;
    loop.nestedDescriptor(); // it learns what is to be waited for now
    *timeout = loop.timeout();
    return *timeout == 0 ? TRUE : FALSE;
}

// What is due by now is due whether or not the descriptor can be read.
gboolean check(GSource *source) {
    auto *const self = reinterpret_cast<Source *>(source);
    return g_source_query_unix_fd(source, self->tag) != 0 || self->meeting->loop.timeout() == 0
               ? TRUE
               : FALSE;
}

gboolean dispatch(GSource *source, GSourceFunc, gpointer main) {
    Meeting &meeting = *reinterpret_cast<Source *>(source)->meeting;
    meeting.loop.pollDescriptors(true);
    if (meeting.isOver)
        g_main_loop_quit(static_cast<GMainLoop *>(main));
    return G_SOURCE_CONTINUE;
}

GSourceFuncs functions = {prepare, check, dispatch, nullptr, nullptr, nullptr};

} // namespace

int main() {
    Meeting meeting;
    GMainLoop *const main = g_main_loop_new(nullptr, FALSE);
    GSource *const base = g_source_new(&functions, sizeof(Source));
    auto *const source = reinterpret_cast<Source *>(base);
    source->meeting = &meeting;
    source->tag = g_source_add_unix_fd(base, meeting.loop.nestedDescriptor(), G_IO_IN);
    g_source_set_callback(base, nullptr, main, nullptr);
    g_source_attach(base, nullptr);
    g_main_loop_run(main);
    g_source_destroy(base);
    g_source_unref(base);
    g_main_loop_unref(main);
}
