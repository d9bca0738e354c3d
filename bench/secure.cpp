// Measures what TLS costs: the same messages over one loopback connection, in turns
// - plain:   frames that the library writes and reads over a plain connection,
// - TLS:     the same frames through libvintok-tls,
// - OpenSSL: the same bytes with nothing but SSL_write and SSL_read on the socket, as the limit,
// - cipher:  AES-256-GCM over the same amount in memory, the share of the cryptography in one side.
// One thread sends, one receives. Shown are medians over the rounds: the rate, and the CPU time of
// both sides for each megabyte (of 10^6 bytes).
//
// usage: secure [ROUNDS]
#include "vintok-tls/TLSFolder.h"
#include "vintok-tls/TLSTransport.h"
#include "vintok/TCPMessage.h"
#include "vintok/vintok.h"

#include <openssl/evp.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t headerLength = 60; // of a frame

[[noreturn]] void fail(const std::string &what) {
    std::fprintf(stderr, "secure: %s: %s\n", what.c_str(), vintok::lastErrorString().c_str());
    std::exit(1);
}

void require(bool good, const char *what) {
    if (!good)
        fail(what);
}

double seconds(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

struct Load {
    std::size_t size; // of a message's body
    std::size_t count;
    double megabytes() const { return static_cast<double>(size * count) / 1e6; }
};

struct Cost {
    double rate = 0; // megabytes each second
    double cpu = 0;  // microseconds for each megabyte
};

// The two ends of a connection over the loopback interface.
struct Ends {
    int accepting = -1;
    int connecting = -1;

    Ends() {
        unsigned short port = 20000;
        int listener = vintok::createLocalIPv4Socket(port, 0, 10000, false);
        connecting = vintok::connectLocal(port);
        accepting = vintok::acceptAndCloseBoundSocket(listener);
        require(accepting > 0 && connecting > 0, "connecting");
    }
    ~Ends() {
        vintok::shutdownSocket(connecting);
        vintok::shutdownSocket(accepting);
    }
    Ends(const Ends &) = delete;
    Ends &operator=(const Ends &) = delete;
};

Cost measure(const Load &load, const std::function<void()> &send,
             const std::function<void()> &receive) {
    const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID);
    const double begin = seconds(CLOCK_MONOTONIC);
    std::thread sender(send);
    receive();
    sender.join();
    return {load.megabytes() / (seconds(CLOCK_MONOTONIC) - begin),
            (seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu) * 1e6 / load.megabytes()};
}

// ---- The library, plain or through the transport ----

Cost frames(const Load &load, bool secure) {
    Ends ends;
    if (secure) {
        std::thread other([&] { require(vintok::secureConnect(ends.connecting, ""), "connect"); });
        require(vintok::secureAccept(ends.accepting), "accept");
        other.join();
    }
    const auto send = [&] {
        vintok::TCPMessage message(ends.connecting);
        require(message.allocateMessageBuffer(load.size), "memory");
        for (std::size_t i = 0; i < load.count; ++i)
            require(message.write(-1, nullptr), "write");
    };
    const auto receive = [&] {
        std::vector<unsigned char> bytes(load.size + headerLength);
        for (std::size_t left = bytes.size() * load.count; left > 0;) {
            const std::int64_t count = vintok::readBytes(ends.accepting, bytes.data(),
                                                         std::min(bytes.size(), left), nullptr);
            require(count > 0, "read");
            left -= static_cast<std::size_t>(count);
        }
    };
    return measure(load, send, receive);
}

// ---- OpenSSL alone ----

SSL_CTX *context(const std::string &folder) {
    SSL_CTX *made = SSL_CTX_new(TLS_method());
    require(SSL_CTX_use_certificate_chain_file(made, (folder + "/host.pem").c_str()) == 1 &&
                SSL_CTX_use_PrivateKey_file(made, (folder + "/host.key").c_str(),
                                            SSL_FILETYPE_PEM) == 1,
            "certificate");
    return made;
}

