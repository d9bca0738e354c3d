#include "vintok/RawBuffer.h"

#include "vintok/Chunk.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace vintok {

namespace {

// So many old bytes are cleared by hand. For more, memory that the system clears when it is touched
// is the better bargain.
constexpr std::uint64_t clearLimit = 64 * 1024;

} // namespace

RawBuffer::RawBuffer(const RawBuffer &other) {
    if (other.empty())
        return;
    if (!mf_reallocate(other.m_size))
        throw std::bad_alloc();
    std::copy_n(other.m_bytes, other.m_size, m_bytes);
    m_size = m_used = other.m_size;
}

RawBuffer &RawBuffer::operator=(const RawBuffer &other) {
    RawBuffer copy(other);
    std::swap(m_bytes, copy.m_bytes);
    std::swap(m_size, copy.m_size);
    std::swap(m_capacity, copy.m_capacity);
    std::swap(m_used, copy.m_used);
    std::swap(m_chunk, copy.m_chunk);
    return *this;
}

RawBuffer::~RawBuffer() {
    mf_release();
}

void RawBuffer::mf_release() {
    if (m_chunk == nullptr)
        std::free(m_bytes);
    m_chunk.reset();
}

void RawBuffer::share(const std::shared_ptr<Chunk> &chunk, unsigned char *bytes,
                      std::uint64_t size) {
    if (m_chunk != chunk) {
        mf_release();
        m_chunk = chunk;
    }
    m_bytes = bytes;
    m_size = m_used = size;
    m_capacity = 0; // nothing is written behind the bytes: they are somebody else's
}

bool RawBuffer::resize(std::uint64_t size) {
    const std::uint64_t reused = std::min(size, m_used);
    const std::uint64_t stale = reused > m_size ? reused - m_size : 0;
    if (size > m_capacity || stale > clearLimit) {
        if (!mf_reallocate(size))
            return false;
    } else if (stale > 0) {
        std::memset(m_bytes + m_size, 0, stale);
    }
    m_size = size;
    m_used = std::max(m_used, size);
    return true;
}

// Moves what is there to memory of `size` bytes, all the others of which are zero.
bool RawBuffer::mf_reallocate(std::uint64_t size) {
    if (size > std::numeric_limits<std::size_t>::max())
        return false;
    auto *bytes = static_cast<unsigned char *>(std::calloc(size, 1));
    if (bytes == nullptr)
        return false;
    m_size = std::min(m_size, size);
    std::copy_n(m_bytes, m_size, bytes);
    mf_release();
    m_bytes = bytes;
    m_capacity = size;
    m_used = m_size;
    return true;
}

} // namespace vintok
