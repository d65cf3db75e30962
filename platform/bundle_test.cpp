#include "platform/bundle.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

struct LanguageCase {
    const char* locale;
    const char* text;
};

TEST(Bundle, TextsForPeopleComeInTheUsersLanguageElseInEnglish) {
    const fixtures::TemporaryFolder folder;
    const auto addStrings = [&folder](const std::string& language, const std::string& text) {
        folder.write("Contents/Resources/" + language + ".lproj/Localizable.strings",
                     serialisePropertyList(PropertyListValue::Dictionary{{"Failed", text}}));
    };
    folder.write("Contents/Info.plist", serialisePropertyList(PropertyListValue::Dictionary()));
    addStrings("en", "It failed");
    addStrings("pt", "Falhou");
    addStrings("pt-BR", "Deu errado");
    folder.write("Contents/Resources/fr.lproj/Localizable.strings", "no property list");
    const auto bundle = Bundle::bundleWithPath(folder.path());
    ASSERT_TRUE(bundle);

    unsetenv("LANG");
    unsetenv("LC_MESSAGES");
    for (const LanguageCase& test : {LanguageCase{"pt_BR.UTF-8", "Deu errado"},
                                     {"pt_PT@euro", "Falhou"},
                                     {"pt", "Falhou"},
                                     {"fr_FR.UTF-8", "It failed"},
                                     {"../../pt_x", "It failed"},
                                     {"C", "It failed"},
                                     {"", "It failed"}}) {
        setenv("LC_ALL", test.locale, 1);
        EXPECT_EQ(bundle->localizedStringForKey("Failed"), test.text) << test.locale;
    }
    EXPECT_EQ(bundle->localizedStringForKey("%@ is unknown"), "%@ is unknown");
}

}  // namespace
}  // namespace teravolant::platform
