// What it costs to write and read headers, roster entries and whole messages.
#include "vintok/vintok.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

namespace {

using namespace vintok;

TCPAddress loopback(std::uint16_t port) {
    TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(port);
    return address;
}

// Argument: the major version, 1 for the IPv4 frame and 2 for the long one.
TCPHeader header(const benchmark::State &state) {
    TCPHeader message(loopback(7777), static_cast<std::uint16_t>(state.range(0)), 0);
    message.setMessageID(TCP_broadcastMessage);
    message.allocateMessageBuffer(64);
    return message;
}

void encodeHeader(benchmark::State &state) {
    TCPHeader message = header(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(message.write());
}
BENCHMARK(encodeHeader)->Arg(1)->Arg(2);

void decodeHeader(benchmark::State &state) {
    TCPHeader message = header(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(message.read());
}
BENCHMARK(decodeHeader)->Arg(1)->Arg(2);

ConferenceRosterEntry rosterEntry() {
    ConferenceRosterEntry entry(loopback(7777));
    entry.setFirstName("Ann");
    entry.setLastName("Lee");
    entry.setEmail("ann@example.org");
    entry.setMeetingName("Tuesday");
    return entry;
}

void encodeRosterEntry(benchmark::State &state) {
    ConferenceRosterEntry entry = rosterEntry();
    std::vector<unsigned char> bytes(entry.size());
    for (auto _ : state)
        benchmark::DoNotOptimize(entry.write(bytes.data(), bytes.size()));
}
BENCHMARK(encodeRosterEntry);

void decodeRosterEntry(benchmark::State &state) {
    ConferenceRosterEntry entry = rosterEntry();
    std::vector<unsigned char> bytes(entry.size());
    entry.write(bytes.data(), bytes.size());
    for (auto _ : state)
        benchmark::DoNotOptimize(entry.read(bytes.data(), bytes.size()));
}
BENCHMARK(decodeRosterEntry);

// Two ends of one connection over loopback.
struct Connection {
    Connection() {
        init();
        unsigned short port = 20000;
        int listener = createLocalIPv4Socket(port, 1, 1000, true);
        near = connectLocal(port);
        far = acceptAndCloseBoundSocket(listener);
    }
    ~Connection() {
        shutdownSocket(near);
        shutdownSocket(far);
        fini();
    }
    bool stands() const { return near > 0 && far > 0; }
    int near, far;
};

// Argument: bytes of body. One message written at one end and read at the other.
void sendAndReceiveMessage(benchmark::State &state) {
    Connection connection;
    if (!connection.stands()) {
        state.SkipWithError("no connection");
        return;
    }
    TCPMessage sent(connection.near), received(connection.far);
    sent.setMessageID(TCP_broadcastMessage);
    sent.allocateMessageBuffer(static_cast<std::uint64_t>(state.range(0)));
    for (auto _ : state)
        if (!sent.write(-1, nullptr) || !received.read(-1, nullptr)) {
            state.SkipWithError("a message was lost");
            break;
        }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sent.rawBufferLength()));
}
BENCHMARK(sendAndReceiveMessage)->Arg(64)->Arg(1024)->Arg(16384);

// The same bytes with the least that the stream layer can do for them.
void sendAndReceiveBytes(benchmark::State &state) {
    Connection connection;
    if (!connection.stands()) {
        state.SkipWithError("no connection");
        return;
    }
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)) + 60);
    for (auto _ : state) {
        rawWriteBytes(connection.near, bytes.data(), bytes.size(), true, nullptr);
        rawReadBytes(connection.far, bytes.data(), bytes.size(), true, nullptr);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(sendAndReceiveBytes)->Arg(64)->Arg(1024)->Arg(16384);

} // namespace
