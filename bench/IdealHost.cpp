// The least that relaying can cost: `epoll`, as much as 64 KiB in one read, the bytes that were
// read shared by all members, and at most one gathered write a member and wake-up. What a socket
// does not take is kept. Nothing bounds that but the members' own windows.
#include "Child.h"
#include "Hosts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <vector>

namespace bench {
namespace {

constexpr std::size_t readSize = 64 * 1024; // no frame may be longer
constexpr std::size_t blockSize = 2 * readSize;

using Block = std::shared_ptr<unsigned char[]>;

Block makeBlock() {
    return Block(new unsigned char[blockSize]); // not filled
}

struct Span {
    Block block; // which it keeps
    unsigned char *bytes;
    std::size_t length;
};

struct Member {
    explicit Member(int accepted) : descriptor(accepted) {}

    int descriptor;
    Block in = makeBlock();
    std::size_t begin = 0, end = 0; // of what has arrived and is not passed on
    std::deque<Span> out;
    bool full = false; // its socket takes no more
};

class Relay {
public:
    Relay() : m_epoll(epoll_create1(0)), m_listener(listenOnLoopback()) {
        control(EPOLL_CTL_ADD, m_listener, EPOLLIN, nullptr);
    }

    // Until the members begin to go.
    void run() {
        epoll_event events[256];
        for (bool all = true; all;) {
            const int ready = epoll_wait(m_epoll, events, 256, -1);
            for (int i = 0; i < ready; ++i)
                all = handle(events[i]) && all;
            for (const auto &member : m_members)
                if (!member->out.empty() && !member->full)
                    write(*member);
        }
    }

private:
    void control(int operation, int descriptor, std::uint32_t what, Member *member) const {
        epoll_event event = {};
        event.events = what;
        event.data.ptr = member;
        epoll_ctl(m_epoll, operation, descriptor, &event);
    }

    bool handle(const epoll_event &event) {
        auto *member = static_cast<Member *>(event.data.ptr);
        if (member == nullptr) {
            m_members.push_back(std::make_unique<Member>(acceptMember(m_listener)));
            control(EPOLL_CTL_ADD, m_members.back()->descriptor, EPOLLIN, m_members.back().get());
            return true;
        }
        if ((event.events & EPOLLOUT) != 0)
            write(*member);
        return (event.events & ~std::uint32_t{EPOLLOUT}) == 0 || read(*member);
    }

    bool read(Member &from) {
        makeRoom(from);
        const ssize_t got = recv(from.descriptor, from.in.get() + from.end, readSize, MSG_DONTWAIT);
        if (got <= 0)
            return got < 0 && errno == EAGAIN;
        from.end += static_cast<std::size_t>(got);
        const std::size_t whole = wholeFrames(from);
        if (whole > 0)
            relay(from, {from.in, from.in.get() + from.begin, whole});
        from.begin += whole;
        return true;
    }

    // The start of a frame goes to the front, of the same block where nobody needs it any more.
    static void makeRoom(Member &member) {
        if (blockSize - member.end >= readSize && member.in.use_count() > 1)
            return;
        const Block old = member.in;
        if (old.use_count() > 2)
            member.in = makeBlock();
        std::memmove(member.in.get(), old.get() + member.begin, member.end - member.begin);
        member.end -= member.begin;
        member.begin = 0;
    }

    static std::size_t wholeFrames(const Member &member) {
        const unsigned char *bytes = member.in.get() + member.begin;
        const std::size_t length = member.end - member.begin;
        for (std::size_t whole = 0;;) {
            const std::size_t left = length - whole;
            const std::size_t next = left < lengthSize ? blockSize : frameLength(bytes + whole);
            if (left >= lengthSize && next > readSize)
                fail("a frame that is too long");
            if (left < next)
                return whole;
            whole += next;
        }
    }

    void relay(const Member &from, const Span &frames) {
        for (const auto &member : m_members)
            if (member.get() != &from)
                member->out.push_back(frames);
    }

    void write(Member &to) {
        iovec parts[64];
        const std::size_t count = std::min<std::size_t>(to.out.size(), 64);
        for (std::size_t i = 0; i < count; ++i)
            parts[i] = {to.out[i].bytes, to.out[i].length};
        msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t sent = sendmsg(to.descriptor, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        std::size_t left = sent > 0 ? static_cast<std::size_t>(sent) : 0;
        for (; left > 0 && left >= to.out.front().length; to.out.pop_front())
            left -= to.out.front().length;
        if (left > 0) {
            to.out.front().bytes += left;
            to.out.front().length -= left;
        }
        if (to.full != !to.out.empty()) {
            to.full = !to.full;
            control(EPOLL_CTL_MOD, to.descriptor, to.full ? EPOLLIN | EPOLLOUT : EPOLLIN, &to);
        }
    }

    int m_epoll, m_listener;
    std::vector<std::unique_ptr<Member>> m_members;
};

} // namespace

void runIdealHost() {
    Relay().run();
}

} // namespace bench
