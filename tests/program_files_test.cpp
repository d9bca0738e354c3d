// Files between real processes of the program: what each end tells of one, and what becomes of one
// that cannot be sent, cannot be stored, or is not what was announced.
#include "platform/File.h"
#include "support/Party.h"
#include "support/Program.h"
#include "support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

namespace vintok::test {
namespace {

namespace fs = std::filesystem;

// Many whole messages and a short one, and what another program says of it.
const std::string content(150001, 'a');
const EventField ofContent =
    text("sha256", "94483e0109734750b8e98c64b5a5b253936caa226f054deac0649c634e87491c");

// Where a message takes long, in an emulated system, a big file is smaller and shows less.
std::size_t bigSize(std::size_t size) {
    return platform::pathSeparator() == '/' ? size : 100001;
}

std::ptrdiff_t count(const std::string &output, const std::string &event) {
    std::ptrdiff_t found = 0;
    for (std::size_t at = 0;
         (at = output.find("{\"event\":\"" + event + '"', at)) != std::string::npos; ++at)
        ++found;
    return found;
}

// Ann hosts; she and Bob have a folder each.
class ProgramFiles : public testing::Test {
protected:
    ProgramFiles() { init(); }
    ~ProgramFiles() override { fini(); }

    std::string make(const std::string &name, const std::string &text) const {
        fs::create_directories(fs::path(folder.path(name)).parent_path());
        return folder.holding(name, text);
    }
    fs::path annsFolder() const { return folder.path("ann"); }
    void meet() {
        ann.emplace(
            std::vector<std::string>{"host", "--name", "Ann", "--files", annsFolder().string()});
        target = ann->target();
        bob.emplace(std::vector<std::string>{"join", target, "--name", "Bob", "--files",
                                             folder.path("bob")});
        ASSERT_TRUE(ann->tells("joined", {named("Bob")}));
        ASSERT_TRUE(bob->tells("joined", {named("Ann")}));
    }
    void expectThatTheMeetingGoesOn() {
        EXPECT_TRUE(bob->isHeard("still here?", *ann));
        EXPECT_TRUE(ann->isHeard("yes", *bob));
    }

