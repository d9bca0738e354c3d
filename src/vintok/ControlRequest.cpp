#include "vintok/ControlRequest.h"

#include "vintok/ControlLines.h"
#include "vintok/ControlText.h"

namespace vintok {

namespace {

// False for an empty path: there is nothing that could be recorded to or played.
bool requestWithPath(int descriptor, const char *word, const std::string &filePath) {
    return !filePath.empty() &&
           writeRequestString(descriptor, word + controlField("filePath", filePath));
}

} // namespace

bool requestStartup(int descriptor, unsigned short port, bool isSecure, bool hideIP,
                    const std::string &firstName, const std::string &lastName,
                    const std::string &title, const std::string &email, const std::string &phone,
                    const std::string &meetingID) {
    std::string text = "startup\nport\n" + formatUShort(port);
    if (isSecure)
        text += "isSecure\n";
    if (hideIP)
        text += "hideIP\n";
    text += optionalField("firstName", firstName) + optionalField("lastName", lastName) +
            optionalField("title", title) + optionalField("email", email) +
            optionalField("phoneNumber", phone) + optionalField("meetingID", meetingID);
    return writeRequestString(descriptor, text);
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
    return writeRequestString(descriptor, "time\n");
}

bool requestKeepAlive(int descriptor) {
    return writeRequestString(descriptor, "keepAlive\n");
}

bool requestShutdown(int descriptor) {
    return writeRequestString(descriptor, "shutdown\n");
}

bool requestConveneMeeting(int descriptor, const std::string &meetingName) {
    return writeRequestString(descriptor,
                              "conveneMeeting\n" + optionalField("meetingName", meetingName));
}

bool requestAdjournMeeting(int descriptor) {
    return writeRequestString(descriptor, "adjournMeeting\n");
}

bool requestPlaceCall(int descriptor, const std::string &machineName, unsigned short port,
                      const std::string &proxyAddress, unsigned short proxyPort,
                      const std::string &meetingID, const std::string &authentication,
                      int triesRemaining) {
    return writeRequestString(descriptor,
                              "placeCall\n" + optionalField("machineName", machineName) +
                                  optionalField("proxyAddress", proxyAddress) +
                                  optionalField("meetingID", meetingID) +
                                  optionalField("authenticationString", authentication) + "port\n" +
                                  formatUShort(port) + "proxyPort\n" + formatUShort(proxyPort) +
                                  controlField("triesRemaining", std::to_string(triesRemaining)));
}

bool requestAcceptPendingCall(int descriptor) {
    return writeRequestString(descriptor, "acceptPendingCall\n");
}

bool requestRejectPendingCall(int descriptor) {
    return writeRequestString(descriptor, "rejectPendingCall\n");
}

bool requestHangup(int descriptor) {
    return writeRequestString(descriptor, "hangup\n");
}

bool requestRoster(int descriptor, const RosterBase &user) {
    return writeRequestString(descriptor, "meetingRoster\n" + formatRosterBase(user));
}

bool requestDisableUser(int descriptor, const RosterBase &user) {
    return writeRequestString(descriptor, "disableUser\n" + formatRosterBase(user));
}

bool requestEnableUser(int descriptor, const RosterBase &user) {
    return writeRequestString(descriptor, "enableUser\n" + formatRosterBase(user));
}

bool requestStartLeading(int descriptor) {
    return writeRequestString(descriptor, "startLeading\n");
}

bool requestStopLeading(int descriptor) {
    return writeRequestString(descriptor, "stopLeading\n");
}

bool requestAcceptLeadChange(int descriptor) {
    return writeRequestString(descriptor, "acceptLeadChange\n");
}

bool requestRejectLeadChange(int descriptor) {
    return writeRequestString(descriptor, "rejectLeadChange\n");
}

bool requestTransferFile(int descriptor, const std::string &filePath,
                         const std::string &relativePath) {
    return writeRequestString(descriptor, "transferFile\n" + optionalField("filePath", filePath) +
                                              optionalField("relativePath", relativePath));
}

bool requestStartRecording(int descriptor, const std::string &filePath) {
    return requestWithPath(descriptor, "startRecording\n", filePath);
}

bool requestStopRecording(int descriptor) {
    return writeRequestString(descriptor, "stopRecording\n");
}

bool requestStartPlayback(int descriptor, const std::string &filePath) {
    return requestWithPath(descriptor, "startPlayback\n", filePath);
}

bool requestStopPlayback(int descriptor) {
    return writeRequestString(descriptor, "stopPlayback\n");
}

bool requestPausePlayback(int descriptor) {
    return writeRequestString(descriptor, "pausePlayback\n");
}

bool requestResumePlayback(int descriptor) {
    return writeRequestString(descriptor, "resumePlayback\n");
}

} // namespace vintok
