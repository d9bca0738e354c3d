// Files that are sent while the loop goes on: from where they come, how much of one waits, how one
// ends early, and how a receiver refuses one.
#include "support/Environment.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

#include <filesystem>

namespace vintok::test {
namespace {

namespace fs = std::filesystem;

// Ann hosts; Bob and Cid are members; each has a folder. What is told of files stands in the events
// of a party: "sent 1 2" is the outcome 2 of its first one.
class Sending : public RealStage {
protected:
    using Library = ConferenceParticipant;

    Sending() {
        for (Party *party : {&ann, &bob, &cid}) {
            (*party)->setUserData(party);
            (*party)->setFileFolder(temporary.path(party->name()));
            (*party)->setFileSentCB(
                [](Library *, std::uint32_t number, Library::FileOutcome outcome, void *self) {
                    static_cast<Party *>(self)->note("sent", std::to_string(number) + " " +
                                                                 std::to_string(outcome));
                });
            (*party)->setFileProgressCB([](Library *at, const TCPAddress &, std::uint64_t done,
                                           std::uint64_t, const std::string &) {
                if (done != 0)
                    static_cast<Party *>(at->userData())->note("at", std::to_string(done));
            });
        }
        EXPECT_TRUE(gather(ann, {&bob, &cid}));
    }
    // 'x' in any number, as far as `available`.
    static std::uint64_t read(Library *, std::uint64_t offset, unsigned char *buffer,
                              std::uint64_t room, void *available) {
        const std::uint64_t all = *static_cast<std::uint64_t *>(available);
        const auto count = std::min<std::uint64_t>({room, all - std::min(all, offset), 1000});
        std::fill_n(buffer, count, static_cast<unsigned char>('x'));
        return count;
    }
    std::uint32_t starts(Party &party, std::uint64_t size) {
        return party->startFile(read, &available, size, "f");
    }
    std::string stored(const Party &party, const std::string &name = "f") const {
        const std::string path = party.name() + "/" + name;
        return fs::exists(temporary.path(path)) ? temporary.content(path) : "nothing";
    }
    void forgetAll() {
        for (Party *party : {&ann, &bob, &cid})
            party->forgets();
    }

