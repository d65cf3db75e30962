#include "platform/url.h"

#include <gtest/gtest.h>

namespace teravolant::platform {
namespace {

struct ComponentsCase {
    URLComponents components;
    std::optional<std::string> text;
};

TEST(URLComponents, MakeAURLOfThePartsThatAreThere) {
    const ComponentsCase cases[] = {
        {{"https", "a.example", "/feed", "v=1"}, "https://a.example/feed?v=1"},
        {{"https", "localhost:8443", "/f", "v=1"}, "https://localhost:8443/f?v=1"},
        {{"http", "[::1]:80", "", {}}, "http://[::1]:80"},
        {{"https", "a.example", "/a b/é?#", "q"}, "https://a.example/a%20b/%C3%A9%3F%23?q"},
        {{"https", "user@a.example/b", "/c", {}}, "https://user%40a.example%2Fb/c"},
        {{{}, "a.example", "/feed", "v=1"}, "//a.example/feed?v=1"},
        {{"https", {}, "/feed", "v=1"}, "https:/feed?v=1"},
        {{"https", "a.example", {}, ""}, "https://a.example?"},
        {{"https", "a.example", "feed", "v=1"}, {}},
        {{"https", {}, "//feed", "v=1"}, {}},
        {{"ht tp", "a.example", "/feed", "v=1"}, {}},
        {{"1s", "a.example", "/feed", "v=1"}, {}},
        {{"", "a.example", "/feed", "v=1"}, {}},
    };
    for (const ComponentsCase& test : cases) {
        const auto url = test.components.url();
        EXPECT_EQ(url ? std::optional(url->absoluteString()) : std::nullopt, test.text);
    }
}

TEST(URL, QueryStandsBetweenTheFirstQuestionMarkAndTheFragment) {
    EXPECT_EQ(URL("https://a/b?v=1?2/%20#f?g").query(), "v=1?2/%20");
    EXPECT_EQ(URL("https://a/b?").query(), "");
    EXPECT_EQ(URL("https://a/b#f?g").query(), std::nullopt);
}

TEST(URL, QueryEncodingLeavesWhatAQueryMayHold) {
    EXPECT_EQ(percentEncodedForQuery("version=1.2.3-b_~!$&'()*+,;:@/?"),
              "version=1.2.3-b_~!$&'()*+,;:@/?");
    EXPECT_EQ(percentEncodedForQuery(" #%[]\"é"), "%20%23%25%5B%5D%22%C3%A9");
}

TEST(URL, OnlyHttpsOrHttpOnThisComputerIsSafeToFetchFrom) {
    for (const char* text :
         {"https://a.example", "HTTPS://A.example:8443/b/c.zip?d=%20e/?#f", "http://localhost/a",
          "http://LOCALHOST:1/a", "http://127.0.0.1:65535/a", "http://127.255.0.9", "http://[::1]/",
          "https://[fe80::1]:443/a"}) {
        EXPECT_TRUE(isSecureOrLoopbackURL(text)) << text;
    }
    std::vector<std::string> unsafe = {"",
                                       "https",
                                       "https://",
                                       "https:///a",
                                       "https:a.example/b",
                                       "//a.example/b",
                                       "/b",
                                       "ftp://localhost/a",
                                       "file:///etc/passwd",
                                       " https://a.example/"};
    for (const std::string host :
         {"a.example", "localhost.evil", "127.0.0.1.evil", "127.1", "127.0.0.256", "127.0.0.01",
          "127.0.0.1.", "0177.0.0.1", "2130706433", "0.0.0.0", "localhost@evil.example",
          "localhost\\@evil.example"}) {
        unsafe.push_back("http://" + host + "/");
    }
    for (const std::string host :
         {"user:word@a.example", "a.example:", "a.example:0", "a.example:65536", "a.example:8 ",
          "a example", "[::1", "[::1]x", "%6cocalhost", "é.example"}) {
        unsafe.push_back("https://" + host + "/");
    }
    for (const std::string path : {"b c", "%2", "%zz", "b\nc", "<b>", "#b#c"}) {
        unsafe.push_back("https://a.example/" + path);
    }
    for (const std::string& text : unsafe) {
        EXPECT_FALSE(isSecureOrLoopbackURL(text)) << text;
    }
    EXPECT_FALSE(isSecureOrLoopbackURL(std::string_view("https://a.example/\0b", 20)));
}

}  // namespace
}  // namespace teravolant::platform
