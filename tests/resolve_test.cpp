// Only names that a machine answers for itself: literals, localhost, and its own.
#include "vintok/TCPAddress.h"

#include "support/Addresses.h"
#include "vintok/TempRosterEntry.h"

namespace vintok::test {
namespace {

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
    } rows[] = {{"10.0.0.1", 0, "10.0.0.1"}, {"10.0.0.1", 3, "10.0.0.1"},
                {"10.0.0.1", 2, nullptr},    {"1::1", 3, "1:0:0:0:0:0:0:1"},
                {"1::1", 1, nullptr},        {"", 0, nullptr}};
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

TEST(SameAddress, isToldFromTwoTexts) {
    EXPECT_TRUE(TCPAddress::areEqual("::1", "0:0:0:0:0:0:0:1"));
    EXPECT_TRUE(TCPAddress::areEqual("10.0.0.1", "010.000.00.1"));
    EXPECT_TRUE(TCPAddress::areEqual("localhost", "localhost"));
    EXPECT_FALSE(TCPAddress::areEqual("10.0.0.1", "10.0.0.2"));
    EXPECT_FALSE(TCPAddress::areEqual("10.0.0.1", ""));
    EXPECT_FALSE(TCPAddress::areEqual("", ""));
    EXPECT_FALSE(TCPAddress::areEqual(impossible, impossible));
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
} // namespace vintok::test
