// A meeting in a loop around `epoll`, where one descriptor stands for all of the library's. A timer
// of the program's own ticks beside it.
#include "meeting.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>

namespace {

int tickingTimer() {
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
    const timespec tenth = {0, 100000000};
    const itimerspec times = {tenth, tenth};
    timerfd_settime(timer, 0, &times, nullptr);
    return timer;
}

void watch(int epoll, int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event);
}

} // namespace

int main() {
    Meeting meeting;
    const int epoll = epoll_create1(0);
    const int timer = tickingTimer();
    watch(epoll, timer);
    watch(epoll, meeting.loop.nestedDescriptor());
    std::uint64_t ticks = 0;
    while (!meeting.isOver) {
        meeting.loop.nestedDescriptor(); // it learns what is to be waited for now
        epoll_event event;
        if (epoll_wait(epoll, &event, 1, meeting.loop.timeout()) == 1 && event.data.fd == timer) {
            std::uint64_t more = 0;
            if (read(timer, &more, sizeof more) == sizeof more)
                ticks += more;
        }
        meeting.loop.pollDescriptors(true);
    }
    std::cout << ticks << " ticks meanwhile" << std::endl;
    close(timer);
    close(epoll);
}
