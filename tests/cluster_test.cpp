// The nodes of linked hosts over a net that loses, repeats, delays and parts, in a time of its own.
#include "vintok-cluster/Node.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace vintok::test {
namespace {

using namespace cluster;
using Texts = std::vector<std::string>;

constexpr int none = 65535;

TCPAddress addressOf(int port) {
    TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(static_cast<unsigned short>(port));
    return address;
}

std::string textOf(const ConferenceRosterEntry &entry) {
    return entry.firstName() + '/' + std::to_string(entry.colorIndex());
}

struct Host;

struct Net {
    // Hosts, each with a member, whose port is one more.
    explicit Net(const std::vector<int> &ports, const NodeOptions &options = {});
    Host &add(int port);
    Host &operator[](std::size_t index) { return *hosts[index]; }
    // Delivers what is due and lets every host have its turn, until the condition holds.
    testing::AssertionResult until(const std::function<bool()> &holds, std::uint64_t limit = 20000);
    void pass(std::uint64_t time) { until(nullptr, time); }
    // The hosts of each part have one roster, leader and authority, and no colour twice.
    testing::AssertionResult agrees();
    void post(std::uint64_t longest, std::function<void()> action) {
        underWay.emplace(now + 1 + random() % longest, std::move(action));
    }
    bool fails() { return random() % 100 < faults; }

    std::mt19937 random{20};
    NodeOptions options;                 // of those that are added
    std::uint64_t now = 1000, clock = 0; // of who comes, if it is wrong
    unsigned faults = 0;                 // percent that are lost, and as many that come twice
    std::multimap<std::uint64_t, std::function<void()>> underWay;
    std::vector<Packet> order;
    std::vector<std::unique_ptr<Host>> hosts;
};

// A host, its members, and what this side was told.
struct Host final : Carrier, Side {
    explicit Host(Net &net_)
        : net(net_),
          port(net.options.address.hostByteOrderPort()),
          node(net.options, *this, *this, net.now, 5000000) {}

    void joins(int party, const std::string &name = "") {
        ConferenceRosterEntry &entry = here.try_emplace(party, addressOf(party)).first->second;
        entry.setFirstName(name);
        if (entry.colorIndex() == none)
            entry.setColorIndex(node.takeColor());
        shown.erase(party);
        known.insert(party);
        node.entryChanged(entry);
    }
    void leaves(int party) { here.erase(party), node.entryLeft(addressOf(party)); }
    void says(int speaker, const std::string &text) {
        const Bytes bytes(text.begin(), text.end());
        node.say(addressOf(speaker), bytes.data(), bytes.size());
    }
    std::map<int, std::string> roster() const {
        auto both = shown;
        for (const auto &[party, entry] : here)
            both[party] = textOf(entry);
        return both;
    }
    std::uint64_t incarnation() const { return node.beat().rank.incarnation; }

    void toAll(const Packet &packet) override { toOne(0, packet); }
    void toOne(std::uint64_t one, const Packet &packet) override {
        for (const auto &to : net.hosts)
            if (to.get() != this && to->part == part && !net.fails() &&
                (one == 0 || to->incarnation() == one))
                for (int i = net.fails() ? 2 : 1; i > 0; --i)
                    net.post(40, [&at = to->node, packet, this] { at.received(packet, net.now); });
    }
    // Now and then the answer is lost, and it is stored again.
    void store(std::uint64_t number, const Packet &packet) override {
        net.post(20, [=, this] {
            net.order.push_back(packet);
            if (net.fails())
                return store(number, packet);
            net.post(20, [=, this, place = net.order.size()] { node.stored(number, place); });
        });
    }
    std::size_t longestPacket() const override { return 600; }
    void wake() override {}

