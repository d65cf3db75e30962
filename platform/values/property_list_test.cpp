#include "platform/values/property_list.h"
#include "platform/core/error.h"

#include <gtest/gtest.h>

namespace teravolant::platform {
namespace {

using Dictionary = Value::Dictionary;
using Array = Value::Array;

std::string xml(const std::string& content) { return "<plist>" + content + "</plist>"; }

std::string nested(int depth, const std::string& tag = "<array>") {
    std::string text;
    for (int level = 0; level < depth; ++level) {
        text += tag;
    }
    for (int level = 0; level < depth; ++level) {
        text += "</array>";
    }
    return xml(text);
}

TEST(PropertyList, KeepsEveryKindOfValueThroughWritingAndReading) {
    const Value value = Dictionary{
        {"text", "a <b> & „c“"},
        {"true", true},
        {"false", false},
        {"negative", std::int64_t{-5}},
        {"largest", std::numeric_limits<std::int64_t>::max()},
        {"real", 0.1},
        {"date", Value::Date(std::chrono::seconds(1'700'000'000))},
        {"before 2001", Value::Date(std::chrono::seconds(86'400))},
        {"data", Value::Data{0, 255, 10}},
        {"array", Array{"", std::int64_t{1}, Array{}, Dictionary{}}},
    };
    const auto read = parsePropertyList(serialisePropertyList(value));
    ASSERT_TRUE(read) << read.error().localizedDescription;
    EXPECT_EQ(*read, value);
}

TEST(PropertyList, RefusesWhatIsNotWhole) {
    for (const std::string& bytes :
         {std::string(), std::string("damaged"), std::string("bplist00"), xml(""),
          xml("<unknown/>"), std::string("<plist><dict><key>a</key>"), nested(65),
          nested(400'000, "<!--</array>--><array>"), nested(400'000, "<array x=\"></array>\">"),
          "<!DOCTYPE plist [<a>]>" + nested(2), "bplist00" + std::string(300'000, '\xA1')}) {
        const auto read = parsePropertyList(bytes);
        ASSERT_FALSE(read) << bytes.substr(0, 100);
        EXPECT_EQ(read.error().code, NSFileReadCorruptFileError) << bytes.substr(0, 100);
    }
    EXPECT_TRUE(parsePropertyList(nested(64)));
}

}  // namespace
}  // namespace teravolant::platform
