// Ann, who is a real party, and those whom she meets most often. Openings of scenes are its verbs.
#ifndef VINTOK_TESTS_SUPPORT_STAGE_H
#define VINTOK_TESTS_SUPPORT_STAGE_H

#include "support/Party.h"

namespace vintok::test {

inline constexpr std::uint32_t hosting = state::meeting | state::host;

// Among parties of raw bytes, of which `host` hosts a meeting of its own.
struct Cast {
    Cast() { host.entry.state = hosting; }

    // Ann hosts, these have joined, and nothing that was said at it is left to be received.
    bool annHosts(const std::vector<WirePeer *> &members) {
        bool all = ann.hosts("Plan");
        for (WirePeer *member : members)
            all = all && member->joins(ann.port());
        for (WirePeer *member : members)
            all = all && member->fences();
        return all;
    }
    // Ann is a member of the host's meeting.
    bool annAttends() { return host.joins(ann.port()) && host.fences(); }

    Meeting meeting;
    Party ann{meeting, "Ann"};
    WirePeer bob{meeting, "Bob"}, cid{meeting, "Cid"}, dan{meeting, "Dan"}, host{meeting, "Host"};
};

class Stage : public testing::Test, protected Cast {};

// Among parties like herself.
class RealStage : public testing::Test {
protected:
    Meeting meeting;
    Party ann{meeting, "Ann"}, bob{meeting, "Bob"}, cid{meeting, "Cid"};
};

} // namespace vintok::test

#endif
