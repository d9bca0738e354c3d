// Calls through a multiplexing server, and through an HTTP proxy on the way to it.
//
// `placeCall` with a meeting identifier sends a CONNECT: to the proxy (the peer is then
// proxy-pending) or straight to the server (MUX-pending). While one of the two bits stands, what
// comes on the connection is an HTTP reply and `readTunnel` takes it. The proxy's success leads to
// the server's CONNECT on the same connection; the server's success to the ready line, and from
// there on the connection carries frames, beginning with the hello of whoever the server found.
// Every other reply ends the call, in the way that its status says (`CallOutcome`).
//
// A reply is read byte by byte, so that nothing behind its blank line is taken, and without ever
// waiting: servers send it in one go.
#include "vintok/ConferenceParticipantWorkings.h"

#include "platform/Wait.h"
#include "vintok/BufferManager.h"
#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/HTTPAddress.h"
#include "vintok/HTTPReply.h"
#include "vintok/HTTPText.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPStream.h"

namespace vintok {

const char ConferenceParticipant::_httpProxy[] = "CONNECT %s:%hd HTTP/1.0\r\n"
                                                 "pLorMUX_Version: 2.0\r\n"
                                                 "pLorMUX_ProxyJump: true\r\n"
                                                 "pLorMUX_ProxyAddress: %s:%hu\r\n\r\n";

const char ConferenceParticipant::_httpProxyAuthorized[] = "CONNECT %s:%hd HTTP/1.0\r\n"
                                                           "pLorMUX_Version: 2.0\r\n"
                                                           "pLorMUX_ProxyJump: true\r\n"
                                                           "pLorMUX_ProxyAddress: %s:%hu\r\n"
                                                           "Proxy-authorization: Basic %s\r\n"
                                                           "Authorization: Basic %s\r\n\r\n";

const char ConferenceParticipant::_http_pLorMUX[] = "CONNECT %s:%hd HTTP/1.0\r\n"
                                                    "pLorMUX_Version: 2.0\r\n"
                                                    "pLorMUX_ResponseRequired: true\r\n"
                                                    "pLorMUX_Encrypt: true\r\n"
                                                    "pLorMUX_Redirect: true\r\n"
                                                    "pLorMUX_MeetingID: %s\r\n"
                                                    "pLorMUX_ConfParticipantVersion: %hu.%hu\r\n"
                                                    "pLorMUX_ProxyAddress: %s:%hu\r\n"
                                                    "pLorMUX_ConferenceAddress: %s:%hu\r\n"
                                                    "QOR_BUILD_INFO: %s\r\n\r\n";

const char ConferenceParticipant::_pLorMUX_Encrypt[] = "pLorMUX_Encrypt";
const char ConferenceParticipant::_pLorMUX_Reason[] = "pLorMUX_Reason";

namespace {

constexpr std::size_t replyCapacity = 4095;
constexpr int mostEmptyLooks = 64;

CallOutcome outcomeOf(int status) {
    if (status == 302)
        return OUTCOME_REDIRECTED;
    if (status == 401 || status == 407)
        return OUTCOME_AUTHENTICATE;
    return status >= 500 && status <= 505 ? OUTCOME_SERVER_ERROR : OUTCOME_NO_ANSWER;
}

// As the log can take it: lines stay lines.
std::string visibleLines(const std::string &text) {
    std::string result;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        const bool whole = end != begin && text[end - 1] == '\r';
        result += visibleText(text.substr(begin, end - begin - (whole ? 1 : 0)));
        result += whole ? "\r\n" : "\n";
    }
    return result + visibleText(text.substr(begin));
}

bool writeText(int descriptor, const std::string &text) {
    return writeBytes(descriptor, reinterpret_cast<const unsigned char *>(text.data()), text.size(),
                      nullptr) == static_cast<std::int64_t>(text.size());
}

// Takes the headers of a reply, blank line included. False when no blank line came; when nothing
// more was there, the error tells whether the server is gone or has only paused.
bool readHeaders(int descriptor, std::string &headers) {
    HTTPHeadEnd end;
    for (int emptyLooks = 0; headers.size() < replyCapacity && emptyLooks < mostEmptyLooks;) {
        const std::int64_t pending = bytesPending(descriptor);
        if (pending == -1) {
            VINTOK_LOG(SEVERITY_ERROR, "sf_readHttpResponse check for pending failed");
            return false;
        }
        if (pending == 0) {
            ++emptyLooks;
            continue;
        }
        unsigned char byte = 0;
        if (readBytes(descriptor, &byte, 1, nullptr) != 1) {
            VINTOK_LOG(SEVERITY_ERROR, "sf_readHttpResponse read failed");
            return false;
        }
        headers.push_back(static_cast<char>(byte));
        if (end.take(headers.back()))
            return true;
    }
    if (platform::endArrived(descriptor))
        VINTOK_ERROR(TCP_ERROR_CONNECTION_RESET, "sf_readHttpResponse");
    else
        VINTOK_ERROR(TCP_ERROR_WOULD_BLOCK, "sf_readHttpResponse");
    return false;
}

} // namespace

