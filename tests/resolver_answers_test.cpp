// The resolver is played by this file: which of its answers is kept cannot be asked of a real one.
#include "vintok/TCPAddress.h"

#include "platform/Resolve.h"
#include "support/Addresses.h"
#include "support/Words.h"

namespace vintok {

namespace {

std::string answers;       // one behind the other
std::string canonicalName; // of the first
std::vector<platform::Lookup> asked;

} // namespace

namespace platform {

bool resolveHost(const std::string &, Lookup lookup, bool, std::vector<ResolvedAddress> &result) {
    asked.push_back(lookup);
    result.clear();
    for (const std::string &answer : test::wordsOf(answers)) {
        ResolvedAddress entry;
        const TCPAddress address = test::literal(answer);
        if (lookup == (address.isIPv4() ? Lookup::ipv6 : Lookup::ipv4))
            continue;
        entry.endpoint.family = address.isIPv4() ? FAMILY_IPV4 : FAMILY_IPV6;
        address.IPv4(entry.endpoint.ipv4);
        address.IPv6(entry.endpoint.ipv6.data());
        entry.mappedIPv4 = lookup == Lookup::mapped && answer.rfind("::ffff:", 0) == 0;
        result.push_back(entry);
    }
    if (!result.empty())
        result.front().canonicalName = canonicalName;
    return !result.empty();
}

} // namespace platform

namespace {

using namespace test;

constexpr auto none = TCPAddress::IPTYPE_NONE;
constexpr auto both = TCPAddress::IPTYPE_BOTH;

void answer(const std::string &addresses, const std::string &name) {
    answers = addresses;
    canonicalName = name;
}

std::string nameOf(const TCPAddress &address) {
    std::string name;
    address.name(name);
    return name;
}

const struct {
    const char *what, *answers, *name;
    const char *kept; // "0.0.0.0": none
    TCPAddress::IPType type = none;
    const char *all = nullptr; // where all are wanted
    std::uint16_t port = 0;    // known before
} cases[] = {
    {"the first", "10.0.0.1 10.0.0.2", "c", "10.0.0.1"},
    {"the first that is not link-local", "fe80::1 fe80::2 1::1", "c", "1:0:0:0:0:0:0:1"},
    {"link-local, then IPv4", "fe80::1 10.0.0.1 10.0.0.2", "c", "10.0.0.1"},
    {"link-local of all", "fe80::1", "", "0.0.0.0", none, "fe80:0:0:0:0:0:0:1"},
    {"IPv4 with a port", "10.0.0.1", "c", "10.0.0.1", none, nullptr, 80},
    {"IPv6 of all with a port", "1::1", "c", "0.0.0.0", none, "1:0:0:0:0:0:0:1", 80},
    {"all of IPv4", "10.0.0.1 10.0.0.2", "c", "10.0.0.1", none, "10.0.0.1 10.0.0.2"},
    {"an IPv4 address that is not the first of all", "fe80::1 10.0.0.1", "", "0.0.0.0", none,
     "fe80:0:0:0:0:0:0:1 10.0.0.1"},
    {"an IPv6 address behind a link-local one", "fe80::1 1::1 1::2", "", "1:0:0:0:0:0:0:1", none,
     "fe80:0:0:0:0:0:0:1 1:0:0:0:0:0:0:1 1:0:0:0:0:0:0:2"},
    {"the same where the first gave its name, which then is known", "fe80::1 1::1", "c", "0.0.0.0",
     none, "fe80:0:0:0:0:0:0:1 1:0:0:0:0:0:0:1"},
    {"IPv4 in IPv6 form", "::ffff:10.0.0.1 1::1", "c", "10.0.0.1", both},
    {"IPv4 in IPv6 form with a port", "::ffff:10.0.0.1", "c", "0.0.0.0", both, nullptr, 80},
    {"IPv4 in IPv6 form of all", "::ffff:10.0.0.1", "c", "10.0.0.1", both, "10.0.0.1"},
    {"all, with IPv4 in IPv6 form behind IPv6", "1::1 ::ffff:10.0.0.1", "c", "1:0:0:0:0:0:0:1",
     both, "1:0:0:0:0:0:0:1 10.0.0.1"},
};

TEST(Answers, areKeptByTheirOrderAndTheirKind) {
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        answer(row.answers, row.name);
        TCPAddress address = nameOnly("9.9.9.9", row.port);
        EXPECT_TRUE(address.setNetMask(std::uint16_t{8}));
        std::vector<TCPAddress> all = {address};
        const bool wantAll = row.all != nullptr;
        ASSERT_TRUE(TCPAddress::sf_dnsResolve("host", address, all, false, row.type, wantAll));
        EXPECT_EQ(text(address), row.kept);
        EXPECT_EQ(nameOf(address), row.name);
        EXPECT_EQ(address.hostByteOrderPort(), row.port);
        EXPECT_EQ(address.maskBits(), 0);
        std::vector<std::string> texts;
        for (const TCPAddress &each : all)
            texts.push_back(text(each));
        EXPECT_EQ(texts, wordsOf(wantAll ? row.all : ""));
    }
}

TEST(Answers, areNoneWhenNothingIsLeftAtAll) {
    answer("fe80::1", "");
    std::vector<TCPAddress> all;
    TCPAddress address = literal("9.9.9.9");
    EXPECT_FALSE(TCPAddress::sf_dnsResolve("host", address, all, false, {}, false));
    EXPECT_TRUE(address.empty()) << "cleared once the resolver has answered";
    address.setHostByteOrderPort(80);
    EXPECT_TRUE(TCPAddress::sf_dnsResolve("host", address, all, false, {}, false))
        << "a port counts as something known";
    EXPECT_EQ(address.hostByteOrderPort(), 80);
    EXPECT_FALSE(address.isIPv6());
}

TEST(CanonicalName, isTheWayOfTheNetNameAndMustBeThere) {
    answer("10.0.0.1", "10.5.5.5");
    TCPAddress address;
    EXPECT_TRUE(address.resolveNetName("host"));
    EXPECT_EQ(text(address), "10.5.5.5") << "what the canonical name means, not the first answer";
    EXPECT_EQ(nameOf(address), "10.5.5.5");
    answer("10.0.0.1", "");
    EXPECT_FALSE(address.resolveNetName("host"));

    answer("10.0.0.1", "canonical");
    EXPECT_TRUE(address.resolve("host"));
    EXPECT_EQ(nameOf(address), "host") << "what was asked for";
    EXPECT_TRUE(TCPAddress::areEqual("host", "10.0.0.1"));
    EXPECT_FALSE(TCPAddress::areEqual("host", "10.0.0.2"));
}

// What a machine calls itself must not mean everybody else to others.
TEST(ThisMachine, isNotCalledLoopbackWhereItHasAnInterface) {
    platform::Endpoint nearest;
    const bool hasInterface = platform::interfaceAddress(platform::FAMILY_IPV4, nearest);
    TCPAddress interfaceAddress;
    interfaceAddress.setIPv4(nearest.ipv4);
    for (const char *loopback : {"127.0.0.1", "127.0.1.1"}) {
        answer(loopback, loopback);
        for (const auto resolve :
             {+[](TCPAddress &a) { return a.resolve(); },
              +[](TCPAddress &a) { return a.resolve(TCPAddress::IPTYPE_IPV4); },
              +[](TCPAddress &a) { return a.resolveNetName(); }}) {
            TCPAddress own;
            EXPECT_TRUE(resolve(own));
            EXPECT_EQ(text(own), hasInterface ? text(interfaceAddress) : loopback);
        }
    }
    answer("10.0.0.1", "c");
    TCPAddress own;
    EXPECT_TRUE(own.resolve());
    EXPECT_EQ(text(own), "10.0.0.1") << "an address that others can use is kept";
}

// A question for one family would wait for name servers that have never heard of this machine.
TEST(ThisMachine, isAskedForOnceInBothFamilies) {
    answer("10.0.0.1 1::1", "c");
    asked.clear();
    TCPAddress own;
    EXPECT_TRUE(own.resolve(TCPAddress::IPTYPE_IPV6));
    EXPECT_EQ(text(own), "1:0:0:0:0:0:0:1") << "the one that is wanted";
    EXPECT_EQ(asked, std::vector<platform::Lookup>{platform::Lookup::any});
}

} // namespace
} // namespace vintok
