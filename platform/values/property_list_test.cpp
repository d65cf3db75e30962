#include "platform/values/property_list.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

using Dictionary = Value::Dictionary;
using Array = Value::Array;
using Data = Value::Data;
using Date = Value::Date;

std::string xml(const std::string& content) { return "<plist>\n" + content + "</plist>"; }

std::string nested(std::size_t depth) {
    std::string begin;
    std::string end;
    for (std::size_t level = 0; level < depth; ++level) {
        begin += "<array>";
        end += "</array>";
    }
    return xml(begin + "<true/>" + end);
}

void expectRefused(const std::string& bytes, const std::string& message) {
    const auto read = parsePropertyList(bytes);
    ASSERT_FALSE(read) << message << ": " << bytes.substr(0, 100);
    EXPECT_EQ(read.error().code, bytes.starts_with("bplist") ? NSPropertyListReadUnknownVersionError
                                                             : NSFileReadCorruptFileError);
    EXPECT_NE(read.error().localizedDescription.find(message), std::string::npos)
        << message << ": " << printedForm(read.error());
}

template <typename Number>
Array extremesOf() {
    using Limits = std::numeric_limits<Number>;
    return {Limits::min(), Limits::max(), Limits::lowest(), Limits::denorm_min()};
}

TEST(PropertyList, KeepsEveryValueWhenWrittenAndRead) {
    const Value value = Dictionary{
        {"", "a <b> & „c“ ]]>\r\n\t\r "},
        {"<key>&\r", Array{true, false, Dictionary{}, Array{Array{}}, "", "\U0010FFFF"}},
        {"integers", extremesOf<std::int64_t>()},
        {"reals", extremesOf<double>()},
        {"more reals", Array{0.1, 1.0 / 3, HUGE_VAL, -HUGE_VAL}},
        {"dates", Array{Date(std::chrono::seconds(-62'135'596'800)), Date(std::chrono::seconds(-1)),
                        Date(std::chrono::seconds(253'402'300'799))}},
        {"data", Array{Data{}, Data{0}, Data{251, 255}, Data{0, 255, 10}, Data{1, 2, 3, 4}}},
    };
    const std::string written = serialisePropertyList(value);
    const auto read = parsePropertyList(written);
    ASSERT_TRUE(read) << printedForm(read.error());
    EXPECT_EQ(*read, value) << written;

    const auto reals = parsePropertyList(serialisePropertyList(Array{-0.0, std::nan("")}));
    EXPECT_TRUE(std::signbit(*reals->array()->front().real()));
    EXPECT_TRUE(std::isnan(*reals->array()->back().real()));
}

TEST(PropertyList, WritesNothingThatCanNotBeRead) {
    const auto read = parsePropertyList(serialisePropertyList(
        Array{std::string("a\0\x01\x1F\x7F\xFF\uFFFE\uFFFF\xED\xA0\x80\xC3", 16) + "z",
              Date(Date::duration::min()), Date(Date::duration::max())}));
    ASSERT_TRUE(read) << printedForm(read.error());
    EXPECT_EQ(*read, Value(Array{"a\x7Fz", Date(std::chrono::seconds(-62'135'596'800)),
                                 Date(std::chrono::seconds(253'402'300'799))}));
}

TEST(PropertyList, ReadsTheFormsOfOtherWriters) {
    const Date date(std::chrono::seconds(981'173'106));
    const std::vector<std::pair<std::string, Value>> cases = {
        {"<dict/>", Dictionary{}},
        {"<!DOCTYPE plist SYSTEM \"file:///none\"><plist version='1'><true> </true></plist>", true},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><string>\xFC</string>", "ü"},
        {{"\xFE\xFF\0<\0s\0t\0r\0i\0n\0g\0/\0>", 20}, ""},
        {xml("<string>&#65;&quot;<!-- c --><![CDATA[<&]]>\r\n</string>"), "A\"<&\n"},
        {xml("<integer> +0x1f </integer>"), std::int64_t{31}},
        {xml("<integer>-010</integer>"), std::int64_t{-10}},
        {xml("<real>\n+1.50E1\n</real>"), 15.0},
        {xml("<real>+infinity</real>"), HUGE_VAL},
        {xml("<date> 2001-02-03T04:05:06Z\n</date>"), date},
        {xml("<data>\n\tAP\n\t8 =\n\t</data>"), Data{0, 255}},
        {xml("<dict><key>a</key><true/><key>a</key><false/></dict>"), Dictionary{{"a", false}}}};
    for (const auto& [bytes, value] : cases) {
        const auto read = parsePropertyList(bytes);
        ASSERT_TRUE(read) << bytes << ": " << printedForm(read.error());
        EXPECT_EQ(*read, value) << bytes;
    }
    EXPECT_TRUE(parsePropertyList(nested(kDeepestPropertyList)));
    EXPECT_TRUE(parsePropertyList("<true/>" + std::string(kLargestPropertyList - 7, ' ')));
}

TEST(PropertyList, RefusesDamageAndNamesItsLine) {
    const std::string entities =
        "<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "line 1: no element found"},
        {"bplist00" + std::string(50, '\0'), "plistutil -i FILE -o FILE.xml -f xml"},
        {"<true/>" + std::string(kLargestPropertyList - 6, ' '), "larger than 16 MiB"},
        {nested(kDeepestPropertyList + 1), "line 2: arrays and dictionaries nest too deep"},
        {"<!DOCTYPE plist [" + entities + "]><string>&b;</string>", "line 1: the document type"},
        {"<!DOCTYPE plist SYSTEM \"file:///none\">\n<string>&b;</string>", "line 2: an entity"},
        {xml("<string>&b;</string>"), "line 2: undefined entity"},
        {xml("<string>\xFF</string>"), "line 2: not well-formed"},
        {xml("<string>&#1;</string>"), "line 2: reference to invalid character"},
        {xml(""), "line 2: there is no value"},
        {xml("<true/>\n<true/>"), "line 3: there is more than one value"},
        {xml("<true/>") + "\n<true/>", "line 3: junk"},
        {xml("<dict>\n<key>a</key>\n<string>b"), "line 4: mismatched tag"},
        {xml("<unknown/>"), "line 2: an element is unknown"},
        {xml("<plist/>"), "line 2: <plist> is not the outermost element"},
        {xml("<string><true/></string>"), "line 2: an element stands inside"},
        {xml("<array>\nb</array>"), "line 3: a text stands outside"},
        {xml("<array><key>a</key></array>"), "line 2: a key stands outside"},
        {xml("<key>a</key>"), "line 2: a key stands outside"},
        {xml("<dict><true/></dict>"), "line 2: a value in a dictionary has no key"},
        {xml("<dict><key>a</key><true/><array>"), "line 2: a value in a dictionary has no key"},
        {xml("<dict><key>a</key><key>b</key>"), "line 2: a key has no value"},
        {xml("<dict><key>a</key></dict>"), "line 2: a key has no value"},
        {xml("<true>x</true>"), "line 2: the content of <true> is malformed"},
    };
    for (const auto& [bytes, message] : cases) {
        expectRefused(bytes, message);
    }
}

TEST(PropertyList, RefusesMalformedContents) {
    for (const auto& [name, contents] : std::map<std::string, std::vector<std::string>>{
             {"integer",
              {"", "5x", "1.5", "--1", "+-1", "0x", "9223372036854775808", "-9223372036854775809",
               "0x8000000000000000"}},
             {"real", {"", "x", "1x", "+-1", "1e999"}},
             {"date",
              {"", "0000-01-01T00:00:00Z", "2023-02-29T00:00:00Z", "2023-01-01T24:00:00Z",
               "2023-01-01T00:60:00Z", "2023-01-01T00:00:60Z", "2023-01-01T00:00:00.5Z",
               "2023-01-01T00:00:00", "+023-01-01T00:00:00Z"}},
             {"data", {"A", "AP8", "AP8==", "A===", "AA==AA==", "A*P8"}}}) {
        for (const std::string& content : contents) {
            expectRefused(xml(filled("<%1$@>%2$@</%1$@>", {name, content})),
                          "line 2: the content of <" + name + "> is malformed or out of range");
        }
    }
}

}  // namespace
}  // namespace teravolant::platform
