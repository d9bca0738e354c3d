// From inside a callback an application may do anything with its participant. Each row of the first
// table brings about one callback, each row of the second is something done in it; every pair is
// tried. Whatever happens, the memory stays sound (the sanitizers watch), a hang-up stays a
// hang-up, and the participant is good for the next meeting.
#include "support/Environment.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

namespace vintok::test {
namespace {

// Everything that a scene may need.
struct Scenery : Cast {
    Scenery() {
        setLogLevel(LOG_NONE); // the deaths that are played here are noted at great length
    }

    void knocks(std::uint32_t state = 0) {
        bob.entry.state = state;
        EXPECT_TRUE(bob.knocks(ann.port()));
    }
    void saysHello(WirePeer &peer, std::uint32_t state = 0) {
        peer.entry.state = state;
        EXPECT_TRUE(peer.saysHello());
    }
    void findsOut() { EXPECT_FALSE(ann.says("anybody?")); }
    void bobReplies(const std::string &head) {
        EXPECT_TRUE(bob.sendsText("HTTP/1.0 " + head + "\r\n\r\n"));
    }
    std::vector<WirePeer *> peers() { return {&bob, &cid, &host, &dan}; }
    // Until Ann has handled everything that was sent to her.
    void settle() {
        for (WirePeer *peer : peers()) {
            peer->readsText(false);
            if (peer->connected() && !peer->ended())
                static_cast<void>(peer->fences()); // who has been hung up gets no echo
        }
    }

