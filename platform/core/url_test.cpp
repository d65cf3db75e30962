#include "platform/core/url.h"

#include <gtest/gtest.h>

namespace teravolant::platform {

TEST(URLComponents, BuildsAURLFromThePresentParts) {
    const std::pair<URLComponents, std::string> table[] = {
        {{"http", "[::1]:80", "", {}}, "http://[::1]:80"},
        {{"https", "user@a.example/b", "/a b/é?#", "q"},
         "https://user%40a.example%2Fb/a%20b/%C3%A9%3F%23?q"},
        {{"https", {}, "//feed", "v=1"}, "none"},
        {{"1s", "a.example", "/feed", "v=1"}, "none"},
    };
    for (const auto& [components, text] : table) {
        const auto url = components.url();
        EXPECT_EQ(url ? url->absoluteString() : "none", text);
    }
}

TEST(URL, PercentEncodesAFilePath) {
    EXPECT_EQ(fileUrl("/a b/ä%#?;=&+.app"), "file:///a%20b/%C3%A4%25%23%3F;=&+.app");
}

TEST(URL, IsSecureWithHttpsOrALoopbackHost) {
    for (const char* text :
         {"https://a.example", "HTTPS://A.example:8443/b/c.zip?d=%20e/?#f", "http://LOCALHOST:1/a",
          "http://127.0.0.1:65535/a", "http://[::1]/", "https://[fe80::1]:443/a"}) {
        EXPECT_TRUE(isSecureOrLoopbackURL(text)) << text;
    }
    const std::tuple<std::string, std::vector<std::string>, std::string> table[] = {
        {"http://",
         {"a.example", "localhost.evil", "127.0.0.1.evil", "127.1", "127.0.0.256", "127.0.0.01",
          "127.0.0.1.", "2130706433", "0.0.0.0", "localhost@evil", "localhost\\@evil"},
         "/"},
        {"https://",
         {"user:word@a.example", "a.example:", "a.example:0", "a.example:65536", "a.example:8 ",
          "a example", "[::1", "[::1]x", "%6cocalhost", "é.example"},
         "/"},
        {"https://a.example/", {"b c", "%2", "%zz", "b\nc", "<b>", "#b#c"}, ""},
        {"",
         {"", "https", "https:///a", "https:a.example/b", "//a.example/b", "ftp://localhost"},
         ""},
    };
    for (const auto& [before, texts, after] : table) {
        for (const std::string& text : texts) {
            EXPECT_FALSE(isSecureOrLoopbackURL(before + text + after)) << before << text;
        }
    }
    EXPECT_FALSE(isSecureOrLoopbackURL(std::string_view("https://a.example/\0b", 20)));
}

}  // namespace teravolant::platform
