// The resolver is played by this file: which of its answers is kept cannot be asked of a real one.
#include "vintok/TCPAddress.h"

#include "platform/Resolve.h"
#include "support/Addresses.h"

#include <gmock/gmock.h>

namespace vintok {

namespace {

struct Answer {
    std::string text;
    std::string canonicalName;
};

std::vector<Answer> answers;
platform::Lookup asked;
int questions = 0;

} // namespace

namespace platform {

bool resolveHost(const std::string &, Lookup lookup, bool, std::vector<ResolvedAddress> &result) {
    asked = lookup;
    ++questions;
    result.clear();
    for (const Answer &answer : answers) {
        ResolvedAddress entry;
        const TCPAddress address = test::literal(answer.text);
        if (lookup == (address.isIPv4() ? Lookup::ipv6 : Lookup::ipv4))
            continue;
        entry.endpoint.family = address.isIPv4() ? FAMILY_IPV4 : FAMILY_IPV6;
        address.IPv4(entry.endpoint.ipv4);
        address.IPv6(entry.endpoint.ipv6.data());
        entry.mappedIPv4 = lookup == Lookup::mapped && answer.text.rfind("::ffff:", 0) == 0;
        entry.canonicalName = answer.canonicalName;
        result.push_back(entry);
    }
    return !result.empty();
}

} // namespace platform

namespace {

using namespace test;

struct Case {
    const char *what;
    std::vector<Answer> answers;
    TCPAddress::IPType type;
    bool wantAll;
    const char *kept; // "0.0.0.0": none
    const char *name;
    std::vector<std::string> all;
};

constexpr auto none = TCPAddress::IPTYPE_NONE;
constexpr auto both = TCPAddress::IPTYPE_BOTH;
const Case cases[] = {
    {"the first", {{"10.0.0.1", "c"}, {"10.0.0.2", ""}}, none, false, "10.0.0.1", "c", {}},
    {"the first of either family",
     {{"1::1", "c"}, {"10.0.0.1", ""}},
     none,
     false,
     "1:0:0:0:0:0:0:1",
     "c",
     {}},
    {"the first that is not link-local",
     {{"fe80::1", "c"}, {"fe80::2", ""}, {"1::1", ""}},
     none,
     false,
     "1:0:0:0:0:0:0:1",
     "c",
     {}},
    {"link-local, then IPv4",
     {{"fe80::1", "c"}, {"10.0.0.1", ""}, {"10.0.0.2", ""}},
     none,
     false,
     "10.0.0.1",
     "c",
     {}},
    {"link-local only", {{"fe80::1", "c"}}, none, false, "0.0.0.0", "c", {}},
    {"fec0 is not link-local", {{"fec0::1", ""}}, none, false, "fec0:0:0:0:0:0:0:1", "", {}},
    {"all of IPv4",
     {{"10.0.0.1", "c"}, {"10.0.0.2", ""}},
     none,
     true,
     "10.0.0.1",
     "c",
     {"10.0.0.1", "10.0.0.2"}},
    {"an IPv4 address that is not the first of all",
     {{"fe80::1", ""}, {"10.0.0.1", ""}},
     none,
     true,
     "0.0.0.0",
     "",
     {"fe80:0:0:0:0:0:0:1", "10.0.0.1"}},
    {"an IPv6 address behind a link-local one",
     {{"fe80::1", ""}, {"1::1", ""}, {"1::2", ""}},
     none,
     true,
     "1:0:0:0:0:0:0:1",
     "",
     {"fe80:0:0:0:0:0:0:1", "1:0:0:0:0:0:0:1", "1:0:0:0:0:0:0:2"}},
    {"the same where the first gave its name, which then is known",
     {{"fe80::1", "c"}, {"1::1", ""}},
     none,
     true,
     "0.0.0.0",
     "c",
     {"fe80:0:0:0:0:0:0:1", "1:0:0:0:0:0:0:1"}},
    {"IPv4 in IPv6 form",
     {{"::ffff:10.0.0.1", "c"}, {"1::1", ""}},
     both,
     false,
     "10.0.0.1",
     "c",
     {}},
    {"all, with IPv4 in IPv6 form behind IPv6",
     {{"1::1", "c"}, {"::ffff:10.0.0.1", ""}},
     both,
     true,
     "1:0:0:0:0:0:0:1",
     "c",
     {"1:0:0:0:0:0:0:1", "10.0.0.1"}},
};

TEST(Answers, areKeptByTheirOrderAndTheirKind) {
    for (const Case &row : cases) {
        SCOPED_TRACE(row.what);
        answers = row.answers;
        TCPAddress address = literal("9.9.9.9");
        std::vector<TCPAddress> all = {address};
        ASSERT_TRUE(TCPAddress::sf_dnsResolve("host", address, all, false, row.type, row.wantAll));
        EXPECT_EQ(text(address), row.kept);
        std::string name;
        address.name(name);
        EXPECT_EQ(name, row.name);
        ASSERT_EQ(all.size(), row.all.size());
        for (std::size_t i = 0; i < all.size(); ++i)
            EXPECT_EQ(text(all[i]), row.all[i]);
    }
}

TEST(Answers, areNoneWhenNothingIsLeftAtAll) {
    answers = {{"fe80::1", ""}};
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

TEST(Questions, askForTheFamiliesOfTheType) {
    const struct {
        std::uint32_t type;
        platform::Lookup lookup;
    } rows[] = {{0, platform::Lookup::any},  {1, platform::Lookup::ipv4},
                {2, platform::Lookup::ipv6}, {3, platform::Lookup::mapped},
                {4, platform::Lookup::any},  {9, platform::Lookup::ipv4}};
    answers = {{"10.0.0.1", "c"}, {"1::1", ""}};
    for (const auto &row : rows) {
        TCPAddress address;
        EXPECT_TRUE(address.resolve("host", static_cast<TCPAddress::IPType>(row.type)));
        EXPECT_EQ(asked, row.lookup) << row.type;
    }
}

TEST(CanonicalName, isTheWayOfTheNetNameAndMustBeThere) {
    answers = {{"10.0.0.1", "10.5.5.5"}};
    TCPAddress address;
    EXPECT_TRUE(address.resolveNetName("host"));
    EXPECT_EQ(text(address), "10.5.5.5") << "what the canonical name means, not the first answer";
    std::string name;
    EXPECT_TRUE(address.name(name));
    EXPECT_EQ(name, "10.5.5.5");
    answers = {{"10.0.0.1", ""}};
    EXPECT_FALSE(address.resolveNetName("host"));

    answers = {{"10.0.0.1", "canonical"}};
    EXPECT_TRUE(address.resolve("host"));
    EXPECT_TRUE(address.name(name));
    EXPECT_EQ(name, "host") << "what was asked for";
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
        answers = {{loopback, loopback}};
        for (const auto resolve :
             {+[](TCPAddress &a) { return a.resolve(); },
              +[](TCPAddress &a) { return a.resolve(TCPAddress::IPTYPE_IPV4); },
              +[](TCPAddress &a) { return a.resolveNetName(); }}) {
            TCPAddress own;
            EXPECT_TRUE(resolve(own));
            EXPECT_EQ(text(own), hasInterface ? text(interfaceAddress) : loopback);
        }
    }
    answers = {{"10.0.0.1", "c"}};
    TCPAddress own;
    EXPECT_TRUE(own.resolve());
    EXPECT_EQ(text(own), "10.0.0.1") << "an address that others can use is kept";
}

TEST(ThisMachine, isAskedForOnceAndOfTheFamilyThatIsWanted) {
    platform::Endpoint ignored;
    const bool hasIPv6 = platform::interfaceAddress(platform::FAMILY_IPV6, ignored);
    const struct {
        std::vector<Answer> answers;
        TCPAddress::IPType type;
        const char *text; // null: fails
    } rows[] = {
        {{}, none, nullptr},
        {{}, TCPAddress::IPTYPE_IPV6, nullptr},
        {{{"10.0.0.1", "c"}, {"1::1", ""}}, TCPAddress::IPTYPE_IPV6, "1:0:0:0:0:0:0:1"},
        {{{"1::1", "c"}, {"10.0.0.1", ""}}, TCPAddress::IPTYPE_IPV4, "10.0.0.1"},
        {{{"fe80::1", "c"}, {"1::1", ""}}, both, "1:0:0:0:0:0:0:1"},
        {{{"10.0.0.1", "c"}}, TCPAddress::IPTYPE_IPV6, nullptr},
        {{{"127.0.1.1", "c"}}, TCPAddress::IPTYPE_IPV6, hasIPv6 ? "an interface" : nullptr},
    };
    for (const auto &row : rows) {
        answers = row.answers;
        questions = 0;
        TCPAddress own;
        own.setPort(7);
        EXPECT_EQ(row.text != nullptr, own.resolve(row.type));
        EXPECT_EQ(1, questions);
        EXPECT_EQ(7, own.port());
        if (row.text != nullptr && row.text != std::string("an interface")) {
            EXPECT_EQ(row.text, text(own));
        }
    }
}

} // namespace
} // namespace vintok
