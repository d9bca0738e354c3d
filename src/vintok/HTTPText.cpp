#include "vintok/HTTPText.h"

#include <cstdlib>

namespace vintok {

namespace {

constexpr std::size_t requestCapacity = 1024;

// The room that each request is taken to need beside its names, fixed since the first version.
constexpr std::size_t proxyRoom = 117;
constexpr std::size_t authorizedRoom = 173;
constexpr std::size_t multiplexerRoom = 308;

} // namespace

const char http_QOR_BUILD_INFO[] = "QOR_BUILD_INFO";
const char http_QOR_BUILD_INFO_oldHeaders[] = "QOR_BUILD_INFO: oldHeaders-";
const char http_httpNewLine[] = "\r\n";
const char http_QOR_CONFERENCE_ADDRESS[] = "QOR_CONFERENCE_ADDRESS";
const char http_QOR_CONFERENCE_MEETINGID[] = "QOR_CONFERENCE_MEETINGID";
const char http_QOR_CONFERENCE_PROXY[] = "QOR_CONFERENCE_PROXY";
const char format_QOR_BUILD_INFO[] = "QOR_BUILD_INFO: %s";
const char format_QOR_BUILD_INFO_oldHeaders[] = "QOR_BUILD_INFO: oldHeaders-%s";
const char format_QOR_CONFERENCE_ADDRESS[] = "QOR_CONFERENCE_ADDRESS: %s:%hu";
const char format_QOR_CONFERENCE_MEETINGID[] = "QOR_CONFERENCE_MEETINGID: %s";
const char format_QOR_CONFERENCE_PROXY[] = "QOR_CONFERENCE_PROXY: %s:%hu";
const char format_HTTP_Connect_1_0[] = "CONNECT %s:%hd HTTP/1.0";
const char http_basic[] = "basic";
const char http_ntlm[] = "ntlm";
const char http_proxyAuthenticate[] = "proxy-authenticate";
const char http_wwwAuthenticate[] = "www-authenticate";
const char http_pLorMUX_ConfParticipantVersion[] = "pLorMUX_ConfParticipantVersion";
const char http_pLorMUX_ConferenceAddress[] = "pLorMUX_ConferenceAddress";
const char http_pLorMUX_Encrypt[] = "pLorMUX_Encrypt";
const char http_pLorMUX_EncryptTrue[] = "pLorMUX_Encrypt: true";
const char http_pLorMUX_MeetingID[] = "pLorMUX_MeetingID";
const char http_pLorMUX_ProxyAddress[] = "pLorMUX_ProxyAddress";
const char http_pLorMUX_ProxyJump_True[] = " pLorMUX_ProxyJump: true";
const char http_pLorMUX_Ready[] = "pLorMUX_Response: Ready\n\n";
const char http_pLorMUX_Reason[] = "pLorMUX_Reason";
const char http_pLorMUX_RedirectTrue[] = "pLorMUX_Redirect: true";
const char http_pLorMUX_ResponseRequiredTrue[] = "pLorMUX_ResponseRequired: true";
const char http_pLorMUX_Version2_0[] = "pLorMUX_Version: 2.0";
const char format_authorizationBasic[] = "Authorization: Basic %s";
const char format_pLorMUX_ConfParticipantVersion[] = "pLorMUX_ConfParticipantVersion: %hu.%hu";
const char format_pLorMUX_ConferenceAddress[] = "pLorMUX_ConferenceAddress: %s:%hu";
const char format_pLorMUX_MeetingID[] = "pLorMUX_MeetingID: %s";
const char format_pLorMUX_ProxyAddress[] = "pLorMUX_ProxyAddress: %s:%hu";
const char format_proxyAuthorizationBasic[] = "Proxy-authorization: Basic %s";

std::string httpBuildInfo() {
    const char *variable = std::getenv(http_QOR_BUILD_INFO);
    return variable != nullptr ? variable : "none";
}

bool fitsProxyRequest(std::size_t remoteName, std::size_t proxyName, std::size_t authentication) {
    const std::size_t room = authentication != 0 ? authorizedRoom : proxyRoom;
    return room + remoteName + proxyName + 2 * authentication < requestCapacity;
}

bool fitsMultiplexerRequest(std::size_t remoteName, std::size_t proxyName, std::size_t meetingID) {
    return multiplexerRoom + 2 * remoteName + proxyName + meetingID + httpBuildInfo().size() <
           requestCapacity;
}

} // namespace vintok
