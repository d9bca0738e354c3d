// A meeting in a loop around `poll`, which waits for each of the library's descriptors beside its
// own.
#include "meeting.h"

#include <poll.h>
#include <vector>

int main() {
    Meeting meeting;
    while (!meeting.isOver) {
        std::vector<pollfd> all; // and what else the program waits for
        for (const vintok::TCPSelect::Watched &each : meeting.loop.watched())
            all.push_back(
                {each.descriptor,
                 static_cast<short>((each.reading ? POLLIN : 0) | (each.writing ? POLLOUT : 0)),
                 0});
        poll(all.data(), all.size(), meeting.loop.timeout());
        meeting.loop.pollDescriptors(true);
    }
}
