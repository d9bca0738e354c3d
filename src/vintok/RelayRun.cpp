#include "vintok/RelayRun.h"

#include "vintok/RawBuffer.h"
#include "vintok/StreamLoop.h"

#include <utility>

namespace vintok {

RelayRun::~RelayRun() {
    if (m_loop != nullptr)
        m_loop->closed(this);
}

bool RelayRun::continues(int source, const RawBuffer &frame) const {
    return m_loop != nullptr && m_source == source && m_span.owner == frame.shared() &&
           m_span.bytes + m_span.length == frame.data();
}

bool RelayRun::add(int source, const RawBuffer &frame) {
    if (continues(source, frame)) {
        m_span.length += frame.size();
        return false;
    }
    close();
    m_loop = StreamLoop::ofThisThread();
    m_loop->opened(this);
    m_source = source;
    m_span = {frame.shared(), frame.data(), static_cast<std::size_t>(frame.size())};
    return true;
}

void RelayRun::close() {
    if (m_loop == nullptr)
        return;
    const std::shared_ptr<StreamLoop> loop = std::exchange(m_loop, nullptr);
    loop->closed(this);
    const Span span = std::exchange(m_span, {});
    m_spread(m_owner, *loop, m_source, span);
}

} // namespace vintok
