// The bytes of a message: a growable array whose new bytes are zero without anybody writing them. A
// frame may claim 4 GiB long before the first of them arrives, or though none ever does; memory
// that was only claimed costs address space and nothing else.
#ifndef VINTOK_RAWBUFFER_H
#define VINTOK_RAWBUFFER_H

#include "vintok/Export.h"

#include <cstdint>
#include <memory>

namespace vintok {

class Chunk;

class VINTOK_API RawBuffer {
public:
    RawBuffer() = default;

    // Copies throw std::bad_alloc when there is no memory; the target is then as it was.
    RawBuffer(const RawBuffer &other);
    RawBuffer &operator=(const RawBuffer &other);

    ~RawBuffer();

    // The first byte, or null when there are none. Valid until the next `resize`.
    unsigned char *data() const { return m_size == 0 ? nullptr : m_bytes; }
    std::uint64_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }

    // Keeps the bytes that were there; those that become part of the buffer are zero. Shrinking
    // keeps the memory for later. False, changing nothing, when there is no memory.
    bool resize(std::uint64_t size);

    // For the library: shows `size` bytes of a chunk that others may read too, instead of copying
    // them. The next `resize` moves to memory of this buffer's own. `shared` is null for such.
    void share(const std::shared_ptr<Chunk> &chunk, unsigned char *bytes, std::uint64_t size);
    const std::shared_ptr<Chunk> &shared() const { return m_chunk; }

private:
    bool mf_reallocate(std::uint64_t size);
    void mf_release();

    unsigned char *m_bytes = nullptr;
    std::uint64_t m_size = 0;
    std::uint64_t m_capacity = 0;
    std::uint64_t m_used = 0;       // bytes behind this have been zero since they were allocated
    std::shared_ptr<Chunk> m_chunk; // whose bytes these are; null for this buffer's own
};

} // namespace vintok

#endif
