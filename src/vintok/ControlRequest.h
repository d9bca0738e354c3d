// What an application asks of its control process. Each function sends one text on the control
// socket and returns whether it was sent; what comes of it is told by notifications.
//
// Ports are in host byte order. Arguments said to be optional are left out when they are empty.
#ifndef VINTOK_CONTROLREQUEST_H
#define VINTOK_CONTROLREQUEST_H

#include "vintok/Export.h"
#include "vintok/RosterBase.h"

#include <string>

namespace vintok {

// ---- The process ----

// Gives the process its identity. The strings are optional.
VINTOK_API bool requestStartup(int descriptor, unsigned short port, bool isSecure, bool hideIP,
                               const std::string &firstName, const std::string &lastName,
                               const std::string &title, const std::string &email,
                               const std::string &phone, const std::string &meetingID);
// Sets an environment variable of the process. With an empty value the text ends in "name=", with
// no line feed; with an empty name it names none.
VINTOK_API bool requestPutenv(int descriptor, const std::string &name, const std::string &value);
// For the "time" notification.
VINTOK_API bool requestTime(int descriptor);
// Tests the connections of the meeting. Nothing answers.
VINTOK_API bool requestKeepAlive(int descriptor);
// Leaves the meeting and ends the process; the end of the socket tells of it.
VINTOK_API bool requestShutdown(int descriptor);

// ---- Meeting and calls ----

// Hosts a meeting, or renames it. The name is optional.
VINTOK_API bool requestConveneMeeting(int descriptor, const std::string &meetingName);
// As `requestHangup`, but only for a host.
VINTOK_API bool requestAdjournMeeting(int descriptor);
// The strings are optional. `authentication` travels as it is.
VINTOK_API bool requestPlaceCall(int descriptor, const std::string &machineName,
                                 unsigned short port, const std::string &proxyAddress,
                                 unsigned short proxyPort, const std::string &meetingID,
                                 const std::string &authentication, int triesRemaining);
// Answer who was announced last as calling.
VINTOK_API bool requestAcceptPendingCall(int descriptor);
VINTOK_API bool requestRejectPendingCall(int descriptor);
// Leaves the meeting, which is over where this is its host, and ends every call.
VINTOK_API bool requestHangup(int descriptor);

// ---- Parties ----

// For a "rosterEntry" notification of each party. What `user` says makes no difference.
VINTOK_API bool requestRoster(int descriptor, const RosterBase &user);
// Whether the party of this address gets what is broadcast.
VINTOK_API bool requestDisableUser(int descriptor, const RosterBase &user);
VINTOK_API bool requestEnableUser(int descriptor, const RosterBase &user);

// ---- Lead ----

// Asks for the lead; gives it back to the host, where this is a member; answers who asks for it.
VINTOK_API bool requestStartLeading(int descriptor);
VINTOK_API bool requestStopLeading(int descriptor);
VINTOK_API bool requestAcceptLeadChange(int descriptor);
VINTOK_API bool requestRejectLeadChange(int descriptor);

// ---- Files, recording, playback ----

// Both strings are optional.
VINTOK_API bool requestTransferFile(int descriptor, const std::string &filePath,
                                    const std::string &relativePath);
// False, with nothing sent, for an empty path.
VINTOK_API bool requestStartRecording(int descriptor, const std::string &filePath);
// Answered with the notification of its name.
VINTOK_API bool requestStopRecording(int descriptor);
// False, with nothing sent, for an empty path.
VINTOK_API bool requestStartPlayback(int descriptor, const std::string &filePath);
// Answered likewise.
VINTOK_API bool requestStopPlayback(int descriptor);
VINTOK_API bool requestPausePlayback(int descriptor);
VINTOK_API bool requestResumePlayback(int descriptor);

} // namespace vintok

#endif
