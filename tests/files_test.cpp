// Files: what goes over the wire for one, what a receiver stores of it and where, what both ends
// are told meanwhile, and what becomes of it when somebody lies, dies or leaves in the middle.
#include "platform/File.h"
#include "platform/TestSockets.h"
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <utility>

namespace vintok::test {
namespace {

namespace fs = std::filesystem;

constexpr const char *rootVariable = "QOR_COLLAB_ROOT_LOCAL";

// Whom a progress callback ends.
WirePeer *dying;

// A folder of the test's own, with the receivers' root in it.
class Files : public Stage {
protected:
    Files() {
        fs::create_directories(folder);
        root = folder / "root";
        variable = std::make_unique<ScopedEnvironment>(rootVariable, root.string());
    }

    std::string makeFile(const std::string &name, const std::string &content) const {
        const fs::path path = folder / "source" / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path.string();
    }
    // The files in the root, by their paths in it with '/'.
    std::set<std::string> stored() const {
        std::set<std::string> paths;
        if (fs::is_directory(root))
            for (const auto &entry : fs::recursive_directory_iterator(root))
                if (!entry.is_directory())
                    paths.insert(fs::relative(entry.path(), root).generic_string());
        return paths;
    }
    // What is around the root.
    std::set<std::string> around() const {
        std::set<std::string> paths;
        for (const auto &place : {folder, fs::current_path()})
            for (const auto &entry : fs::directory_iterator(place))
                if (entry.path() != root)
                    paths.insert(entry.path().string());
        return paths;
    }

    // Makes the peers members of a meeting that Ann hosts.
    void joined(const std::vector<WirePeer *> &peers) {
        ASSERT_TRUE(ann->isHost() || ann.hosts("talk"));
        for (WirePeer *peer : peers)
            ASSERT_TRUE(peer->joins(ann.port()) && peer->fences());
        ann.forgets();
    }
    static bool begins(WirePeer &peer, const std::string &relativePath) {
        return peer.sends(id::fileBegin, wireTexts({"/from/" + relativePath, relativePath}));
    }
    static bool data(WirePeer &peer, const std::string &text) {
        return peer.sends(id::fileData, letters(text));
    }
    static bool ends(WirePeer &peer, std::size_t size) {
        return peer.sends(id::fileEnd, wireNumber(size)) && peer.fences();
    }
    static bool sendsFile(WirePeer &peer, const std::string &relativePath,
                          const std::string &text) {
        return begins(peer, relativePath) && data(peer, text) && ends(peer, text.size());
    }
    // It is not ended.
    static bool beginsFile(WirePeer &peer, const std::string &relativePath,
                           const std::string &text) {
        return begins(peer, relativePath) && data(peer, text) && peer.fences();
    }
    // After whatever has happened, a file from `peer` and a word from Ann still arrive.
    void expectThatTheMeetingGoesOn(WirePeer &peer) {
        ann.forgets();
        ann.files.clear();
        EXPECT_TRUE(sendsFile(peer, "after.txt", "still here"));
        EXPECT_EQ(1, ann.told("file whole"));
        EXPECT_EQ("still here", contentOf(root / "after.txt"));
        EXPECT_TRUE(ann.says("goes on"));
        EXPECT_TRUE(peer.receives(id::broadcast));
        std::error_code ignored;
        fs::remove(root / "after.txt", ignored);
    }