    const TemporaryFolder folder;
    std::optional<Program> ann, bob;
    std::string target;
};

TEST_F(ProgramFiles, AFileArrivesAndEachEndTellsHowFarItIsAndItsSum) {
    meet();
    Program cid({"join", target, "--name", "Cid"}); // has no folder
    ASSERT_TRUE(ann->tells("joined", {named("Cid")}) && bob->tells("joined", {named("Cid")}));
    const std::string path = make("plan one.txt", content);
    const struct {
        Program &sender;
        const char *name;
        Program &receiver;
        fs::path stored;
    } turns[] = {{*bob, "Bob", *ann, annsFolder()}, {*ann, "Ann", *bob, folder.path("bob")}};
    for (const auto &turn : turns) {
        turn.sender.type("/send " + path);
        for (Program *end : {&turn.sender, &turn.receiver}) {
            const bool sends = end == &turn.sender;
            const EventField self{"self", sends ? "true" : "false"};
            const EventField file = text("file", "plan one.txt");
            EXPECT_TRUE(end->tells("file-begin",
                                   {named(turn.name), self, file, {"size", "150001"}, ofContent}));
            EXPECT_TRUE(end->tells("file-progress", {{"bytes", "150001"}, {"percent", "100"}}));
            EXPECT_TRUE(end->tells("file-end", {named(turn.name),
                                                self,
                                                file,
                                                {"bytes", "150001"},
                                                ofContent,
                                                text("result", sends ? "sent" : "received")}));
        }
        EXPECT_EQ(content, contentOf(turn.stored / "plan one.txt"));
        EXPECT_TRUE(cid.tells(
            "file-refused",
            {named(turn.name), text("reason", "no folder for files was given, with --files DIR")}));
    }
    EXPECT_GT(100, count(ann->output(), "file-progress")) << "not for each message";
    expectThatTheMeetingGoesOn();
}

TEST_F(ProgramFiles, WhatCannotBeSentIsToldAndTheMeetingGoesOn) {
    ann.emplace(std::vector<std::string>{"host", "--name", "Ann"});
    ASSERT_NE("", ann->target());
    EXPECT_TRUE(ann->refuses("/send " + make("f", "text"), "nobody else is in the meeting"));
    meet();
    const std::string big = make("big", "");
    std::error_code error;
    fs::resize_file(big, std::uintmax_t{1} << 31, error);
    const std::pair<std::string, const char *> cases[] = {
        {"", "which file?"},
        {folder.path("none"), "there is no file"},
        {folder.path(""), "is a folder"},
        {make("empty", ""), "is empty"},
        {error ? "" : big, error ? "" : "is too big: 2147483648 bytes"},
    };
    for (const auto &[path, why] : cases) {
        bob->type("/send " + path);
        std::string line;
        EXPECT_TRUE(bob->tells("problem", {}, &line)) << path;
        EXPECT_THAT(line, HasSubstr(why)) << path;
    }
    EXPECT_EQ(0, count(bob->output(), "file-begin"));
    expectThatTheMeetingGoesOn();
    EXPECT_FALSE(fs::exists(annsFolder()));
}

// The files' own test has the other reasons.
TEST_F(ProgramFiles, WhatCannotBeStoredIsToldAndNothingOfItStays) {
    meet();
    const std::string path = make("plan.txt", content);
    std::ofstream(annsFolder()) << "mine"; // the folder is a file meanwhile
    EXPECT_TRUE(bob->answers("/send " + path, "file-end", {text("result", "sent")}));
    std::string line;
    EXPECT_TRUE(ann->tells("file-refused", {named("Bob")}, &line));
    EXPECT_THAT(line, HasSubstr("it cannot be written below"));
    EXPECT_EQ("mine", contentOf(annsFolder()));

    fs::remove(annsFolder());
    fs::create_directories(annsFolder());
    std::ofstream(annsFolder() / "plan.txt") << "an older plan, to be replaced";
    bob->type("/send " + path);
    EXPECT_TRUE(ann->tells("file-end", {text("result", "received"), ofContent}));
    EXPECT_EQ(content, folder.content("ann/plan.txt"));
    expectThatTheMeetingGoesOn();
}

// Each is bigger than what the connections hold: two that both only send would wait for ever.
TEST_F(ProgramFiles, OfTwoThatSendAtOnceOneGoesFirst) {
    meet();
    Program cid({"join", target, "--name", "Cid"});
    ASSERT_TRUE(bob->tells("joined", {named("Cid")}) && cid.tells("joined", {named("Bob")}));
    const std::string path = make("big.bin", std::string(bigSize(20000000), 'b'));
    Program *const senders[] = {&*bob, &cid, &*ann};
    const std::string end = R"("result":"sent")";
    int sent = 0;
    for (int round = 0; round < 3; ++round) {
        for (Program *sender : senders)
            sender->type("/send " + path);
        for (Program *sender : senders) {
            std::string line;
            ASSERT_TRUE(sender->printed(
                [&](const std::string &one) {
                    return one.find(end) != std::string::npos ||
                           one.find("\"problem\"") != std::string::npos;
                },
                &line))
                << "nobody answers " << ann->story() << bob->story() << cid.story();
            const bool first = line.find(end) != std::string::npos;
            sent += first ? 1 : 0;
            EXPECT_THAT(line, HasSubstr(first ? "file-end" : " sending "));
        }
        // In a later round a file or a withdrawal of the one before may still be on its way.
        EXPECT_LE(1, sent);
    }
    expectThatTheMeetingGoesOn();
}

TEST_F(ProgramFiles, AScriptThatEndsItsInputSendsItsFilesFirst) {
    meet();
    Program cid({"join", target, "--name", "Cid"});
    cid.type("/send " + make("one", "1"));
    cid.type("/send " + make("two", "2"));
    cid.endInput();
    EXPECT_TRUE(cid.ends(0));
    for (const char *name : {"one", "two"})
        EXPECT_TRUE(
            ann->tells("file-end", {named("Cid"), text("file", name), text("result", "received")}));
}

TEST_F(ProgramFiles, APersonSeesTheSameOfIt) {
    ChildProcess host = Program::plain({"host", "--local", "--name", "Ann", "--progress", "always",
                                        "--color", "never", "--files", annsFolder().string()});
    std::string line;
    ASSERT_TRUE(host.printed("Listening on", &line));
    const std::string port =
        line.substr(line.rfind(' ') + 1, line.rfind('.') - line.rfind(' ') - 1);
    bob.emplace(std::vector<std::string>{"join", "127.0.0.1:" + port, "--name", "Bob"});
    bob->type("/send " + make("plan.txt", content));
    EXPECT_TRUE(host.printed("Bob sends plan.txt (150001 bytes)."));
    EXPECT_TRUE(host.printed("Received plan.txt from Bob, as announced: 150001 bytes, SHA-256 "
                             "94483e0109734750b8e98c64b5a5b253936caa226f054deac0649c634e87491c, "
                             "in ",
                             &line));
    EXPECT_THAT(line, HasSubstr("\r\x1b[Kplan.txt [########################] 100% of 150001 bytes"
                                "\r\x1b[K"));
}

// ---- A member that is no such program, and not to be trusted ----

class StrangeSender : public ProgramFiles {
protected:
    void SetUp() override {
        meet();
        const std::string port = target.substr(target.find(':') + 1);
        ASSERT_TRUE(eve->placeCall("127.0.0.1", static_cast<unsigned short>(std::stoi(port)), "", 0,
                                   "", "", 0));
        ASSERT_TRUE(eve.isTold("join Ann"));
        ASSERT_TRUE(ann->tells("joined", {named("Eve")}));
        path = make("f.bin", content);
    }
    // The first lines of what Eve says of a file.
    std::string head(const std::string &mark) const {
        return mark + '\n' + eve.ip() + ' ' + std::to_string(eve.port()) + '\n';
    }

