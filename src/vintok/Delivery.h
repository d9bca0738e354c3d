// Internal. The same bytes to several connections: given to all of them first, and then waited for
// together, so that nobody waits for somebody slower.
#ifndef VINTOK_DELIVERY_H
#define VINTOK_DELIVERY_H

#include "vintok/Chunk.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace vintok {

class StreamBuffer;

class Delivery {
public:
    enum class When { now, withTheTurn };

    // `now` waits in `complete` for all but those whose output is limited, and the bytes may stay
    // the caller's until that has returned.
    // Otherwise they leave when the turn of the loop ends, and only who cannot be given them
    // refuses them.
    Delivery(const Span &bytes, When when) : m_bytes(bytes), m_when(when) {}
    // Who was given them is waited for, whatever went wrong with the others.
    ~Delivery() {
        if (!m_buffers.empty())
            complete();
    }
    Delivery(const Delivery &) = delete;
    Delivery &operator=(const Delivery &) = delete;

    // To one connection: what is not waited for is copied if it has no owner. False when it cannot
    // be given the bytes. Throws std::bad_alloc.
    static bool toOne(int descriptor, Span bytes, When when);

    void give(int descriptor);
    void complete();

    bool isTaken() const { return m_taken; } // by somebody
    bool isRefusedBy(int descriptor) const;

private:
    struct Receiver {
        int descriptor;
        std::shared_ptr<StreamBuffer> buffer; // null: was written to at once, or could not be
        std::uint64_t end;                    // of the bytes, in its output
        bool refused;
    };

    const Span &bytesFor(const StreamBuffer &buffer);

    const Span m_bytes;
    Span m_copy;
    const When m_when;
    std::vector<Receiver> m_receivers;
    std::vector<std::shared_ptr<StreamBuffer>> m_buffers; // of those
    bool m_taken = false;
    bool m_refused = false; // by anybody
};

} // namespace vintok

#endif
