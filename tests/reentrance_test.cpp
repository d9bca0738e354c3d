// From inside a callback an application may do anything with its participant. Each row of the first
// table brings about one callback, each row of the second is something done in it; every pair is
// tried. Whatever happens, the memory stays sound (the sanitizers watch), a hang-up stays a
// hang-up, and the participant is good for the next meeting.
#include "support/Environment.h"
#include "support/Party.h"
#include "support/WirePeer.h"
#include "vintok/TCPStream.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace vintok::test {
namespace {

constexpr std::uint32_t hosting = state::meeting | state::host;

// Everything that a scene may need.
struct Stage {
    Stage() {
        setLogLevel(LOG_NONE); // the deaths that are played here are noted at great length
    }

    bool annHosts() {
        return ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()) && bob.fences();
    }
    bool annAttends() {
        host.entry.state = hosting;
        return host.joins(ann.port()) && host.sends(id::rosterReply, shadow.encode()) &&
               host.fences();
    }
    bool annCalls(WirePeer &other) {
        return other.listens() && ann.calls(other) && other.picksUp();
    }
    bool annIsAsking(WirePeer &other) {
        return annCalls(other) && other.saysHello() && other.receives(id::joinRequest);
    }
    bool annCallsThrough(WirePeer &proxy) {
        proxy.readsText(true);
        return proxy.listens() &&
               ann->placeCall("far.example.org", 7777, "127.0.0.1", proxy.port(), "room", "", 3) &&
               proxy.picksUp();
    }
    void asks(WirePeer &caller) {
        EXPECT_TRUE(caller.connects(ann.port()) && caller.saysHello() && caller.asksToJoin());
    }
    std::vector<WirePeer *> peers() { return {&bob, &cid, &host, &spare}; }
    // Until Ann has handled everything that was sent to her.
    void settle() {
        for (WirePeer *peer : peers()) {
            peer->readsText(false);
            if (peer->connected() && !peer->ended()) {
                static_cast<void>(peer->fences()); // who has been hung up gets no echo
            }
        }
    }

    Meeting meeting;
    TCPSelect loop;
    Party ann{meeting, "Ann"};
    WirePeer bob{meeting, "Bob"}, cid{meeting, "Cid"}, host{meeting, "Host"},
        spare{meeting, "Spare"};
    WireEntry shadow = WireEntry::party("Shadow", 60020);
    ScopedEnvironment files{"QOR_COLLAB_ROOT_LOCAL",
                            std::filesystem::temp_directory_path().string()};
};

struct Scene {
    const char *name;
    const char *event; // the first one that begins so is acted in
    bool (*prepares)(Stage &);
    void (*happens)(Stage &);
};

bool nothing(Stage &) {
    return true;
}

bool annHosts(Stage &stage) {
    return stage.annHosts();
}

bool annAttends(Stage &stage) {
    return stage.annAttends();
}

bool annCallsBob(Stage &stage) {
    return stage.annCalls(stage.bob);
}

bool annAsksBob(Stage &stage) {
    return stage.annIsAsking(stage.bob);
}

bool annCallsThroughBob(Stage &stage) {
    return stage.annCallsThrough(stage.bob);
}

void bobRepliesWith(Stage &stage, const std::string &head) {
    const std::string reply = "HTTP/1.0 " + head + "\r\n\r\n";
    EXPECT_TRUE(stage.bob.sends(Bytes(reply.begin(), reply.end())));
}

