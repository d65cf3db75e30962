#include "platform/property_list.h"

#include <gtest/gtest.h>

namespace teravolant::platform {
namespace {

using Dictionary = PropertyListValue::Dictionary;
using Array = PropertyListValue::Array;

std::string xml(const std::string& content) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + content + "</plist>";
}

std::string nested(int depth) {
    std::string text;
    for (const char* tag : {"<array>", "</array>"}) {
        for (int level = 0; level < depth; ++level) {
            text += tag;
        }
    }
    return text;
}

TEST(PropertyList, KeepsEveryKindOfValueThroughWritingAndReading) {
    const PropertyListValue value = Dictionary{
        {"text", "a <b> & „c“"},
        {"empty", ""},
        {"true", true},
        {"false", false},
        {"negative", std::int64_t{-5}},
        {"largest", std::numeric_limits<std::int64_t>::max()},
        {"real", 0.1},
        {"date", PropertyListValue::Date(std::chrono::seconds(1'700'000'000))},
        {"before 2001", PropertyListValue::Date(std::chrono::seconds(86'400))},
        {"data", PropertyListValue::Data{0, 255, 10}},
        {"array", Array{"a", std::int64_t{1}, Array{}, Dictionary{}}},
    };
    const auto read = parsePropertyList(serialisePropertyList(value));
    ASSERT_TRUE(read) << read.error().localizedDescription;
    EXPECT_EQ(read.value(), value);
}

TEST(PropertyList, ReadsTheBinaryForm) {
    // {"a": true}
    const std::string binary(
        "bplist00\xD1\x01\x02\x51\x61\x09\x08\x0B\x0D\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00"
        "\x00\x00\x00\x00\x03\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0E",
        49);
    const auto read = parsePropertyList(binary);
    ASSERT_TRUE(read) << read.error().localizedDescription;
    EXPECT_EQ(read.value(), PropertyListValue(Dictionary{{"a", true}}));
}

TEST(PropertyList, RefusesWhatIsNotWhole) {
    const std::string whole = xml("<dict><key>a</key><string>b</string></dict>");
    for (const std::string& bytes :
         {std::string(), std::string("damaged"), std::string("bplist00"), xml(""),
          whole.substr(0, whole.find("<string>")), whole.substr(0, whole.find("</dict>")),
          xml("<unknown/>"), xml(nested(65)), xml(nested(300'000)),
          "bplist00" + std::string(300'000, '\xA1')}) {
        const auto read = parsePropertyList(bytes);
        ASSERT_FALSE(read) << bytes.substr(0, 100);
        EXPECT_EQ(read.error().code, NSFileReadCorruptFileError) << bytes.substr(0, 100);
    }
    EXPECT_TRUE(parsePropertyList(xml(nested(64))));
}

}  // namespace
}  // namespace teravolant::platform