    bool entry(const ConferenceRosterEntry &entry) override {
        return !(shown[entry.hostByteOrderPort()] = textOf(entry)).empty();
    }
    bool left(const TCPAddress &party) override {
        return shown.erase(party.hostByteOrderPort()) == 1 || (ADD_FAILURE() << "nobody", false);
    }
    bool said(const TCPAddress &speaker, View frames) override {
        const int from = speaker.hostByteOrderPort();
        heard[from].emplace_back(frames.begin(), frames.end());
        all.push_back(heard[from].back());
        EXPECT_TRUE(shown.contains(from) || known.contains(from)) << all.back() << " of nobody";
        return true;
    }
    bool saidTo(const TCPAddress &, View) override { return true; }
    bool hasRoom() override { return room; }
    bool message(const TCPAddress &party, const TCPAddress &sender, View) override {
        messages.emplace_back(sender.hostByteOrderPort(), party.hostByteOrderPort());
        return true;
    }
    bool leader(const TCPAddress &leader) override {
        leads = leader.hostByteOrderPort();
        return roster().contains(leads);
    }
    void authorityChanged() override {
        if (node.hasAuthority() && !roster().contains(leads))
            leads = port;
        node.leaderChanged(addressOf(leads));
    }
    void giveColors(bool anew) override {
        for (auto &[party, entry] : here)
            if (anew || entry.colorIndex() == none) {
                entry.setColorIndex(none);
                joins(party, entry.firstName());
            }
    }
    TCPAddress leader() override { return addressOf(leads); }
    void happened(Event, std::uint64_t) override {}
    void log(const std::string &) override {}

    Net &net;
    int port;
    Node node;
    int part = 0; // below 0: gone
    bool room = true, stands = false;
    std::size_t read = 0; // of the order
    int leads = 0;
    std::map<int, ConferenceRosterEntry> here;
    std::set<int> known;              // who was ever here
    std::map<int, std::string> shown; // name and colour
    std::map<int, Texts> heard;
    Texts all;
    std::vector<std::pair<int, int>> messages;
};

Net::Net(const std::vector<int> &ports, const NodeOptions &options_) : options(options_) {
    for (const int port : ports)
        add(port);
    EXPECT_TRUE(agrees());
}

Host &Net::add(int port) {
    options.rank = {clock != 0 ? clock : now, 100 + hosts.size()};
    options.address = addressOf(port);
    hosts.push_back(std::make_unique<Host>(*this));
    hosts.back()->joins(port);
    hosts.back()->joins(port + 1);
    return *hosts.back();
}

testing::AssertionResult Net::until(const std::function<bool()> &holds, std::uint64_t limit) {
    for (const std::uint64_t end = now + limit; now < end; now += 5) {
        while (!underWay.empty() && underWay.begin()->first <= now)
            underWay.extract(underWay.begin()).mapped()();
        for (const auto &host : hosts) {
            if (host->stands || host->part < 0)
                continue;
            for (std::size_t &at = host->read; at < order.size() && !fails(); ++at)
                host->node.ordered(order[at], at + 1, false, now);
            host->node.turn(now);
        }
        if (holds && holds())
            return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "waited in vain";
}

testing::AssertionResult Net::agrees() {
    return until([this] {
        std::map<int, std::tuple<std::map<int, std::string>, int, std::uint64_t>> views;
        for (const auto &host : hosts) {
            const std::tuple view(host->roster(), host->leads, host->node.authority());
            std::set<std::string> colors = {std::to_string(none)};
            for (const auto &[party, text] : host->roster())
                colors.insert(text.substr(text.find('/') + 1));
            if (host->part >= 0 && (views.try_emplace(host->part, view).first->second != view ||
                                    colors.size() != host->roster().size() + 1 ||
                                    !host->roster().contains(host->leads)))
                return false;
        }
        return true;
    });
}

Texts lines(std::size_t count) {
    Texts texts;
    for (std::size_t i = 0; i < count; ++i)
        texts.push_back(std::to_string(i) + std::string(i % 50 == 7 ? 2000 : i % 40, '.'));
    return texts;
}

class Faults : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Percent, Faults, testing::Values(0U, 10U, 30U));

TEST_P(Faults, EverybodyHearsEachInOrderOnceAndSeesAll) {
    Net net({100, 200, 300, 400});
    net.faults = GetParam();
    const Texts texts = lines(300);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const int guest = 500 + static_cast<int>(i % 7);
        for (const auto &host : net.hosts)
            host->says(host->port + 1, texts[i]);
        net[0].joins(guest, texts[i % 31]);
        if (i % 5 == 4)
            net[0].leaves(guest);
        net.pass(5);
    }
    const unsigned char byte = 'x';
    EXPECT_TRUE(net[3].node.sendTo(addressOf(101), addressOf(401), &byte, 1));
    EXPECT_TRUE(net[3].node.sendToAuthority(addressOf(401), &byte, 1));
    EXPECT_TRUE(net.until([&] { return net[0].messages.size() == 2; }));
    EXPECT_TRUE(net.agrees());
    for (const auto &host : net.hosts) {
        EXPECT_TRUE(net.until([&] { return host->all.size() >= 3 * texts.size(); }));
        for (const int party : {101, 201, 301, 401})
            EXPECT_EQ(party == host->port + 1 ? Texts() : texts, host->heard[party]);
        EXPECT_EQ(0U, host->node.counters().lost + host->node.counters().refused);
        EXPECT_TRUE(GetParam() == 0 || host->node.counters().sentAgain > 0);
        EXPECT_TRUE(net.until([&] { return host->node.waiting() == 0; })) << "all is acknowledged";
    }
    EXPECT_EQ(net[0].messages, (std::vector<std::pair<int, int>>{{401, 101}, {401, 100}}));
}

