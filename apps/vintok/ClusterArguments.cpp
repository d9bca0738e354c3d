#include "ClusterArguments.h"

#include <CLI/CLI.hpp>

namespace app {

namespace {

CLI::Option *addFile(CLI::App &app, CLI::Option *cluster, const std::string &name,
                     std::string &value, const std::string &help) {
    return app.add_option(name, value, help)->type_name("FILE")->needs(cluster);
}

CLI::Option *addServers(CLI::App &app, vintok::ClusterOptions &cluster, const std::string &help) {
    CLI::Option *servers =
        app.add_option("--cluster", cluster.servers,
                       help + " (nats://[USER:PASSWORD@]HOST[:PORT] or tls://..., several with "
                              "commas between them)")
            ->type_name("URL");
    addFile(app, servers, "--cluster-creds", cluster.credentials,
            "Credentials for NATS, as its own tools make them");
    addFile(app, servers, "--cluster-ca", cluster.tlsRoots,
            "Trust servers of NATS whose certificates lead to one of these (PEM)");
    addFile(app, servers, "--cluster-cert", cluster.tlsCertificate,
            "The certificate to show to NATS (PEM)");
    addFile(app, servers, "--cluster-key", cluster.tlsKey, "The key of that certificate (PEM)");
    return servers;
}

} // namespace

void addClusterOptions(CLI::App &app, Options &options) {
    addServers(app, options.cluster,
               "Find a host of the meeting over NATS, and another one when that is lost");
}

void addLinkOptions(CLI::App &app, Options &options) {
    vintok::ClusterOptions &cluster = options.cluster;
    CLI::Option *servers =
        addServers(app, cluster, "Be one of several hosts of the meeting, linked over NATS");
    app.add_option("--cluster-name", cluster.name, "What this host is called (its address)")
        ->type_name("NAME")
        ->needs(servers);
    const auto setPlace = [&cluster](const std::string &text) {
        Target place;
        if (!parseTarget(text, place))
            throw CLI::ValidationError("'" + text + "' is not HOST or HOST:PORT");
        cluster.advertised = place.host;
        cluster.advertisedPort = place.port;
    };
    app.add_option_function<std::string>("--cluster-call", setPlace,
                                         "Where guests call this host (where it listens)")
        ->type_name("HOST[:PORT]")
        ->needs(servers);
    CLI::Option *ordered =
        app.add_flag("--cluster-ordered", cluster.ordered,
                     "Have everybody get everything in one order, which JetStream keeps; all hosts "
                     "of the meeting must say so")
            ->needs(servers);
    app.add_option("--cluster-history", cluster.history,
                   "Give who joins so many of the last messages (0)")
        ->type_name("COUNT")
        ->check(CLI::Range(0, 100000).description(""))
        ->needs(ordered);
}

bool finishClusterOptions(Options &options, std::string &text) {
    vintok::ClusterOptions &cluster = options.cluster;
    const bool isLinked = !cluster.servers.empty();
    const bool isNamed = !options.tunnel.meetingID.empty();
    if (isNamed != (isLinked || options.tunnel.wanted())) {
        text = isNamed ? "--meeting-id goes with --mux or --cluster"
                       : "the meeting is required, with --meeting-id";
        return false;
    }
    if (!isLinked)
        return true;
    if (options.role == Role::join && options.tunnel.wanted()) {
        text = "a host is found with --cluster, or called with --mux";
        return false;
    }
    cluster.meeting = options.tunnel.meetingID;
    cluster.mostMembers = options.guards.mostMembers;
    return true;
}

} // namespace app
