#include "vintok/ControlRequest.h"

#include "vintok/ControlLines.h"

namespace vintok {

bool requestStartup(int descriptor, unsigned short port, bool isSecure, bool hideIP,
                    const std::string &firstName, const std::string &lastName,
                    const std::string &title, const std::string &email, const std::string &phone,
                    const std::string &meetingID) {
    return sendRequest(descriptor, "startup", port, isSecure, hideIP, firstName, lastName, title,
                       email, phone, meetingID);
}

// The one text whose value stands on the line of its name, and which may end without a line feed.
bool requestPutenv(int descriptor, const std::string &name, const std::string &value) {
    std::string text = "putenv\n";
    if (!name.empty()) {
        text += name + "=";
        if (!value.empty())
            text += value + "\n";
    }
    return writeRequestString(descriptor, text);
}

bool requestTime(int descriptor) {
    return sendRequest(descriptor, "time");
}

bool requestKeepAlive(int descriptor) {
    return sendRequest(descriptor, "keepAlive");
}

bool requestShutdown(int descriptor) {
    return sendRequest(descriptor, "shutdown");
}

bool requestConveneMeeting(int descriptor, const std::string &meetingName) {
    return sendRequest(descriptor, "conveneMeeting", meetingName);
}

bool requestAdjournMeeting(int descriptor) {
    return sendRequest(descriptor, "adjournMeeting");
}

bool requestPlaceCall(int descriptor, const std::string &machineName, unsigned short port,
                      const std::string &proxyAddress, unsigned short proxyPort,
                      const std::string &meetingID, const std::string &authentication,
                      int triesRemaining) {
    return sendRequest(descriptor, "placeCall", machineName, proxyAddress, meetingID,
                       authentication, port, proxyPort, triesRemaining);
}

bool requestAcceptPendingCall(int descriptor) {
    return sendRequest(descriptor, "acceptPendingCall");
}

bool requestRejectPendingCall(int descriptor) {
    return sendRequest(descriptor, "rejectPendingCall");
}

bool requestHangup(int descriptor) {
    return sendRequest(descriptor, "hangup");
}

bool requestRoster(int descriptor, const RosterBase &user) {
    return sendRequest(descriptor, "meetingRoster", user);
}

bool requestDisableUser(int descriptor, const RosterBase &user) {
    return sendRequest(descriptor, "disableUser", user);
}

bool requestEnableUser(int descriptor, const RosterBase &user) {
    return sendRequest(descriptor, "enableUser", user);
}

bool requestStartLeading(int descriptor) {
    return sendRequest(descriptor, "startLeading");
}

bool requestStopLeading(int descriptor) {
    return sendRequest(descriptor, "stopLeading");
}

bool requestAcceptLeadChange(int descriptor) {
    return sendRequest(descriptor, "acceptLeadChange");
}

bool requestRejectLeadChange(int descriptor) {
    return sendRequest(descriptor, "rejectLeadChange");
}

bool requestTransferFile(int descriptor, const std::string &filePath,
                         const std::string &relativePath) {
    return sendRequest(descriptor, "transferFile", filePath, relativePath);
}

bool requestStartRecording(int descriptor, const std::string &filePath) {
    return sendRequest(descriptor, "startRecording", filePath);
}

bool requestStopRecording(int descriptor) {
    return sendRequest(descriptor, "stopRecording");
}

bool requestStartPlayback(int descriptor, const std::string &filePath) {
    return sendRequest(descriptor, "startPlayback", filePath);
}

bool requestStopPlayback(int descriptor) {
    return sendRequest(descriptor, "stopPlayback");
}

bool requestPausePlayback(int descriptor) {
    return sendRequest(descriptor, "pausePlayback");
}

bool requestResumePlayback(int descriptor) {
    return sendRequest(descriptor, "resumePlayback");
}

} // namespace vintok