    const TemporaryFolder temporary;
    const fs::path folder = temporary.path("f");
    fs::path root;
    std::unique_ptr<ScopedEnvironment> variable;
    Party eve{meeting, "Eve"}, fay{meeting, "Fay"};
};

// ---- Whole files ----

// Each sends one in turn: a host, whose members get it, and a member, whose file the host relays.
TEST_F(Files, AFileGoesOutInChunksAndIsStoredAsItWas) {
    ASSERT_TRUE(gather(ann, {&eve, &fay}));
    joined({&bob});
    for (const std::size_t size : {std::size_t(1), std::size_t(2048), std::size_t(2049)}) {
        SCOPED_TRACE(size);
        const std::string content = pattern(size);
        const std::string path = makeFile("sub/f.bin", content);
        Party &sender = size == 1 ? eve : ann;
        for (Party *party : {&ann, &eve, &fay}) {
            party->forgets();
            party->files.clear();
        }
        ASSERT_TRUE(sender->transferFile(path, "sub/f.bin") && fay.isTold("file whole"));
        EXPECT_TRUE((size == 1 ? ann : eve).isTold("file whole"));
        EXPECT_EQ(content, contentOf(root / "sub" / "f.bin"));
        EXPECT_EQ(root / "sub" / "f.bin", fs::path(fay.files.at(0).path));
        EXPECT_EQ(ann->address(), fay.files.at(0).neighbour) << "who passed it on";
        EXPECT_EQ(0, sender.told("file whole")) << "it does not come back";

        auto frames = bob.gets();
        std::erase_if(frames, [](const WireFrame &frame) {
            return frame.id < id::fileBegin || frame.id > id::fileEnd;
        });
        ASSERT_EQ(2 + (size + 1023) / 1024, frames.size());
        EXPECT_EQ(wireTexts({path, "sub/f.bin"}), frames.front().body);
        EXPECT_EQ(wireNumber(size), frames.back().body);
        std::string came;
        for (std::size_t i = 1; i + 1 < frames.size(); ++i) {
            EXPECT_TRUE(i + 2 == frames.size() || frames[i].body.size() == 1024) << i;
            came.append(frames[i].body.begin(), frames[i].body.end());
        }
        EXPECT_TRUE(content == came);
    }
}

// ---- What is not sent ----

TEST_F(Files, WhatCannotBeSentIsRefusedAndNobodyHearsOfIt) {
    const std::string path = makeFile("a.txt", "text");
    EXPECT_FALSE(ann->transferFile(path, "a.txt")) << "nobody is there";
    joined({&bob});
    EXPECT_FALSE(ann->transferFile(makeFile("empty", ""), "empty"));
    EXPECT_FALSE(ann->transferFile((folder / "source").string(), "source")) << "a folder";
    EXPECT_FALSE(ann->transferFile((folder / "none").string(), "none"));
    EXPECT_FALSE(ann->transferFile(path, "b.txt"));
    EXPECT_FALSE(ann->transferFile(path, "a.tx")) << "not to the end";
    EXPECT_FALSE(ann->transferFile(makeFile("b.txt/b.txt", "text"), "b.txt")) << "occurs earlier";
    EXPECT_FALSE(ann->transferFile("", "a.txt"));
    EXPECT_FALSE(ann->transferFile(path, ""));
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
    EXPECT_TRUE(ann->transferFile(path, "a.txt"));
    EXPECT_TRUE(bob.receives(id::fileEnd));
}

// ---- Roots that are none ----

TEST_F(Files, WithoutARootEverythingIsCountedAndPassedOn) {
    LogFile log;
    joined({&bob, &cid});
    variable = std::make_unique<ScopedEnvironment>(rootVariable);
    EXPECT_TRUE(sendsFile(bob, "f", "text"));
    EXPECT_TRUE(cid.receives(id::fileBegin));
    EXPECT_EQ(Bytes({'t', 'e', 'x', 't'}), cid.next(id::fileData).body);
    EXPECT_TRUE(cid.receives(id::fileEnd));
    EXPECT_EQ(1, log.entries("_handleFileTransferBegin QOR_COLLAB_ROOT_LOCAL not set"));
    EXPECT_TRUE(log.has("File Transfer Received = 4 Wrote = 0."));
    EXPECT_TRUE(ann.files.empty());
}

// ---- Where a received path leads ----

TEST_F(Files, NoPathLeadsOutOfTheRoot) {
    const std::string nul("a\0/../../b", 10);
    const auto unlessDevice = [](const char *name) {
        return platform::isReservedName(name) ? std::string() : std::string(name);
    };
    const std::pair<std::string, std::string> cases[] = {
        // the place in the root; empty: refused
        {"sub\\dir\\f.bin", "sub/dir/f.bin"},
        {"..x/y", "..x/y"},
        {"/abs/x", "abs/x"},
        {"\\\\server\\share\\x", "server/share/x"},
        {"../x", ""},
        {"a/../../x", ""},
        {"..\\x", ""},
        {"C:\\x", unlessDevice("C:") + (unlessDevice("C:").empty() ? "" : "/x")},
        {"CON", unlessDevice("CON")},
        {"sub/", ""},
        {std::string(300, 'n'), ""},
        {nul, "a"},
    };
    joined({&bob});
    fs::create_directories(root);
    std::ofstream(folder / "x") << "mine";
    const std::set<std::string> before = around();
    for (const auto &[relativePath, place] : cases) {
        SCOPED_TRACE(relativePath);
        ann.files.clear();
        EXPECT_TRUE(sendsFile(bob, relativePath, "evil"));
        if (place.empty()) {
            EXPECT_THAT(stored(), IsEmpty());
            EXPECT_TRUE(ann.files.empty());
        } else {
            EXPECT_THAT(stored(), ElementsAre(place));
            EXPECT_EQ("evil", contentOf(root / place));
            EXPECT_EQ(1u, ann.files.size());
        }
        EXPECT_EQ(before, around());
        EXPECT_EQ("mine", contentOf(folder / "x"));
        for (const auto &entry : fs::directory_iterator(root))
            fs::remove_all(entry);
    }
    expectThatTheMeetingGoesOn(bob);
}

TEST_F(Files, APathAndItsRootHaveRoomFor1023Characters) {
    joined({&bob});
    const std::string part = std::string(99, 'd') + "/";
    std::string relativePath;
    while (root.string().size() + 1 + relativePath.size() + part.size() < 1000)
        relativePath += part;
    // The rest of the room is less than the longest name.
    relativePath += std::string(1022 - root.string().size() - relativePath.size(), 'f');
    if (!platform::makeDirectory(root.string()))
        GTEST_SKIP() << "cannot make the root";
    fs::create_directories((root / relativePath).parent_path());
    std::ofstream probe(root / relativePath);
    if (!probe.is_open())
        GTEST_SKIP() << "this system has no paths of that length";
    probe.close();
    EXPECT_TRUE(sendsFile(bob, relativePath, "deep"));
    EXPECT_EQ(1, ann.told("file whole"));
    ann.files.clear();
    EXPECT_TRUE(sendsFile(bob, relativePath + "f", "deep"));
    EXPECT_TRUE(ann.files.empty());
}

// ---- Wrong sizes, full disks ----

TEST_F(Files, AnEndThatAnnouncesAnotherSizeDeletesTheFile) {
    LogFile log;
    joined({&bob});
    ASSERT_TRUE(beginsFile(bob, "sub/f", "text") && ends(bob, 5));
    ASSERT_EQ(1u, ann.files.size());
    EXPECT_EQ(root / "sub" / "f", fs::path(ann.files[0].path));
    EXPECT_THAT(stored(), IsEmpty());
    ASSERT_TRUE(beginsFile(bob, "f", "text") && ends(bob, 3));
    ASSERT_TRUE(beginsFile(bob, "f", "text") && bob.sends(id::fileEnd, {0, 0, 4}) && bob.fences());
    EXPECT_EQ(3, ann.told("file failed")) << "an end that is cut short, too";
    EXPECT_EQ(3, log.entries("_handleFileTransferEnd transfer failed wrong size"));
    expectThatTheMeetingGoesOn(bob);
}

TEST_F(Files, ADiskThatIsFullFailsTheFileWhetherItShowsAtOnceOrAtTheEnd) {
    constexpr std::size_t room = 100 * 1024;
    joined({&bob});
    // What is behind the room: nothing, less than the stream keeps back until it is closed, more.
    for (const std::size_t size : {room, room + 10, room + 20000}) {
        SCOPED_TRACE(size);
        const bool fits = size == room;
        ann.forgets();
        EXPECT_TRUE(sendsFile(bob, "f", "what was there before"));
        if (!platform::limitFileSize(room))
            GTEST_SKIP() << "this system limits no file's size";
        LogFile log;
        ASSERT_TRUE(begins(bob, "f"));
        const std::string content = pattern(size);
        for (std::size_t at = 0; at < size; at += 1024)
            ASSERT_TRUE(data(bob, content.substr(at, 1024)));
        ASSERT_TRUE(ends(bob, size));
        EXPECT_TRUE(platform::limitFileSize(0));
        EXPECT_EQ(fits ? 2 : 1, ann.told("file whole"));
        EXPECT_EQ(fits ? 0 : 1, ann.told("file failed"));
        EXPECT_EQ(fits ? 0 : 1,
                  log.entries("_handleFileTransferEnd file transfer write failed wrong size"));
        EXPECT_EQ(fits, fs::exists(root / "f"));
    }
    expectThatTheMeetingGoesOn(bob);
}

TEST_F(Files, WhatStandsInTheRootAlreadyLeadsNowhereElse) {
    joined({&bob});
    std::error_code failed;
    fs::create_directories(root);
    const std::string file = makeFile("regular", "mine");
    fs::create_directory_symlink(folder / "source", root / "folder", failed);
    if (!failed)
        fs::create_symlink(file, root / "link", failed);
    if (failed)
        GTEST_SKIP() << "no links: " << failed.message();
    fs::create_symlink(folder / "nothing", root / "dangling");
    const std::set<std::string> before = around();
    LogFile log;
    for (const char *path : {"link", "folder/regular", "folder/sub/new", "dangling"}) {
        SCOPED_TRACE(path);
        EXPECT_TRUE(sendsFile(bob, path, "evil"));
        EXPECT_TRUE(ann.files.empty());
        EXPECT_EQ("mine", contentOf(file));
        EXPECT_TRUE(log.has(std::string("_handleFileTransferBegin path leaves the root ") + path));
    }
    EXPECT_EQ(before, around());
    EXPECT_EQ(1, std::distance(fs::directory_iterator(folder / "source"), {}));
    ASSERT_TRUE(ConferenceParticipant::setFileLinks(true)); // the owner says so
    for (const char *path : {"link", "dangling", "folder/../new", "folder/sub/../../new"})
        EXPECT_TRUE(sendsFile(bob, path, "evil") && ann.files.empty()) << path;
    EXPECT_TRUE(sendsFile(bob, "folder/sub/../new", "good"));
    EXPECT_TRUE(ConferenceParticipant::setFileLinks(false));
    EXPECT_EQ("good", contentOf(folder / "source" / "new"));
    EXPECT_EQ("mine", contentOf(file));
    expectThatTheMeetingGoesOn(bob);
}

// ---- Two at a time, and none ----

TEST_F(Files, ASecondFileMeanwhileIsPassedOnAndNotKept) {
    joined({&bob, &cid, &dan});
    ASSERT_TRUE(begins(bob, "first") && bob.fences());
    ASSERT_TRUE(beginsFile(cid, "second", "not this"));
    ASSERT_TRUE(data(bob, "this") && bob.fences());
    ASSERT_TRUE(data(cid, "nor this") && cid.fences());
    ASSERT_TRUE(ends(bob, 4));
    EXPECT_THAT(stored(), ElementsAre("first"));
    EXPECT_EQ("this", contentOf(root / "first"));
    EXPECT_EQ(1, ann.told("file whole"));
    ASSERT_TRUE(ends(cid, 16));
    EXPECT_EQ(1u, ann.files.size()) << "no file of Cid's was open";

    auto frames = dan.gets();
    std::erase_if(frames, [](const WireFrame &frame) { return frame.id == id::rosterEntry; });
    EXPECT_THAT(kinds(frames), ElementsAre(id::fileBegin, id::fileBegin, id::fileData, id::fileData,
                                           id::fileData, id::fileEnd, id::fileEnd));
    if (frames.size() == 7) {
        EXPECT_EQ(cid.entry.address, frames[1].origin);
        EXPECT_EQ(bob.entry.address, frames[3].origin);
    }
    expectThatTheMeetingGoesOn(cid);
}

// ---- Who goes in the middle ----

TEST_F(Files, ASenderThatDiesLeavesNothingBehind) {
    joined({&bob, &cid, &dan});
    ASSERT_TRUE(beginsFile(bob, "f", pattern(1024)));
    EXPECT_THAT(stored(), ElementsAre("f"));
    bob.closes();
    EXPECT_TRUE(ann.isTold("file failed") && ann.isTold("leave Bob"));
    EXPECT_THAT(stored(), IsEmpty());
    EXPECT_EQ(root / "f", fs::path(ann.files.at(0).path));
    EXPECT_EQ(addressOf(bob), ann.files.at(0).neighbour);

    // The origin is what the sender wrote, which need not be its own.
    const WireFrame begin = {.id = id::fileBegin,
                             .origin = WireAddress::ipv4(0x0A630001, 9),
                             .body = wireTexts({"/f", "f"})};
    ann.forgets();
    ASSERT_TRUE(dan.sends(begin.encode()) && dan.fences());
    EXPECT_THAT(stored(), ElementsAre("f"));
    dan.resets();
    EXPECT_TRUE(ann.isTold("file failed"));
    EXPECT_THAT(stored(), IsEmpty());
    expectThatTheMeetingGoesOn(cid);
}

// The sender is in the middle of its call, and finds the dead one by a write that fails.
TEST_F(Files, AReceiverThatDiesMeanwhileCostsTheOthersNothing) {
    ASSERT_TRUE(gather(ann, {&fay}));
    joined({&bob, &cid});
    const std::string path = makeFile("f.bin", pattern(20000));
    dying = &bob;
    ann->setFileProgressCB([](ConferenceParticipant *, const TCPAddress &, std::uint64_t,
                              std::uint64_t, const std::string &) {
        if (dying != nullptr)
            std::exchange(dying, nullptr)->resets();
    });
    EXPECT_FALSE(ann->transferFile(path, "f.bin")) << "not everybody has it";
    EXPECT_TRUE(ann.isTold("leave Bob") && fay.isTold("file whole"));
    EXPECT_TRUE(cid.receives(id::fileEnd));
    EXPECT_TRUE(ann->transferFile(path, "f.bin")) << "those who are left";
}

TEST_F(Files, AReceiverThatLeavesOrIsDestroyedKeepsNoHalf) {
    joined({&bob});
    ASSERT_TRUE(beginsFile(bob, "f", "half"));
    ann.leaves();
    EXPECT_EQ(1, ann.told("file failed"));
    EXPECT_THAT(stored(), IsEmpty());
    joined({&cid});
    expectThatTheMeetingGoesOn(cid);
    ASSERT_TRUE(beginsFile(cid, "f", "half"));
    ann.dies();
    EXPECT_THAT(stored(), IsEmpty());
}

TEST_F(Files, AMemberGivesUpTheFileOfWhoeverLeavesOrOfItsHost) {
    ASSERT_TRUE(ann.meets(host));
    ASSERT_TRUE(host.sends(id::rosterReply, dan.entry.encode()) && host.fences());
    const WireFrame frame = {
        .id = id::fileBegin, .origin = dan.entry.address, .body = wireTexts({"/f", "f"})};
    ASSERT_TRUE(host.sends(frame.encode()) && host.fences());
    EXPECT_THAT(stored(), ElementsAre("f"));
    ASSERT_TRUE(host.sends(id::leaveNotify, dan.entry.encode()) && host.fences());
    EXPECT_EQ(1, ann.told("file failed"));
    EXPECT_EQ(addressOf(host), ann.files.at(0).neighbour) << "who passed it on";
    EXPECT_THAT(stored(), IsEmpty());
    expectThatTheMeetingGoesOn(host);

    // For a moment the member is alone in the meeting.
    ann.inside = [this](const std::string &event) {
        if (event == "file failed") {
            EXPECT_TRUE(ann->isMeeting() && !ann->requestStartLeading() && !ann->isMeeting());
        }
    };
    ASSERT_TRUE(host.sends(frame.encode()) && host.fences());
    host.closes();
    EXPECT_TRUE(ann.isTold("file failed") && ann.isTold("leave Host"));
    EXPECT_EQ(1, ann.told("leadReply 0"));
    EXPECT_THAT(stored(), IsEmpty());
}

// ---- Progress ----

struct Step {
    const ConferenceParticipant *at;
    TCPAddress origin;
    std::string path, progress; // "done/total"
};
std::vector<Step> steps;
std::function<void(ConferenceParticipant &, std::uint64_t done)> inside;

class FileProgress : public Files {
protected:
    FileProgress() {
        steps.clear();
        inside = nullptr;
        EXPECT_TRUE(gather(ann, {&eve, &fay}));
        for (Party *party : {&ann, &eve, &fay})
            (*party)->setFileProgressCB([](ConferenceParticipant *at, const TCPAddress &origin,
                                           std::uint64_t done, std::uint64_t total,
                                           const std::string &file) {
                steps.push_back(
                    {at, origin, file, std::to_string(done) + '/' + std::to_string(total)});
                if (inside)
                    inside(*at, done);
            });
    }
    bool eveSends() { return eve->transferFile(path, "f.bin"); }

