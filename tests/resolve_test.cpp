// Only names that a machine answers for itself: literals, localhost, and its own.
#include "vintok/TCPAddress.h"

#include "platform/Resolve.h"
#include "support/Addresses.h"
#include "vintok/TempRosterEntry.h"

#include <gmock/gmock.h>

namespace vintok {
namespace {

using namespace test;

std::string nameOf(const TCPAddress &address) {
    std::string name;
    address.name(name);
    return name;
}

// No resolver asks anybody about a name that is longer than names can be.
const std::string impossible(300, 'a');

TEST(Literals, areTakenWithoutTheResolverAndFilteredByFamily) {
    const struct {
        const char *name;
        std::uint32_t type;
        const char *text; // null: refused
    } rows[] = {{"10.0.0.1", 0, "10.0.0.1"},
                {"10.0.0.1", 1, "10.0.0.1"},
                {"10.0.0.1", 3, "10.0.0.1"},
                {"10.0.0.1", 2, nullptr},
                {"10.0.0.1", 4, nullptr},
                {"10.0.0.1/8", 0, "10.0.0.1"},
                {"1::1", 0, "1:0:0:0:0:0:0:1"},
                {"1::1", 2, "1:0:0:0:0:0:0:1"},
                {"1::1", 3, "1:0:0:0:0:0:0:1"},
                {"1::1", 1, nullptr},
                {"", 0, nullptr}};
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.name << " as " << row.type);
        TCPAddress address = nameOnly("1.1.1.1", 7777);
        const bool taken = row.text != nullptr;
        EXPECT_EQ(address.resolve(row.name, static_cast<TCPAddress::IPType>(row.type)), taken);
        EXPECT_EQ(text(address), taken ? row.text : "1.1.1.1");
        EXPECT_EQ(nameOf(address), taken ? row.name : "1.1.1.1");
        EXPECT_EQ(address.hostByteOrderPort(), 7777);
        EXPECT_EQ(address.maskBits(), 0);
    }
}

TEST(Names, resolveToTheFamilyAskedForAndAreRemembered) {
    TCPAddress address = nameOnly("1.1.1.1", 7777);
    ASSERT_TRUE(address.resolve("localhost", TCPAddress::IPTYPE_IPV4));
    EXPECT_EQ(text(address), "127.0.0.1");
    EXPECT_TRUE(address.isLoopback());
    EXPECT_EQ(nameOf(address), "localhost");
    EXPECT_EQ(address.hostByteOrderPort(), 7777);

    TCPAddress any;
    ASSERT_TRUE(any.resolve("localhost"));
    EXPECT_TRUE(any.isLoopback());

    TCPAddress only = literal("localhost");
    EXPECT_TRUE(only.resolveName());
    EXPECT_TRUE(only.isLoopback());
}

TEST(Names, thatDoNotResolveChangeNothing) {
    TCPAddress address = nameOnly("1.1.1.1", 7777);
    std::vector<TCPAddress> all = {literal("2.2.2.2")};
    const TCPAddress before = address;
    EXPECT_FALSE(address.resolve(impossible));
    EXPECT_FALSE(address.resolveNetName(impossible));
    EXPECT_FALSE(address.resolveNetName(""));
    EXPECT_FALSE(TCPAddress::lookup(impossible, all, TCPAddress::IPTYPE_NONE));
    EXPECT_FALSE(TCPAddress::lookup("", all, TCPAddress::IPTYPE_NONE));
    EXPECT_FALSE(TCPAddress::sf_dnsResolve("", address, all, false, TCPAddress::IPTYPE_NONE, true));
    EXPECT_EQ(stored(address), stored(before));
    EXPECT_EQ(nameOf(address), "1.1.1.1");
    EXPECT_EQ(all.size(), 1U);
}

#ifdef VINTOK_COUNTS_QUESTIONS
int questions = 0;

extern "C" int __real_getaddrinfo(const char *, const char *, const void *, void *);
extern "C" int __wrap_getaddrinfo(const char *node, const char *service, const void *hints,
                                  void *result) {
    ++questions;
    return __real_getaddrinfo(node, service, hints, result);
}

// Only a machine that has nothing but loopback gets its own names at the second time.
TEST(Names, thatDoNotResolveAreAskedForOnce) {
    platform::Endpoint ignored;
    const std::pair<TCPAddress::IPType, platform::Family> families[] = {
        {TCPAddress::IPTYPE_IPV4, platform::FAMILY_IPV4},
        {TCPAddress::IPTYPE_IPV6, platform::FAMILY_IPV6}};
    for (const auto &[type, family] : families) {
        questions = 0;
        EXPECT_FALSE(TCPAddress().resolve(impossible, type));
        EXPECT_EQ(platform::interfaceAddress(family, ignored) ? 1 : 2, questions);
    }
}
#endif

template <typename Address>
concept ResolvesZero = requires(Address address) {
    address.resolve(0);
};
template <typename Address>
concept ResolvesZeroByNetName = requires(Address address) {
    address.resolveNetName(0);
};
static_assert(!ResolvesZero<TCPAddress> && !ResolvesZeroByNetName<TCPAddress>);

TEST(ResolveName, fillsWhateverIsMissing) {
    TCPAddress nothing;
    EXPECT_FALSE(nothing.resolveName());

    TCPAddress address;
    address.setLoopbackIPv4();
    EXPECT_TRUE(address.resolveName());
    EXPECT_EQ(nameOf(address), "127.0.0.1");

    TCPAddress both = nameOnly("10.0.0.1");
    both.setName(impossible);
    EXPECT_TRUE(both.resolveName()) << "nothing is missing, so nobody is asked";

    TCPAddress odd;
    TCPAddress::IPFormats data{};
    odd.setIPdata(data, TCPAddress::IPTYPE_NETWORK);
    EXPECT_FALSE(odd.resolveName());
    EXPECT_EQ(nameOf(odd), "Internal Error");
}

