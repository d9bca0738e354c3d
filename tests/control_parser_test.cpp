// The reader of control texts: everything that the library writes comes back with the same values,
// and what nobody should write is refused for the right reason.
#include "ControlParser.h"

#include <vintok/ControlNotify.h>
#include <vintok/ControlRequest.h>
#include <vintok/ControlText.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPStream.h>

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>

namespace vintok::test {
namespace {

using control::Direction;
using control::Field;
using control::ParseError;

RosterBase person(const std::string &ip) {
    TCPAddress address;
    address.setName(ip);
    address.setHostByteOrderPort(40000);
    RosterBase entry(address);
    entry.setFirstName("address"); // a value may look like a keyword
    entry.setEmail("ann@example.org");
    entry.setColorIndex(3);
    return entry;
}

const RosterBase ann = person("10.0.0.1");
const RosterBase six = person("2001:db8:1:2:3:4:5:0"); // printed without its last group

class ControlParser : public testing::Test {
protected:
    ControlParser() {
        init();
        unsigned short port = 20000;
        int listener = createLocalSocket(port, 0, 10000, true);
        mine = connectLocal(port);
        peer = acceptAndCloseBoundSocket(listener);
    }
    ~ControlParser() override {
        shutdownSocket(mine);
        shutdownSocket(peer);
        fini();
    }
    // The text that `send` wrote, read back.
    control::Text roundTrip(const std::function<bool(int)> &send) const {
        EXPECT_TRUE(send(mine));
        TCPMessage message;
        EXPECT_TRUE(message.read(peer, nullptr));
        control::Text text;
        std::string complaint;
        EXPECT_EQ(ParseError::none, control::parse(message, text, complaint)) << complaint;
        return text;
    }
    int mine = -1, peer = -1;
};

using Values = std::map<Field, std::string>;

struct RoundTrip {
    std::string word;
    std::function<bool(int)> send;
    Values values = {};
    const RosterBase *person = nullptr;
};

void expectSame(const RoundTrip &row, const control::Text &text) {
    EXPECT_EQ(row.word, text.word());
    for (std::size_t i = 0; i < std::size(words::fieldRows); ++i) {
        const auto field = static_cast<Field>(i);
        const auto wanted = row.values.find(field);
        if (wanted != row.values.end()) {
            EXPECT_TRUE(text.has(field)) << i;
            EXPECT_EQ(wanted->second, text.value(field)) << i;
        } else if (row.person == nullptr) {
            EXPECT_FALSE(text.has(field)) << i;
        }
    }
    if (row.person != nullptr) {
        EXPECT_TRUE(*row.person == text.person());
        EXPECT_TRUE(static_cast<const UserInfo &>(*row.person) == text.person());
        EXPECT_EQ(row.person->colorIndex(), text.person().colorIndex());
        EXPECT_EQ(row.person->port(), text.address().port());
    }
}

const RoundTrip requests[] = {
    {"acceptLeadChange", requestAcceptLeadChange},
    {"acceptPendingCall", requestAcceptPendingCall},
    {"adjournMeeting", requestAdjournMeeting},
    {"hangup", requestHangup},
    {"keepAlive", requestKeepAlive},
    {"pausePlayback", requestPausePlayback},
    {"rejectLeadChange", requestRejectLeadChange},
    {"rejectPendingCall", requestRejectPendingCall},
    {"resumePlayback", requestResumePlayback},
    {"shutdown", requestShutdown},
    {"startLeading", requestStartLeading},
    {"stopLeading", requestStopLeading},
    {"stopPlayback", requestStopPlayback},
    {"stopRecording", requestStopRecording},
    {"time", requestTime},
    {"conveneMeeting",
     [](int d) { return requestConveneMeeting(d, "a talk"); },
     {{Field::meetingName, "a talk"}}},
    {"conveneMeeting", [](int d) { return requestConveneMeeting(d, ""); }},
    {"disableUser", [](int d) { return requestDisableUser(d, ann); }, {}, &ann},
    {"enableUser", [](int d) { return requestEnableUser(d, six); }, {}, &six},
    {"meetingRoster", [](int d) { return requestRoster(d, ann); }, {}, &ann},
    {"placeCall",
     [](int d) { return requestPlaceCall(d, "h1", 65535, "p", 40000, "id", "a:b", -1); },
     {{Field::machineName, "h1"},
      {Field::proxyAddress, "p"},
      {Field::meetingID, "id"},
      {Field::authenticationString, "a:b"},
      {Field::port, "65535"},
      {Field::proxyPort, "40000"},
      {Field::triesRemaining, "-1"}}},
    {"placeCall",
     [](int d) { return requestPlaceCall(d, "", 0, "", 0, "", "", 0); },
     {{Field::port, "0"}, {Field::proxyPort, "0"}, {Field::triesRemaining, "0"}}},
    {"putenv",
     [](int d) { return requestPutenv(d, "A", "b=c"); },
     {{Field::variableName, "A"}, {Field::variableValue, "b=c"}}},
    {"putenv",
     [](int d) { return requestPutenv(d, "A", ""); },
     {{Field::variableName, "A"}, {Field::variableValue, ""}}},
    {"putenv", [](int d) { return requestPutenv(d, "", "b"); }},
    {"startPlayback",
     [](int d) { return requestStartPlayback(d, "/f g"); },
     {{Field::filePath, "/f g"}}},
    {"startRecording",
     [](int d) { return requestStartRecording(d, "/f"); },
     {{Field::filePath, "/f"}}},
    {"transferFile",
     [](int d) { return requestTransferFile(d, "/a/f", "f"); },
     {{Field::filePath, "/a/f"}, {Field::relativePath, "f"}}},
    {"transferFile", [](int d) { return requestTransferFile(d, "", ""); }},
    {"startup",
     [](int d) {
         return requestStartup(d, 7777, true, true, "Ann", "Bee", "Dr", "a@b", "12", "id");
     },
     {{Field::port, "7777"},
      {Field::isSecure, ""},
      {Field::hideIP, ""},
      {Field::firstName, "Ann"},
      {Field::lastName, "Bee"},
      {Field::title, "Dr"},
      {Field::email, "a@b"},
      {Field::phoneNumber, "12"},
      {Field::meetingID, "id"}}},
};

TEST_F(ControlParser, EveryRequestComesBackAsItWasMade) {
    for (const RoundTrip &row : requests) {
        SCOPED_TRACE(row.word);
        const control::Text text = roundTrip(row.send);
        EXPECT_EQ(Direction::request, text.direction());
        expectSame(row, text);
    }
}

const TCPAddress &address = ann;
const Values yes = {{Field::outcome, "true"}}, no = {{Field::outcome, "false"}},
             m = {{Field::machineName, "m"}};
// The bytes of a server's message are those of a page in another language.
const std::string page = "Zugriff f\xC3\xBCr\xFF\x80\n\x7F";

Values atAnns(Values more) {
    more.insert({{Field::address, "10.0.0.1"}, {Field::port, "40000"}});
    return more;
}

const RoundTrip notifications[] = {
    {"beginLeading", replyNotifyBeginLeading},
    {"beginLeadingDenied", replyNotifyBeginLeadingDenied},
    {"beginLeadingGranted", replyNotifyBeginLeadingGranted},
    {"ejected", replyNotifyEjected},
    {"endLeading", replyNotifyEndLeading},
    {"endMeeting", replyNotifyEndMeeting},
    {"hosting", replyNotifyHosting},
    {"placedCallBusy", [](int d) { return replyNotifyBusy(d, "m", ann); }, m, &ann},
    {"placedCallAccepted", [](int d) { return replyNotifyCallAccepted(d, "m", six); }, m, &six},
    {"placedCallRejected", [](int d) { return replyNotifyCallRejected(d, "m", ann); }, m, &ann},
    {"ringing", [](int d) { return replyNotifyRinging(d, "m", ann); }, m, &ann},
    {"placedCallNoAnswer", [](int d) { return replyNotifyCallNoAnswer(d, "m"); }, m},
    {"dialing", [](int d) { return replyNotifyDialing(d, "m"); }, m},
    {"callPending", [](int d) { return replyNotifyCallPending(d, ann); }, {}, &ann},
    {"leadRequestPending", [](int d) { return replyNotifyLeadRequestPending(d, ann); }, {}, &ann},
    {"leaderChanged", [](int d) { return replyNotifyLeaderChange(d, ann); }, {}, &ann},
    {"rosterEntry", [](int d) { return replyNotifyUserInMeeting(d, ann); }, {}, &ann},
    {"rosterChanged",
     [](int d) { return replyNotifyUserEjected(d, ann); },
     {{Field::change, "ejected"}},
     &ann},
    {"rosterChanged",
     [](int d) { return replyNotifyUserJoin(d, ann); },
     {{Field::change, "join"}},
     &ann},
    {"rosterChanged",
     [](int d) { return replyNotifyUserLeave(d, ann); },
     {{Field::change, "leave"}},
     &ann},
    {"versionNotCompatible", [](int d) { return replyNotifyVersionNotCompatible(d, "", address); },
     atAnns({{Field::machineName, ""}})},
    {"authenticationRequired",
     [](int d) {
         return replyNotifyCallAuthenticationRequired(d, "m", 65535, "p", 80, "auth", 4294967295u,
                                                      "id");
     },
     {{Field::machineName, "m"},
      {Field::proxyAddress, "p"},
      {Field::meetingID, "id"},
      {Field::authenticationString, "auth"},
      {Field::port, "65535"},
      {Field::proxyPort, "80"},
      {Field::triesRemaining, "4294967295"}}},
    {"transferFile", [](int d) { return replyNotifyFileTransfer(d, "f"); }, {{Field::path, "f"}}},
    {"transferredFileSuccess", [](int d) { return replyNotifyFileTransferred(d, address, 1, "f"); },
     atAnns({{Field::filePath, "f"}})},
    {"transferredFileFailure",
     [](int d) { return replyNotifyFileTransferred(d, TCPAddress(), 0, ""); },
     {{Field::filePath, ""}, {Field::address, "0.0.0.0"}, {Field::port, "0"}}},
    {"hideIP", [](int d) { return replyNotifyHideIP(d, true); }, yes},
    {"playbackPaused", [](int d) { return replyNotifyPlaybackPaused(d, true); }, yes},
    {"playbackResumed", [](int d) { return replyNotifyPlaybackResumed(d, false); }, no},
    {"playbackStarted", [](int d) { return replyNotifyPlaybackStarted(d, true); }, yes},
    {"playbackStopped", [](int d) { return replyNotifyPlaybackStopped(d, false); }, no},
    {"recordingStarted", [](int d) { return replyNotifyRecordingStarted(d, true); }, yes},
    {"recordingStopped", [](int d) { return replyNotifyRecordingStopped(d, false); }, no},
    {"serverResponse",
     [](int d) { return replyNotifyServerResponse(d, 407, ""); },
     {{Field::serverResponseCode, "407"}}},
    {"serverResponse",
     [](int d) { return replyNotifyServerResponse(d, 403, page); },
     {{Field::serverResponseCode, "403"}, {Field::serverResponseMessage, page}}},
    {"time",
     [](int d) { return replyNotifySetTime(d, true, 4294967295u); },
     {{Field::direction, "add"}, {Field::seconds, "4294967295"}}},
    {"startup", [](int d) { return replyNotifyStarted(d, address, true); },
     atAnns({{Field::isSecure, ""}})},
};

TEST_F(ControlParser, EveryNotificationComesBackAsItWasMade) {
    for (const RoundTrip &row : notifications) {
        SCOPED_TRACE(row.word);
        const control::Text text = roundTrip(row.send);
        EXPECT_EQ(Direction::notification, text.direction());
        expectSame(row, text);
    }
    EXPECT_TRUE(replyNotifyBeginMeeting(mine, true, ""));
    EXPECT_TRUE(roundTrip([](int) { return true; }).succeeded());
    const control::Text begin = roundTrip([](int) { return true; });
    EXPECT_EQ("beginMeeting", begin.word());
    EXPECT_TRUE(begin.has(Field::meetingName));
}

struct Hostile {
    ParseError error;
    std::string body;
    Direction direction = Direction::request;
};

constexpr auto notification = Direction::notification;
const Hostile hostile[] = {
    {ParseError::notTerminated, ""},
    {ParseError::notTerminated, "hangup\n"},
    {ParseError::empty, std::string(1, '\0')},
    {ParseError::bytesBehindZero, std::string("hangup\n\0x\0", 10)},
    {ParseError::noLineFeed, std::string("hangup\0", 7)},
    {ParseError::noLineFeed, std::string("hangup\0\0\0", 9)},
    {ParseError::unknownWord, "\n"},
    {ParseError::unknownWord, " hangup\n"},
    {ParseError::unknownWord, "hangup\r\n"},
    {ParseError::unknownWord, "HANGUP\n"},
    {ParseError::unknownWord, "hosting\n"}, // the other direction's
    {ParseError::unknownWord, "hangup\n", notification},
    {ParseError::unknownWord, std::string(4000, 'x') + "\n"},
    {ParseError::unknownKeyword, "hangup\n\n"},
    {ParseError::unknownKeyword, "hangup\nport\n1\n"}, // another word's
    {ParseError::unknownKeyword, "conveneMeeting\nmeeting\nx\n"},
    {ParseError::unknownKeyword, "conveneMeeting\nmeetingName\ntwo\nlines\n"},
    {ParseError::unknownKeyword, "hideIP\ntrue\ntrue\n", notification},
    {ParseError::repeatedKeyword, "startup\nport\n1\nport\n1\n"},
    {ParseError::repeatedKeyword, "startup\nport\n1\nhideIP\nhideIP\n"},
    {ParseError::missingValue, "startup\nport\n"},
    {ParseError::missingValue, "rosterChanged\n", notification},
    {ParseError::missingValue, "time\nadd\n", notification},
    {ParseError::noLineFeed, "startup\nport\n1\nmeetingID\nid"},
    {ParseError::badValue, "startup\nport\n65536\n"},
    {ParseError::badValue, "startup\nport\n-1\n"},
    {ParseError::badValue, "startup\nport\n\n"},
    {ParseError::badValue, "startup\nport\n 1\n"},
    {ParseError::badValue, "startup\nport\n1x\n"},
    {ParseError::badValue, "startup\nport\n99999999999999999999999\n"},
    {ParseError::badValue, "enableUser\naddress\nlocalhost\nport\n1\ncolorIndex\n1\n"},
    {ParseError::badValue, "enableUser\naddress\n1.2.3.4.5\nport\n1\ncolorIndex\n1\n"},
    {ParseError::badValue, "enableUser\naddress\n:\nport\n1\ncolorIndex\n1\n"},
    {ParseError::badValue, "time\nsub\n5\n", notification},
    {ParseError::badValue, "time\nadd\n4294967296\n", notification},
    {ParseError::badValue, "hideIP\n\n", notification},
    {ParseError::badValue, "hideIP\nTRUE\n", notification},
    {ParseError::badValue, "rosterChanged\nvanish\ncolorIndex\n1\n", notification},
    {ParseError::badValue, "serverResponse\nserverResponseCode\n1\nserverResponseMessage\n4\n",
     notification},
    {ParseError::badValue, "serverResponse\nserverResponseCode\n1\nserverResponseMessage\n0x\n",
     notification},
    {ParseError::missingField, "startup\n"},
    {ParseError::missingField, "startPlayback\n"},
    {ParseError::missingField, "enableUser\naddress\n1.2.3.4\ncolorIndex\n1\n"},
    {ParseError::missingField, "enableUser\nport\n1\ncolorIndex\n1\n"},
    {ParseError::missingField, "enableUser\n"},
    {ParseError::missingField, "ringing\ncolorIndex\n1\n", notification},
    {ParseError::badValue, "putenv\n=x\n"},
    {ParseError::badValue, "putenv\nx\n"},
    {ParseError::noLineFeed, "putenv\nA=b"},
    {ParseError::noLineFeed, "putenv"},
    {ParseError::unknownKeyword, "putenv\nA=b\nC=d\n"},
    {ParseError::tooLong, "startRecording\nfilePath\n" + std::string(4 << 20, 'x') + "\n"},
    {ParseError::tooLong, std::string(control::MAX_BODY, '\n')},
    // What is long, but within the bound, costs no more than its length.
    {ParseError::unknownWord, std::string(control::MAX_BODY - 1, '\n')},
    {ParseError::none, "startRecording\nfilePath\n" + std::string(1 << 19, 'x') + "\n"},
    {ParseError::none, "conveneMeeting\nmeetingName\nmeetingName\n"},
    {ParseError::none, "placeCall\nport\n1\nproxyPort\n2\ntriesRemaining\n3\n"},
    {ParseError::none, "placeCall\ntriesRemaining\n3\nproxyPort\n2\nport\n1\n"},
    {ParseError::none, "putenv\nA=\n"},
    {ParseError::none, "serverResponse\nserverResponseCode\n1\nserverResponseMessage\nffC3FFff\n",
     notification},
};

TEST(ControlParserTable, WhatNobodyShouldWriteIsRefused) {
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

TEST(ControlParserTable, ReadsEveryTextOfTheDocumentWhichShowsThemAll) {
    std::ifstream document(VINTOK_CONTROL_DOCUMENT);
    std::set<std::string> shown[2];
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
    std::set<std::string> all[2] = {{}, {"beginMeeting"}};
    for (const RoundTrip &row : requests)
        all[0].insert(row.word);
    for (const RoundTrip &row : notifications)
        all[1].insert(row.word);
    EXPECT_EQ(all[0], shown[0]);
    EXPECT_EQ(all[1], shown[1]);
}

// Nothing that a text can be cut down or damaged to is read outside its bytes, and every beginning
// of it is refused: the required fields stand at the end.
TEST(ControlParserTable, ATextCutOrDamagedAnywhereIsReadSafely) {
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

TEST(ControlParserTable, AMessageOfAnotherKindIsNoControlMessage) {
    TCPMessage message;
    message.setMessageID(TCP_broadcastMessage);
    control::Text text;
    std::string complaint;
    EXPECT_EQ(ParseError::notControl, control::parse(message, text, complaint));
    message.setMessageID(TCP_conferenceControlRequest); // without a body
    EXPECT_EQ(ParseError::notTerminated, control::parse(message, text, complaint));
}

} // namespace
} // namespace vintok::test