const Scene scenes[] = {
    {"host is called", "join ", [](Stage &s) { return s.ann.hosts("Plan"); },
     [](Stage &s) { s.asks(s.bob); }},
    {"host takes the lead", "leader ", [](Stage &s) { return s.ann.hosts("Plan"); },
     [](Stage &s) { s.asks(s.bob); }},
    {"idle party is called", "user ", nothing, [](Stage &s) { s.asks(s.bob); }},
    {"idle party joins", "join ", nothing, [](Stage &s) { s.asks(s.bob); }},
    {"leader is joined", "leader ", nothing,
     [](Stage &s) {
         s.bob.entry.state = hosting | state::leader;
         s.asks(s.bob);
     }},
    {"hiding caller", "security ", nothing,
     [](Stage &s) {
         s.bob.entry.state = state::hiding;
         s.asks(s.bob);
     }},
    {"screened caller", "pending ",
     [](Stage &s) {
         s.ann.screensCalls();
         return s.ann.hosts("Plan");
     },
     [](Stage &s) { s.asks(s.bob); }},
    {"caller becomes host", "user ", annCallsBob, [](Stage &s) { s.bob.saysHello(); }},
    {"called party rings", "ringing ", annCallsBob, [](Stage &s) { s.bob.saysHello(); }},
    {"called party is busy", "busy ", annCallsBob,
     [](Stage &s) {
         s.bob.entry.state = state::meeting;
         s.bob.saysHello();
     }},
    {"called party hides", "security ", annCallsBob,
     [](Stage &s) {
         s.bob.entry.state = state::hiding;
         s.bob.saysHello();
     }},
    {"forbidden call rings", "ringing ",
     [](Stage &s) { return s.annHosts() && s.annCalls(s.host); },
     [](Stage &s) {
         s.host.entry.state = state::hiding;
         s.host.saysHello();
     }},
    {"forbidden call is rejected", "rejected ",
     [](Stage &s) { return s.annHosts() && s.annCalls(s.host); },
     [](Stage &s) {
         s.host.entry.state = state::hiding;
         s.host.saysHello();
     }},
    {"call is accepted", "accepted ", annAsksBob,
     [](Stage &s) { s.bob.sends(id::joinReply, {1}); }},
    {"called party joins", "join ", annAsksBob, [](Stage &s) { s.bob.sends(id::joinReply, {1}); }},
    {"caller takes the lead", "leader ", annAsksBob,
     [](Stage &s) { s.bob.sends(id::joinReply, {1}); }},
    {"call is refused", "rejected ", annAsksBob, [](Stage &s) { s.bob.sends(id::joinReply, {0}); }},
    {"call dies alone", "noAnswer ", annAsksBob, [](Stage &s) { s.bob.closes(); }},
    {"call is given up", "noAnswer ", annAsksBob, [](Stage &s) { s.ann.leaves(); }},
    {"two calls are given up", "noAnswer ",
     [](Stage &s) { return s.annIsAsking(s.bob) && s.annCalls(s.cid); },
     [](Stage &s) { s.ann.leaves(); }},
    {"orphaned call is given up", "noAnswer ",
     [](Stage &s) {
         const bool ready = s.annHosts() && s.annCalls(s.host);
         s.host.closes();
         return ready && bool(s.bob.receives(id::leaveNotify));
     },
     [](Stage &s) { s.ann.leaves(); }},
    {"old version", "version ", annCallsBob,
     [](Stage &s) {
         WireFrame old;
         old.id = id::rosterEntry;
         old.major = 3;
         s.bob.sends(old.encode());
     }},
    {"member tells its data", "user Bob", annHosts, [](Stage &s) { s.bob.saysHello(); }},
    {"member sends a roster", "join Shadow", annHosts,
     [](Stage &s) { s.bob.sends(id::rosterReply, s.shadow.encode()); }},
    {"roster is walked", "user ", annHosts, [](Stage &s) { s.ann->requestRoster(); }},
    {"own entry comes", "user Ann", annAttends,
     [](Stage &s) {
         s.host.sends(id::rosterRequest);
         WireFrame reply;
         EXPECT_TRUE(s.host.receives(id::rosterReply, &reply));
         s.host.sends(id::rosterReply, reply.body);
     }},
    {"leading shadow joins", "leader ", annAttends,
     [](Stage &s) {
         WireEntry leader = WireEntry::party("Leader", 60021);
         leader.state = state::leader;
         s.host.sends(id::rosterReply, leader.encode());
     }},
    {"shadow leaves", "leave Shadow", annAttends,
     [](Stage &s) { s.host.sends(id::leaveNotify, s.shadow.encode()); }},
    {"member hangs up", "leave Bob", annHosts, [](Stage &s) { s.bob.sends(id::hangup); }},
    {"member closes", "leave Bob", annHosts, [](Stage &s) { s.bob.closes(); }},
    {"member is found dead", "leave Bob", annHosts,
     [](Stage &s) {
         s.bob.resets();
         EXPECT_FALSE(s.ann.says("anybody?"));
     }},
    {"two members are found dead", "leave ", annHosts,
     [](Stage &s) {
         s.bob.resets();
         s.cid.resets();
         EXPECT_FALSE(s.ann.says("anybody?"));
     }},
    {"host hangs up", "leave Host", annAttends, [](Stage &s) { s.host.sends(id::hangup); }},
    {"host is found dead", "leave Host", annAttends,
     [](Stage &s) {
         s.host.resets();
         EXPECT_FALSE(s.ann.says("anybody?"));
     }},
    {"data at a host", "data ", annHosts, [](Stage &s) { s.bob.sends(id::broadcast, {'x'}); }},
    {"data at a member", "data ", annAttends, [](Stage &s) { s.host.sends(id::broadcast, {'x'}); }},
    {"echo is asked for", "synch ", annHosts,
     [](Stage &s) {
         s.bob.sends(id::echoRequest32, {0, 0, 0, 0});
     }},
    {"echo comes back", "synch ", annAttends,
     [](Stage &s) { s.host.sends(id::echoReply32, Bytes(8)); }},
    {"lead is asked for", "leadRequest ",
     [](Stage &s) {
         s.ann.decidesOnLead();
         return s.annHosts();
     },
     [](Stage &s) { s.bob.sends(id::leadRequest, s.bob.entry.encode()); }},
    {"lead is given away", "leader Bob", annHosts,
     [](Stage &s) { s.bob.sends(id::leadRequest, s.bob.entry.encode()); }},
    {"lead is granted", "leadReply ",
     [](Stage &s) { return s.annAttends() && s.ann->requestStartLeading(); },
     [](Stage &s) { s.host.sends(id::leadReply, {1}); }},
    {"lead is denied", "leadReply ", nothing,
     [](Stage &s) {
         EXPECT_TRUE(s.ann.hosts("Plan"));
         EXPECT_TRUE(s.bob.joins(s.ann.port()));
         EXPECT_TRUE(s.bob.sends(id::leadRequest, s.bob.entry.encode()) && s.bob.fences());
         EXPECT_TRUE(s.ann->requestStartLeading());
         s.bob.sends(id::leadReply, {0});
     }},
    {"lead changes at a member", "leader ", annAttends,
     [](Stage &s) { s.host.sends(id::leadChange, s.host.entry.encode()); }},
    {"file comes", "file ", annHosts,
     [](Stage &s) {
         Bytes names;
         WireWriter writer(names);
         writer.text("/there/vintok-reentrance.txt");
         writer.text("vintok-reentrance.txt");
         s.bob.sends(id::fileBegin, names);
         s.bob.sends(id::fileData, {'x'});
         s.bob.sends(id::fileEnd, {0, 0, 0, 2}); // one more than came: the file is not kept
     }},
    {"proxy answers", "response ", annCallsThroughBob,
     [](Stage &s) { bobRepliesWith(s, "404 Not found"); }},
    {"proxy opens the way", "response ", annCallsThroughBob,
     [](Stage &s) { bobRepliesWith(s, "200 OK"); }},
    {"proxy wants credentials", "proxy ", annCallsThroughBob,
     [](Stage &s) { bobRepliesWith(s, "407 No\r\nProxy-Authenticate: Basic realm=x"); }},
    {"proxy fails", "response ", annCallsThroughBob,
     [](Stage &s) { bobRepliesWith(s, "503 Later"); }},
    {"proxied call gets no answer", "noAnswer ", annCallsThroughBob,
     [](Stage &s) { bobRepliesWith(s, "404 Not found"); }},
    {"call is sent elsewhere", "redirect ",
     [](Stage &s) {
         s.ann.decidesOnRedirects();
         return s.annCallsThrough(s.bob);
     },
     [](Stage &s) { bobRepliesWith(s, "302 Found\r\nLocation: http://127.0.0.1:9/"); }},
    {"option changes", "security ", annHosts, [](Stage &s) { s.ann->setSSLOnly(true); }},
    {"hosting begins", "user ", nothing, [](Stage &s) { s.ann.hosts("Plan"); }},
};

