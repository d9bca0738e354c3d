// The words of an HTTP reply: what a person wants to know of it.
#ifndef VINTOK_APP_SERVERREPLY_H
#define VINTOK_APP_SERVERREPLY_H

#include <string>
#include <string_view>

namespace app {

struct ServerReply {
    int status = 0;         // as its first line says it
    std::string reason;     // the words behind the status
    std::string detail;     // what a multiplexer adds
    std::string encryption; // "true" of a multiplexer that keeps the connection secure
    std::string location;   // where it sends the caller

    // Of a challenge: the first scheme, and whether `basic` is among them, with its realm.
    std::string scheme;
    std::string realm;
    bool takesBasic = false;

    // Credentials are wanted.
    bool isChallenge() const { return status == 401 || status == 407; }

    // Why a challenge cannot be met, as the rest of a sentence about the server; empty when
    // credentials can meet it. `answered`: it had some.
    std::string challengeFault(bool answered) const;

    // "407 Proxy Authentication Required (credentials are needed)"
    std::string text() const;
};

// Whatever is missing stays empty.
ServerReply readServerReply(std::string_view text);

} // namespace app

#endif
