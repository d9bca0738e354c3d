// Internal. Memory that received bytes lie in. Whoever still has to send some of them, or shows
// them to an application, shares it; the last one to let go gives it back.
#ifndef VINTOK_CHUNK_H
#define VINTOK_CHUNK_H

#include <cstddef>
#include <memory>

namespace vintok {

class Chunk {
public:
    // What a connection that reads ahead receives at a time, and the chunk that it receives into,
    // with room for what the reading before left over. Chunks of this size are used again.
    static constexpr std::size_t readSize = std::size_t{256} * 1024;
    static constexpr std::size_t usualSize = 2 * readSize;

    // Null when there is no memory. The bytes are not cleared.
    static std::shared_ptr<Chunk> make(std::size_t size);

    ~Chunk();
    Chunk(const Chunk &) = delete;
    Chunk &operator=(const Chunk &) = delete;

    unsigned char *data() const { return m_bytes; }
    std::size_t size() const { return m_size; }

    // Keeps the bytes, perhaps in another place: for the only one that has the chunk. False,
    // changing nothing, when there is no memory.
    bool grow(std::size_t size);

private:
    Chunk(unsigned char *bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}

    unsigned char *m_bytes;
    std::size_t m_size;
};

// Bytes that are on their way to somebody. Without an owner they are the caller's, who keeps them
// until they are sent.
struct Span {
    std::shared_ptr<Chunk> owner;
    const unsigned char *bytes = nullptr;
    std::size_t length = 0;
};

// A copy in a chunk of its own, or a span of nothing when there is no memory.
Span copyToChunk(const unsigned char *bytes, std::size_t length);

} // namespace vintok

#endif
