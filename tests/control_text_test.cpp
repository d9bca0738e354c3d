// The texts between an application and its control process. One table of sentences runs both ways:
// what the library's functions send is compared with the text, the text is read back, and what
// `vintok control` tells of it is looked at. What nobody should write is refused for its reason.
#include "ControlNotices.h"
#include "ControlParser.h"
#include "JsonLine.h"

#include <vintok/ControlNotify.h>
#include <vintok/ControlRequest.h>
#include <vintok/ControlText.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPStream.h>

#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <set>
#include <sstream>

namespace vintok::test {
namespace {

using control::Direction;
using control::Field;
using control::ParseError;
using testing::HasSubstr;

RosterBase person(const std::string &ip) {
    TCPAddress address;
    address.setName(ip);
    address.setHostByteOrderPort(40000);
    RosterBase entry(address);
    entry.setFirstName("address"); // a value may look like a keyword
    entry.setTitle("Dr");
    entry.setEmail("ann@x");
    entry.setPhone("12");
    entry.setColorIndex(3);
    return entry;
}

const RosterBase ann = person("10.0.0.1");
const RosterBase six = person("2001:db8:1:2:3:4:5:0"); // printed without its last group
const TCPAddress &address = ann;
const std::string place = "address\n10.0.0.1\nport\n40000\n";
const std::string data =
    "firstName\naddress\ntitle\nDr\nemail\nann@x\nphoneNumber\n12\ncolorIndex\n3\n";
const std::string anns = place + data;
const std::string sixes = "address\n2001:db8:1:2:3:4:5:\nport\n40000\n" + data;

struct Sentence {
    std::function<bool(int)> send;
    std::string text;
    const char *json = nullptr; // what scripts and people are told, with addresses hidden
    const char *sentence = nullptr;
};

const Sentence requests[] = {
    {requestAcceptLeadChange, "acceptLeadChange\n"},
    {requestAcceptPendingCall, "acceptPendingCall\n"},
    {requestAdjournMeeting, "adjournMeeting\n"},
    {requestHangup, "hangup\n"},
    {requestKeepAlive, "keepAlive\n"},
    {requestPausePlayback, "pausePlayback\n"},
    {requestRejectLeadChange, "rejectLeadChange\n"},
    {requestRejectPendingCall, "rejectPendingCall\n"},
    {requestResumePlayback, "resumePlayback\n"},
    {requestShutdown, "shutdown\n"},
    {requestStartLeading, "startLeading\n"},
    {requestStopLeading, "stopLeading\n"},
    {requestStopPlayback, "stopPlayback\n"},
    {requestStopRecording, "stopRecording\n"},
    {requestTime, "time\n"},
    {[](int d) { return requestConveneMeeting(d, "a talk"); },
     "conveneMeeting\nmeetingName\na talk\n"},
    {[](int d) { return requestDisableUser(d, ann); }, "disableUser\n" + anns},
    {[](int d) { return requestEnableUser(d, six); }, "enableUser\n" + sixes},
    {[](int d) { return requestRoster(d, ann); }, "meetingRoster\n" + anns},
    {[](int d) { return requestPlaceCall(d, "h1", 65535, "p", 40000, "id", "a:b", -1); },
     "placeCall\nmachineName\nh1\nproxyAddress\np\nmeetingID\nid\nauthenticationString\na:"
     "b\nport\n65535\nproxyPort\n40000\ntriesRemaining\n-1\n"},
    {[](int d) { return requestPutenv(d, "A", "b=c"); }, "putenv\nA=b=c\n"},
    {[](int d) { return requestPutenv(d, "A", ""); }, "putenv\nA="},
    {[](int d) { return requestStartPlayback(d, "/f g"); }, "startPlayback\nfilePath\n/f g\n"},
    {[](int d) { return requestStartRecording(d, "/f"); }, "startRecording\nfilePath\n/f\n"},
    {[](int d) { return requestTransferFile(d, "/a/f", "f"); },
     "transferFile\nfilePath\n/a/f\nrelativePath\nf\n"},
    {[](int d) { return requestStartup(d, 0, false, false, "", "", "", "", "", ""); },
     "startup\nport\n0\n"},
    {[](int d) {
         return requestStartup(d, 7777, true, true, "Ann", "Bee", "Dr", "a@b", "12", "id");
     },
     "startup\nport\n7777\nisSecure\nhideIP\nfirstName\nAnn\nlastName\nBee\ntitle\nDr\nemail\na@"
     "b\nphoneNumber\n12\nmeetingID\nid\n"},
};

// The bytes of a server's message are those of a page in another language.
const std::string page = "f\xC3\xBC\xFF\x80\n\x7F";

const Sentence notifications[] = {
    {[](int d) { return replyNotifyStarted(d, address, true); }, "startup\n" + place + "isSecure\n",
     R"("startup","address":"10.0.0.1","port":40000,"isSecure":true})",
     "The control process listens on 10.0.0.1 port 40000, securely."},
    {[](int d) { return replyNotifyHideIP(d, true); }, "hideIP\ntrue\n"},
    {[](int d) { return replyNotifySetTime(d, false, 5); }, "time\nsubtract\n5\n",
     R"("time","direction":"subtract","seconds":5})", "The clock has 5 s subtracted from it."},
    {replyNotifyHosting, "hosting\n"},
    {replyNotifyEndMeeting, "endMeeting\n"},
    {replyNotifyEjected, "ejected\n"},
    {replyNotifyBeginLeading, "beginLeading\n"},
    {replyNotifyEndLeading, "endLeading\n"},
    {replyNotifyBeginLeadingGranted, "beginLeadingGranted\n"},
    {replyNotifyBeginLeadingDenied, "beginLeadingDenied\n"},
    {[](int d) { return replyNotifyDialing(d, "m"); }, "dialing\nmachineName\nm\n"},
    {[](int d) { return replyNotifyRinging(d, "m", ann); }, "ringing\nmachineName\nm\n" + anns},
    {[](int d) { return replyNotifyCallAccepted(d, "m", six); },
     "placedCallAccepted\nmachineName\nm\n" + sixes},
    {[](int d) { return replyNotifyBusy(d, "m", ann); }, "placedCallBusy\nmachineName\nm\n" + anns,
     R"("placedCallBusy","machineName":"m","address":"hidden","port":40000,"firstName":"address","title":"Dr","email":"ann@x","phoneNumber":"12","colorIndex":3})",
     "m is busy in another meeting."},
    {[](int d) { return replyNotifyCallRejected(d, "m", ann); },
     "placedCallRejected\nmachineName\nm\n" + anns},
    {[](int d) { return replyNotifyCallNoAnswer(d, "m"); }, "placedCallNoAnswer\nmachineName\nm\n"},
    {[](int d) {
         return replyNotifyCallAuthenticationRequired(d, "m", 65535, "p", 80, "auth", 4294967295u,
                                                      "id");
     },
     "authenticationRequired\nmachineName\nm\nproxyAddress\np\nmeetingID\nid\nauthenticationString"
     "\nauth\nport\n65535\nproxyPort\n80\ntriesRemaining\n4294967295\n",
     R"("authenticationRequired","machineName":"m","port":65535,"meetingID":"id","proxyAddress":"p","proxyPort":80,"authenticationString":"auth","triesRemaining":4294967295})",
     "The proxy p asks who calls m. /login USER:PASSWORD calls again."},
    {[](int d) { return replyNotifyServerResponse(d, 403, page); },
     "serverResponse\nserverResponseCode\n403\nserverResponseMessage\n66ffc3ffbcffffff800a7f\n",
     R"("serverResponse","serverResponseCode":403,"serverResponseMessage":"fü\ufffd\ufffd\n\u007f"})",
     "The server answers 403: f\xC3\xBC\xFF\x80\n\x7F"},
    {[](int d) { return replyNotifyVersionNotCompatible(d, "", address); },
     "versionNotCompatible\nmachineName\n\n" + place},
    {[](int d) { return replyNotifyCallPending(d, RosterBase(address)); },
     "callPending\n" + place + "colorIndex\n65535\n",
     R"("callPending","address":"hidden","port":40000,"colorIndex":65535})",
     "hidden 40000 (hidden port 40000) wants to join. /accept or /reject?"},
    {[](int d) { return replyNotifyUserInMeeting(d, ann); }, "rosterEntry\n" + anns},
    {[](int d) { return replyNotifyUserJoin(d, ann); }, "rosterChanged\njoin\n" + anns},
    {[](int d) { return replyNotifyUserLeave(d, ann); }, "rosterChanged\nleave\n" + anns},
    {[](int d) { return replyNotifyUserEjected(d, ann); }, "rosterChanged\nejected\n" + anns},
    {[](int d) { return replyNotifyLeaderChange(d, ann); }, "leaderChanged\n" + anns},
    {[](int d) { return replyNotifyLeadRequestPending(d, ann); }, "leadRequestPending\n" + anns},
    {[](int d) { return replyNotifyFileTransfer(d, "f"); }, "transferFile\nf\n"},
    {[](int d) { return replyNotifyFileTransferred(d, address, 1, "f"); },
     "transferredFileSuccess\n" + place + "filePath\nf\n"},
    {[](int d) { return replyNotifyFileTransferred(d, TCPAddress(), 0, ""); },
     "transferredFileFailure\naddress\n0.0.0.0\nport\n0\nfilePath\n\n"},
    {[](int d) { return replyNotifyRecordingStarted(d, true); }, "recordingStarted\ntrue\n"},
    {[](int d) { return replyNotifyRecordingStopped(d, false); }, "recordingStopped\nfalse\n"},
    {[](int d) { return replyNotifyPlaybackStarted(d, true); }, "playbackStarted\ntrue\n"},
    {[](int d) { return replyNotifyPlaybackStopped(d, false); }, "playbackStopped\nfalse\n"},
    {[](int d) { return replyNotifyPlaybackPaused(d, true); }, "playbackPaused\ntrue\n"},
    {[](int d) { return replyNotifyPlaybackResumed(d, true); }, "playbackResumed\ntrue\n"},
};

class ControlText : public testing::Test {
protected:
    ControlText() {
        init();
        unsigned short port = 20000;
        int listener = createLocalSocket(port, 0, 10000, true);
        mine = connectLocal(port);
        peer = acceptAndCloseBoundSocket(listener);
    }
    ~ControlText() override {
        shutdownSocket(mine);
        shutdownSocket(peer);
        fini();
    }
    // The body of the next message; its identifier says the direction.
    std::string body(Direction direction) const {
        TCPMessage message;
        EXPECT_TRUE(message.read(peer, nullptr));
        EXPECT_TRUE(message.messageID() == (direction == Direction::request
                                                ? TCP_conferenceControlRequest
                                                : TCP_conferenceControlReply));
        const unsigned char *bytes = message.messageBuffer();
        return std::string(bytes, bytes + message.messageBufferLength());
    }

