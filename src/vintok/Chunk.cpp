#include "vintok/Chunk.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

namespace vintok {

namespace {

// Chunks of the usual size that nobody has at the moment. They stay warm in the processor's cache,
// and the system is not asked for each.
class Spares {
public:
    unsigned char *take() {
        const std::lock_guard guard(m_lock);
        return m_count == 0 ? nullptr : m_bytes[--m_count];
    }

    bool keep(unsigned char *bytes) {
        const std::lock_guard guard(m_lock);
        if (m_count == m_bytes.size())
            return false;
        m_bytes[m_count++] = bytes;
        return true;
    }

private:
    std::mutex m_lock;
    std::array<unsigned char *, 4> m_bytes = {};
    std::size_t m_count = 0;
};

// Never destroyed: other static objects may own chunks to the end.
Spares &spares() {
    static Spares *const kept = new Spares;
    return *kept;
}

unsigned char *allocate(std::size_t size) {
    unsigned char *const spare = size == Chunk::usualSize ? spares().take() : nullptr;
    return spare != nullptr ? spare : static_cast<unsigned char *>(std::malloc(size));
}

} // namespace

std::shared_ptr<Chunk> Chunk::make(std::size_t size) {
    unsigned char *const bytes = allocate(size);
    if (bytes == nullptr)
        return nullptr;
    auto *const chunk = new (std::nothrow) Chunk(bytes, size);
    if (chunk == nullptr) {
        std::free(bytes);
        return nullptr;
    }
    try {
        return std::shared_ptr<Chunk>(chunk);
    } catch (const std::bad_alloc &) {
        return nullptr; // the chunk has been deleted
    }
}

Chunk::~Chunk() {
    if (m_size != usualSize || !spares().keep(m_bytes))
        std::free(m_bytes);
}

bool Chunk::grow(std::size_t size) {
    auto *const bytes = static_cast<unsigned char *>(std::realloc(m_bytes, size));
    if (bytes == nullptr)
        return false;
    m_bytes = bytes;
    m_size = size;
    return true;
}

Span copyToChunk(const unsigned char *bytes, std::size_t length) {
    const std::shared_ptr<Chunk> chunk = Chunk::make(length);
    if (chunk == nullptr)
        return {};
    if (length != 0)
        std::memcpy(chunk->data(), bytes, length);
    return {chunk, chunk->data(), length};
}

} // namespace vintok