// ---- Requests ----

// A request that is too long goes out as a bare end of headers, deliberately: the server's reply
// then tells the caller, as it tells of every other bad request.
std::string ConferenceParticipant::Tunnels::httpRequest(const HTTPRequest &request) {
    const std::string &remote = request.remoteName;
    const std::string &proxy = request.proxyName;
    const std::string &authentication = request.authentication;
    const auto connectPort = static_cast<short>(request.port); // above 32767 it prints negative
    if (request.mux) {
        if (fitsMultiplexerRequest(remote.size(), proxy.size(), request.meetingID.size()))
            return formatText(_http_pLorMUX, remote.c_str(), connectPort, request.meetingID.c_str(),
                              s_majorVersion, s_minorVersion, proxy.c_str(), request.proxyPort,
                              remote.c_str(), request.port, httpBuildInfo().c_str());
    } else if (fitsProxyRequest(remote.size(), proxy.size(), authentication.size())) {
        if (authentication.empty())
            return formatText(_httpProxy, remote.c_str(), connectPort, proxy.c_str(),
                              request.proxyPort);
        return formatText(_httpProxyAuthorized, remote.c_str(), connectPort, proxy.c_str(),
                          request.proxyPort, authentication.c_str(), authentication.c_str());
    }
    return "\r\n\r\n";
}

bool ConferenceParticipant::sf_sendHttpRequest(int descriptor, const std::string &authentication,
                                               const std::string &remoteName, unsigned short port,
                                               const std::string &proxyName,
                                               unsigned short proxyPort,
                                               const std::string &meetingID, bool mux) {
    const HTTPRequest request{authentication, remoteName, port, proxyName,
                              proxyPort,      meetingID,  mux};
    if (Tunnels::writeRequest(descriptor, request))
        return true;
    VINTOK_LOG(SEVERITY_ERROR, "sf_sendHttpRequest FAILED");
    return false;
}

bool ConferenceParticipant::Tunnels::writeRequest(int descriptor, const HTTPRequest &request) {
    if (request.remoteName.empty() || request.meetingID.empty()) {
        VINTOK_LOG(SEVERITY_ERROR, "sf_sendHttpRequest bad parameters for HTTP header");
        return false;
    }
    const std::string text = httpRequest(request);
    const DescriptorState state(descriptor);
    if (!state.known)
        return false;
    if (request.mux && !state.secure) {
        if (!secureConnect(descriptor, request.remoteName)) {
            VINTOK_LOG(SEVERITY_ERROR, "sf_sendHttpRequest: secureConnect FAILED");
            return false;
        }
        VINTOK_LOG(SEVERITY_TRACE, "SSL Request: secureConnect ok.");
    }
    if (!writeText(descriptor, text))
        return false;
    VINTOK_LOG(SEVERITY_INFO, "Sent HTTP Request\n{\n" + visibleLines(text) + "}\n");
    return true;
}

