// What a client asks of the multiplexer: a head that comes in pieces is read as if it came whole.
// The first byte says how it is cut.
#include "Fuzz.h"

#include "Request.h"
#include "Rules.h"

using namespace mux;
using vintok::fuzz::require;

namespace {

constexpr std::size_t limit = 600;

struct Outcome {
    RequestReader::Result result = RequestReader::Result::more;
    Request request;
    std::size_t length = 0;

    bool operator==(const Outcome &other) const {
        return result == other.result && request.method == other.request.method &&
               request.target == other.request.target && request.headers == other.request.headers &&
               (result != RequestReader::Result::whole || length == other.length);
    }
};

Outcome readInPieces(std::string_view bytes, std::size_t piece) {
    RequestReader reader(limit);
    Outcome outcome;
    for (std::size_t come = 0;
         come < bytes.size() && outcome.result == RequestReader::Result::more;) {
        come = std::min(bytes.size(), come + piece);
        outcome.result = reader.read(bytes.substr(0, come), outcome.request, outcome.length);
    }
    return outcome;
}

void names(const Request &request) {
    Authority authority;
    Rules rules;
    static_cast<void>(rules.add(request.target));
    if (!parseAuthority(request.target, authority))
        return;
    require(authority.port != 0 && !authority.host.empty(), "an authority has both parts");
    Authority again;
    require(parseAuthority(authority.text(), again) && again == authority, "it can be told");
    static_cast<void>(rules.allowsName(authority));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    vintok::fuzz::Input input(data, size);
    const std::size_t piece = input.byte() + std::size_t{1};
    const std::string_view bytes = input.take(size);
    const Outcome whole = readInPieces(bytes, std::max<std::size_t>(bytes.size(), 1));
    const Outcome pieces = readInPieces(bytes, piece);
    using Result = RequestReader::Result;
    if (whole.result == Result::whole) {
        require(whole.length <= limit && whole.length <= bytes.size(), "a head in its limits");
        names(whole.request);
    }
    // A head that is too long is so at once where it comes in pieces, whatever stands in it.
    require(pieces == whole || whole.result == Result::bad || whole.result == Result::tooLong,
            "pieces make the whole");
    require(whole.result != Result::bad || pieces.result != Result::whole, "and nothing else");
    return 0;
}
