#include "platform/values/json.h"
#include "platform/core/error.h"

#include <cmath>

#include <gtest/gtest.h>

namespace teravolant::platform {
namespace {

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(Json, RefusesInvalidTextWithAShortMessage) {
    for (const std::string& text :
         {std::string(), std::string("<html>"), std::string("{\"a\":1} x"), std::string("{\"a\":"),
          std::string("7"), std::string("[\"\xC3\"]"), std::string("[1e999]"),
          std::string(1'000'000, '\"'), nested(kDeepestJson + 1), std::string(1'048'576, '['),
          R"({"a":)" + nested(kDeepestJson) + "}"}) {
        const auto parsed = parseJson(text);
        ASSERT_FALSE(parsed) << text.substr(0, 40);
        EXPECT_LT(parsed.error().localizedDescription.size(), 100U);
    }
    EXPECT_TRUE(parseJson(nested(kDeepestJson)));
}

TEST(Json, RefusesToWriteUnrepresentableValues) {
    const Value deep = *parseJson(nested(kDeepestJson));
    EXPECT_TRUE(serialiseJson(deep));
    for (const Value& value :
         {Value("\xFF"), Value(std::nan("")), Value(HUGE_VAL), Value(Value::Array{deep})}) {
        EXPECT_FALSE(serialiseJson(Value::Array{value}));
    }
}

}  // namespace
}  // namespace teravolant::platform
