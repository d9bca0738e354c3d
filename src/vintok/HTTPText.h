// Words and formats of the requests to proxies and multiplexing servers, for programs that speak to
// the same servers. The formats are for `printf`: %hd and %hu take a port in host byte order.
#ifndef VINTOK_HTTPTEXT_H
#define VINTOK_HTTPTEXT_H

#include "vintok/Export.h"

namespace vintok {

extern VINTOK_API const char http_QOR_BUILD_INFO[];
extern VINTOK_API const char http_QOR_BUILD_INFO_oldHeaders[];
extern VINTOK_API const char http_httpNewLine[];
extern VINTOK_API const char http_QOR_CONFERENCE_ADDRESS[];
extern VINTOK_API const char http_QOR_CONFERENCE_MEETINGID[];
extern VINTOK_API const char http_QOR_CONFERENCE_PROXY[];
extern VINTOK_API const char format_QOR_BUILD_INFO[];
extern VINTOK_API const char format_QOR_BUILD_INFO_oldHeaders[];
extern VINTOK_API const char format_QOR_CONFERENCE_ADDRESS[];
extern VINTOK_API const char format_QOR_CONFERENCE_MEETINGID[];
extern VINTOK_API const char format_QOR_CONFERENCE_PROXY[];
extern VINTOK_API const char format_HTTP_Connect_1_0[];

// Authentication (RFC 7617 and its like): what servers demand is compared in lower case.
extern VINTOK_API const char http_basic[];
extern VINTOK_API const char http_ntlm[];
extern VINTOK_API const char http_proxyAuthenticate[];
extern VINTOK_API const char http_wwwAuthenticate[];

extern VINTOK_API const char http_pLorMUX_ConfParticipantVersion[];
extern VINTOK_API const char http_pLorMUX_ConferenceAddress[];
extern VINTOK_API const char http_pLorMUX_Encrypt[];
extern VINTOK_API const char http_pLorMUX_EncryptTrue[];
extern VINTOK_API const char http_pLorMUX_MeetingID[];
extern VINTOK_API const char http_pLorMUX_ProxyAddress[];
extern VINTOK_API const char http_pLorMUX_ProxyJump_True[]; // with a blank in front
extern VINTOK_API const char http_pLorMUX_Reason[];
extern VINTOK_API const char http_pLorMUX_RedirectTrue[];
extern VINTOK_API const char http_pLorMUX_ResponseRequiredTrue[];
extern VINTOK_API const char http_pLorMUX_Version2_0[];
extern VINTOK_API const char format_authorizationBasic[];
extern VINTOK_API const char format_pLorMUX_ConfParticipantVersion[];
extern VINTOK_API const char format_pLorMUX_ConferenceAddress[];
extern VINTOK_API const char format_pLorMUX_MeetingID[];
extern VINTOK_API const char format_pLorMUX_ProxyAddress[];
extern VINTOK_API const char format_proxyAuthorizationBasic[];

} // namespace vintok

#endif
