// The least that a host can do: `poll`, take a frame from the speaker, one `send` for each member.
#include "Child.h"
#include "Fanout.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

// With the buffers that the library gives its sockets.
pollfd acceptMember(int listener) {
    int member = accept(listener, nullptr, nullptr), on = 1, size = 32767;
    if (member < 0)
        fail("accepting");
    setsockopt(member, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(member, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    setsockopt(member, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    return {member, POLLIN, 0};
}

} // namespace

void runBareHost(const Load &load) {
    Meter counts(load.messages);
    int listener = listenOnLoopback();
    std::vector<pollfd> members;
    while (members.size() < load.members + 1) // the speaker first
        members.push_back(acceptMember(listener));
    std::vector<unsigned char> frame(frameHeader + load.body);
    while (!counts.done()) {
        if (poll(members.data(), members.size(), -1) < 1 || !(members[0].revents & POLLIN))
            fail("polling");
        if (recv(members[0].fd, frame.data(), frame.size(), MSG_WAITALL) !=
            static_cast<ssize_t>(frame.size()))
            fail("receiving");
        counts.messageArrived();
        for (std::size_t i = 1; i < members.size(); ++i)
            if (::send(members[i].fd, frame.data(), frame.size(), MSG_NOSIGNAL) !=
                static_cast<ssize_t>(frame.size()))
                fail("sending");
    }
    counts.report();
}

} // namespace bench
