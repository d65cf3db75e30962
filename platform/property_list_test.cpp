#include "platform/property_list.h"

#include <gtest/gtest.h>

#include "platform/printed_form.h"

namespace teravolant::platform {
namespace {

using Dictionary = PropertyListValue::Dictionary;
using Array = PropertyListValue::Array;

std::string xml(const std::string& content) { return "<plist>" + content + "</plist>"; }

std::string nested(int depth) {
    std::string text;
    for (int level = 0; level < depth; ++level) {
        text = "<array>" + text + "</array>";
    }
    return xml(text);
}

TEST(PropertyList, KeepsEveryKindOfValueThroughWritingAndReading) {
    const PropertyListValue value = Dictionary{
        {"text", "a <b> & „c“"},
        {"true", true},
        {"false", false},
        {"negative", std::int64_t{-5}},
        {"largest", std::numeric_limits<std::int64_t>::max()},
        {"real", 0.1},
        {"date", PropertyListValue::Date(std::chrono::seconds(1'700'000'000))},
        {"before 2001", PropertyListValue::Date(std::chrono::seconds(86'400))},
        {"data", PropertyListValue::Data{0, 255, 10}},
        {"array", Array{"", std::int64_t{1}, Array{}, Dictionary{}}},
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
    EXPECT_EQ(parsePropertyList(binary).value(), PropertyListValue(Dictionary{{"a", true}}));
}

TEST(PropertyList, RefusesWhatIsNotWhole) {
    for (const std::string& bytes :
         {std::string(), std::string("damaged"), std::string("bplist00"), xml(""),
          xml("<unknown/>"), std::string("<plist><dict><key>a</key>"), nested(65),
          "bplist00" + std::string(300'000, '\xA1')}) {
        const auto read = parsePropertyList(bytes);
        ASSERT_FALSE(read) << bytes.substr(0, 100);
        EXPECT_EQ(read.error().code, NSFileReadCorruptFileError) << bytes.substr(0, 100);
    }
    EXPECT_TRUE(parsePropertyList(nested(64)));
}

TEST(PrintedForm, ShowsADictionaryAsABlockOfOneLineAKey) {
    const PropertyListValue value =
        Dictionary{{"an odd\"key\\", "two\nlines"},
                   {"more", Array{true, std::int64_t{-5}, 0.5, Dictionary{{"a", ""}}}},
                   {"date", PropertyListValue::Date(std::chrono::seconds(86399))},
                   {"data", PropertyListValue::Data{1, 2}}};
    EXPECT_EQ(printedForm(value), R"({
    "an odd\"key\\" = "two\nlines";
    data = <2 bytes>;
    date = "1970-01-01 23:59:59 +0000";
    more = (
        1,
        -5,
        "0.5",
        {
            a = "";
        }
    );
})");
}

}  // namespace
}  // namespace teravolant::platform
