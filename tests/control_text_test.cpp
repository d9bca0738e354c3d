// The texts between an application and its control process: each is sent over a connection and
// compared as it came out of the frame.
#include "support/Hex.h"
#include "support/SocketPair.h"
#include "vintok/ControlNotify.h"
#include "vintok/ControlRequest.h"
#include "vintok/ControlText.h"
#include "vintok/TCPStream.h"

#include <functional>
#include <gmock/gmock.h>
#include <memory>

namespace vintok::test {
namespace {

constexpr unsigned char requestID = 0x10, replyID = 0x11;

RosterBase person() {
    TCPAddress address;
    address.setName("10.0.0.1");
    address.setHostByteOrderPort(40000);
    RosterBase entry(address);
    entry.setFirstName("Ann");
    entry.setEmail("ann@example.org");
    entry.setColorIndex(3);
    return entry;
}

const RosterBase ann = person();
const std::string annsLines =
    "address\n10.0.0.1\nport\n40000\nfirstName\nAnn\nemail\nann@example.org\ncolorIndex\n3\n";

class ControlText : public testing::Test {
protected:
    ControlText() {
        init();
        pair = std::make_unique<SocketPair>();
    }
    ~ControlText() override {
        pair.reset();
        fini();
    }
    int fd() const { return pair->mine(); }
    // The next message: the body is the text and one zero byte.
    void expectMessage(unsigned char identifier, const std::string &text) const {
        SCOPED_TRACE(text);
        const WireFrame frame = takeFrame(pair->peer());
        EXPECT_EQ(identifier, frame.id);
        EXPECT_EQ(2, frame.format);
        EXPECT_EQ(text + '\0', std::string(frame.body.begin(), frame.body.end()));
    }
    void expectNothingMore() const { EXPECT_EQ(0, rawBytesPending(pair->peer())); }

