// Addresses that come as URLs.
#include "vintok/HTTPAddress.h"
#include "vintok/TCPStream.h"

#include <gtest/gtest.h>

namespace vintok::test {
namespace {

struct Case {
    const char *url;
    const char *name; // what the host is kept as; an address's text for a literal
    unsigned port;
    bool ssl;
    const char *path;
};

const Case cases[] = {
    {"http://Example.COM", "example.com", 80, false, ""},
    {"HTTP://Example.COM/", "example.com", 80, false, ""},
    {"https://host:8443/a/b", "host", 8443, true, "a/b"},
    {"http://host/A?q=/x#F", "host", 80, false, "A?q=/x#F"},
    {"https://host", "host", 443, true, ""},
    {"https://host:0/", "host", 443, true, ""},
    {"https://host:abc/", "host", 443, true, ""},
    {"https://host:/", "host", 443, true, ""},
    {"http://host:8080", "host", 8080, false, ""},
    {"http://host:80x/", "host", 80, false, ""},
    {"http://host/a:99/b", "host", 80, false, "a:99/b"},
    {"http://10.1.2.3:81/", "10.1.2.3", 81, false, ""},
    {"http://[::1]:8080/", "0:0:0:0:0:0:0:1", 8080, false, ""},
    {"http://[::1]/x", "0:0:0:0:0:0:0:1", 80, false, "x"},
    {"https://[::1]", "0:0:0:0:0:0:0:1", 443, true, ""},
    {"https://[::1]:9/[x]:7/", "0:0:0:0:0:0:0:1", 9, true, "[x]:7/"},
    {"http://%5b::1%5d:8080/", "0:0:0:0:0:0:0:1", 8080, false, ""},
    {"HTTPS://%5B::1%5D/x", "0:0:0:0:0:0:0:1", 443, true, "x"},
};

class HTTPAddresses : public testing::Test {
protected:
    HTTPAddresses() { init(); }
    ~HTTPAddresses() override { fini(); }
};

TEST_F(HTTPAddresses, AURLGivesHostPortAndPath) {
    for (const Case &row : cases) {
        SCOPED_TRACE(row.url);
        HTTPAddress address;
        ASSERT_TRUE(address.setURL(row.url));
        std::string text;
        if (address.isIPv4() || address.isIPv6())
            EXPECT_TRUE(address.ipString(text, false));
        else
            EXPECT_TRUE(address.name(text));
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
    HTTPAddress address;
    ASSERT_TRUE(address.setURL("https://host:8443/a"));
    for (const char *url :
         {"", "host", "ftp://host/", "http:/host", "http:", " http://host", "//x"})
        EXPECT_FALSE(address.setURL(url)) << url;
    std::string text;
    EXPECT_TRUE(address.url(text) && text == "https://host:8443/a");
    EXPECT_EQ(8443, address.hostByteOrderPort());
    EXPECT_TRUE(address.isSSL());
}

TEST_F(HTTPAddresses, ASecondURLLeavesNothingOfTheFirst) {
    HTTPAddress address;
    ASSERT_TRUE(address.setURL("https://host:8443/a") && address.setURL("http://other"));
    std::string name;
    EXPECT_TRUE(address.name(name) && name == "other");
    EXPECT_FALSE(address.isSSL());
    EXPECT_TRUE(address.path(name) && name.empty());
    EXPECT_EQ(80, address.hostByteOrderPort());
}

TEST_F(HTTPAddresses, ClearingKeepsTheFlagAndEmptyDoesNotAskIt) {
    HTTPAddress address;
    std::string text = "before";
    EXPECT_FALSE(address.url(text));
    EXPECT_EQ("", text);
    text = "before";
    EXPECT_FALSE(address.path(text));
    EXPECT_EQ("", text);
    EXPECT_TRUE(address.empty());
    ASSERT_TRUE(address.setURL("https://10.0.0.1/"));
    EXPECT_FALSE(address.empty());
    TCPAddress &base = address;
    base.clear();
    EXPECT_TRUE(base.empty());
    EXPECT_TRUE(address.isSSL());
    EXPECT_FALSE(address.url(text));
}

TEST_F(HTTPAddresses, EqualityGoesByAddressAndFlag) {
    HTTPAddress one, other;
    ASSERT_TRUE(one.setURL("http://10.0.0.1:7/a") && other.setURL("http://10.0.0.1:7/b"));
    EXPECT_TRUE(one == other);
    other.setSSL(true);
    EXPECT_FALSE(one == other);
    const HTTPAddress copy = other;
    EXPECT_TRUE(copy == other && copy.isSSL());

    other = static_cast<const TCPAddress &>(one);
    EXPECT_TRUE(one == other);
    std::string text;
    EXPECT_FALSE(other.url(text) || other.isSSL());
    EXPECT_FALSE(HTTPAddress(static_cast<const TCPAddress &>(copy)).isSSL());
}

} // namespace
} // namespace vintok::test
