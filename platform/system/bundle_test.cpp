#include "platform/system/bundle.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

using Dictionary = Value::Dictionary;

TEST(Bundle, LocalizesForTheUserElseInEnglish) {
    const fixtures::TemporaryFolder folder;
    folder.write("Contents/Info.plist", serialisePropertyList(Dictionary()));
    for (const std::string language : {"en", "pt", "pt-BR", "fr"}) {
        folder.write("Contents/Resources/" + language + ".lproj/Localizable.strings",
                     language == "fr" ? "no property list"
                                      : serialisePropertyList(Dictionary{{"Failed", language}}));
    }
    const auto bundle = Bundle::bundleWithPath(folder.path());
    ASSERT_TRUE(bundle);
    unsetenv("LANG");
    unsetenv("LC_MESSAGES");
    for (const auto& [locale, language] : {std::pair{"pt_BR.UTF-8", "pt-BR"},
                                           {"pt_PT@euro", "pt"},
                                           {"pt", "pt"},
                                           {"fr_FR.UTF-8", "en"},
                                           {"../../pt_x", "en"},
                                           {"", "en"}}) {
        setenv("LC_ALL", locale, 1);
        EXPECT_EQ(bundle->localizedStringForKey("Failed"), language) << locale;
    }
    EXPECT_EQ(bundle->localizedStringForKey("%@ is unknown"), "%@ is unknown");
}

}  // namespace teravolant::platform