    std::unique_ptr<SocketPair> pair;
};

struct Case {
    std::function<bool(int)> send;
    std::string text;
};

TEST_F(ControlText, EveryRequestHasItsText) {
    const std::string none;
    const Case cases[] = {
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
        {[](int d) { return requestConveneMeeting(d, "talk"); },
         "conveneMeeting\nmeetingName\ntalk\n"},
        {[](int d) { return requestConveneMeeting(d, ""); }, "conveneMeeting\n"},
        {[](int d) { return requestDisableUser(d, ann); }, "disableUser\n" + annsLines},
        {[](int d) { return requestEnableUser(d, ann); }, "enableUser\n" + annsLines},
        {[](int d) { return requestRoster(d, ann); }, "meetingRoster\n" + annsLines},
        {[&](int d) { return requestPlaceCall(d, "h1", 7000, none, 0, none, none, 3); },
         "placeCall\nmachineName\nh1\nport\n7000\nproxyPort\n0\ntriesRemaining\n3\n"},
        {[](int d) { return requestPlaceCall(d, "h1", 65535, "p", 40000, "id", "auth", -1); },
         "placeCall\nmachineName\nh1\nproxyAddress\np\nmeetingID\nid\nauthenticationString\nauth\n"
         "port\n65535\nproxyPort\n40000\ntriesRemaining\n-1\n"},
        {[&](int d) { return requestPlaceCall(d, none, 0, none, 0, none, none, 0); },
         "placeCall\nport\n0\nproxyPort\n0\ntriesRemaining\n0\n"},
        {[](int d) { return requestPutenv(d, "A", "b"); }, "putenv\nA=b\n"},
        {[](int d) { return requestPutenv(d, "A", ""); }, "putenv\nA="},
        {[](int d) { return requestPutenv(d, "", "b"); }, "putenv\n"},
        {[](int d) { return requestStartPlayback(d, "/f"); }, "startPlayback\nfilePath\n/f\n"},
        {[](int d) { return requestStartRecording(d, "/f"); }, "startRecording\nfilePath\n/f\n"},
        {[](int d) { return requestTransferFile(d, "/a/f", "f"); },
         "transferFile\nfilePath\n/a/f\nrelativePath\nf\n"},
        {[](int d) { return requestTransferFile(d, "", ""); }, "transferFile\n"},
        {[&](int d) {
             return requestStartup(d, 0, false, false, none, none, none, none, none, none);
         },
         "startup\nport\n0\n"},
        {[](int d) {
             return requestStartup(d, 7777, true, true, "Ann", "Bee", "Dr", "a@b", "12", "id");
         },
         "startup\nport\n7777\nisSecure\nhideIP\nfirstName\nAnn\nlastName\nBee\ntitle\nDr\n"
         "email\na@b\nphoneNumber\n12\nmeetingID\nid\n"},
    };
    for (const Case &row : cases) {
        EXPECT_TRUE(row.send(fd())) << row.text;
        expectMessage(requestID, row.text);
    }
    expectNothingMore();
}

TEST_F(ControlText, EveryNotificationAboutPeopleHasItsText) {
    const TCPAddress &address = ann;
    const std::string lines = "address\n10.0.0.1\nport\n40000\n";
    const Case cases[] = {
        {replyNotifyBeginLeading, "beginLeading\n"},
        {replyNotifyBeginLeadingDenied, "beginLeadingDenied\n"},
        {replyNotifyBeginLeadingGranted, "beginLeadingGranted\n"},
        {replyNotifyEjected, "ejected\n"},
        {replyNotifyEndLeading, "endLeading\n"},
        {replyNotifyEndMeeting, "endMeeting\n"},
        {replyNotifyHosting, "hosting\n"},
        {[](int d) { return replyNotifyBusy(d, "m", ann); },
         "placedCallBusy\nmachineName\nm\n" + annsLines},
        {[](int d) { return replyNotifyCallAccepted(d, "m", ann); },
         "placedCallAccepted\nmachineName\nm\n" + annsLines},
        {[](int d) { return replyNotifyCallRejected(d, "m", ann); },
         "placedCallRejected\nmachineName\nm\n" + annsLines},
        {[](int d) { return replyNotifyRinging(d, "m", ann); },
         "ringing\nmachineName\nm\n" + annsLines},
        {[](int d) { return replyNotifyCallNoAnswer(d, "m"); },
         "placedCallNoAnswer\nmachineName\nm\n"},
        {[](int d) { return replyNotifyDialing(d, "m"); }, "dialing\nmachineName\nm\n"},
        {[](int d) { return replyNotifyCallPending(d, ann); }, "callPending\n" + annsLines},
        {[](int d) { return replyNotifyLeadRequestPending(d, ann); },
         "leadRequestPending\n" + annsLines},
        {[](int d) { return replyNotifyLeaderChange(d, ann); }, "leaderChanged\n" + annsLines},
        {[](int d) { return replyNotifyUserEjected(d, ann); },
         "rosterChanged\nejected\n" + annsLines},
        {[](int d) { return replyNotifyUserInMeeting(d, ann); }, "rosterEntry\n" + annsLines},
        {[](int d) { return replyNotifyUserJoin(d, ann); }, "rosterChanged\njoin\n" + annsLines},
        {[](int d) { return replyNotifyUserLeave(d, ann); }, "rosterChanged\nleave\n" + annsLines},
        {[&](int d) { return replyNotifyVersionNotCompatible(d, "m", address); },
         "versionNotCompatible\nmachineName\nm\n" + lines},
        {[&](int d) { return replyNotifyVersionNotCompatible(d, "", address); },
         "versionNotCompatible\nmachineName\n\n" + lines},
        {[](int d) {
             return replyNotifyCallAuthenticationRequired(d, "m", 65535, "p", 80, "auth",
                                                          4294967295u, "id");
         },
         "authenticationRequired\nmachineName\nm\nproxyAddress\np\nmeetingID\nid\n"
         "authenticationString\nauth\nport\n65535\nproxyPort\n80\ntriesRemaining\n4294967295\n"},
        {[](int d) { return replyNotifyCallAuthenticationRequired(d, "", 1, "", 2, "", 3, ""); },
         "authenticationRequired\nmachineName\n\nport\n1\nproxyPort\n2\ntriesRemaining\n3\n"},
    };
    for (const Case &row : cases) {
        EXPECT_TRUE(row.send(fd())) << row.text;
        expectMessage(replyID, row.text);
    }
    expectNothingMore();
}

TEST_F(ControlText, EveryNotificationAboutTheProcessAndItsWorkHasItsText) {
    const TCPAddress &address = ann;
    const std::string lines = "address\n10.0.0.1\nport\n40000\n";
    const Case cases[] = {
        {[](int d) { return replyNotifyFileTransfer(d, "f"); }, "transferFile\nf\n"},
        {[&](int d) { return replyNotifyFileTransferred(d, address, 1, "f"); },
         "transferredFileSuccess\n" + lines + "filePath\nf\n"},
        {[](int d) { return replyNotifyFileTransferred(d, TCPAddress(), 0, "f"); },
         "transferredFileFailure\n" + formatAddress(TCPAddress()) + "filePath\nf\n"},
        {[](int d) { return replyNotifyHideIP(d, true); }, "hideIP\ntrue\n"},
        {[](int d) { return replyNotifyHideIP(d, false); }, "hideIP\nfalse\n"},
        {[](int d) { return replyNotifyPlaybackPaused(d, true); }, "playbackPaused\ntrue\n"},
        {[](int d) { return replyNotifyPlaybackResumed(d, false); }, "playbackResumed\nfalse\n"},
        {[](int d) { return replyNotifyPlaybackStarted(d, true); }, "playbackStarted\ntrue\n"},
        {[](int d) { return replyNotifyPlaybackStopped(d, false); }, "playbackStopped\nfalse\n"},
        {[](int d) { return replyNotifyRecordingStarted(d, true); }, "recordingStarted\ntrue\n"},
        {[](int d) { return replyNotifyRecordingStopped(d, false); }, "recordingStopped\nfalse\n"},
        {[](int d) { return replyNotifyServerResponse(d, 407, ""); },
         "serverResponse\nserverResponseCode\n407\n"},
        {[](int d) { return replyNotifyServerResponse(d, 200, "Ok"); },
         "serverResponse\nserverResponseCode\n200\nserverResponseMessage\n4f6b\n"},
        {[](int d) { return replyNotifySetTime(d, true, 4294967295u); }, "time\nadd\n4294967295\n"},
        {[](int d) { return replyNotifySetTime(d, false, 5); }, "time\nsubtract\n5\n"},
        {[&](int d) { return replyNotifyStarted(d, address, true); },
         "startup\n" + lines + "isSecure\n"},
        {[&](int d) { return replyNotifyStarted(d, address, false); }, "startup\n" + lines},
    };
    for (const Case &row : cases) {
        EXPECT_TRUE(row.send(fd())) << row.text;
        expectMessage(replyID, row.text);
    }
    EXPECT_TRUE(replyNotifyBeginMeeting(fd(), true, "talk"));
    expectMessage(replyID, "hideIP\ntrue\n");
    expectMessage(replyID, "beginMeeting\nmeetingName\ntalk\n");
    expectNothingMore();
}

TEST_F(ControlText, WhatIsRefusedSendsNothing) {
    EXPECT_FALSE(writeRequestString(fd(), ""));
    EXPECT_FALSE(writeReplyString(fd(), ""));
    EXPECT_FALSE(requestStartPlayback(fd(), ""));
    EXPECT_FALSE(requestStartRecording(fd(), ""));
    EXPECT_FALSE(replyNotifyBusy(fd(), "", ann));
    EXPECT_FALSE(replyNotifyCallAccepted(fd(), "", ann));
    EXPECT_FALSE(replyNotifyCallRejected(fd(), "", ann));
    EXPECT_FALSE(replyNotifyRinging(fd(), "", ann));
    EXPECT_FALSE(replyNotifyCallNoAnswer(fd(), ""));
    EXPECT_FALSE(replyNotifyDialing(fd(), ""));
    EXPECT_FALSE(requestHangup(-1));
    EXPECT_TRUE(requestHangup(fd()));
    expectMessage(requestID, "hangup\n"); // the first that comes
    expectNothingMore();
}

TEST_F(ControlText, AZeroByteCostsATextItsTail) {
    EXPECT_TRUE(writeRequestString(fd(), std::string("one\n\0two\n", 9)));
    const WireFrame frame = takeFrame(pair->peer());
    const std::string body(frame.body.begin(), frame.body.end());
    EXPECT_STREQ("one\n", body.c_str());
    EXPECT_EQ(std::string::npos, body.find("two"));
}

TEST(ControlFormats, LeaveOutWhatIsEmpty) {
    EXPECT_EQ("", formatUserInfo(UserInfo()));
    UserInfo user;
    user.setFirstName("a");
    user.setLastName("b");
    user.setTitle("c");
    user.setEmail("d");
    user.setPhone("e");
    EXPECT_EQ("firstName\na\nlastName\nb\ntitle\nc\nemail\nd\nphoneNumber\ne\n",
              formatUserInfo(user));
    TCPAddress six;
    six.setLoopbackIPv6();
    six.setHostByteOrderPort(1);
    EXPECT_EQ("address\n0:0:0:0:0:0:0:1\nport\n1\ncolorIndex\n65535\n",
              formatRosterBase(RosterBase(six)));
    EXPECT_EQ("65535\n", formatUShort(65535));
    EXPECT_EQ("4294967295\n", formatUInt(4294967295u));
    EXPECT_EQ("colorIndex\n0\n", formatColor(0));
}

TEST(ControlFormats, EncodedTextComesBackUpToItsHighBytes) {
    struct Encoded {
        std::string text, digits, decoded;
    };
    const Encoded cases[] = {
        {"", "", ""},
        {"A", "41", "A"},
        {"a\nb", "610a62", "a\nb"},
        {"A\xC3", "41ffc3", "A\xFF\xC3"},
        {std::string("a\0b", 3), "610062", "ab"},
        {"\x7F\x80\xFF", "7fff80ffff", "\x7F\xFF\x80\xFF\xFF"},
    };
    for (const Encoded &row : cases) {
        SCOPED_TRACE(row.digits);
        EXPECT_EQ(row.digits, encodeText(row.text));
        EXPECT_EQ(row.decoded, decodeText(row.digits));
    }
    EXPECT_EQ("", decodeText("4"));
    EXPECT_EQ("A", decodeText("414"));
    EXPECT_EQ("A", decodeText("zz41"));
    EXPECT_EQ("A", decodeText("0041"));
    EXPECT_EQ("JK", decodeText("4a4B")) << "digits of either case";
}

} // namespace
} // namespace vintok::test