    WireEntry shadow = WireEntry::party("Shadow", 60020);
    const TemporaryFolder folder;
    ScopedEnvironment files{"QOR_COLLAB_ROOT_LOCAL", folder.path("")};
};

struct Scene {
    const char *name;
    const char *event; // the first one that begins so is acted in
    bool (*prepares)(Scenery &);
    void (*happens)(Scenery &);
};

const auto nothing = [](Scenery &) { return true; };
const auto annHosts = [](Scenery &s) { return s.annHosts({&s.bob, &s.cid}); };
const auto annHostsAlone = [](Scenery &s) { return s.ann.hosts("Plan"); };
bool annAttends(Scenery &s) {
    return s.annAttends() && s.host.sends(id::rosterReply, s.shadow.encode()) && s.host.fences();
}

const auto annCallsBob = [](Scenery &s) { return bool(s.ann.reaches(s.bob)); };
const auto annAsksBob = [](Scenery &s) { return bool(s.ann.asks(s.bob)); };
// A party that hides, which the company forbids.
const auto annCallsHost = [](Scenery &s) { return annHosts(s) && s.ann.reaches(s.host); };
bool annCallsThroughBob(Scenery &s) {
    s.bob.readsText(true);
    return s.bob.listens() &&
           s.ann->placeCall("far.example.org", 7777, "127.0.0.1", s.bob.port(), "room", "", 3) &&
           s.bob.picksUp();
}

const Scene scenes[] = {
    {"host is called", "join ", annHostsAlone, [](Scenery &s) { s.knocks(); }},
    {"idle party is called", "user ", nothing, [](Scenery &s) { s.knocks(); }},
    {"hiding caller", "security ", nothing, [](Scenery &s) { s.knocks(state::hiding); }},
    {"screened caller", "pending ",
     [](Scenery &s) {
         s.ann.screensCalls();
         return s.ann.hosts("Plan");
     },
     [](Scenery &s) { s.knocks(); }},
    {"caller becomes host", "user ", annCallsBob, [](Scenery &s) { s.bob.saysHello(); }},
    {"called party rings", "ringing ", annCallsBob, [](Scenery &s) { s.bob.saysHello(); }},
    {"called party is busy", "busy ", annCallsBob,
     [](Scenery &s) { s.saysHello(s.bob, state::meeting); }},
    {"forbidden call is rejected", "rejected ", annCallsHost,
     [](Scenery &s) { s.saysHello(s.host, state::hiding); }},
    {"call is accepted", "accepted ", annAsksBob,
     [](Scenery &s) { s.bob.sends(id::joinReply, {1}); }},
    {"call is refused", "rejected ", annAsksBob,
     [](Scenery &s) { s.bob.sends(id::joinReply, {0}); }},
    {"call dies alone", "noAnswer ", annAsksBob, [](Scenery &s) { s.bob.closes(); }},
    {"two calls are given up", "noAnswer ",
     [](Scenery &s) { return s.ann.asks(s.bob) && s.ann.reaches(s.cid); },
     [](Scenery &s) { s.ann.leaves(); }},
    {"old version", "version ", annCallsBob,
     [](Scenery &s) { s.bob.sends(WireFrame{.id = id::rosterEntry, .major = 3}.encode()); }},
    {"member sends a roster", "join Shadow", annHosts,
     [](Scenery &s) { s.bob.sends(id::rosterReply, s.shadow.encode()); }},
    {"roster is walked", "user ", annHosts, [](Scenery &s) { s.ann->requestRoster(); }},
    {"shadow leaves", "leave Shadow", annAttends,
     [](Scenery &s) { s.host.sends(id::leaveNotify, s.shadow.encode()); }},
    {"member closes", "leave Bob", annHosts, [](Scenery &s) { s.bob.closes(); }},
    {"two members are found dead", "leave ", annHosts,
     [](Scenery &s) {
         s.bob.resets();
         s.cid.resets();
         s.findsOut();
     }},
    {"host is found dead", "leave Host", annAttends,
     [](Scenery &s) {
         s.host.resets();
         s.findsOut();
     }},
    {"data at a host", "data ", annHosts, [](Scenery &s) { s.bob.sends(id::broadcast, {'x'}); }},
    {"echo is asked for", "synch ", annHosts,
     [](Scenery &s) { s.bob.sends(id::echoRequest32, Bytes(4)); }},
    {"lead is asked for", "leadRequest ",
     [](Scenery &s) {
         s.ann.decidesOnLead();
         return annHosts(s);
     },
     [](Scenery &s) { s.bob.sends(id::leadRequest, s.bob.entry.encode()); }},
    {"lead is given away", "leader Bob", annHosts,
     [](Scenery &s) { s.bob.sends(id::leadRequest, s.bob.entry.encode()); }},
    {"lead is granted", "leadReply ",
     [](Scenery &s) { return annAttends(s) && s.ann->requestStartLeading(); },
     [](Scenery &s) { s.host.sends(id::leadReply, {1}); }},
    {"file comes", "file ", annHosts,
     [](Scenery &s) {
         s.bob.sends(id::fileBegin, wireTexts({"/there/reentrance", "reentrance"}));
         s.bob.sends(id::fileData, {'x'});
         s.bob.sends(id::fileEnd, {0, 0, 0, 2}); // one more than came: the file is not kept
     }},
    {"proxy answers", "response ", annCallsThroughBob,
     [](Scenery &s) { s.bobReplies("404 Not found"); }},
    {"proxy wants credentials", "proxy ", annCallsThroughBob,
     [](Scenery &s) { s.bobReplies("407 No\r\nProxy-Authenticate: Basic realm=x"); }},
    {"call is sent elsewhere", "redirect ",
     [](Scenery &s) {
         s.ann.decidesOnRedirects();
         return annCallsThroughBob(s);
     },
     [](Scenery &s) { s.bobReplies("302 Found\r\nLocation: http://127.0.0.1:9/"); }},
    {"hosting begins", "user ", nothing, [](Scenery &s) { s.ann.hosts("Plan"); }},
};

struct Action {
    const char *name;
    void (*acts)(Scenery &);
    bool endsEverything = false;
};

const Action actions[] = {
    {"hangs up", [](Scenery &s) { s.ann.leaves(); }, true},
    {"hangs up and calls",
     [](Scenery &s) {
         s.ann.leaves();
         EXPECT_TRUE(s.dan.listens() && s.ann.calls(s.dan));
     }},
    {"refuses",
     [](Scenery &s) {
         for (WirePeer *peer : s.peers())
             s.ann.rejects(*peer);
     }},
    {"accepts and hangs up",
     [](Scenery &s) {
         s.ann.accepts(s.bob);
         s.ann.leaves();
     },
     true},
    {"says all that can be said",
     [](Scenery &s) {
         s.ann.says("inside");
         s.ann->sendRoster();
         s.ann->requestRoster();
         s.ann->requestStartLeading();
         s.ann->acceptLeadChange();
         s.ann->rejectLeadChange();
         s.ann.hosts("Inside");
     }},
    {"finds everybody dead",
     [](Scenery &s) {
         for (WirePeer *peer : s.peers())
             if (peer->connected())
                 peer->resets();
         EXPECT_FALSE(s.ann.says("inside"));
     }},
    {"turns the loop while everybody leaves",
     [](Scenery &s) {
         for (WirePeer *peer : s.peers())
             peer->closes();
         for (int turns = 0; turns < 5; ++turns)
             s.meeting.turn();
     }},
};

class InsideACallback : public testing::TestWithParam<std::tuple<Scene, Action>> {
protected:
    Scenery stage;
    const int alone = stage.meeting.watched(); // what is watched without any connection
};

TEST_P(InsideACallback, EverythingMayBeDone) {
    const auto &[scene, action] = GetParam();
    Party &ann = stage.ann;
    ASSERT_TRUE(scene.prepares(stage));
    bool acted = false;
    ann.inside = [&, &acts = action.acts, &event = scene.event](const std::string &told) {
        if (!acted && told.rfind(event, 0) == 0) {
            acted = true;
            acts(stage);
        }
    };
    scene.happens(stage);
    ASSERT_TRUE(stage.meeting.until([&] { return acted; }, scene.event));
    stage.settle();
    if (action.endsEverything) {
        EXPECT_FALSE(ann->isMeeting() || ann->isHost());
        EXPECT_EQ(alone, stage.meeting.watched()) << "no connection is left";
    }

    ann.inside = nullptr;
    ann.leaves();
    EXPECT_EQ(alone, stage.meeting.watched());
    ann->setCallPendingCB(nullptr);
    ann.forgets();
    WirePeer next(stage.meeting, "Next");
    EXPECT_TRUE(ann.hosts("Next") && next.joins(ann.port()) && ann.says("hello"));
    EXPECT_TRUE(next.receives(id::broadcast));
    EXPECT_EQ(ann.roster(), (Roster{{"Next", 1}}));
}

INSTANTIATE_TEST_SUITE_P(Table, InsideACallback,
                         testing::Combine(testing::ValuesIn(scenes), testing::ValuesIn(actions)),
                         [](const auto &row) {
                             return caseName(std::get<0>(row.param).name) + "__" +
                                    caseName(std::get<1>(row.param).name);
                         });

} // namespace
} // namespace vintok::test
