// What hosts of one meeting send each other: a node that is given anything at all goes on, and what
// it makes of it can be sent on.
#include "Fuzz.h"

#include "vintok-cluster/Node.h"

using namespace vintok;
using namespace vintok::cluster;
using fuzz::require;

namespace {

constexpr std::size_t mostPackets = 64;

// Carries nothing, and says yes to everything.
struct Nowhere final : Carrier, Side {
    void toAll(const Packet &packet) override { require(packet->size() <= longest, "it fits"); }
    void toOne(std::uint64_t, const Packet &packet) override { toAll(packet); }
    void store(std::uint64_t, const Packet &packet) override { toAll(packet); }
    std::size_t longestPacket() const override { return longest; }
    void wake() override {}
    bool entry(const ConferenceRosterEntry &) override { return true; }
    bool left(const TCPAddress &) override { return true; }
    bool said(const TCPAddress &, View frames) override { return countFrames(frames) != 0; }
    bool saidTo(const TCPAddress &, View) override { return true; }
    bool hasRoom() override { return true; }
    bool message(const TCPAddress &, const TCPAddress &, View) override { return true; }
    bool leader(const TCPAddress &) override { return true; }
    void authorityChanged() override {}
    void giveColors(bool) override {}
    TCPAddress leader() override { return TCPAddress(); }
    void happened(Event, std::uint64_t) override {}
    void log(const std::string &) override {}

    static constexpr std::size_t longest = 4096;
};

// A beat that was read is written as one that reads the same.
void roundTrip(const Bytes &bytes) {
    Reader reader(bytes);
    const auto header = readHeader(reader);
    Beat beat;
    if (!header || header->kind != Kind::beat || !decode(reader, beat))
        return;
    beat.rank.incarnation = header->sender;
    const Packet first = encode(beat);
    Reader again(*first);
    Beat second;
    require(readHeader(again).has_value() && decode(again, second) && again.atEnd(), "it reads");
    second.rank.incarnation = header->sender;
    require(*encode(second) == *first, "the same");
}

} // namespace

// Packets, each behind its length in two bytes, in two nodes: one of them keeps an order.
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    for (const bool isOrdered : {false, true}) {
        Nowhere nowhere;
        NodeOptions options;
        options.rank = {1000, 1};
        options.address.setLoopbackIPv4();
        options.address.setHostByteOrderPort(1);
        options.ordered = isOrdered;
        options.history = 3;
        Node node(options, nowhere, nowhere, 1000, 0);
        node.entryChanged(ConferenceRosterEntry(options.address));
        fuzz::Input input(data, size);
        std::uint64_t now = 1000;
        for (std::size_t count = 0; !input.empty() && count < mostPackets; ++count) {
            const std::string_view text = input.take(input.word());
            const auto packet = std::make_shared<const Bytes>(text.begin(), text.end());
            roundTrip(*packet);
            node.received(packet, now);
            if (isOrdered)
                node.ordered(packet, count, count % 2 == 0, now);
            node.turn(now += 10);
        }
        node.turn(now + 5000);
        node.leave();
    }
    return 0;
}