// A call with a meeting identifier, once it is connected.
bool ConferenceParticipant::Tunnels::startTunnel(ConferenceParticipant &owner,
                                                 ConferenceRosterEntry *peer, TempRosterEntry *call,
                                                 bool direct) {
    peer->setProxyName(call->proxyName());
    peer->setProxy(!direct);
    if (!requestTunnel(*call, direct)) {
        owner._removePending(call);
        Ending::dropConnection(owner, peer);
        VINTOK_LOG(SEVERITY_ERROR, "placeCall spam HTTP remote failed");
        return false;
    }
    if (direct)
        awaitMultiplexer(peer);
    else
        peer->setProxyPending(true);
    return true;
}

bool ConferenceParticipant::Tunnels::requestTunnel(const TempRosterEntry &call, bool mux) {
    return sf_sendHttpRequest(call.associatedDescriptor(), call.authentication(), call.remoteName(),
                              call.hostByteOrderPort(), call.proxyName(),
                              call.proxyHostByteOrderPort(), call.meetingID(), mux);
}

void ConferenceParticipant::Tunnels::awaitMultiplexer(ConferenceRosterEntry *peer) {
    peer->setProxyPending(false);
    peer->setMUXPending(true);
    peer->setMUXEncrypt(false);
}

// ---- Replies ----

int ConferenceParticipant::sf_readHttpResponse(int descriptor, std::string &response) {
    std::string headers;
    if (!readHeaders(descriptor, headers)) {
        VINTOK_LOG(SEVERITY_ERROR, "sf_readHttpResponse Failed");
        return 0;
    }
    VINTOK_LOG(SEVERITY_INFO, "Recieved HTTP Reply\n{\n" + visibleLines(headers) + "}\n");
    response = headers;
    const std::optional<int> parsed = replyStatus(response);
    if (!parsed)
        VINTOK_LOG(SEVERITY_ERROR, "sf_readHttpResponse Failed");
    const int status = parsed.value_or(0);
    VINTOK_LOG(SEVERITY_DEBUG, "-> Parsed HTTP Reply, returning " + std::to_string(status));
    return status;
}

std::string ConferenceParticipant::_httpHeaderValue(const std::string &response, const char *name) {
    return headerValue(response, name);
}

void ConferenceParticipant::Tunnels::readTunnel(ConferenceParticipant &owner,
                                                ConferenceRosterEntry *peer) {
    std::string response;
    const int status = sf_readHttpResponse(peer->descriptor(), response);
    if (owner._serverResponseCB != nullptr)
        owner._serverResponseCB(&owner, static_cast<unsigned int>(status), response);
    if (!owner._isListed(peer))
        return;
    TempRosterEntry *call = owner._getPending(peer->descriptor());
    if (call != nullptr) {
        call->m_callOutcome = outcomeOf(status);
        call->m_tunnelStatus = status;
        call->m_tunnelResponse = response;
    }
    HTTPAddress target;
    if (isHTTPSuccess(status) && peer->isProxyPending())
        passProxy(owner, peer, call);
    else if (isHTTPSuccess(status))
        openTunnel(owner, peer, response);
    else if (status == 302 && redirectTarget(response, target))
        owner._handleRedirect(peer, target);
    else
        owner.mf_hangup(peer);
}

// The proxy has connected us to the multiplexing server.
void ConferenceParticipant::Tunnels::passProxy(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer,
                                               const TempRosterEntry *call) {
    if (call != nullptr && requestTunnel(*call, true))
        awaitMultiplexer(peer);
    else
        owner.mf_hangup(peer);
}

// The server has connected us to the other party.
void ConferenceParticipant::Tunnels::openTunnel(ConferenceParticipant &owner,
                                                ConferenceRosterEntry *peer,
                                                const std::string &response) {
    const int descriptor = peer->descriptor();
    peer->setMUXPending(false);
    const std::string encrypt = _httpHeaderValue(response, _pLorMUX_Encrypt);
    if (encrypt == "true")
        peer->setMUXEncrypt(true);
    else if (!encrypt.empty())
        dropToPlain(peer);
    if (!writeText(descriptor, http_pLorMUX_Ready) || !bufferFrames(descriptor)) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_dataPending ==> Mux response write to server failed");
        owner.mf_hangup(peer);
    }
}

