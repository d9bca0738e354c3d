// Words, formats and limits of what is said to proxies and multiplexing servers, for programs that
// speak to the same servers. The formats are for `printf`: %hd and %hu take a port in host byte
// order. Nothing here blocks or leaves a `TCPError`.
#ifndef VINTOK_HTTPTEXT_H
#define VINTOK_HTTPTEXT_H

#include "vintok/Export.h"

#include <cstddef>
#include <string>

namespace vintok {

// Headers of older servers, and the request to a proxy: `http_` is a word, `format_` a line with
// its value but without its end, which is `http_httpNewLine`.
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

// What is said to a multiplexing server, and what it answers, likewise; `...True` are whole lines.

extern VINTOK_API const char http_pLorMUX_ConfParticipantVersion[];
extern VINTOK_API const char http_pLorMUX_ConferenceAddress[];
extern VINTOK_API const char http_pLorMUX_Encrypt[];
extern VINTOK_API const char http_pLorMUX_EncryptTrue[];
extern VINTOK_API const char http_pLorMUX_MeetingID[];
extern VINTOK_API const char http_pLorMUX_ProxyAddress[];
extern VINTOK_API const char http_pLorMUX_ProxyJump_True[]; // with a blank in front
// What a client writes once its tunnel stands, ahead of everything else.
extern VINTOK_API const char http_pLorMUX_Ready[];

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

// Whether the server goes on with a call that it gives this status.
constexpr bool isHTTPSuccess(int status) {
    return status >= 200 && status <= 206;
}

// The value of the QOR_BUILD_INFO header: the environment's variable of that name, or "none".
VINTOK_API std::string httpBuildInfo();

// Whether a request of the library has room for texts of these lengths; `authentication` is 0 for
// none. One without room goes out as a bare end of headers, and a server may wait for the rest.
VINTOK_API bool fitsProxyRequest(std::size_t remoteName, std::size_t proxyName,
                                 std::size_t authentication);
VINTOK_API bool fitsMultiplexerRequest(std::size_t remoteName, std::size_t proxyName,
                                       std::size_t meetingID);

// Finds the blank line that ends the head of a request or reply, byte by byte. Carriage returns do
// not count.
class HTTPHeadEnd {
public:
    // True for the byte that ends the head.
    bool take(char byte) {
        if (byte == '\r')
            return false;
        const bool ends = byte == '\n' && m_last == '\n';
        m_last = byte;
        return ends;
    }

private:
    char m_last = '\0';
};

} // namespace vintok

#endif