    Meeting meeting;
    Party eve{meeting, "Eve"};
    std::string path;
};

TEST_F(StrangeSender, AFileIsComparedWithWhatWasAnnounced) {
    const std::string sum(64, 'a');
    const struct {
        std::string announcement; // empty: none
        const char *result, *size;
    } cases[] = {
        {"", "unsure", "null"},
        {head("file 1") + "f.bin\n150001 " + sum, "differs", "150001"},
        {head("file 1") + "other\n150001 " + sum, "unsure", "null"},
        {head("file 1") + "f.bin\n150001 " + ofContent.second.substr(1, 64), "received", "150001"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.announcement);
        ASSERT_TRUE(row.announcement.empty() || eve.says(row.announcement));
        ASSERT_TRUE(eve->transferFile(path, "f.bin"));
        ASSERT_TRUE(eve.says(head("file-end 1") + "sent"));
        EXPECT_TRUE(ann->tells("file-end", {named("Eve"),
                                            text("file", "f.bin"),
                                            {"size", row.size},
                                            text("result", row.result),
                                            {"bytes", "150001"},
                                            ofContent}));
    }
    EXPECT_GE(101 * std::size(cases), count(ann->output(), "file-progress"));
    expectThatTheMeetingGoesOn();
}

TEST_F(StrangeSender, NonsenseAboutFilesHurtsNobody) {
    const std::string sum(64, 'a');
    const std::string annsPlace = eve.ip() + ' ' + target.substr(target.find(':') + 1);
    // Of nobody, and of Ann herself: a recording that is played may say such things.
    for (const std::string &place : {std::string("\n192.0.2.99 1\n"), '\n' + annsPlace + '\n'})
        for (const std::string &body :
             {"file 1" + place + "f\n1 " + sum, "file-turn 1" + place + "192.0.2.99 1\nno",
              "file-end 1" + place + "sent"})
            ASSERT_TRUE(eve.says(body));
    // Well-formed, and never followed by a file, or by one of another name.
    const std::string evil = "\x1b[2J\r\xff../../evil";
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(eve.says(head("file 1") + evil + "\n1 " + sum));
    ASSERT_TRUE(eve.says(head("file 1") + "the last")); // she may hear what is typed earlier
    ASSERT_TRUE(ann->tells("data", {{"bytes", std::to_string(head("file 1").size() + 8)}}));
    EXPECT_EQ(1, count(ann->output(), "data")) << "the others are well-formed";
    EXPECT_TRUE(ann->refuses("/send " + path,
                             R"(Eve is sending '\u001b[2J\u000d\ufffd../../evil'; )"
                             "wait until that is over"));
    ASSERT_TRUE(eve->transferFile(path, "f.bin"));
    EXPECT_TRUE(ann->tells("file-end", {text("file", "f.bin"), text("result", "unsure")}));
    ASSERT_TRUE(eve.says(head("file 1") + evil + "\n1 " + sum) &&
                eve.says(head("file-end 1") + "sent"));
    EXPECT_TRUE(ann->tells("file-refused", {text("file", R"(\u001b[2J\u000d\ufffd../../evil)")}));
    expectThatTheMeetingGoesOn();
}

TEST_F(StrangeSender, AFileThatBreaksOffLeavesNothing) {
    eve->setFileProgressCB([](ConferenceParticipant *at, const TCPAddress &, std::uint64_t done,
                              std::uint64_t, const std::string &) {
        if (done > 75000)
            at->hangup();
    });
    EXPECT_FALSE(eve->transferFile(path, "f.bin"));
    EXPECT_TRUE(ann->tells("file-end", {named("Eve"), text("result", "lost"), {"bytes", "null"}}));
    EXPECT_TRUE(bob->tells("file-end", {text("result", "lost")}));
    EXPECT_TRUE(fs::is_empty(annsFolder()) && fs::is_empty(folder.path("bob")));
    expectThatTheMeetingGoesOn();
}

} // namespace
} // namespace vintok::test
