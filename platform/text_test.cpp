#include "platform/text.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/url.h"

namespace teravolant::platform {
namespace {

TEST(Text, TellsWellFormedUtf8) {
    for (const char* text :
         {"", "plain", "ä€😀", "\xF4\x8F\xBF\xBF", "\xED\x9F\xBF", "\xEE\x80\x80"}) {
        EXPECT_TRUE(isValidUtf8(text)) << text;
    }
    for (const char* text : {"\x80", "\xC3", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80",
                             "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82",
                             "\xE2\x28\xA1", "a\xFFz"}) {
        EXPECT_FALSE(isValidUtf8(text)) << text;
    }
}

TEST(Text, EncodesWhatAFileUrlMayNotHoldAsItIs) {
    EXPECT_EQ(fileUrl("/bin/launchctl"), "file:///bin/launchctl");
    EXPECT_EQ(fileUrl("/a b/ä%#?;=&+.app"), "file:///a%20b/%C3%A4%25%23%3F;=&+.app");
}

}  // namespace
}  // namespace teravolant::platform
