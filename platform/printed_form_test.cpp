#include "platform/printed_form.h"

#include <gtest/gtest.h>

#include "platform/text.h"

namespace teravolant::platform {
namespace {

TEST(PrintedForm, ShowsADictionaryAsABlockOfOneLineAKey) {
    const PropertyListValue value = PropertyListValue::Dictionary{
        {"empty", ""},
        {"an odd\"key\\", "two\nlines"},
        {"more", PropertyListValue::Array{true, std::int64_t{-5}, 0.5,
                                          PropertyListValue::Dictionary{{"a", "b"}}}},
        {"date", PropertyListValue::Date(std::chrono::seconds(86399))},
        {"data", PropertyListValue::Data{1, 2}}};
    EXPECT_EQ(printedForm(value), R"({
    "an odd\"key\\" = "two\nlines";
    data = <2 bytes>;
    date = "1970-01-01 23:59:59 +0000";
    empty = "";
    more = (
        1,
        -5,
        "0.5",
        {
            a = b;
        }
    );
})");
}

TEST(PrintedForm, ShowsAnErrorWithTheOneUnderneath) {
    const Error inner{.domain = "Inner", .code = -7, .localizedDescription = "Because."};
    const Error outer{.domain = "Outer",
                      .code = 2,
                      .localizedDescription = "It failed",
                      .userInfo = {{NSUnderlyingErrorKey, std::make_shared<const Error>(inner)}}};
    EXPECT_EQ(printedForm(outer),
              "Error Domain=Outer Code=2 \"It failed\" "
              "UserInfo={NSUnderlyingError=Error Domain=Inner Code=-7 \"Because.\"}");
}

TEST(FilledFormat, PutsEachValueInItsPlaceAndNeverReadsAValueAsAFormat) {
    EXPECT_EQ(filled("%@ is not older than %@", {"%@", "%1$@"}), "%@ is not older than %1$@");
    EXPECT_EQ(filled("%2$@ vor %1$@", {"a", "b"}), "b vor a");
    EXPECT_EQ(filled("%@ %@ %3$@ %0$@ 100% %", {"a"}), "a %@ %3$@ %0$@ 100% %");
}

}  // namespace
}  // namespace teravolant::platform
