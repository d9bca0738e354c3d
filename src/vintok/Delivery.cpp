#include "vintok/Delivery.h"

#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"

#include <algorithm>

namespace vintok {

void Delivery::give(int descriptor) {
    Receiver receiver{descriptor, nullptr, 0, true};
    const DescriptorState state(descriptor);
    if (state.known && state.buffer != nullptr) {
        state.buffer->loop().closeRuns(); // what was said before goes first
        receiver.refused = m_bytes.length == 0 || bytesFor(*state.buffer).bytes == nullptr ||
                           !state.buffer->queue(bytesFor(*state.buffer));
        if (!receiver.refused) {
            receiver.buffer = state.buffer;
            receiver.end = state.buffer->mark();
        }
    } else {
        receiver.refused = writeBytes(descriptor, m_bytes.bytes, m_bytes.length, nullptr) !=
                           static_cast<std::int64_t>(m_bytes.length);
    }
    m_receivers.push_back(std::move(receiver));
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
    std::vector<std::shared_ptr<StreamBuffer>> buffers;
    for (const Receiver &receiver : m_receivers)
        if (receiver.buffer != nullptr)
            buffers.push_back(receiver.buffer);
    if (!buffers.empty() && m_when == When::now)
        buffers.front()->loop().awaitFlushed(buffers);
    for (Receiver &receiver : m_receivers) {
        if (receiver.buffer != nullptr && m_when == When::now && !receiver.buffer->isLimited())
            receiver.refused = !receiver.buffer->sentUpTo(receiver.end);
        m_taken = m_taken || !receiver.refused;
    }
}

bool Delivery::isRefusedBy(int descriptor) const {
    return std::any_of(
        m_receivers.begin(), m_receivers.end(),
        [descriptor](const Receiver &receiver) {
            return receiver.descriptor == descriptor && receiver.refused;
        });
}

} // namespace vintok
