// With NATS, through libvintok-cluster.
#include "ClusterLink.h"

namespace app::cluster {

namespace {

class NATSLink : public Link {
public:
    NATSLink(vintok::ConferenceParticipant &host, const vintok::ClusterOptions &options,
             const Told &told)
        : m_told(told), m_cluster(host, options) {
        m_cluster.setHostsCB([](vintok::Cluster *, const vintok::ClusterEvent &event,
                                void *data) { static_cast<const NATSLink *>(data)->m_told(event); },
                             this);
    }

    bool start(std::string &failure) {
        const bool started = m_cluster.start();
        failure = started ? "" : m_cluster.lastFailure();
        return started;
    }

    std::vector<vintok::ClusterHost> hosts() const override { return m_cluster.hosts(); }
    std::string hostOf(const vintok::TCPAddress &party) const override {
        return m_cluster.hostOf(party);
    }
    vintok::ClusterMetrics metrics() const override { return m_cluster.metrics(); }

private:
    const Told m_told;
    vintok::Cluster m_cluster;
};

} // namespace

std::unique_ptr<Link> link(vintok::ConferenceParticipant &host,
                           const vintok::ClusterOptions &options, const Told &told,
                           std::string &failure) {
    auto made = std::make_unique<NATSLink>(host, options, told);
    return made->start(failure) ? std::move(made) : nullptr;
}

std::vector<vintok::ClusterHost> find(const vintok::ClusterOptions &options,
                                      std::uint32_t milliseconds, std::string &failure) {
    return vintok::Cluster::find(options, milliseconds, failure);
}

} // namespace app::cluster
