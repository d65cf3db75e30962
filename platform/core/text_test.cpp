#include "platform/core/text.h"

#include <gtest/gtest.h>

namespace teravolant::platform {

TEST(Text, AcceptsOnlyWellFormedUtf8) {
    for (const char* text :
         {"", "plain", "ä€😀", "\xF4\x8F\xBF\xBF", "\xED\x9F\xBF", "\xEE\x80\x80"}) {
        EXPECT_TRUE(isValidUtf8(text)) << text;
    }
    for (const char* text :
         {"\x80", "\xC3", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82", "\xE2\x28\xA1", "a\xFFz"}) {
        EXPECT_FALSE(isValidUtf8(text)) << text;
    }
}

TEST(FilledFormat, NeverReadsAValueAsAFormat) {
    EXPECT_EQ(filled("%@ is not older than %@", {"%@", "%1$@"}), "%@ is not older than %1$@");
    EXPECT_EQ(filled("%2$@ vor %1$@", {"a", "b"}), "b vor a");
    EXPECT_EQ(filled("%@ %@ %3$@ %0$@ 100% %", {"a"}), "a %@ %3$@ %0$@ 100% %");
}

}  // namespace teravolant::platform
