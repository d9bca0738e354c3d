// Files: what goes over the wire for one, what a receiver stores of it and where, and what becomes
// of it when somebody lies, dies or leaves in the middle.
#include "platform/File.h"
#include "platform/TestSockets.h"
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <set>
#include <thread>
#include <utility>

namespace vintok::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *rootVariable = "QOR_COLLAB_ROOT_LOCAL";

// Text without a period that a chunk's length could hide.
std::string contentOfSize(std::size_t size) {
    std::string content(size, '\0');
    std::uint32_t value = 12345;
    for (char &c : content) {
        value = value * 1103515245 + 12345;
        c = static_cast<char>(value >> 24);
    }
    return content;
}

Bytes beginBody(const std::string &path, const std::string &relativePath) {
    Bytes body;
    WireWriter writer(body);
    writer.text(path);
    writer.text(relativePath);
    return body;
}

Bytes endBody(std::uint32_t size) {
    Bytes body;
    WireWriter(body).number(size, 4);
    return body;
}

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
        return peer.sends(id::fileBegin, beginBody("/from/" + relativePath, relativePath));
    }
    static bool data(WirePeer &peer, const std::string &text) {
        return peer.sends(id::fileData, Bytes(text.begin(), text.end()));
    }
    static bool ends(WirePeer &peer, std::size_t size) {
        return peer.sends(id::fileEnd, endBody(static_cast<std::uint32_t>(size))) && peer.fences();
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

class FileSizes : public Files, public testing::WithParamInterface<std::size_t> {};

TEST_P(FileSizes, AFileGoesOutInChunksAndIsStoredAsItWas) {
    const std::string content = contentOfSize(GetParam());
    const std::string path = makeFile("sub/f.bin", content);
    ASSERT_TRUE(gather(ann, {&eve, &fay}));
    joined({&bob});
    ASSERT_TRUE(ann->transferFile(path, "sub/f.bin"));
    EXPECT_TRUE(eve.isTold("file whole") && fay.isTold("file whole"));
    EXPECT_EQ(content, contentOf(root / "sub" / "f.bin"));
    EXPECT_EQ(root / "sub" / "f.bin", fs::path(eve.files.at(0).path));
    EXPECT_EQ(ann->address(), eve.files.at(0).neighbour);
    EXPECT_EQ(0, ann.told("file whole")) << "the sender does not get its own file";

    auto frames = bob.gets();
    std::erase_if(frames, [](const WireFrame &frame) {
        return frame.id < id::fileBegin || frame.id > id::fileEnd;
    });
    ASSERT_EQ(2 + (content.size() + 1023) / 1024, frames.size());
    EXPECT_EQ(beginBody(path, "sub/f.bin"), frames.front().body);
    EXPECT_EQ(endBody(static_cast<std::uint32_t>(content.size())), frames.back().body);
    std::string came;
    for (std::size_t i = 1; i + 1 < frames.size(); ++i) {
        EXPECT_TRUE(i + 2 == frames.size() || frames[i].body.size() == 1024) << i;
        came.append(frames[i].body.begin(), frames[i].body.end());
    }
    EXPECT_TRUE(content == came);
    for (const WireFrame &frame : frames)
        EXPECT_EQ(frames.front().origin, frame.origin);
}

INSTANTIATE_TEST_SUITE_P(All, FileSizes, testing::Values(1, 1024, 2048, 2049));

TEST_F(Files, AHostRelaysAFileAndStoresItToo) {
    const std::string content = contentOfSize(5000);
    const std::string path = makeFile("f.bin", content);
    ASSERT_TRUE(gather(ann, {&eve, &fay}));
    joined({&bob});
    ASSERT_TRUE(eve->transferFile(path, "f.bin"));
    EXPECT_TRUE(ann.isTold("file whole") && fay.isTold("file whole"));
    EXPECT_EQ(ann->address(), fay.files.at(0).neighbour) << "who passed it on";
    EXPECT_EQ(eve->address(), ann.files.at(0).neighbour);
    EXPECT_EQ(content, contentOf(root / "f.bin"));
    std::string came;
    ASSERT_TRUE(bob.receives(id::fileBegin));
    for (int chunk = 0; chunk < 5; ++chunk) {
        const Bytes body = bob.next(id::fileData).body;
        came.append(body.begin(), body.end());
    }
    EXPECT_TRUE(content == came);
    EXPECT_EQ(endBody(5000), bob.next(id::fileEnd).body);
    EXPECT_EQ(0, eve.told("file whole")) << "it does not come back";
}

// Its sender does not read until all is sent, so that it needs a thread of its own.
TEST_F(Files, AFileThatFillsEveryBufferArrivesWholeAtEverybody) {
    const std::string content = contentOfSize(300000);
    const std::string path = makeFile("long.bin", content);
    ASSERT_TRUE(gather(ann, {&fay}));
    joined({&bob});
    std::promise<Party *> stands;
    std::promise<void> received;
    std::thread sender([&, wait = received.get_future()] {
        Meeting own;
        Party guy(own, "Guy");
        stands.set_value(&guy);
        EXPECT_TRUE(guy.isTold("join Ann"));
        EXPECT_TRUE(guy->transferFile(path, "long.bin"));
        wait.wait();
    });
    EXPECT_TRUE(ann.calls(*stands.get_future().get()));
    EXPECT_TRUE(ann.isTold("file whole") && fay.isTold("file whole"));
    EXPECT_TRUE(content == contentOf(root / "long.bin"));
    std::string came;
    for (WireFrame frame; came.size() < content.size() && bob.receives(id::fileData, &frame);)
        came.append(frame.body.begin(), frame.body.end());
    EXPECT_TRUE(content == came);
    EXPECT_TRUE(bob.receives(id::fileEnd));
    received.set_value();
    sender.join();
}

TEST_F(Files, AFileReplacesTheOneOfItsName) {
    joined({&bob});
    EXPECT_TRUE(sendsFile(bob, "f", "long before") && sendsFile(bob, "f", "short"));
    EXPECT_EQ("short", contentOf(root / "f"));
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
    for (const bool set : {false, true}) {
        SCOPED_TRACE(set);
        variable.reset();
        variable = set ? std::make_unique<ScopedEnvironment>(rootVariable, "")
                       : std::make_unique<ScopedEnvironment>(rootVariable);
        EXPECT_TRUE(sendsFile(bob, "f", "text"));
        EXPECT_TRUE(cid.receives(id::fileBegin));
        EXPECT_EQ(Bytes({'t', 'e', 'x', 't'}), cid.next(id::fileData).body);
        EXPECT_TRUE(cid.receives(id::fileEnd));
    }
    EXPECT_EQ(2, log.entries("_handleFileTransferBegin QOR_COLLAB_ROOT_LOCAL not set"));
    EXPECT_EQ(2, log.entries("_handleFileTransferData File transfer data without open file"));
    EXPECT_TRUE(log.has("File Transfer Received = 8 Wrote = 0."));
    EXPECT_TRUE(ann.files.empty());
    variable.reset();
    variable = std::make_unique<ScopedEnvironment>(rootVariable, root.string());
    expectThatTheMeetingGoesOn(bob);
}

TEST_F(Files, ARootThatIsNoFolderStoresNothing) {
    joined({&bob});
    const std::string file = makeFile("regular", "mine");
    std::vector<std::string> places = {file, file + "/below"};
    if (fs::exists("/proc/self")) // takes no files, whoever asks
        places.insert(places.end(), {"/proc", "/proc/below"});
    for (const std::string &place : places) {
        SCOPED_TRACE(place);
        const ScopedEnvironment instead(rootVariable, place);
        EXPECT_TRUE(sendsFile(bob, "f", "text"));
        EXPECT_TRUE(ann.files.empty());
        EXPECT_EQ("mine", contentOf(file));
    }
    fs::create_directories(root / "taken");
    EXPECT_TRUE(sendsFile(bob, "taken", "text")) << "a folder of that name";
    EXPECT_TRUE(ann.files.empty() && fs::is_directory(root / "taken"));
    expectThatTheMeetingGoesOn(bob);
}

// ---- Where a received path leads ----

TEST_F(Files, NoPathLeadsOutOfTheRoot) {
    const std::string nul("a\0/../../b", 10);
    const auto unlessDevice = [](const char *name) {
        return platform::isReservedName(name) ? std::string() : std::string(name);
    };
    const std::pair<std::string, std::string> cases[] = {
        // the place in the root; empty: refused
        {"f.bin", "f.bin"},
        {"sub/dir/f.bin", "sub/dir/f.bin"},
        {"sub\\dir\\f.bin", "sub/dir/f.bin"},
        {"./x", "x"},
        {"..x/y", "..x/y"},
        {"/abs/x", "abs/x"},
        {"\\\\server\\share\\x", "server/share/x"},
        {"..", ""},
        {"../x", ""},
        {"a/../../x", ""},
        {"..\\x", ""},
        {"a/..", ""},
        {"C:\\x", unlessDevice("C:") + (unlessDevice("C:").empty() ? "" : "/x")},
        {"CON", unlessDevice("CON")},
        {"nul.txt", unlessDevice("nul.txt")},
        {"sub/", ""},
        {"", ""},
        {std::string(300, 'n'), ""},
        {std::string(1100, 'n'), ""},
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
    for (const std::uint32_t size : {3u, 5u, 0u}) {
        SCOPED_TRACE(size);
        ann.files.clear();
        ASSERT_TRUE(beginsFile(bob, "sub/f", "text") && ends(bob, size));
        ASSERT_EQ(1u, ann.files.size());
        EXPECT_EQ(root / "sub" / "f", fs::path(ann.files[0].path));
        EXPECT_THAT(stored(), IsEmpty());
    }
    EXPECT_EQ(3, ann.told("file failed"));
    ASSERT_TRUE(begins(bob, "f") && data(bob, "text"));
    ASSERT_TRUE(bob.sends(id::fileEnd, {0, 0, 4}) && bob.fences());
    EXPECT_EQ(4, ann.told("file failed")) << "an end that is cut short";
    EXPECT_EQ(4, log.entries("_handleFileTransferEnd transfer failed wrong size"));
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
        const std::string content = contentOfSize(size);
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
    for (const char *path : {"link", "folder/regular", "folder\\regular", "folder/new",
                             "folder/sub/new", "./folder/new", "dangling", "dangling/new"}) {
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

TEST_F(Files, AnEndOfWhateverOriginEndsTheFile) {
    joined({&bob, &cid});
    ASSERT_TRUE(beginsFile(bob, "f", "text") && ends(cid, 4));
    EXPECT_EQ(1, ann.told("file whole"));
    EXPECT_EQ(addressOf(cid).hostByteOrderPort(), ann.files.at(0).neighbour.hostByteOrderPort());
    expectThatTheMeetingGoesOn(bob);
}

TEST_F(Files, WhatIsNoBeginOpensNothing) {
    joined({&bob});
    const Bytes whole = beginBody("/f", "f");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        ASSERT_TRUE(bob.sends(id::fileBegin, cut) && bob.sends(id::fileEnd, endBody(0)));
        ASSERT_TRUE(bob.fences());
        EXPECT_THAT(stored(), IsEmpty());
    }
    Bytes huge = whole;
    huge[7] = huge[8] = 0x7F; // the second count
    ASSERT_TRUE(bob.sends(id::fileBegin, huge) && bob.sends(id::fileEnd, endBody(0)));
    EXPECT_TRUE(ann.files.empty());
    expectThatTheMeetingGoesOn(bob);
}

// ---- Who goes in the middle ----

TEST_F(Files, ASenderThatDiesLeavesNothingBehind) {
    joined({&bob, &cid, &dan});
    ASSERT_TRUE(beginsFile(bob, "f", contentOfSize(1024)));
    EXPECT_THAT(stored(), ElementsAre("f"));
    bob.closes();
    EXPECT_TRUE(ann.isTold("file failed") && ann.isTold("leave Bob"));
    EXPECT_THAT(stored(), IsEmpty());
    EXPECT_EQ(root / "f", fs::path(ann.files.at(0).path));
    EXPECT_EQ(addressOf(bob), ann.files.at(0).neighbour);
    expectThatTheMeetingGoesOn(cid);

    // The origin is what the sender wrote, which need not be its own.
    WireFrame begin;
    begin.id = id::fileBegin;
    begin.origin = WireAddress::ipv4(0x0A630001, 9);
    begin.body = beginBody("/f", "f");
    ann.forgets();
    ASSERT_TRUE(dan.sends(begin.encode()) && dan.fences());
    EXPECT_THAT(stored(), ElementsAre("f"));
    dan.resets();
    EXPECT_TRUE(ann.isTold("file failed"));
    EXPECT_THAT(stored(), IsEmpty());
    expectThatTheMeetingGoesOn(cid);
}

TEST_F(Files, AStrangerWithTheSendersAddressDoesNotTouchTheFile) {
    joined({&bob, &cid});
    ASSERT_TRUE(beginsFile(bob, "f", "te"));
    dan.entry.address = bob.entry.address;
    ASSERT_TRUE(dan.connects(ann.port()) && data(dan, "lie") && dan.saysHello());
    ASSERT_TRUE(dan.seesTheEnd());
    ASSERT_TRUE(data(bob, "xt") && ends(bob, 4));
    EXPECT_EQ(1, ann.told("file whole"));
    EXPECT_EQ("text", contentOf(root / "f"));
}

// The sender is in the middle of its call, and finds the dead one by a write that fails.
TEST_F(Files, AReceiverThatDiesMeanwhileCostsTheOthersNothing) {
    ASSERT_TRUE(gather(ann, {&fay}));
    joined({&bob, &cid});
    const std::string content = contentOfSize(20000);
    const std::string path = makeFile("f.bin", content);
    ann->setFileProgressCB([](ConferenceParticipant *, const TCPAddress &, std::uint64_t done,
                              std::uint64_t, const std::string &) {
        if (done == 0 && dying != nullptr)
            std::exchange(dying, nullptr)->resets();
    });
    dying = &bob;
    LogFile log;
    EXPECT_FALSE(ann->transferFile(path, "f.bin")) << "not everybody has it";
    EXPECT_THAT(log.text(), testing::Not(testing::ContainsRegex(" was ....+ seconds old\\.")));
    EXPECT_TRUE(ann.isTold("leave Bob"));
    EXPECT_TRUE(fay.isTold("file whole"));
    EXPECT_EQ(content, contentOf(root / "f.bin"));
    WireFrame end;
    EXPECT_TRUE(cid.receives(id::fileEnd, &end));
    EXPECT_TRUE(ann->transferFile(path, "f.bin")) << "those who are left";
    expectThatTheMeetingGoesOn(cid);
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
    WireFrame frame;
    frame.id = id::fileBegin;
    frame.origin = dan.entry.address;
    frame.body = beginBody("/f", "f");
    ASSERT_TRUE(host.sends(frame.encode()) && host.fences());
    EXPECT_THAT(stored(), ElementsAre("f"));
    ASSERT_TRUE(host.sends(id::leaveNotify, dan.entry.encode()) && host.fences());
    EXPECT_EQ(1, ann.told("file failed"));
    EXPECT_EQ(addressOf(host), ann.files.at(0).neighbour) << "who passed it on";
    EXPECT_THAT(stored(), IsEmpty());
    expectThatTheMeetingGoesOn(host);

    ASSERT_TRUE(host.sends(frame.encode()) && host.fences());
    host.closes();
    EXPECT_TRUE(ann.isTold("file failed") && ann.isTold("leave Host"));
    EXPECT_THAT(stored(), IsEmpty());
}

TEST_F(Files, TheCallbackMayHangUp) {
    joined({&bob});
    ann.inside = [this](const std::string &event) {
        if (event == "file whole" || event == "file failed")
            ann.leaves();
    };
    ASSERT_TRUE(begins(bob, "f") && data(bob, "text"));
    ASSERT_TRUE(bob.sends(id::fileEnd, endBody(4)));
    EXPECT_TRUE(bob.seesTheEnd());
    EXPECT_EQ("text", contentOf(root / "f"));
    joined({&cid});
    ASSERT_TRUE(beginsFile(cid, "g", "text"));
    ann.leaves();
    EXPECT_EQ(1, ann.told("file failed"));
    EXPECT_THAT(stored(), ElementsAre("f"));
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
    const struct {
        const char *name;
        Bytes afterAddress;
        const char *event; // empty: none
    } cases[] = {
        {"whole", {0, 0, 0, 1, 'f', 0}, "file whole"},
        {"any bit", {0, 4, 0, 0, 'f', 0, 0}, "file whole"},
        {"failed", {0, 0, 0, 0, 'f', 0}, "file failed"},
        {"no end of the name", {0, 0, 0, 1, 'f'}, "file whole"},
        {"no name", {0, 0, 0, 1, 0, 'f', 0}, ""},
        {"nothing behind the result", {0, 0, 0, 1}, ""},
        {"no result", {'f', 0}, "file failed"},
        {"nothing", {}, ""},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        guy.forgets();
        guy.files.clear();
        Bytes body(sizeof own + row.afterAddress.size());
        std::copy(row.afterAddress.begin(), row.afterAddress.end(),
                  std::copy_n(inMemory, sizeof own, body.begin()));
        ASSERT_TRUE(bob.sends(id::fileAck, body) && bob.fences());
        if (*row.event == '\0') {
            EXPECT_TRUE(guy.files.empty());
        } else {
            ASSERT_EQ(1u, guy.files.size());
            EXPECT_EQ(1, guy.told(row.event));
            EXPECT_EQ("f", guy.files[0].path);
        }
        EXPECT_EQ(body, cid.next(id::fileAck).body) << "passed on as it came";

        guy.files.clear();
        body[3] = static_cast<unsigned char>(body[3] ^ 1); // another party's
        ASSERT_TRUE(bob.sends(id::fileAck, body) && bob.fences());
        EXPECT_TRUE(guy.files.empty());
        EXPECT_TRUE(cid.receives(id::fileAck));
    }
    for (std::size_t length = 0; length < 4; ++length)
        ASSERT_TRUE(bob.sends(id::fileAck, Bytes(inMemory, inMemory + length)));
    EXPECT_TRUE(bob.fences() && guy.files.empty());
}

TEST_F(Files, NobodySendsAnAcknowledgement) {
    joined({&bob, &cid});
    ASSERT_TRUE(sendsFile(bob, "f", "text") && ann.told("file whole") == 1);
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
}

} // namespace
} // namespace vintok::test