    // What that party was told, all about a file of Eve's at this path.
    std::vector<std::string> told(const Party &party, const fs::path &where) {
        std::vector<std::string> lines;
        for (const Step &step : steps)
            if (step.at == &party.participant()) {
                EXPECT_TRUE(step.origin == eve->address());
                EXPECT_EQ(where, fs::path(step.path));
                lines.push_back(step.progress);
            }
        return lines;
    }

    const std::string path = makeFile("f.bin", std::string(2049, 'x'));
};

TEST_F(FileProgress, BothEndsAreToldOfTheBeginAndOfEachPart) {
    ASSERT_TRUE(eveSends() && ann.isTold("file whole"));
    EXPECT_THAT(told(eve, path), ElementsAre("0/2049", "1024/2049", "2048/2049", "2049/2049"));
    EXPECT_THAT(told(ann, root / "f.bin"), ElementsAre("0/0", "1024/0", "2048/0", "2049/0"));
}

TEST_F(FileProgress, AFileThatIsNotStoredIsToldOnceWithoutAPath) {
    for (const std::string &place : {std::string(), path + "/below"}) { // that cannot be made
        steps.clear();
        const ScopedEnvironment instead(rootVariable, place);
        ASSERT_TRUE(eveSends() && eve.says("done") && ann.hears("done") && fay.hears("done"));
        EXPECT_THAT(told(ann, ""), ElementsAre("0/0"));
        EXPECT_THAT(told(fay, ""), ElementsAre("0/0"));
        ann.forgets();
        fay.forgets();
    }
}

// The data come at once, as far as an hour goes.
TEST_F(FileProgress, IsToldAsOftenAsWantedAndInAFolderOfOnesOwn) {
    for (Party *party : {&ann, &eve})
        (*party)->setFileProgressInterval(3600000);
    ann->setFileFolder((folder / "anns").string());
    ASSERT_TRUE(eveSends() && ann.isTold("file whole") && fay.isTold("file whole"));
    EXPECT_THAT(told(eve, path), ElementsAre("0/2049", "2049/2049"));
    EXPECT_THAT(told(ann, folder / "anns" / "f.bin"), ElementsAre("0/0", "2049/0"));
    EXPECT_THAT(told(fay, root / "f.bin"), ElementsAre("0/0", "1024/0", "2048/0", "2049/0"));
}

TEST_F(FileProgress, AReceiverMayHangUpInIt) {
    for (const std::uint64_t when : {0u, 1024u}) {
        inside = [this, when](ConferenceParticipant &at, std::uint64_t done) {
            if (&at == &fay.participant() && done == when)
                at.hangup();
        };
        fay.forgets();
        ASSERT_TRUE(eveSends() && fay.isTold("file failed") && ann.isTold("leave Fay"));
        ASSERT_TRUE(ann.isTold("file whole"));
        ann.forgets();
        ASSERT_TRUE(fay.meets(ann));
    }
}

TEST_F(FileProgress, NoSecondFileStartsInsideTheFirst) {
    bool second = true;
    inside = [&](ConferenceParticipant &at, std::uint64_t) {
        if (&at == &eve.participant())
            second = eveSends();
    };
    EXPECT_TRUE(eveSends());
    EXPECT_FALSE(second);
    inside = nullptr;
    EXPECT_TRUE(eveSends()) << "afterwards it may";
}

// ---- Acknowledgements, which nobody sends and everybody can read ----

TEST_F(Files, AnAcknowledgementIsReadWhenItIsMeantForThisParty) {
    Party guy(meeting, "Guy", Party::Reach::everybody);
    unsigned int own = 0;
    if (!guy->address().IPv4(own))
        GTEST_SKIP() << "this machine has no IPv4 address";
    const auto *inMemory = reinterpret_cast<const unsigned char *>(&own);
    ASSERT_TRUE(guy.hosts("talk"));
    ASSERT_TRUE(bob.joins(guy.port()) && cid.joins(guy.port()) && cid.fences());
    const std::pair<Bytes, const char *> cases[] = {
        // behind the address; what is told: nothing where it is empty
        {{0, 0, 0, 1, 'f'}, "file whole"}, // no end of the name
        {{0, 0, 0, 0, 'f', 0}, "file failed"},
        {{0, 0, 0, 1, 0, 'f', 0}, ""}, // no name
    };
    for (const auto &[rest, event] : cases) {
        SCOPED_TRACE(event);
        guy.forgets();
        guy.files.clear();
        Bytes body(inMemory, inMemory + sizeof own);
        body.insert(body.end(), rest.begin(), rest.end());
        ASSERT_TRUE(bob.sends(id::fileAck, body) && bob.fences());
        EXPECT_EQ(*event == '\0' ? 0u : 1u, guy.files.size());
        EXPECT_TRUE(*event == '\0' || (guy.told(event) == 1 && guy.files.at(0).path == "f"));
        EXPECT_EQ(body, cid.next(id::fileAck).body) << "passed on as it came";

        guy.files.clear();
        body[3] = static_cast<unsigned char>(body[3] ^ 1); // another party's
        ASSERT_TRUE(bob.sends(id::fileAck, body) && bob.sends(id::fileAck, {body[0], body[1]}));
        EXPECT_TRUE(bob.fences() && guy.files.empty());
        EXPECT_TRUE(cid.receives(id::fileAck) && cid.receives(id::fileAck));
    }
}

} // namespace
} // namespace vintok::test
