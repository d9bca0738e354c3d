#include "vintok-cluster/Nats.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>
#include <thread>
#include <vector>

namespace vintok::cluster {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t connectTime = 2000; // milliseconds, for each server
constexpr std::int64_t reconnectWait = 250;
constexpr std::int64_t reconnectJitter = 50;
constexpr std::int64_t pingInterval = 2000;
constexpr int unansweredPings = 2;
constexpr std::int64_t writeTime = 5000;
constexpr int reconnectBuffer = 1 << 20; // what is in it is asked for again if it is lost
constexpr int ioBuffer = 256 << 10;
constexpr std::chrono::milliseconds betweenTries(100);

std::vector<std::string> serversOf(const std::string &text) {
    std::vector<std::string> servers(1);
    for (const char c : text)
        if (c == ',')
            servers.emplace_back();
        else if (c != ' ')
            servers.back() += c;
    std::erase(servers, "");
    return servers;
}

natsStatus secure(natsOptions *made, const ClusterOptions &options, bool wanted) {
    natsStatus status = NATS_OK;
    if (wanted)
        status = natsOptions_SetSecure(made, true);
    if (status == NATS_OK && !options.tlsRoots.empty())
        status = natsOptions_LoadCATrustedCertificates(made, options.tlsRoots.c_str());
    if (status == NATS_OK && !options.tlsCertificate.empty())
        status = natsOptions_LoadCertificatesChain(made, options.tlsCertificate.c_str(),
                                                   options.tlsKey.c_str());
    return status;
}

natsStatus setServers(natsOptions *made, const std::vector<std::string> &servers) {
    std::vector<const char *> texts;
    for (const std::string &server : servers)
        texts.push_back(server.c_str());
    return natsOptions_SetServers(made, texts.data(), static_cast<int>(texts.size()));
}

natsStatus setTimes(natsOptions *made) {
    natsStatus status = natsOptions_SetTimeout(made, connectTime);
    const auto then = [&](auto set, auto... values) {
        if (status == NATS_OK)
            status = set(made, values...);
    };
    then(natsOptions_SetAllowReconnect, true);
    then(natsOptions_SetMaxReconnect, -1);
    then(natsOptions_SetReconnectWait, reconnectWait);
    then(natsOptions_SetReconnectJitter, reconnectJitter, reconnectJitter);
    then(natsOptions_SetReconnectBufSize, reconnectBuffer);
    then(natsOptions_SetPingInterval, pingInterval);
    then(natsOptions_SetMaxPingsOut, unansweredPings);
    then(natsOptions_SetWriteDeadline, writeTime);
    then(natsOptions_SetIOBufSize, ioBuffer);
    then(natsOptions_SetSendAsap, true);
    then(natsOptions_SetNoEcho, true);
    return status;
}

} // namespace

std::string wordsOf(natsStatus status) {
    natsStatus last = NATS_OK;
    const char *const words = nats_GetLastError(&last);
    std::string text = natsStatus_GetText(status);
    if (last == status && words != nullptr && *words != '\0')
        text += std::string(": ") + words;
    return text;
}

NatsOptions makeOptions(const ClusterOptions &options, std::string &failure) {
    const std::vector<std::string> servers = serversOf(options.servers);
    natsOptions *raw = nullptr;
    natsStatus status = natsOptions_Create(&raw);
    NatsOptions made(raw);
    if (servers.empty()) {
        failure = "no server of NATS is named";
        return nullptr;
    }
    if (status == NATS_OK)
        status = setServers(raw, servers);
    if (status == NATS_OK)
        status = setTimes(raw);
    if (status == NATS_OK && !options.name.empty())
        status = natsOptions_SetName(raw, options.name.c_str());
    if (status == NATS_OK && !options.credentials.empty())
        status = natsOptions_SetUserCredentialsFromFiles(raw, options.credentials.c_str(), nullptr);
    const bool isSecure = !options.tlsRoots.empty() || !options.tlsCertificate.empty() ||
                          std::any_of(servers.begin(), servers.end(), [](const std::string &url) {
                              return url.starts_with("tls://");
                          });
    if (status == NATS_OK)
        status = secure(raw, options, isSecure);
    if (status == NATS_OK)
        return made;
    failure = wordsOf(status);
    return nullptr;
}

NatsConnection connect(natsOptions *options, std::uint32_t milliseconds, std::string &failure) {
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (true) {
        natsConnection *raw = nullptr;
        const natsStatus status = natsConnection_Connect(&raw, options);
        if (status == NATS_OK)
            return NatsConnection(raw);
        failure = wordsOf(status);
        const bool isFinal = status == NATS_CONNECTION_AUTH_FAILED || status == NATS_SSL_ERROR ||
                             status == NATS_INVALID_ARG;
        if (isFinal || Clock::now() + betweenTries >= end)
            return nullptr;
        std::this_thread::sleep_for(betweenTries);
    }
}

natsStatus publish(natsConnection *connection, const std::string &subject, const Packet &packet) {
    return natsConnection_Publish(connection, subject.c_str(), packet->data(),
                                  static_cast<int>(packet->size()));
}

Packet packetOf(natsMsg *message) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(natsMsg_GetData(message));
    return std::make_shared<const Bytes>(bytes, bytes + natsMsg_GetDataLength(message));
}

} // namespace vintok::cluster
