#include "FileCopy.h"

#include <algorithm>
#include <arpa/inet.h>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace bench {
namespace {

constexpr std::size_t blockSize = 64 * 1024;

std::vector<char> readAll(const std::string &path) {
    std::vector<char> bytes(std::filesystem::file_size(path));
    std::ifstream(path, std::ios::binary)
        .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

void sendAll(int descriptor, const char *bytes, std::size_t length) {
    while (length > 0) {
        ssize_t sent = ::send(descriptor, bytes, length, MSG_NOSIGNAL);
        if (sent <= 0)
            fail("sending");
        bytes += sent;
        length -= static_cast<std::size_t>(sent);
    }
}

} // namespace

void Share::start() const {
    std::printf("start %lld\n", static_cast<long long>(nanoseconds(CLOCK_MONOTONIC)));
    std::fflush(stdout);
}

void Share::done() const {
    std::printf("done %lld %lld\n", static_cast<long long>(nanoseconds(CLOCK_MONOTONIC)),
                static_cast<long long>(nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - m_cpu));
    std::fflush(stdout);
}

void sendPlain(const Copy &copy) {
    int listener = listenOnLoopback();
    std::vector<int> receivers;
    for (int i = 0; i < copy.receivers; ++i)
        receivers.push_back(accept(listener, nullptr, nullptr));
    const Share share;
    share.start();
    std::vector<char> bytes = readAll(copy.source);
    for (std::size_t at = 0; at < bytes.size(); at += blockSize)
        for (int receiver : receivers)
            sendAll(receiver, bytes.data() + at, std::min(blockSize, bytes.size() - at));
    for (int receiver : receivers)
        close(receiver);
    share.done();
}

void receivePlain(const Copy &copy, unsigned short port, const std::string &folder) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fail("connecting");
    const Share share;
    const auto path = std::filesystem::path(folder) / std::filesystem::path(copy.source).filename();
    std::FILE *file = std::fopen(path.c_str(), "wb");
    std::vector<char> block(blockSize);
    for (ssize_t got; (got = recv(descriptor, block.data(), block.size(), 0)) > 0;)
        std::fwrite(block.data(), 1, static_cast<std::size_t>(got), file);
    if (std::fclose(file) != 0)
        fail("storing");
    share.done();
}

} // namespace bench
