// What an application is told while a file is under way, at both ends of it.
#include "support/Environment.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

#include <functional>
#include <stdexcept>

namespace vintok::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

// One call of the callback.
struct Step {
    const ConferenceParticipant *at;
    TCPAddress origin;
    std::uint64_t done;
    std::uint64_t total;
    std::string path;
};
std::vector<Step> steps;
std::function<void(ConferenceParticipant &, const Step &)> inside;

void onProgress(ConferenceParticipant *at, const TCPAddress &origin, std::uint64_t done,
                std::uint64_t total, const std::string &path) {
    steps.push_back({at, origin, done, total, path});
    if (inside)
        inside(*at, Step(steps.back()));
}

class FileProgress : public RealStage {
protected:
    FileProgress() {
        steps.clear();
        inside = nullptr;
        EXPECT_TRUE(gather(ann, {&bob, &cid}));
        for (Party *party : {&ann, &bob, &cid})
            (*party)->setFileProgressCB(onProgress);
    }
    ~FileProgress() override { ConferenceParticipant::setFileRoot(""); }

    // Whoever takes files in stores them.
    bool stores() const { return ConferenceParticipant::setFileRoot(folder.path("in")); }
    // The party hangs up when it is told of so many bytes.
    void hangsUpAt(const Party &party, std::uint64_t done) {
        inside = [&party, done](ConferenceParticipant &at, const Step &step) {
            if (&at == &party.participant() && step.done == done)
                at.hangup();
        };
    }

    // "done/total" of each call at that party, all about a file of Bob's at this path.
    static std::vector<std::string> told(const Party &party, const std::string &where,
                                         const Party &sender) {
        std::vector<std::string> lines;
        for (const Step &step : steps)
            if (step.at == &party.participant()) {
                EXPECT_TRUE(step.origin == sender->address());
                EXPECT_EQ(fs::path(where), fs::path(step.path));
                lines.push_back(std::to_string(step.done) + '/' + std::to_string(step.total));
            }
        return lines;
    }

    const TemporaryFolder folder;
    const std::string path = folder.holding("f.bin", std::string(2049, 'x'));
    ScopedEnvironment variable{"QOR_COLLAB_ROOT_LOCAL"}; // put back in the end
};

TEST_F(FileProgress, BothEndsAreToldOfTheBeginAndOfEachPart) {
    ASSERT_TRUE(stores());
    ASSERT_TRUE(bob->transferFile(path, "f.bin"));
    EXPECT_THAT(told(bob, path, bob), ElementsAre("0/2049", "1024/2049", "2048/2049", "2049/2049"));
    ASSERT_TRUE(ann.isTold("file whole"));
    const std::string stored = folder.path("in/f.bin");
    EXPECT_THAT(told(ann, stored, bob), ElementsAre("0/0", "1024/0", "2048/0", "2049/0"));
}

TEST_F(FileProgress, AFileThatIsNotStoredIsToldOnceWithoutAPath) {
    for (const char *root : {"", "f.bin/below"}) { // no folder, and one that cannot be made
        steps.clear();
        ASSERT_TRUE(ConferenceParticipant::setFileRoot(*root == '\0' ? "" : folder.path(root)));
        ASSERT_TRUE(bob->transferFile(path, "f.bin") && bob.says("done"));
        ASSERT_TRUE(ann.hears("done") && cid.hears("done"));
        EXPECT_THAT(told(ann, "", bob), ElementsAre("0/0"));
        EXPECT_THAT(told(cid, "", bob), ElementsAre("0/0"));
        for (Party *party : {&ann, &cid})
            party->forgets();
    }
}

TEST_F(FileProgress, ASenderThatHangsUpInItSendsNoMore) {
    ASSERT_TRUE(stores());
    hangsUpAt(bob, 2048);
    EXPECT_FALSE(bob->transferFile(path, "f.bin"));
    EXPECT_THAT(told(bob, path, bob), ElementsAre("0/2049", "1024/2049", "2048/2049"));
    EXPECT_TRUE(ann.isTold("file failed") && cid.isTold("file failed"));
    EXPECT_TRUE(fs::is_empty(folder.path("in")));
}

TEST_F(FileProgress, AReceiverMayHangUpInIt) {
    ASSERT_TRUE(stores());
    for (const std::uint64_t when : {0u, 1024u}) {
        hangsUpAt(cid, when);
        cid.forgets();
        ASSERT_TRUE(bob->transferFile(path, "f.bin"));
        ASSERT_TRUE(cid.isTold("file failed") && ann.isTold("leave Cid"));
        ASSERT_TRUE(ann.isTold("file whole"));
        ann.forgets();
        ASSERT_TRUE(cid.meets(ann));
    }
}

TEST_F(FileProgress, AnExceptionOutOfItEndsTheFileAndNotTheNextOne) {
    inside = [&](ConferenceParticipant &at, const Step &) {
        if (&at == &bob.participant())
            throw std::runtime_error("no more");
    };
    EXPECT_THROW(bob->transferFile(path, "f.bin"), std::runtime_error);
    inside = nullptr;
    EXPECT_TRUE(bob->transferFile(path, "f.bin"));
}

TEST_F(FileProgress, NoSecondFileStartsInsideTheFirst) {
    bool second = true;
    inside = [&](ConferenceParticipant &at, const Step &) {
        if (&at == &bob.participant())
            second = at.transferFile(path, "f.bin");
    };
    EXPECT_TRUE(bob->transferFile(path, "f.bin"));
    EXPECT_FALSE(second);
    inside = nullptr;
    EXPECT_TRUE(bob->transferFile(path, "f.bin")) << "afterwards it may";
}

} // namespace
} // namespace vintok::test
