#include "vintok/ControlNotify.h"

#include "vintok/ControlLines.h"
#include "vintok/ControlText.h"

namespace vintok {

namespace {

// A notification about a call that this side has placed: false without the name that was called.
bool notifyCall(int descriptor, const char *word, const std::string &machineName,
                const std::string &rest = std::string()) {
    return !machineName.empty() &&
           writeReplyString(descriptor, word + controlField("machineName", machineName) + rest);
}

bool notifyParty(int descriptor, const char *words, const RosterBase &user) {
    return writeReplyString(descriptor, words + formatRosterBase(user));
}

bool notifyOutcome(int descriptor, const char *word, bool ok) {
    return writeReplyString(descriptor, controlField(word, ok ? "true" : "false"));
}

} // namespace

// ---- The process ----

bool replyNotifyStarted(int descriptor, const TCPAddress &address, bool isSecure) {
    return writeReplyString(descriptor,
                            "startup\n" + formatAddress(address) + (isSecure ? "isSecure\n" : ""));
}

bool replyNotifyHideIP(int descriptor, bool hide) {
    return notifyOutcome(descriptor, "hideIP", hide);
}

bool replyNotifySetTime(int descriptor, bool add, unsigned int seconds) {
    return writeReplyString(descriptor,
                            controlField("time", add ? "add" : "subtract") + formatUInt(seconds));
}

// ---- Meeting ----

bool replyNotifyBeginMeeting(int descriptor, bool hideIP, const std::string &meetingName) {
    replyNotifyHideIP(descriptor, hideIP);
    return writeReplyString(descriptor,
                            "beginMeeting\n" + controlField("meetingName", meetingName));
}

bool replyNotifyHosting(int descriptor) {
    return writeReplyString(descriptor, "hosting\n");
}

bool replyNotifyEndMeeting(int descriptor) {
    return writeReplyString(descriptor, "endMeeting\n");
}

bool replyNotifyEjected(int descriptor) {
    return writeReplyString(descriptor, "ejected\n");
}

// ---- Calls ----

bool replyNotifyDialing(int descriptor, const std::string &machineName) {
    return notifyCall(descriptor, "dialing\n", machineName);
}

bool replyNotifyRinging(int descriptor, const std::string &machineName, const RosterBase &user) {
    return notifyCall(descriptor, "ringing\n", machineName, formatRosterBase(user));
}

bool replyNotifyCallAccepted(int descriptor, const std::string &machineName,
                             const RosterBase &user) {
    return notifyCall(descriptor, "placedCallAccepted\n", machineName, formatRosterBase(user));
}

bool replyNotifyBusy(int descriptor, const std::string &machineName, const RosterBase &user) {
    return notifyCall(descriptor, "placedCallBusy\n", machineName, formatRosterBase(user));
}

bool replyNotifyCallRejected(int descriptor, const std::string &machineName,
                             const RosterBase &user) {
    return notifyCall(descriptor, "placedCallRejected\n", machineName, formatRosterBase(user));
}

bool replyNotifyCallNoAnswer(int descriptor, const std::string &machineName) {
    return notifyCall(descriptor, "placedCallNoAnswer\n", machineName);
}

bool replyNotifyCallPending(int descriptor, const RosterBase &user) {
    return notifyParty(descriptor, "callPending\n", user);
}

bool replyNotifyVersionNotCompatible(int descriptor, const std::string &machineName,
                                     const TCPAddress &address) {
    return writeReplyString(descriptor, "versionNotCompatible\n" +
                                            controlField("machineName", machineName) +
                                            formatAddress(address));
}

bool replyNotifyCallAuthenticationRequired(int descriptor, const std::string &machineName,
                                           unsigned short port, const std::string &proxyAddress,
                                           unsigned short proxyPort,
                                           const std::string &authentication,
                                           unsigned int triesRemaining,
                                           const std::string &meetingID) {
    return writeReplyString(descriptor,
                            "authenticationRequired\n" + controlField("machineName", machineName) +
                                optionalField("proxyAddress", proxyAddress) +
                                optionalField("meetingID", meetingID) +
                                optionalField("authenticationString", authentication) + "port\n" +
                                formatUShort(port) + "proxyPort\n" + formatUShort(proxyPort) +
                                "triesRemaining\n" + formatUInt(triesRemaining));
}

bool replyNotifyServerResponse(int descriptor, unsigned int code, const std::string &message) {
    return writeReplyString(descriptor,
                            "serverResponse\nserverResponseCode\n" + formatUInt(code) +
                                optionalField("serverResponseMessage", encodeText(message)));
}

// ---- Parties ----

bool replyNotifyUserInMeeting(int descriptor, const RosterBase &user) {
    return notifyParty(descriptor, "rosterEntry\n", user);
}

bool replyNotifyUserJoin(int descriptor, const RosterBase &user) {
    return notifyParty(descriptor, "rosterChanged\njoin\n", user);
}

bool replyNotifyUserLeave(int descriptor, const RosterBase &user) {
    return notifyParty(descriptor, "rosterChanged\nleave\n", user);
}

bool replyNotifyUserEjected(int descriptor, const RosterBase &user) {
    return notifyParty(descriptor, "rosterChanged\nejected\n", user);
}

// ---- Lead ----

bool replyNotifyBeginLeading(int descriptor) {
    return writeReplyString(descriptor, "beginLeading\n");
}

bool replyNotifyBeginLeadingGranted(int descriptor) {
    return writeReplyString(descriptor, "beginLeadingGranted\n");
}

bool replyNotifyBeginLeadingDenied(int descriptor) {
    return writeReplyString(descriptor, "beginLeadingDenied\n");
}

bool replyNotifyEndLeading(int descriptor) {
    return writeReplyString(descriptor, "endLeading\n");
}

bool replyNotifyLeaderChange(int descriptor, const RosterBase &user) {
    return notifyParty(descriptor, "leaderChanged\n", user);
}

bool replyNotifyLeadRequestPending(int descriptor, const RosterBase &user) {
    return notifyParty(descriptor, "leadRequestPending\n", user);
}

// ---- Files, recording, playback ----

bool replyNotifyFileTransfer(int descriptor, const std::string &path) {
    return writeReplyString(descriptor, controlField("transferFile", path));
}

bool replyNotifyFileTransferred(int descriptor, const TCPAddress &address, int success,
                                const std::string &path) {
    const char *word = success != 0 ? "transferredFileSuccess\n" : "transferredFileFailure\n";
    return writeReplyString(descriptor,
                            word + formatAddress(address) + controlField("filePath", path));
}

bool replyNotifyRecordingStarted(int descriptor, bool ok) {
    return notifyOutcome(descriptor, "recordingStarted", ok);
}

bool replyNotifyRecordingStopped(int descriptor, bool ok) {
    return notifyOutcome(descriptor, "recordingStopped", ok);
}

bool replyNotifyPlaybackStarted(int descriptor, bool ok) {
    return notifyOutcome(descriptor, "playbackStarted", ok);
}

bool replyNotifyPlaybackStopped(int descriptor, bool ok) {
    return notifyOutcome(descriptor, "playbackStopped", ok);
}

bool replyNotifyPlaybackPaused(int descriptor, bool ok) {
    return notifyOutcome(descriptor, "playbackPaused", ok);
}

bool replyNotifyPlaybackResumed(int descriptor, bool ok) {
    return notifyOutcome(descriptor, "playbackResumed", ok);
}

} // namespace vintok