struct Action {
    const char *name;
    void (*acts)(Stage &);
    bool endsEverything;
};

const Action actions[] = {
    {"hangs up", [](Stage &s) { s.ann.leaves(); }, true},
    {"calls somebody else",
     [](Stage &s) {
         EXPECT_TRUE(s.spare.listens());
         s.ann.calls(s.spare); // a member may not
     },
     false},
    {"calls back", [](Stage &s) { s.ann.calls(s.bob); }, false},
    {"hangs up and calls",
     [](Stage &s) {
         s.ann.leaves();
         EXPECT_TRUE(s.spare.listens());
         EXPECT_TRUE(s.ann.calls(s.spare));
     },
     false},
    {"accepts",
     [](Stage &s) {
         for (WirePeer *peer : s.peers()) {
             s.ann.accepts(*peer);
         }
     },
     false},
    {"refuses",
     [](Stage &s) {
         for (WirePeer *peer : s.peers()) {
             s.ann.rejects(*peer);
         }
     },
     false},
    {"accepts and hangs up",
     [](Stage &s) {
         s.ann.accepts(s.bob);
         s.ann.leaves();
     },
     true},
    {"says all that can be said",
     [](Stage &s) {
         s.ann.says("inside");
         s.ann->sendRoster();
         s.ann->requestRoster();
         s.ann->requestStartLeading();
         s.ann->acceptLeadChange();
         s.ann->rejectLeadChange();
         s.ann.hosts("Inside");
     },
     false},
    {"finds everybody dead",
     [](Stage &s) {
         for (WirePeer *peer : s.peers()) {
             if (peer->connected()) {
                 peer->resets();
             }
         }
         EXPECT_FALSE(s.ann.says("inside"));
     },
     false},
    {"turns the loop while everybody leaves",
     [](Stage &s) {
         for (WirePeer *peer : s.peers()) {
             peer->closes();
         }
         for (int turns = 0; turns < 5; ++turns) {
             s.meeting.turn();
         }
     },
     false},
};

class InsideACallback : public testing::TestWithParam<std::tuple<Scene, Action>> {
protected:
    Stage stage;
    const int alone = stage.loop.numDescriptors(); // what is watched without any connection
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
        EXPECT_EQ(alone, stage.loop.numDescriptors()) << "no connection is left";
    }

    ann.inside = nullptr;
    ann.leaves();
    EXPECT_EQ(alone, stage.loop.numDescriptors());
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