void ConferenceParticipant::Tunnels::dropToPlain(ConferenceRosterEntry *peer) {
    const int descriptor = peer->descriptor();
    if (!setSecure(descriptor, false)) {
        VINTOK_LOG(SEVERITY_ERROR, "ConferenceParticipant: Failed to reset SSL mode");
        return;
    }
    peer->setMUXEncrypt(false);
    const std::int64_t pending = bytesPending(descriptor);
    if (pending == -1)
        VINTOK_LOG(SEVERITY_ERROR, "sf_readHttpResponse check for pending failed");
    else if (pending > 0)
        clearSocket(descriptor, static_cast<std::size_t>(pending));
}

// ---- Redirection ----

// The first redirect of a call costs no retry, if there are any.
void ConferenceParticipant::_handleRedirect(ConferenceRosterEntry *peer,
                                            const TCPAddress &address) {
    std::string name;
    address.name(name);
    Tunnels::redirect(*this, peer, name, address.hostByteOrderPort());
}

// A host that is one of several sends its caller to another one. Only an application that is asked
// follows: whoever is called could send callers anywhere.
void ConferenceParticipant::Tunnels::sentElsewhere(ConferenceParticipant &owner,
                                                   ConferenceRosterEntry *peer,
                                                   const TCPMessage &message) {
    TempRosterEntry *call = owner._getPending(peer->descriptor());
    BufferManager body(const_cast<unsigned char *>(message.messageBuffer()),
                       message.messageBufferLength());
    std::uint16_t port = 0;
    if (call == nullptr || peer->doBroadcast() || owner._redirectCB == nullptr ||
        body.read(port) == 0 || message.messageBufferLength() == sizeof port)
        return;
    const std::string name(message.messageBuffer() + sizeof port,
                           message.messageBuffer() + message.messageBufferLength());
    call->m_callOutcome = OUTCOME_REDIRECTED;
    redirect(owner, peer, name, port);
}

void ConferenceParticipant::Tunnels::redirect(ConferenceParticipant &owner,
                                              ConferenceRosterEntry *peer, const std::string &name,
                                              unsigned short port) {
    const TempRosterEntry *pending = owner._getPending(peer->descriptor());
    if (pending == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "_handleRedirect No Pending entry for redirect reply");
        return;
    }
    const TempRosterEntry call(*pending);
    owner.mf_hangup(peer);

    std::string proxyName = call.proxyName();
    unsigned short proxyPort = call.proxyHostByteOrderPort();
    if (call.remoteName() == proxyName && call.hostByteOrderPort() == proxyPort) {
        proxyName = name; // direct before, and direct again
        proxyPort = port;
    }
    unsigned int retries = call.m_authenticationRetries;
    if (owner._self.isMUXRedirected() && retries != 0)
        --retries;
    if (retries == 0) {
        Ending::tellNoAnswer(owner, call);
    } else if (owner._redirectCB != nullptr) {
        owner._redirectCB(&owner, name, port, proxyName, proxyPort, call.authentication(), retries,
                          call.meetingID());
    } else {
        owner._self.setMUXRedirected(true);
        owner.placeCall(name, port, proxyName, proxyPort, call.meetingID(), call.authentication(),
                        retries);
    }
}

// The application may call again with other credentials, as long as there are retries left. False
// when it is not asked.
bool ConferenceParticipant::Tunnels::askForCredentials(ConferenceParticipant &owner,
                                                       const TempRosterEntry &call) {
    if (owner._proxyCB == nullptr || call.m_authenticationRetries < 2)
        return false;
    owner._proxyCB(&owner, call.remoteName(), call.hostByteOrderPort(), call.proxyName(),
                   call.proxyHostByteOrderPort(), call.authentication(),
                   call.m_authenticationRetries - 1, call.meetingID());
    return true;
}

} // namespace vintok
