// What a message is and what its body says, for whoever looks at one from outside.
#ifndef VINTOK_APP_MESSAGETEXT_H
#define VINTOK_APP_MESSAGETEXT_H

#include "Fields.h"

#include <vintok/TCPMessageBase.h>

#include <string>
#include <string_view>

namespace app {

// "TCP_joinRequest", or the 16 bytes in hexadecimal for an identifier that the library has no name
// for.
std::string identifierName(const vintok::TCPGUID &identifier);

// "4.1"
std::string versionText(unsigned int major, unsigned int minor);

// Two digits for each byte.
std::string hexadecimal(std::string_view bytes, std::string_view between = "");

struct BodyText {
    Fields fields;          // what it says
    bool malformed = false; // it is not what its identifier promises
    std::string_view rest;  // the bytes that `fields` does not tell, in the message
    std::string hides;      // the address of a party that says here that it is to be hidden
};

// Valid for as long as the message keeps its body.
BodyText readBody(const vintok::TCPMessageBase &message);

} // namespace app

#endif
