// What a straightforward host does: `poll`, take one frame, one `send` for each member.
#include "Child.h"
#include "Hosts.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

namespace bench {
namespace {

bool receive(int member, unsigned char *bytes, std::size_t length) {
    return recv(member, bytes, length, MSG_WAITALL) == static_cast<ssize_t>(length);
}

bool receiveFrame(int member, std::vector<unsigned char> &frame) {
    frame.resize(lengthSize);
    if (!receive(member, frame.data(), lengthSize))
        return false;
    frame.resize(frameLength(frame.data()));
    return receive(member, frame.data() + lengthSize, frame.size() - lengthSize);
}

} // namespace

int acceptMember(int listener) {
    int member = accept(listener, nullptr, nullptr), on = 1;
    if (member < 0)
        fail("accepting");
    setsockopt(member, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return member;
}

void runBareHost() {
    std::vector<pollfd> sockets{{listenOnLoopback(), POLLIN, 0}}; // the members behind the listener
    std::vector<unsigned char> frame;
    for (;;) {
        if (poll(sockets.data(), sockets.size(), -1) < 1)
            fail("polling");
        for (std::size_t from = 1; from < sockets.size(); ++from) {
            if (sockets[from].revents == 0)
                continue;
            if (!receiveFrame(sockets[from].fd, frame))
                return; // the members begin to go
            for (std::size_t to = 1; to < sockets.size(); ++to)
                if (to != from)
                    send(sockets[to].fd, frame.data(), frame.size(), MSG_NOSIGNAL);
        }
        if (sockets[0].revents != 0)
            sockets.push_back({acceptMember(sockets[0].fd), POLLIN, 0});
    }
}

} // namespace bench
