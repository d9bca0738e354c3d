// Whatever a participant refuses leaves its reason, in a word for the program and a sentence for
// people; and the log may go to a function.
#include "support/Party.h"
#include "support/Stream.h"
#include "vintok/TCPGUID.h"

namespace vintok::test {
namespace {

using testing::HasSubstr;

// Ann is alone; Bob is a guest of Cid's.
TEST(Reasons, AreLeftByEveryOperationThatIsRefused) {
    Meeting meeting;
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(cid.hosts("Reasons") && gather(cid, {&bob}));
    const unsigned char byte[] = {'x'};
    const auto calls = [](Party &party, unsigned short port) {
        return party->placeCall(party.ip(), port, "", 0, "", "", 0);
    };
    constexpr TCPError notNow = TCP_ERROR_UNSPECIFIED_ERROR;
    const struct {
        TCPError code;
        const char *text;
        std::function<bool()> isDone;
    } rows[] = {
        {notNow, "hostMeeting: in a meeting already", [&] { return bob->hostMeeting("x"); }},
        {notNow, "setMeetingName: not the host", [&] { return bob->setMeetingName("x"); }},
        {notNow, "placeCall: in a meeting", [&] { return calls(bob, 1); }},
        {TCP_ERROR_INVALID_ADDRESS, "placeCall: the address is one's own",
         [&] { return calls(ann, ann.port()); }},
        {notNow, "is called, or known, already", [&] { return calls(cid, bob.port()); }},
        {TCP_ERROR_CONNECTION_REFUSED, "", [&] { return calls(ann, 1); }},
        {TCP_ERROR_INVALID_ADDRESS, "acceptCall: nobody of this address",
         [&] { return ann->acceptCall(TCPAddress()); }},
        {notNow, "acceptCall: this party does not wait",
         [&] { return cid->acceptCall(bob->address()); }},
        {TCP_ERROR_INVALID_ADDRESS, "rejectCall: nobody of this address",
         [&] { return ann->rejectCall(TCPAddress()); }},
        {notNow, "sendRoster: nobody", [&] { return ann->sendRoster(); }},
        {notNow, "requestRoster: no host", [&] { return ann->requestRoster(); }},
        {notNow, "requestStartLeading: in no", [&] { return ann->requestStartLeading(); }},
        {TCP_ERROR_INVALID_ADDRESS, "acceptLeadChange: nobody waits",
         [&] { return cid->acceptLeadChange(); }},
        {TCP_ERROR_INVALID_ADDRESS, "acceptLeadChange: there is no host",
         [&] { return ann->acceptLeadChange(); }},
        {TCP_ERROR_INVALID_ADDRESS, "rejectLeadChange", [&] { return cid->rejectLeadChange(); }},
        {notNow, "sendBroadcastData: nobody", [&] { return ann->sendBroadcastData(byte, 1); }},
        {TCP_ERROR_INVALID_ARGUMENT, "sendBroadcastData: nothing",
         [&] { return bob->sendBroadcastData(byte, 0); }},
        {notNow, "transferFile: nobody", [&] { return ann->transferFile("/no/file", "file"); }},
        {TCP_ERROR_INVALID_ARGUMENT, "transferFile: the relative path",
         [&] { return bob->transferFile("/no/file", "other"); }},
        {TCP_ERROR_SYSTEM_ERROR, "transferFile: the file cannot be opened",
         [&] { return bob->transferFile("/no/file", "file"); }},
        {TCP_ERROR_SSL_TRANSPORT, "setSecurePreferred: not secure-able",
         [&] { return ann->setSecurePreferred(true); }},
        {TCP_ERROR_INVALID_ADDRESS, "sendPrivateData: no such party",
         [&] { return ann->sendPrivateData(bob->address(), byte, 1) != 0; }},
        {TCP_ERROR_INVALID_ARGUMENT, "sendMessage",
         [&] { return bob->sendMessage(TCP_hangup, byte, 1); }},
    };
    for (const auto &row : rows) {
        forgetError();
        EXPECT_FALSE(row.isDone()) << row.text;
        expectError(row.code, HasSubstr(row.text));
    }
}

TEST(Reasons, HaveNamesAndTheLogGoesToAFunction) {
    init();
    EXPECT_STREQ("TCP_ERROR_SYSTEM_ERROR", errorName(TCP_ERROR_SYSTEM_ERROR));
    EXPECT_STREQ("??", errorName(static_cast<TCPError>(18)));
    std::string entries;
    setLogCallback(
        [](ErrSeverity severity, const char *message, void *data) {
            *static_cast<std::string *>(data) += std::to_string(severity) + message + ' ';
            logMessage("from inside", SEVERITY_FATAL); // as without the function
        },
        &entries);
    setLogLevel(LOG_ERROR);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(logMessage("one", SEVERITY_ERROR));
    EXPECT_FALSE(logMessage("two", SEVERITY_INFO));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("\n{\nfrom inside\n}\n"));
    EXPECT_EQ("2one ", entries);
    setLogCallback(nullptr, nullptr);
    fini();
}

} // namespace
} // namespace vintok::test
