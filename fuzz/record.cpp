// A record file: what the reader takes are the bytes of the file, the library reads the same
// messages, and whatever their bodies are can be told.
#include "Fuzz.h"

#include "MessageText.h"
#include "Player.h"

#include <limits>
#include <vector>

using namespace vintok;
using app::RecordReader;
using fuzz::require;

namespace {

// Known by no name.
app::File fileOf(const std::uint8_t *data, std::size_t size) {
    app::File file(std::tmpfile());
    require(file != nullptr && std::fwrite(data, 1, size, file.get()) == size, "a file");
    return file;
}

std::uint64_t readAll(std::FILE *file, const std::uint8_t *data, std::size_t size) {
    std::rewind(file);
    RecordReader reader(file);
    TCPMessage message;
    std::uint64_t end = 0;
    RecordReader::Result result = reader.next(message);
    for (; result == RecordReader::Result::record; result = reader.next(message)) {
        require(reader.offset() == end, "records lie back to back");
        end += message.rawBufferLength();
        require(end <= size && std::equal(data + reader.offset(), data + end, message.rawBuffer()),
                "a record is of the bytes of the file");
        const app::BodyText body = app::readBody(message);
        require(body.rest.size() <= message.messageBufferLength(), "no more rest than body");
    }
    require(reader.fault().empty() == (result == RecordReader::Result::end), "a fault is told");
    require(result != RecordReader::Result::end || end == size, "the end is that of the file");
    return end;
}

// The library's own way to read a file, which knows nothing of records.
void readPlain(std::FILE *file, std::uint64_t end) {
    std::rewind(file);
    TCPMessage message;
    std::uint64_t read = 0;
    while (read < end && message.read(file))
        read += message.rawBufferLength();
    require(read == end, "the library reads as much");
}

void play(std::FILE *file) {
    std::rewind(file);
    app::Player player(file, std::numeric_limits<double>::infinity());
    app::Pacing::TimePoint now{};
    while (player.look(now) == app::Player::State::ready)
        player.taken();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const app::File file = fileOf(data, size);
    const std::uint64_t end = readAll(file.get(), data, size);
    readPlain(file.get(), end);
    play(file.get());
    return 0;
}
