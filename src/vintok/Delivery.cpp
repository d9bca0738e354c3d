#include "vintok/Delivery.h"

#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"

#include <algorithm>
#include <new>

namespace vintok {

bool Delivery::toOne(int descriptor, Span bytes, When when) {
    if (bytes.owner == nullptr && when == When::withTheTurn)
        bytes = copyToChunk(bytes.bytes, bytes.length);
    if (bytes.bytes == nullptr)
        throw std::bad_alloc();
    Delivery delivery(bytes, when);
    delivery.give(descriptor);
    delivery.complete();
    return delivery.isTaken();
}

void Delivery::give(int descriptor) {
    Receiver &receiver = m_receivers.emplace_back(Receiver{descriptor, nullptr, 0, true});
    const DescriptorState state(descriptor);
    if (state.known && state.buffer != nullptr) {
        m_buffers.push_back(state.buffer); // what needs memory comes before the bytes are queued
        state.buffer->loop().closeRuns();  // what was said before goes first
        receiver.refused = m_bytes.length == 0 || bytesFor(*state.buffer).bytes == nullptr ||
                           !state.buffer->queue(bytesFor(*state.buffer));
        if (receiver.refused) {
            m_buffers.pop_back();
        } else {
            receiver.buffer = state.buffer;
            receiver.end = state.buffer->mark();
        }
    } else {
        receiver.refused = writeBytes(descriptor, m_bytes.bytes, m_bytes.length, nullptr) !=
                           static_cast<std::int64_t>(m_bytes.length);
    }
    m_refused = m_refused || receiver.refused;
}

// Who is limited is not waited for: it gets bytes that stay.
const Span &Delivery::bytesFor(const StreamBuffer &buffer) {
    if (!buffer.isLimited() || m_bytes.owner != nullptr)
        return m_bytes;
    if (m_copy.owner == nullptr)
        m_copy = copyToChunk(m_bytes.bytes, m_bytes.length);
    return m_copy;
}

void Delivery::complete() {
    if (!m_buffers.empty() && m_when == When::now)
        m_buffers.front()->loop().awaitFlushed(m_buffers);
    m_buffers.clear();
    for (Receiver &receiver : m_receivers) {
        if (receiver.buffer != nullptr && m_when == When::now && !receiver.buffer->isLimited())
            receiver.refused = !receiver.buffer->sentUpTo(receiver.end);
        m_taken = m_taken || !receiver.refused;
        m_refused = m_refused || receiver.refused;
    }
}

bool Delivery::isRefusedBy(int descriptor) const {
    // Hardly ever is anything refused; a look for each of a thousand members would cost a million.
    return m_refused && std::any_of(m_receivers.begin(), m_receivers.end(),
                                    [descriptor](const Receiver &receiver) {
                                        return receiver.descriptor == descriptor &&
                                               receiver.refused;
                                    });
}

} // namespace vintok