TEST_P(Faults, InOneOrderEverybodyHearsTheSameAndTheLastWords) {
    NodeOptions options;
    options.ordered = true;
    Net net({100, 200, 300}, options);
    net.faults = GetParam();
    for (const std::string &text : lines(100)) {
        for (const auto &host : net.hosts)
            host->says(host->port + 1, std::to_string(host->port) + text);
        net[0].joins(500, text);
        net[0].says(500, text);
        net[0].leaves(500);
        net.pass(20);
    }
    for (const auto &host : net.hosts) {
        EXPECT_TRUE(net.until([&] { return host->all.size() >= 400; }));
        EXPECT_EQ(net[0].all, host->all);
    }
    EXPECT_EQ(lines(100), net[2].heard[500]);
    EXPECT_TRUE(net.until([&] { return !net[2].shown.contains(500); }));
    net[2].stands = true;
    net[0].says(101, std::string(9000, 'x'));
    net.pass(2000);
    EXPECT_LT(9000U, net[0].node.waiting()) << "until the slowest has taken it";
    net[2].stands = false;
    EXPECT_TRUE(net.until([&] { return net[0].node.waiting() == 0; }));
}

TEST(Hosts, TwoPartsThatWereApartAreOneMeetingAgain) {
    Net net({100, 200, 300, 400});
    net[2].part = net[3].part = 1;
    ASSERT_TRUE(net.until([&] { return net[0].roster().size() == 4; }));
    ASSERT_TRUE(net.agrees()) << "each part for itself";
    for (int i = 0; i < 100; ++i) { // more than a block of colours, in both
        net[0].joins(1000 + i);
        net[3].joins(2000 + i);
        net[0].says(101, std::to_string(i));
        net.pass(20);
    }
    net[2].part = net[3].part = 0;
    ASSERT_TRUE(net.until([&] { return net[3].heard[101].size() == 100; }));
    ASSERT_TRUE(net.agrees());
    EXPECT_EQ(100U, net[0].node.authority()) << "the older one's";
    EXPECT_EQ(208U, net[0].roster().size());
    EXPECT_EQ(0U, net[3].node.counters().lost);
}

