// Addresses that come as URLs.
#include "support/Stream.h"
#include "vintok/HTTPAddress.h"

namespace vintok::test {
namespace {

const struct {
    const char *url;
    const char *name; // what the host is kept as; an address's text for a literal
    unsigned port;
    bool ssl;
    const char *path;
} cases[] = {
    {"http://Example.COM", "example.com", 80, false, ""},
    {"https://host:8443/a/b", "host", 8443, true, "a/b"},
    {"http://host/A?q=/x#F", "host", 80, false, "A?q=/x#F"},
    {"https://host", "host", 443, true, ""},
    {"https://host:abc/", "host", 443, true, ""},
    {"http://host:80x/", "host", 80, false, ""},
    {"http://host/a:99/b", "host", 80, false, "a:99/b"},
    {"http://[::1]:8080/", "0:0:0:0:0:0:0:1", 8080, false, ""},
    {"https://[::1]:9/[x]:7/", "0:0:0:0:0:0:0:1", 9, true, "[x]:7/"},
    {"HTTPS://%5B::1%5D/x", "0:0:0:0:0:0:0:1", 443, true, "x"},
};

class HTTPAddresses : public Library {
protected:
    HTTPAddress address;
    std::string text;
};

TEST_F(HTTPAddresses, AURLGivesHostPortAndPath) {
    for (const auto &row : cases) {
        SCOPED_TRACE(row.url);
        ASSERT_TRUE(address.setURL(row.url));
        const bool literal = address.isIPv4() || address.isIPv6();
        text.clear();
        EXPECT_TRUE(literal ? address.ipString(text, false) : address.name(text));
        EXPECT_EQ(row.name, text);
        EXPECT_EQ(row.port, address.hostByteOrderPort());
        EXPECT_EQ(row.ssl, address.isSSL());
        EXPECT_TRUE(address.path(text));
        EXPECT_EQ(row.path, text);
        EXPECT_TRUE(address.url(text));
        EXPECT_EQ(row.url, text) << "as it was given";
    }
}

TEST_F(HTTPAddresses, WhatIsNoURLChangesNothing) {
    ASSERT_TRUE(address.setURL("https://host:8443/a"));
    for (const char *url :
         {"", "host", "ftp://host/", "http:/host", "http:", " http://host", "//x"})
        EXPECT_FALSE(address.setURL(url)) << url;
    EXPECT_TRUE(address.url(text) && text == "https://host:8443/a");
    EXPECT_EQ(8443, address.hostByteOrderPort());
    EXPECT_TRUE(address.isSSL());
}

TEST_F(HTTPAddresses, ASecondURLLeavesNothingOfTheFirst) {
    ASSERT_TRUE(address.setURL("https://host:8443/a") && address.setURL("http://other"));
    EXPECT_TRUE(address.name(text) && text == "other");
    EXPECT_FALSE(address.isSSL());
    EXPECT_TRUE(address.path(text) && text.empty());
    EXPECT_EQ(80, address.hostByteOrderPort());
}

TEST_F(HTTPAddresses, EqualityGoesByAddressAndFlag) {
    HTTPAddress one, other;
    ASSERT_TRUE(one.setURL("http://10.0.0.1:7/a") && other.setURL("https://10.0.0.1:7/a"));
    EXPECT_FALSE(one == other);
    other = static_cast<const TCPAddress &>(one);
    EXPECT_TRUE(one == other) << "the flag is gone";
}

} // namespace
} // namespace vintok::test