Cost bare(const Load &load, SSL_CTX *context) {
    Ends ends;
    SSL *server = SSL_new(context);
    SSL *client = SSL_new(context);
    SSL_set_fd(server, ends.accepting);
    SSL_set_fd(client, ends.connecting);
    std::thread other([&] { require(SSL_connect(client) == 1, "SSL_connect"); });
    require(SSL_accept(server) == 1, "SSL_accept");
    other.join();
    const std::size_t frame = load.size + headerLength;
    const auto send = [&] {
        const std::vector<unsigned char> bytes(frame);
        for (std::size_t i = 0; i < load.count; ++i)
            require(SSL_write(client, bytes.data(), static_cast<int>(frame)) > 0, "SSL_write");
    };
    const auto receive = [&] {
        std::vector<unsigned char> bytes(frame);
        for (std::size_t left = frame * load.count; left > 0;) {
            const int count = SSL_read(server, bytes.data(), static_cast<int>(frame));
            require(count > 0, "SSL_read");
            left -= static_cast<std::size_t>(count);
        }
    };
    const Cost cost = measure(load, send, receive);
    SSL_free(client);
    SSL_free(server);
    return cost;
}

Cost cipher(const Load &load) {
    constexpr std::size_t record = 16384;
    const std::size_t piece = std::min(record, load.size + headerLength);
    std::vector<unsigned char> in(piece);
    std::vector<unsigned char> out(piece + 16);
    const unsigned char key[32] = {};
    const unsigned char nonce[12] = {};
    EVP_CIPHER_CTX *sealing = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(sealing, EVP_aes_256_gcm(), nullptr, key, nonce);
    const double begin = seconds(CLOCK_THREAD_CPUTIME_ID);
    for (std::size_t left = load.size * load.count; left > 0; left -= std::min(left, piece)) {
        int length = 0;
        EVP_EncryptInit_ex(sealing, nullptr, nullptr, nullptr, nonce);
        EVP_EncryptUpdate(sealing, out.data(), &length, in.data(), static_cast<int>(piece));
        EVP_EncryptFinal_ex(sealing, out.data(), &length);
    }
    const double used = seconds(CLOCK_THREAD_CPUTIME_ID) - begin;
    EVP_CIPHER_CTX_free(sealing);
    return {load.megabytes() / used, used * 1e6 / load.megabytes()};
}

// ---- The table ----

Cost median(std::vector<Cost> costs) {
    const auto middle = [&](double Cost::*field) {
        std::sort(costs.begin(), costs.end(),
                  [field](const Cost &a, const Cost &b) { return a.*field < b.*field; });
        return costs[costs.size() / 2].*field;
    };
    return {middle(&Cost::rate), middle(&Cost::cpu)};
}

void compare(const Load &load, int rounds, SSL_CTX *context) {
    std::vector<Cost> costs[4];
    for (int round = 0; round < rounds; ++round) {
        costs[0].push_back(frames(load, false));
        costs[1].push_back(frames(load, true));
        costs[2].push_back(bare(load, context));
        costs[3].push_back(cipher(load));
    }
    const char *const names[] = {"plain", "TLS", "OpenSSL", "cipher"};
    const Cost tls = median(costs[1]);
    for (int i = 0; i < 4; ++i) {
        const Cost cost = median(costs[i]);
        std::printf("%8zu  %-8s %9.1f  %9.1f  %11.2f  %11.2f\n", load.size, names[i], cost.rate,
                    cost.cpu, tls.rate / cost.rate, tls.cpu / cost.cpu);
    }
}

} // namespace

int main(int count, char **arguments) {
    const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 7;
    vintok::init();
    const std::string folder =
        (std::filesystem::temp_directory_path() / ("vintok-bench-" + std::to_string(getpid())))
            .string();
    require(vintok::createTLSFolder(folder, {}), "certificates");
    vintok::TLSOptions options;
    options.certificateFile = folder + "/host.pem";
    options.keyFile = folder + "/host.key";
    options.rootsFile = folder + "/ca.pem";
    options.connectWait = 0;
    static vintok::TLSTransport tls;
    require(tls.open(options) && vintok::setTransport(&tls), "transport");
    SSL_CTX *bareContext = context(folder);
    std::filesystem::remove_all(folder);

    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::printf("    size  way            MB/s   CPU us/MB  rate of TLS  CPU of TLS\n"
                "                                           relative to this way\n");
    for (const Load &load :
         {Load{100, 20000}, Load{1000, 20000}, Load{16000, 5000}, Load{1000000, 400}})
        compare(load, rounds, bareContext);
    SSL_CTX_free(bareContext);
    vintok::setTransport(nullptr);
    vintok::fini();
    return 0;
}