    const TemporaryFolder temporary;
    std::uint64_t available = std::uint64_t{1} << 40;
};

TEST_F(Sending, FilesFromAnywhereGoOneAfterTheOther) {
    const std::string large(3000001, 'x');
    const std::string path = temporary.holding("there", large);
    for (Party *sender : {&ann, &bob}) {
        forgetAll();
        const auto *bytes = reinterpret_cast<const unsigned char *>(large.data());
        EXPECT_EQ(1u, (*sender)->startFile(path, "sub/a"));
        EXPECT_EQ(2u, (*sender)->startFile(bytes, 1, "b"));
        EXPECT_EQ(3u, starts(*sender, 2048));
        EXPECT_FALSE((*sender)->transferFile(path, "there")) << "in between";
        EXPECT_TRUE(sender->isTold("sent 3 1") && cid.isTold("at 2048"));
        EXPECT_TRUE(meeting.until([&] { return cid.told("file whole") == 3; }, "three files"));
        EXPECT_TRUE(large == stored(cid, "sub/a"));
        EXPECT_EQ("x", stored(cid, "b"));
        EXPECT_EQ(std::string(2048, 'x'), stored(cid));
        std::erase_if(sender->events, [](const auto &event) { return !event.starts_with("sent"); });
        EXPECT_THAT(sender->events, ElementsAre("sent 1 1", "sent 2 1", "sent 3 1"));
    }
    ann.leaves();
    EXPECT_EQ(0u, starts(ann, 1)) << "alone";
}

TEST_F(Sending, ACallbackMayTurnTheLoop) {
    WirePeer dan(meeting, "Dan");
    ASSERT_TRUE(dan.joins(ann.port()) && dan.fences());
    ann.inside = [this](const std::string &) { meeting.turn(); };
    EXPECT_EQ(1u, starts(ann, 2048));
    EXPECT_TRUE(ann.isTold("sent 1 1"));
    EXPECT_THAT(kinds(dan.gets()),
                ElementsAre(id::fileBegin, id::fileData, id::fileData, id::fileEnd));
}

TEST_F(Sending, WhatIsNoFileIsRefused) {
    EXPECT_EQ(0u, ann->startFile(temporary.path("none"), "f"));
    EXPECT_EQ(0u, ann->startFile(temporary.holding("empty", ""), "f"));
    EXPECT_EQ(0u, ann->startFile(temporary.holding("one", "1"), ""));
    EXPECT_EQ(0u, ann->startFile(nullptr, 1, "f"));
    EXPECT_EQ(0u, ann->startFile(nullptr, nullptr, 1, "f"));
    EXPECT_EQ(0u, starts(ann, std::uint64_t{1} << 31));
    EXPECT_FALSE(ann->cancelFile(1));
}

TEST_F(Sending, SomebodyWhoTakesNothingHoldsUpTheFileAndNothingElse) {
    WirePeer dan(meeting, "Dan");
    ASSERT_TRUE(dan.joins(ann.port()) && dan.fences());
    const int silent = dan.handsOver();
    const std::uint32_t file = starts(ann, std::uint64_t{1} << 30);
    EXPECT_TRUE(meeting.until([&] { return ann->waitingBytes() > 500000; }, "Dan is full"));
    for (int words = 0; words < 20; ++words)
        EXPECT_TRUE(bob.says("still") && cid.hears("still"));
    EXPECT_GT(std::uint64_t{1} << 20, ann->waitingBytes());
    EXPECT_TRUE(ann->cancelFile(file));
    EXPECT_TRUE(cid.isTold("file failed"));
    EXPECT_EQ("nothing", stored(cid));
    shutdownSocket(silent);
}

TEST_F(Sending, AFileThatEndsEarlyLeavesNothing) {
    const struct {
        const char *name;
        std::function<void()> does; // once a part has come
        const char *outcome;
    } cases[] = {
        {"cancelled", [&] { EXPECT_TRUE(bob->cancelFile(1)); }, "sent 1 3"},
        {"cancelled from inside", [&] { bob.inside = [&](const auto &) { bob->cancelFile(2); }; },
         "sent 2 3"},
        {"unreadable", [&] { available = 1000000; }, "sent 3 4"},
        {"alone", [&] { bob.leaves(); }, "sent 4 6"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.name);
        forgetAll();
        available = std::uint64_t{1} << 40;
        starts(bob, 3000000);
        EXPECT_TRUE(cid.isTold("at 1024"));
        each.does();
        EXPECT_TRUE(bob.isTold(each.outcome) && cid.isTold("file failed"));
        EXPECT_TRUE(ann.isTold("file failed"));
        EXPECT_EQ("nothing", stored(cid));
        bob.inside = nullptr;
    }
}

TEST_F(Sending, AllOfItMayHaveGoneWhenItIsCancelled) {
    bob.inside = [&](const std::string &event) {
        if (event == "at 1024")
            bob->cancelFile(1);
    };
    starts(bob, 2048);
    EXPECT_TRUE(bob.isTold("sent 1 3") && cid.isTold("file failed"));
    const std::uint32_t next = starts(bob, 2048);
    EXPECT_TRUE(bob->cancelFile(next) && bob.told("sent 2 3") == 1) << "it has not begun";
}

TEST_F(Sending, WhoRefusesAFileKeepsNothingAndTheSenderIsTold) {
    WirePeer dan(meeting, "Dan");
    ASSERT_TRUE(dan.joins(ann.port()) && dan.fences());
    for (Party *party : {&ann, &bob, &cid})
        (*party)->setFileRefusedCB([](Library *, std::uint32_t number,
                                      const ConferenceRosterEntry &by, void *self) {
            static_cast<Party *>(self)->note("refused", std::to_string(number) + by.firstName());
        });
    const auto refuses = [](Party &party, const Party &whose) {
        party.inside = [&](const std::string &event) {
            if (event == "at 1024") {
                EXPECT_TRUE(party->refuseFile(whose->address()));
                EXPECT_FALSE(party->refuseFile(whose->address())) << "twice";
            }
        };
    };
    refuses(ann, bob);
    refuses(cid, bob);
    starts(bob, 20000000);
    EXPECT_TRUE(bob.isTold("refused 1Ann") && bob.isTold("refused 1Cid"));
    EXPECT_TRUE(ann.told("file failed") == 1 && cid.told("file failed") == 1);
    EXPECT_EQ("nothing", stored(cid) == stored(ann) ? stored(cid) : "something");
    EXPECT_EQ(0, bob.told("sent 1 5")) << "Dan may want it";
    ann.inside = cid.inside = nullptr;
    starts(cid, 5000);
    dan.hangsUp();
    EXPECT_TRUE(bob.isTold("sent 1 5"));
    EXPECT_TRUE(cid.isTold("sent 1 1") && bob.isTold("file whole") && ann.isTold("file whole"));
    EXPECT_EQ(1, bob.told("refused 1Cid"));
    starts(bob, 5000);
    EXPECT_TRUE(bob.isTold("sent 2 1") && cid.isTold("file whole")) << "the next one is wanted";
}

TEST_F(Sending, TheEndOfARefusedFileIsNotThatOfAnother) {
    WirePeer dan(meeting, "Dan");
    ASSERT_TRUE(dan.joins(ann.port()) && dan.fences());
    Bytes names;
    WireWriter(names).text("/d");
    WireWriter(names).text("d");
    ASSERT_TRUE(dan.sends(id::fileBegin, names) && dan.sends(id::fileData) && dan.fences());
    EXPECT_TRUE(ann->refuseFile(addressOf(dan)) && dan.receives(0x22));
    ann->disableUser(addressOf(dan)); // he does not read meanwhile
    starts(cid, 3000000);
    EXPECT_TRUE(ann.isTold("at 1024") && dan.sends(id::fileEnd, {0, 0, 0, 1}));
    EXPECT_TRUE(ann.isTold("file whole"));
}

} // namespace
} // namespace vintok::test