    int mine = -1, peer = -1;
};

// The lines of a text in any order, taken from the text or from what was read of it.
std::multiset<std::string> linesOf(const std::string &text) {
    std::istringstream stream(text);
    std::multiset<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.insert(line);
    return lines;
}

std::multiset<std::string> linesOf(const control::Text &text) {
    std::multiset<std::string> lines = {text.word()};
    for (const words::FieldRow &row : words::fieldRows) {
        if (!text.has(row.field) || row.field == Field::variableValue)
            continue;
        const std::string &value = text.value(row.field);
        if (!row.bare)
            lines.emplace(row.name);
        if (row.field == Field::variableName)
            lines.insert(value + "=" + text.value(Field::variableValue));
        else if (row.kind != words::Kind::flag)
            lines.insert(row.kind == words::Kind::encoded ? encodeText(value) : value);
        EXPECT_TRUE(row.kind != words::Kind::number ||
                    value == std::to_string(text.number(row.field)));
    }
    return lines;
}

void expectRead(Direction direction, const Sentence &row) {
    control::Text text;
    std::string complaint;
    EXPECT_EQ(ParseError::none, control::parse(direction, row.text + '\0', text, complaint))
        << complaint;
    EXPECT_EQ(direction, text.direction());
    EXPECT_EQ(linesOf(row.text), linesOf(text));
    EXPECT_THAT(row.text, HasSubstr(text.has(Field::address) ? formatAddress(text.address()) : ""));
    EXPECT_THAT(row.text,
                HasSubstr(text.has(Field::colorIndex) ? formatRosterBase(text.person()) : ""));
    if (row.json != nullptr) {
        const app::Notice notice = app::noticeOf(text, text.word() != "startup");
        EXPECT_EQ(std::string("{\"event\":") + row.json,
                  app::JsonLine(notice.event).fields(notice.fields).str());
        EXPECT_EQ(row.sentence, notice.sentence);
    }
}

TEST_F(ControlText, IsWrittenAndReadAsItWasMeant) {
    const auto goBothWays = [this](Direction direction, const auto &rows) {
        for (const Sentence &row : rows) {
            SCOPED_TRACE(row.text);
            EXPECT_TRUE(row.send(mine));
            EXPECT_EQ(row.text + '\0', body(direction));
            expectRead(direction, row);
        }
    };
    goBothWays(Direction::request, requests);
    goBothWays(Direction::notification, notifications);
    EXPECT_TRUE(replyNotifyBeginMeeting(mine, true, ""));
    EXPECT_EQ(std::string("hideIP\ntrue\n\0", 13), body(Direction::notification));
    EXPECT_EQ(std::string("beginMeeting\nmeetingName\n\n\0", 27), body(Direction::notification));
    EXPECT_EQ(0, rawBytesPending(peer));
}

TEST_F(ControlText, IsNotSentWhenItIsRefused) {
    const std::function<bool(int)> refused[] = {
        [](int d) { return writeRequestString(d, ""); },
        [](int d) { return writeReplyString(d, ""); },
        [](int d) { return requestStartPlayback(d, ""); },
        [](int d) { return replyNotifyRinging(d, "", ann); },
        [](int d) { return replyNotifyDialing(d, ""); },
        [](int) { return requestHangup(-1); },
    };
    for (const auto &send : refused)
        EXPECT_FALSE(send(mine)) << &send - refused;
    EXPECT_TRUE(writeRequestString(mine, std::string("one\n\0two\n", 9))); // loses its tail
    const std::string first = body(Direction::request);
    EXPECT_STREQ("one\n", first.c_str());
    EXPECT_THAT(first, testing::Not(HasSubstr("two")));
    EXPECT_EQ(0, rawBytesPending(peer));
}

TEST(ControlFormats, EncodedTextComesBackUpToItsHighBytes) {
    struct Encoded {
        std::string text, digits, decoded;
    };
    const Encoded cases[] = {
        {std::string("a\0b", 3), "610062", "ab"},
        {"\x7F\x80\xFF", "7fff80ffff", "\x7F\xFF\x80\xFF\xFF"},
    };
    for (const Encoded &row : cases) {
        SCOPED_TRACE(row.digits);
        EXPECT_EQ(row.digits, encodeText(row.text));
        EXPECT_EQ(row.decoded, decodeText(row.digits));
    }
    EXPECT_EQ("A", decodeText("414"));
    EXPECT_EQ("A", decodeText("zz41"));
    EXPECT_EQ("JK", decodeText("4a4B")) << "digits of either case";
}

struct Hostile {
    ParseError error;
    std::string body;
    Direction direction = Direction::request;
};

constexpr auto notification = Direction::notification;
const Hostile hostile[] = {
    {ParseError::notTerminated, "hangup\n"},
    {ParseError::empty, std::string(1, '\0')},
    {ParseError::bytesBehindZero, std::string("hangup\n\0x\0", 10)},
    {ParseError::noLineFeed, std::string("hangup\0", 7)},
    {ParseError::unknownWord, "hangup\r\n"},
    {ParseError::unknownWord, "hosting\n"},            // the other direction's
    {ParseError::unknownKeyword, "hangup\nport\n1\n"}, // another word's
    {ParseError::unknownKeyword, "conveneMeeting\nmeetingName\ntwo\nlines\n"},
    {ParseError::repeatedKeyword, "startup\nport\n1\nport\n1\n"},
    {ParseError::missingValue, "startup\nport\n"},
    {ParseError::missingValue, "rosterChanged\n", notification},
    {ParseError::noLineFeed, "startup\nport\n1\nmeetingID\nid"},
    {ParseError::badValue, "startup\nport\n65536\n"},
    {ParseError::badValue, "startup\nport\n1x\n"},
    {ParseError::badValue, "enableUser\naddress\nlocalhost\nport\n1\ncolorIndex\n1\n"},
    {ParseError::badValue, "enableUser\naddress\n:\nport\n1\ncolorIndex\n1\n"},
    {ParseError::badValue, "time\nsub\n5\n", notification},
    {ParseError::badValue, "hideIP\nTRUE\n", notification},
    {ParseError::badValue, "rosterChanged\nvanish\ncolorIndex\n1\n", notification},
    {ParseError::badValue, "serverResponse\nserverResponseCode\n1\nserverResponseMessage\n4\n",
     notification},
    {ParseError::missingField, "startup\n"},
    {ParseError::missingField, "enableUser\naddress\n1.2.3.4\ncolorIndex\n1\n"},
    {ParseError::badValue, "putenv\n=x\n"},
    {ParseError::noLineFeed, "putenv\nA=b"},
    {ParseError::unknownKeyword, "putenv\nA=b\nC=d\n"},
    {ParseError::tooLong, "startRecording\nfilePath\n" + std::string(4 << 20, 'x') + "\n"},
    // What is long, but within the bound, costs no more than its length.
    {ParseError::unknownWord, std::string(control::maxBody - 1, '\n')},
    {ParseError::none, "startRecording\nfilePath\n" + std::string(1 << 19, 'x') + "\n"},
    {ParseError::none, "conveneMeeting\nmeetingName\nmeetingName\n"},
    {ParseError::none, "placeCall\ntriesRemaining\n3\nproxyPort\n2\nport\n1\n"},
    {ParseError::none, "putenv\nA=\n"},
    {ParseError::none, "serverResponse\nserverResponseCode\n1\nserverResponseMessage\nffC3FFff\n",
     notification},
};

TEST(ControlParser, RefusesWhatNobodyShouldWrite) {
    for (const Hostile &row : hostile) {
        SCOPED_TRACE(control::quote(row.body));
        const bool bare = row.error == ParseError::notTerminated;
        control::Text text;
        std::string complaint;
        const ParseError error =
            control::parse(row.direction, bare ? row.body : row.body + '\0', text, complaint);
        EXPECT_STREQ(describe(row.error), describe(error)) << complaint;
        EXPECT_EQ(row.error == ParseError::none, complaint.empty());
        EXPECT_LT(complaint.size(), 300u);
        EXPECT_EQ(std::string::npos, complaint.find('\n'));
    }
}

// The texts of the document, "\\n" standing for a line feed: in the first column of its tables, and
// behind the arrows of its exchanges.
std::string documentText(const std::string &line, Direction &direction) {
    std::string text;
    if (line.rfind("-> ", 0) == 0 || line.rfind("<- ", 0) == 0) {
        direction = line[0] == '-' ? Direction::request : Direction::notification;
        text = line.substr(3);
    } else if (line.rfind("| `", 0) == 0) {
        text = line.substr(3, line.find('`', 3) - 3);
    }
    for (std::size_t at = text.find("\\n"); at != std::string::npos; at = text.find("\\n"))
        text.replace(at, 2, "\n");
    return text.find('\n') == std::string::npos ? "" : text;
}

// Each word of the table stands in the sentences above and in the document.
TEST(ControlParser, ReadsEveryTextOfTheDocumentWhichShowsThemAll) {
    std::ifstream document(VINTOK_CONTROL_DOCUMENT);
    std::set<std::string> shown[2], sent[2] = {{}, {"beginMeeting"}}, all[2];
    Direction section = Direction::request;
    for (std::string line; std::getline(document, line);) {
        if (line == "## Notifications")
            section = Direction::notification;
        Direction direction = section;
        const std::string body = documentText(line, direction);
        if (body.empty())
            continue;
        control::Text text;
        std::string complaint;
        EXPECT_EQ(ParseError::none, control::parse(direction, body + '\0', text, complaint))
            << complaint;
        shown[static_cast<int>(direction)].insert(text.word());
    }
    for (const Sentence &row : requests)
        sent[0].insert(row.text.substr(0, row.text.find('\n')));
    for (const Sentence &row : notifications)
        sent[1].insert(row.text.substr(0, row.text.find('\n')));
    for (const words::Word &row : words::requests)
        all[0].emplace(row.word);
    for (const words::Word &row : words::notifications)
        all[1].emplace(row.word);
    for (const int direction : {0, 1}) {
        EXPECT_EQ(all[direction], shown[direction]);
        EXPECT_EQ(all[direction], sent[direction]);
    }
}

// Nothing that a text can be cut down or damaged to is read outside its bytes, and every beginning
// of it is refused: the required fields stand at the end.
TEST(ControlParser, ReadsATextThatIsCutOrDamagedAnywhereSafely) {
    const std::string body =
        "placeCall\nmachineName\nh1\nport\n7000\nproxyPort\n0\ntriesRemaining\n3\n";
    control::Text text;
    std::string complaint;
    for (std::size_t length = 0; length <= body.size(); ++length) {
        const std::string part = body.substr(0, length) + '\0';
        const std::unique_ptr<char[]> exact(new char[part.size()]); // the sanitizer guards its end
        std::copy(part.begin(), part.end(), exact.get());
        const ParseError error = control::parse(
            Direction::request, std::string_view(exact.get(), part.size()), text, complaint);
        EXPECT_EQ(length == body.size(), error == ParseError::none) << length;
    }
    for (std::size_t i = 0; i < body.size(); ++i)
        for (const char damage : {'\0', '\n', '\xFF', '-'}) {
            std::string damaged = body + '\0';
            damaged[i] = damage;
            control::parse(Direction::request, damaged, text, complaint);
            control::parse(Direction::notification, damaged, text, complaint);
        }
}

} // namespace
} // namespace vintok::test
