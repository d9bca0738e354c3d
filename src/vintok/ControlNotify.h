// What a control process tells its application. Each function sends one text on the control socket
// and returns whether it was sent. A notification answers a request by its subject alone: there are
// no numbers that tie the two.
//
// Ports are in host byte order. Where a machine name is said to be needed, an empty one gives false
// and nothing is sent.
#ifndef VINTOK_CONTROLNOTIFY_H
#define VINTOK_CONTROLNOTIFY_H

#include "vintok/Export.h"
#include "vintok/RosterBase.h"
#include "vintok/TCPAddress.h"

#include <string>

namespace vintok {

// ---- The process ----

// Where the party listens; port 0: it cannot. `isSecure`: its connections are encrypted.
VINTOK_API bool replyNotifyStarted(int descriptor, const TCPAddress &address, bool isSecure);
// Whether addresses are hidden.
VINTOK_API bool replyNotifyHideIP(int descriptor, bool hide);
// How far the meeting's clock is ahead of this machine's, or behind it.
VINTOK_API bool replyNotifySetTime(int descriptor, bool add, unsigned int seconds);

// ---- Meeting ----

// Two messages: whether addresses are hidden, whose failure is passed over, and the meeting.
VINTOK_API bool replyNotifyBeginMeeting(int descriptor, bool hideIP,
                                        const std::string &meetingName);
// This party: is the host, is in no meeting any more, was thrown out (no host can do that today).
VINTOK_API bool replyNotifyHosting(int descriptor);
VINTOK_API bool replyNotifyEndMeeting(int descriptor);
VINTOK_API bool replyNotifyEjected(int descriptor);

// ---- Calls ----

// How a call goes that this party has placed. These need a machine name, which is the one that was
// called.
VINTOK_API bool replyNotifyDialing(int descriptor, const std::string &machineName);
VINTOK_API bool replyNotifyRinging(int descriptor, const std::string &machineName,
                                   const RosterBase &user);
VINTOK_API bool replyNotifyCallAccepted(int descriptor, const std::string &machineName,
                                        const RosterBase &user);
VINTOK_API bool replyNotifyBusy(int descriptor, const std::string &machineName,
                                const RosterBase &user);
VINTOK_API bool replyNotifyCallRejected(int descriptor, const std::string &machineName,
                                        const RosterBase &user);
VINTOK_API bool replyNotifyCallNoAnswer(int descriptor, const std::string &machineName);
// Somebody wants to join.
VINTOK_API bool replyNotifyCallPending(int descriptor, const RosterBase &user);
// A party speaks too old a version and was hung up; no name: it had called.
VINTOK_API bool replyNotifyVersionNotCompatible(int descriptor, const std::string &machineName,
                                                const TCPAddress &address);
// A proxy demands credentials: all that `requestPlaceCall` needs to place the call again.
VINTOK_API bool
replyNotifyCallAuthenticationRequired(int descriptor, const std::string &machineName,
                                      unsigned short port, const std::string &proxyAddress,
                                      unsigned short proxyPort, const std::string &authentication,
                                      unsigned int triesRemaining, const std::string &meetingID);
// The message is encoded, and left out when it is empty.
VINTOK_API bool replyNotifyServerResponse(int descriptor, unsigned int code,
                                          const std::string &message);

// ---- Parties ----

// One of those that are in the meeting; one that has come, gone, or been thrown out.
VINTOK_API bool replyNotifyUserInMeeting(int descriptor, const RosterBase &user);
VINTOK_API bool replyNotifyUserJoin(int descriptor, const RosterBase &user);
VINTOK_API bool replyNotifyUserLeave(int descriptor, const RosterBase &user);
VINTOK_API bool replyNotifyUserEjected(int descriptor, const RosterBase &user);

// ---- Lead ----

// This party begins to lead or stops; `...Granted` and `...Denied` answer its own request. Then who
// leads, and who asks for the lead that this party has.
VINTOK_API bool replyNotifyBeginLeading(int descriptor);
VINTOK_API bool replyNotifyBeginLeadingGranted(int descriptor);
VINTOK_API bool replyNotifyBeginLeadingDenied(int descriptor);
VINTOK_API bool replyNotifyEndLeading(int descriptor);
VINTOK_API bool replyNotifyLeaderChange(int descriptor, const RosterBase &user);
VINTOK_API bool replyNotifyLeadRequestPending(int descriptor, const RosterBase &user);

// ---- Files, recording, playback: `ok` is the outcome ----

// The own file begins to go out.
VINTOK_API bool replyNotifyFileTransfer(int descriptor, const std::string &path);
// The end of a file, the own one or one that came by the neighbour of this address. Success for
// anything but 0.
VINTOK_API bool replyNotifyFileTransferred(int descriptor, const TCPAddress &address, int success,
                                           const std::string &path);

VINTOK_API bool replyNotifyRecordingStarted(int descriptor, bool ok);
VINTOK_API bool replyNotifyRecordingStopped(int descriptor, bool ok);
VINTOK_API bool replyNotifyPlaybackStarted(int descriptor, bool ok);
VINTOK_API bool replyNotifyPlaybackStopped(int descriptor, bool ok);
VINTOK_API bool replyNotifyPlaybackPaused(int descriptor, bool ok);
VINTOK_API bool replyNotifyPlaybackResumed(int descriptor, bool ok);

} // namespace vintok

#endif
