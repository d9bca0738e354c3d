// Addresses that come as URLs, and what a proxy or a multiplexing server answered.
#include "support/Stream.h"
#include "vintok/HTTPAddress.h"
#include "vintok/HTTPReply.h"

namespace vintok::test {
namespace {

const struct {
    const char *url;
    const char *name; // what the host is kept as; an address's text for a literal
    unsigned port;
    bool ssl;
    const char *path;
} urls[] = {
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
    for (const auto &row : urls) {
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

// ---- Replies ----

TEST(HTTPReply, TheStatusIsTheSecondWord) {
    const std::pair<const char *, std::optional<int>> cases[] = {
        {"HTTP/1.0 200 Connection established\r\n\r\n", 200},
        {"junk in front HTTP/1.0 503 Busy\r\n\r\n", 503},
        {"HTTP/1.0 200x\r\n\r\n", 200},
        {"HTTP/1.0 -1\r\n\r\n", -1},
        {"HTTP/1.0 OK\r\n\r\n", std::nullopt},
        {"HTTP/1.0 99999999999999999999\r\n\r\n", std::nullopt},
        {"Http/1.0 200\r\n\r\n", std::nullopt}, // neither all upper nor all lower case
        {"", std::nullopt},
        // Challenges that can be met, and others.
        {"HTTP/1.0 407 X\r\nProxy-Authenticate: Basic realm=\"x\"\r\n\r\n", 407},
        {"HTTP/1.0 407 X\r\nProxy-Authenticate: Digest a\r\nProxy-Authenticate: Basic b\r\n\r\n",
         407},
        {"HTTP/1.0 407 X\r\nProxy-Authenticate: Digest realm=\"x\"\r\n\r\n", 403},
        {"HTTP/1.0 407 X\r\nWWW-Authenticate: Basic\r\n\r\n", 403},
        {"HTTP/1.0 407 basic\r\nProxy-Authenticate: Digest\r\n\r\n", 403}, // named in front of it
        {"HTTP/1.0 401 X\r\nWWW-Authenticate: Basic realm=\"x\"\r\n\r\n", 401},
        {"HTTP/1.0 401 X\r\nProxy-Authenticate: Basic\r\n\r\n", 403},
    };
    for (const auto &[reply, status] : cases)
        EXPECT_EQ(status, replyStatus(reply)) << reply;
}

TEST(HTTPReply, AHeaderIsFoundByItsNameAsItIsWritten) {
    const std::pair<const char *, const char *> cases[] = {
        {"HTTP/1.0 200\r\nName: true\r\n\r\n", "true"},
        {"Name:   two words \r\n\r\n", "two words "},
        {"Name : true\r\n\r\n", ""},
        {"name: true\r\n\r\n", ""},
        {"Names: true\r\nName: true\r\n\r\n", ""}, // the first occurrence counts
        {"Name", ""},
        {"Name: \r\nNext: x\r\n\r\n", "Next: x"}, // blanks in front of a value may end lines
        {"", ""},
    };
    for (const auto &[reply, value] : cases)
        EXPECT_EQ(value, headerValue(reply, "Name")) << reply;
    EXPECT_EQ(std::string(1023, 'v'), headerValue("Name: " + std::string(2000, 'v'), "Name"));
}

TEST(HTTPReply, ARedirectLeadsWhereItsLocationSays) {
    const struct {
        const char *reply, *name; // null: nowhere
        unsigned port;
    } cases[] = {
        {"HTTP/1.0 302 Found\r\nLocation: http://other:81/x\r\n\r\n", "other", 81},
        {"HTTP/1.0 302\r\nLocation: HTTPS://OTHER\r\nServer: a/b\r\n\r\n", "other", 443},
        {"HTTP/1.0 302\r\nX: http://wrong/\r\nLocation: http://other/\r\n\r\n", "other", 80},
        {"HTTP/1.0 302\r\nlocation: http://other/\r\n\r\n", nullptr, 0},
        {"HTTP/1.0 302\r\nLocation: /elsewhere\r\n\r\n", nullptr, 0},
        {"HTTP/1.0 302\r\n\r\n", nullptr, 0},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.reply);
        HTTPAddress target;
        ASSERT_EQ(row.name != nullptr, redirectTarget(row.reply, target));
        if (row.name == nullptr)
            continue;
        std::string name;
        EXPECT_TRUE(target.name(name));
        EXPECT_EQ(row.name, name);
        EXPECT_EQ(row.port, target.hostByteOrderPort());
    }
}

} // namespace
} // namespace vintok::test
