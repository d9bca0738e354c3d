// What a proxy or a multiplexing server answers, as the library and as the programs read it.
#include "Fuzz.h"

#include "ServerReply.h"
#include "vintok/HTTPAddress.h"
#include "vintok/HTTPReply.h"

using namespace vintok;
using fuzz::require;

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string reply(fuzz::textOf(data, size));
    static_cast<void>(replyStatus(reply));
    for (const char *name : {"Location", "pLorMUX_Reason", "Proxy-Authenticate"}) {
        const std::string value = headerValue(reply, name);
        require(value.size() <= 1023, "a value in its limits");
        require(value.find_first_of("\r\n") == std::string::npos, "a value is of one line");
    }
    HTTPAddress target;
    if (redirectTarget(reply, target)) {
        std::string url;
        require(target.url(url) && url.find_first_of("\r\n") == std::string::npos,
                "a redirect is of one line");
    }
    const app::ServerReply read = app::readServerReply(reply);
    require(read.challengeFault(false).size() + read.text().size() < 4 * size + 1000,
            "words in proportion");
    return 0;
}
