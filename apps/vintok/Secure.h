// The secure channel of the program: how it is started, and what it tells. Where the program was
// built without OpenSSL, `start` and `makeFolder` say so and the rest has nothing to tell.
#ifndef VINTOK_APP_SECURE_H
#define VINTOK_APP_SECURE_H

#include "Report.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace app::secure {

struct Options {
    std::string certificate; // files
    std::string key;
    std::string roots;
    bool systemRoots = false;
    bool demandsCertificate = false;
    bool required = false;
    bool approvedOnly = false;
    bool plainFirst = false;           // a proxy is asked in the open, for the way to who is secure
    bool accepts = false;              // this is a host: `wait` is for callers
    std::optional<std::uint32_t> wait; // milliseconds, for a peer that may be without TLS
    std::string name;                  // that the other side's certificate must be for
    bool namesCalled = false;          // that name is of whom the first call goes to

    bool wanted() const {
        return !certificate.empty() || !key.empty() || !roots.empty() || systemRoots ||
               demandsCertificate || required || approvedOnly;
    }
};

// For every connection from here on. False with the reason.
bool start(const Options &options, std::string &failure);

// The next calls go to somebody of another name.
void expect(const Options &options, const std::string &name);

struct Break {
    std::string reason; // empty when no connection was broken off
    int descriptor = -1;
};

// The last connection that was broken off and was secure, or was to be; it is told once.
Break takeBreak();

// A folder with certificates for trying out.
bool makeFolder(const std::string &folder, const std::vector<std::string> &names,
                std::string &failure);

// ---- The same however the program was built (SecureText.cpp) ----

// Protocol and cipher of a connection; empty when it is plain.
std::string channelOf(int descriptor);

// Whether a connection is encrypted, how, and who the other side has proved to be: the party of
// that name, or a server on the way to it where the encryption ends.
Notice describe(int descriptor, const std::string &name, const std::string &server);

} // namespace app::secure

#endif
