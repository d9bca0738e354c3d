#include "vintok/ControlNotify.h"

#include "vintok/ControlLines.h"

namespace vintok {

// ---- The process ----

bool replyNotifyStarted(int descriptor, const TCPAddress &address, bool isSecure) {
    return sendNotification(descriptor, "startup", address, isSecure);
}

bool replyNotifyHideIP(int descriptor, bool hide) {
    return sendNotification(descriptor, "hideIP", hide);
}

bool replyNotifySetTime(int descriptor, bool add, unsigned int seconds) {
    return sendNotification(descriptor, "time", add ? "add" : "subtract", seconds);
}

// ---- Meeting ----

bool replyNotifyBeginMeeting(int descriptor, bool hideIP, const std::string &meetingName) {
    replyNotifyHideIP(descriptor, hideIP);
    return sendNotification(descriptor, "beginMeeting", meetingName);
}

bool replyNotifyHosting(int descriptor) {
    return sendNotification(descriptor, "hosting");
}

bool replyNotifyEndMeeting(int descriptor) {
    return sendNotification(descriptor, "endMeeting");
}

bool replyNotifyEjected(int descriptor) {
    return sendNotification(descriptor, "ejected");
}

// ---- Calls ----

bool replyNotifyDialing(int descriptor, const std::string &machineName) {
    return sendNotification(descriptor, "dialing", machineName);
}

bool replyNotifyRinging(int descriptor, const std::string &machineName, const RosterBase &user) {
    return sendNotification(descriptor, "ringing", machineName, user);
}

bool replyNotifyCallAccepted(int descriptor, const std::string &machineName,
                             const RosterBase &user) {
    return sendNotification(descriptor, "placedCallAccepted", machineName, user);
}

bool replyNotifyBusy(int descriptor, const std::string &machineName, const RosterBase &user) {
    return sendNotification(descriptor, "placedCallBusy", machineName, user);
}

bool replyNotifyCallRejected(int descriptor, const std::string &machineName,
                             const RosterBase &user) {
    return sendNotification(descriptor, "placedCallRejected", machineName, user);
}

bool replyNotifyCallNoAnswer(int descriptor, const std::string &machineName) {
    return sendNotification(descriptor, "placedCallNoAnswer", machineName);
}

bool replyNotifyCallPending(int descriptor, const RosterBase &user) {
    return sendNotification(descriptor, "callPending", user);
}

bool replyNotifyVersionNotCompatible(int descriptor, const std::string &machineName,
                                     const TCPAddress &address) {
    return sendNotification(descriptor, "versionNotCompatible", machineName, address);
}

bool replyNotifyCallAuthenticationRequired(int descriptor, const std::string &machineName,
                                           unsigned short port, const std::string &proxyAddress,
                                           unsigned short proxyPort,
                                           const std::string &authentication,
                                           unsigned int triesRemaining,
                                           const std::string &meetingID) {
    return sendNotification(descriptor, "authenticationRequired", machineName, proxyAddress,
                            meetingID, authentication, port, proxyPort, triesRemaining);
}

bool replyNotifyServerResponse(int descriptor, unsigned int code, const std::string &message) {
    return sendNotification(descriptor, "serverResponse", code, message);
}

// ---- Parties ----

bool replyNotifyUserInMeeting(int descriptor, const RosterBase &user) {
    return sendNotification(descriptor, "rosterEntry", user);
}

bool replyNotifyUserJoin(int descriptor, const RosterBase &user) {
    return sendNotification(descriptor, "rosterChanged", "join", user);
}

bool replyNotifyUserLeave(int descriptor, const RosterBase &user) {
    return sendNotification(descriptor, "rosterChanged", "leave", user);
}

bool replyNotifyUserEjected(int descriptor, const RosterBase &user) {
    return sendNotification(descriptor, "rosterChanged", "ejected", user);
}

// ---- Lead ----

bool replyNotifyBeginLeading(int descriptor) {
    return sendNotification(descriptor, "beginLeading");
}

bool replyNotifyBeginLeadingGranted(int descriptor) {
    return sendNotification(descriptor, "beginLeadingGranted");
}

bool replyNotifyBeginLeadingDenied(int descriptor) {
    return sendNotification(descriptor, "beginLeadingDenied");
}

bool replyNotifyEndLeading(int descriptor) {
    return sendNotification(descriptor, "endLeading");
}

bool replyNotifyLeaderChange(int descriptor, const RosterBase &user) {
    return sendNotification(descriptor, "leaderChanged", user);
}

bool replyNotifyLeadRequestPending(int descriptor, const RosterBase &user) {
    return sendNotification(descriptor, "leadRequestPending", user);
}

// ---- Files, recording, playback ----

bool replyNotifyFileTransfer(int descriptor, const std::string &path) {
    return sendNotification(descriptor, "transferFile", path);
}

bool replyNotifyFileTransferred(int descriptor, const TCPAddress &address, int success,
                                const std::string &path) {
    return success != 0 ? sendNotification(descriptor, "transferredFileSuccess", address, path)
                        : sendNotification(descriptor, "transferredFileFailure", address, path);
}

bool replyNotifyRecordingStarted(int descriptor, bool ok) {
    return sendNotification(descriptor, "recordingStarted", ok);
}

bool replyNotifyRecordingStopped(int descriptor, bool ok) {
    return sendNotification(descriptor, "recordingStopped", ok);
}

bool replyNotifyPlaybackStarted(int descriptor, bool ok) {
    return sendNotification(descriptor, "playbackStarted", ok);
}

bool replyNotifyPlaybackStopped(int descriptor, bool ok) {
    return sendNotification(descriptor, "playbackStopped", ok);
}

bool replyNotifyPlaybackPaused(int descriptor, bool ok) {
    return sendNotification(descriptor, "playbackPaused", ok);
}

bool replyNotifyPlaybackResumed(int descriptor, bool ok) {
    return sendNotification(descriptor, "playbackResumed", ok);
}

} // namespace vintok
