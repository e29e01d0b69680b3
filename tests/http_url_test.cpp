// URLs and keys with values, taken apart.
#include <ZKQ_general/http.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <string>
#include <vector>

#include "support/error_text.h"
#include "support/heap.h"

namespace {

struct UrlRow {
    const char* url;
    const char* protocol;
    const char* server; ///< with port and brackets
    const char* name;
    const char* object;
    long port;
};

const UrlRow kUrls[] = {
    {"http://h/x", "http", "h", "h", "/x", 80},
    {"h", "HTTP", "h", "h", "/", 80},
    {"h/x/y?z#f", "HTTP", "h", "h", "/x/y?z#f", 80},
    {"   http://h", "http", "h", "h", "/", 80},
    {"HtTpS://h", "HtTpS", "h", "h", "/", 443},
    {"ftp://h/f", "ftp", "h", "h", "/f", 21},
    {"FTP://h:8021/f", "FTP", "h:8021", "h", "/f", 8021},
    {"gopher://h:70/x", "gopher", "h:70", "h", "/x", 70},
    {"http://h:8080", "http", "h:8080", "h", "/", 8080},
    {"http://h:8080/x:9", "http", "h:8080", "h", "/x:9", 8080},
    {"http://h:/x", "http", "h:", "h", "/x", 80},
    {"http://h:0/x", "http", "h:0", "h", "/x", 80},
    {"http://h:81abc/x", "http", "h:81abc", "h", "/x", 81},
    {"http://h:-5/x", "http", "h:-5", "h", "/x", -5},
    {"http://h:1:2/x", "http", "h:1:2", "h", "/x", 1},
    {"http://h:99999999999999999999/x", "http", "h:99999999999999999999", "h", "/x", LONG_MAX},
    {"http://[::1]:8080/a", "http", "[::1]:8080", "::1", "/a", 8080},
    {"http://[::1]/a", "http", "[::1]", "::1", "/a", 80},
    {"https://[::1", "https", "[::1", "::1", "/", 443},
    {"[::1]:81", "HTTP", "[::1]:81", "::1", "/", 81},
    {"http://u@[fe80::1]x:82/", "http", "u@[fe80::1]x:82", "fe80::1", "/", 82},
    {"http://[]:83/", "http", "[]:83", "", "/", 83},
    {"http:///x", "http", "", "", "/x", 80},
    {"http://", "http", "", "", "/", 80},
    {"/x", "HTTP", "", "", "/x", 80},
    {"http://h/r?u=ftp://o", "http", "h", "h", "/r?u=ftp://o", 80},
    {"http://h?q=1/x", "http", "h?q=1", "h?q=1", "/x", 80},
    {"ftp://a b/c d ", "ftp", "a b", "a b", "/c d ", 21},
};

TEST(SplideUrl, TakesUrlsApart)
{
    for (const UrlRow& row : kUrls) {
        SCOPED_TRACE(row.url);
        const std::vector<char> exact(row.url, row.url + strlen(row.url) + 1);
        NETWORK_URL url = {};
        ASSERT_TRUE(Network_SplideURL(exact.data(), &url));
        EXPECT_STREQ(url.Protocol, row.protocol);
        EXPECT_STREQ(url.ServerName, row.server);
        EXPECT_STREQ(url.Object, row.object);
        NETWORK_URL_NEW withPort = {};
        ASSERT_TRUE(Network_SplideURL_New(exact.data(), &withPort));
        EXPECT_STREQ(withPort.n_url.Protocol, row.protocol);
        EXPECT_STREQ(withPort.n_url.ServerName, row.name);
        EXPECT_STREQ(withPort.n_url.Object, row.object);
        EXPECT_EQ(withPort.Port, row.port);
        NETWORK_URL_EX blocks;
        memset(&blocks, 0xA5, sizeof blocks);
        ASSERT_TRUE(Network_SplideURL_Ex(exact.data(), &blocks));
        EXPECT_STREQ(blocks.Protocol, row.protocol);
        EXPECT_STREQ(blocks.ServerName, row.name);
        EXPECT_STREQ(blocks.Object, row.object);
        EXPECT_EQ(blocks.Port, row.port);
        Network_FreeURLEx(&blocks);
        EXPECT_EQ(blocks.Protocol, nullptr);
        Network_FreeURLEx(&blocks);
    }
    Network_FreeURLEx(nullptr);
}

TEST(SplideUrl, AnotherProtocolNeedsAPort)
{
    for (const char* bad : {"gopher://h/x", "://h", "httpx://h", "h/x?u=http://o/"}) {
        NETWORK_URL_EX blocks;
        memset(&blocks, 0xA5, sizeof blocks);
        EXPECT_FALSE(Network_SplideURL_Ex(bad, &blocks)) << bad;
        EXPECT_SYSTEM_ERROR(ENOSYS);
        EXPECT_EQ(blocks.Protocol, nullptr);
        EXPECT_EQ(blocks.ServerName, nullptr);
        EXPECT_EQ(blocks.Object, nullptr);
        NETWORK_URL_NEW withPort;
        support::MarkErrorText();
        EXPECT_FALSE(Network_SplideURL_New(bad, &withPort)) << bad;
        EXPECT_SYSTEM_ERROR(ENOSYS);
        NETWORK_URL url;
        EXPECT_TRUE(Network_SplideURL(bad, &url)) << bad;
    }
}

TEST(SplideUrl, EmptyArguments)
{
    NETWORK_URL url;
    NETWORK_URL_NEW withPort;
    NETWORK_URL_EX blocks;
    for (const char* empty : {static_cast<const char*>(nullptr), "", "  "}) {
        support::MarkErrorText();
        EXPECT_FALSE(Network_SplideURL(empty, &url));
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
        EXPECT_FALSE(Network_SplideURL_New(empty, &withPort));
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
        EXPECT_FALSE(Network_SplideURL_Ex(empty, &blocks));
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    support::MarkErrorText();
    EXPECT_FALSE(Network_SplideURL("h", nullptr));
    EXPECT_FALSE(Network_SplideURL_New("h", nullptr));
    EXPECT_FALSE(Network_SplideURL_Ex("h", nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(SplideUrl, PartsThatDoNotFit)
{
    const std::string p99(99, 'p');
    const std::string s299(299, 's');
    const std::string o299 = "/" + std::string(298, 'o');
    struct Row {
        std::string url;
        bool fits;
    };
    const Row rows[] = {{p99 + "://" + s299 + o299, true},
                        {p99 + "p://h/", false},
                        {"http://" + s299 + "s/", false},
                        {"http://h" + o299 + "o", false}};
    for (const Row& row : rows) {
        NETWORK_URL url;
        memset(&url, 0x5A, sizeof url);
        const NETWORK_URL before = url;
        EXPECT_EQ(Network_SplideURL(row.url.c_str(), &url), row.fits);
        if (!row.fits) {
            EXPECT_SYSTEM_ERROR(ENOMEM);
            EXPECT_EQ(memcmp(&url, &before, sizeof url), 0);
        }
        NETWORK_URL_NEW withPort;
        const std::string other = row.fits ? "http" + row.url.substr(99) : row.url;
        const bool known = row.url[0] != 'p';
        support::MarkErrorText();
        EXPECT_EQ(Network_SplideURL_New(other.c_str(), &withPort), row.fits);
        if (!row.fits) {
            EXPECT_SYSTEM_ERROR(known ? ENOMEM : ENOSYS);
        }
        EXPECT_EQ(Network_SplideURL_New((p99 + "p://h:1/").c_str(), &withPort), FALSE);
        EXPECT_SYSTEM_ERROR(ENOMEM);
    }
    NETWORK_URL_EX blocks;
    const std::string huge = "http://" + std::string(100000, 'h') + "/" + std::string(100000, 'o');
    ASSERT_TRUE(Network_SplideURL_Ex(huge.c_str(), &blocks));
    EXPECT_EQ(strlen(blocks.ServerName), 100000U);
    EXPECT_EQ(strlen(blocks.Object), 100001U);
    Network_FreeURLEx(&blocks);
}

TEST(SplideUrl, NothingLeaks)
{
    support::ExpectNothingLeaks([] {
        NETWORK_URL_EX blocks;
        ASSERT_TRUE(Network_SplideURL_Ex("http://host/object", &blocks));
        Network_FreeURLEx(&blocks);
        EXPECT_FALSE(Network_SplideURL_Ex("gopher://host/object", &blocks));
    });
}

TEST(GetKeyValueHttp, FindsTheFirstExactKey)
{
    struct Row {
        const char* src;
        const char* key;
        const char* value;
    };
    const Row rows[] = {{"a=1;b=2", "b", "2"},   {"a=1;a=2", "a", "1"},     {"a=1; b=2", "b", "(none)"},
                        {"a=1; b=2", " b", "2"}, {"a= 1 ;b", "a", " 1 "},   {"a;b;a=3", "a", "3"},
                        {"a=1=2;a=3", "a", "3"}, {"a==1", "a", "1"},        {"=a=1=", "a", "1"},
                        {";;a=1;;", "a", "1"},   {"a=", "a", "(none)"},     {"A=1", "a", "(none)"},
                        {"", "a", "(none)"},     {"a=\"q\"", "a", "\"q\""}, {"a=1", "", "(none)"}};
    for (const Row& row : rows) {
        const std::vector<char> src(row.src, row.src + strlen(row.src) + 1);
        std::vector<char> value(std::max(src.size(), sizeof "(none)"));
        strcpy(value.data(), "(none)");
        GetKeyValue_Http(src.data(), row.key, value.data());
        EXPECT_STREQ(value.data(), row.value) << row.src;
    }
    char value[] = "(none)";
    GetKeyValue_Http(nullptr, "a", value);
    GetKeyValue_Http("a=1", nullptr, value);
    GetKeyValue_Http("a=1", "a", nullptr);
    EXPECT_STREQ(value, "(none)");
}

} // namespace