TEST(Hosts, OneThatStoodStillFollowsOrIsGivenAllAnew) {
    for (const bool isKept : {true, false}) {
        SCOPED_TRACE(isKept);
        NodeOptions options;
        options.retention = isKept ? 60000 : 1000;
        Net net({100, 200}, options);
        net[1].stands = true;
        net[1].part = 1; // and loses what comes
        for (int i = 0; i < 300; ++i) {
            net[0].says(101, std::to_string(i));
            net[0].joins(102, std::to_string(i));
            net.pass(100);
        }
        EXPECT_EQ(3U, net[0].roster().size()) << "the other is gone";
        EXPECT_EQ(1U, net[0].node.counters().hostsLost);
        net[1].stands = false;
        net[1].part = 0;
        ASSERT_TRUE(net.until([&] { return net[0].roster().size() == 5; }));
        ASSERT_TRUE(net.agrees());
        EXPECT_EQ(isKept ? 300U : 0U, net[1].heard[101].size());
        EXPECT_EQ(isKept, net[1].node.counters().lost == 0);
        net[0].says(101, "now");
        EXPECT_TRUE(net.until([&] { return std::ranges::count(net[1].all, "now") == 1; }));
    }
}

TEST(Hosts, WhoTakesNothingHoldsUpThoseWhoTalkElsewhere) {
    NodeOptions options;
    options.window = 20000;
    Net net({100, 200}, options);
    net[1].room = false;
    int said = 0;
    for (; net[0].node.hasRoom() && said < 1000; ++said) {
        net[0].says(101, std::to_string(said) + std::string(1000, '.'));
        net.pass(50);
    }
    EXPECT_TRUE(said < 30 && net[1].all.empty()) << said;
    EXPECT_TRUE(net.agrees()) << "it is there all the same";
    net[1].room = true;
    EXPECT_TRUE(net.until([&] { return net[0].node.hasRoom(); }));
    EXPECT_TRUE(net.until([&] { return int(net[1].all.size()) == said; }));
}

TEST(Hosts, APartyCountsWhereItCameLast) {
    Net net({100, 200, 300});
    const auto isAt = [&](const Host &host, const std::string &name) {
        return net.until([&] {
            return net[2].roster()[7].starts_with(name) &&
                   net[2].node.hostOf(addressOf(7)) == host.incarnation();
        });
    };
    for (const std::size_t host : {std::size_t{0}, std::size_t{1}}) {
        net[host].joins(7, std::to_string(host));
        EXPECT_TRUE(isAt(net[host], std::to_string(host)));
    }
    net[1].leaves(7);
    EXPECT_TRUE(isAt(net[0], "0")) << "it is still there";
    net[1].joins(7, "1");
    EXPECT_TRUE(isAt(net[1], "1"));
    net[0].leaves(7);
    net.pass(1000);
    EXPECT_TRUE(isAt(net[1], "1")) << "the leave of one who has moved";
    net[1].part = -1;
    net.clock = 1;
    Host &again = net.add(200);
    EXPECT_TRUE(net.until([&] { return net[2].roster().size() == 6; }, 1000)) << "without delay";
    EXPECT_TRUE(net.agrees());
    EXPECT_EQ(100U, net[2].node.authority()) << "who comes does not take it";
    again.node.leave();
    again.part = -1;
    EXPECT_TRUE(net.until([&] { return net[2].roster().size() == 4; }, 500)) << "at goodbye";
    EXPECT_EQ(0U, net[2].node.counters().hostsLost);
}

TEST(Hosts, AnyMeetingIsOneTokenOfItsOwn) {
    EXPECT_EQ("a-b_2eb_20_2a_3e_5f_c3_a4", subjectToken("a-b.b *>_\u00e4"));
    EXPECT_EQ("_", subjectToken(""));
    const std::string one(1000, 'a');
    EXPECT_GE(200U, subjectToken(one).size());
    EXPECT_NE(subjectToken(one), subjectToken(one + 'b'));
}

} // namespace
} // namespace vintok::test