TEST(NetName, isTheCanonicalOne) {
    TCPAddress address = nameOnly("1.1.1.1", 7777);
    ASSERT_TRUE(address.resolveNetName("localhost", TCPAddress::IPTYPE_IPV4));
    EXPECT_TRUE(address.isLoopback());
    EXPECT_FALSE(nameOf(address).empty());

    ASSERT_TRUE(address.resolveNetName("10.0.0.1"));
    EXPECT_EQ(text(address), "10.0.0.1");
    ASSERT_TRUE(address.resolveNetName("1::1", TCPAddress::IPTYPE_IPV6));
    EXPECT_EQ(text(address), "1:0:0:0:0:0:0:1");
    EXPECT_FALSE(address.resolveNetName("10.0.0.1", TCPAddress::IPTYPE_IPV6));
    EXPECT_FALSE(address.resolveNetName("1::1", TCPAddress::IPTYPE_IPV4));
    EXPECT_EQ(text(address), "1:0:0:0:0:0:0:1");
}

TEST(Lookup, givesEveryAddressOfTheFamily) {
    std::vector<TCPAddress> all = {literal("2.2.2.2")};
    ASSERT_TRUE(TCPAddress::lookup("127.0.0.1", all, TCPAddress::IPTYPE_IPV4));
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(text(all[0]), "127.0.0.1");
    EXPECT_FALSE(TCPAddress::lookup("127.0.0.1", all, TCPAddress::IPTYPE_IPV6));
    EXPECT_FALSE(TCPAddress::lookup("::1", all, TCPAddress::IPTYPE_IPV4));
    EXPECT_EQ(all.size(), 1U);
    ASSERT_TRUE(TCPAddress::lookup("localhost", all, TCPAddress::IPTYPE_IPV4));
    ASSERT_FALSE(all.empty());
    for (const TCPAddress &each : all)
        EXPECT_TRUE(each.isIPv4()) << text(each);
}

TEST(SameAddress, isToldFromTwoTexts) {
    EXPECT_TRUE(TCPAddress::areEqual("::1", "0:0:0:0:0:0:0:1"));
    EXPECT_TRUE(TCPAddress::areEqual("10.0.0.1", "010.000.00.1"));
    EXPECT_TRUE(TCPAddress::areEqual("localhost", "localhost"));
    EXPECT_FALSE(TCPAddress::areEqual("10.0.0.1", "10.0.0.2"));
    EXPECT_FALSE(TCPAddress::areEqual("10.0.0.1", ""));
    EXPECT_FALSE(TCPAddress::areEqual("", ""));
    EXPECT_FALSE(TCPAddress::areEqual(impossible, impossible));
}

bool isLoopback(const TCPAddress &address) {
    return text(address).rfind("127.", 0) == 0;
}

// Two hosts that both know themselves as 127.0.1.1 are the same party to each other.
TEST(ThisMachine, isKnownByAnAddressThatMeansItToOthers) {
    std::string node;
    ASSERT_TRUE(TCPAddress::nodeName(node));
    ASSERT_FALSE(node.empty());
    EXPECT_THAT(node, testing::Each(testing::Gt(' ')));
    TCPAddress plain;
    if (!plain.resolve(node, TCPAddress::IPTYPE_IPV4))
        GTEST_SKIP() << "this machine's name does not resolve";

    TCPAddress own;
    own.setHostByteOrderPort(7777);
    ASSERT_TRUE(own.resolve(TCPAddress::IPTYPE_IPV4));
    EXPECT_EQ(nameOf(own), node);
    EXPECT_EQ(own.hostByteOrderPort(), 7777);
    EXPECT_TRUE(own.isIPv4());
    const bool wasLoopback = isLoopback(plain);
    platform::Endpoint nearest;
    if (wasLoopback && platform::interfaceAddress(platform::FAMILY_IPV4, nearest)) {
        TCPAddress expected;
        expected.setIPv4(nearest.ipv4);
        EXPECT_EQ(text(own), text(expected));
    } else {
        EXPECT_EQ(text(own), text(plain));
    }

    TCPAddress any;
    ASSERT_TRUE(any.resolve());
    TCPAddress byNetName;
    if (byNetName.resolveNetName(TCPAddress::IPTYPE_IPV4)) {
        EXPECT_EQ(isLoopback(byNetName), isLoopback(own));
    }
}

TEST(OutgoingCall, resolvesTheProxyOrElseTheParty) {
    const TempRosterEntry direct("10.0.0.1", "");
    EXPECT_EQ(&direct.connectAddress(), &static_cast<const TCPAddress &>(direct));
    EXPECT_EQ(text(direct), "10.0.0.1");

    const TempRosterEntry proxied("10.0.0.1", "10.9.9.9");
    EXPECT_EQ(text(proxied.connectAddress()), "10.9.9.9");
    EXPECT_EQ(text(proxied), "0.0.0.0") << "the party is for the proxy to find";
    std::string ip;
    EXPECT_TRUE(proxied.proxyIPString(ip));
    EXPECT_EQ(ip, "10.9.9.9");

    const TempRosterEntry nowhere(impossible, "");
    EXPECT_EQ(nowhere.connectAddress().ipType(), TCPAddress::IPTYPE_NONE);
    EXPECT_EQ(nowhere.remoteName(), impossible);
}

} // namespace
} // namespace vintok
