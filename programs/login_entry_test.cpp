#include "programs/login_entry.h"

#include <gtest/gtest.h>

#include "platform/files/files.h"
#include "platform/values/property_list.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

using Dictionary = Value::Dictionary;
using Array = Value::Array;

constexpr const char* kFile = "with\\back\nslash.plist";

TEST(LoginEntry, QuotesArgumentsAndNamesItsPropertyList) {
    const fixtures::TemporaryFolder folder;
    setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
    const Array arguments = {"/a b", R"(x"`$\%u)", ""};
    folder.write(kFile, serialisePropertyList(
                            Dictionary{{"Label", "some.label"}, {"ProgramArguments", arguments}}));
    const auto agent = readLaunchAgent(folder.path() / kFile);
    ASSERT_TRUE(agent);
    const std::string text = loginEntryText(*agent, folder.path() / kFile);
    EXPECT_EQ(text,
              "[Desktop Entry]\nType=Application\nVersion=1.5\nName=some.label\nTryExec=/a b\n"
              "Exec=env \"DESKTOP_AUTOSTART_ID=some.label\" \"/a b\" "
              R"("x\\"\\`\\$\\\\%%u" "")"
              "\nX-Teravolant-PropertyList=" +
                  folder.path().string() + R"(/with\\back\nslash.plist)" + "\nNoDisplay=true\n");
    folder.write("autostart/some.label.desktop", text);
    const auto again = agentOfLoginEntry("some.label");
    ASSERT_TRUE(again) << printedForm(again.error());
    EXPECT_EQ(again->programArguments, agent->programArguments);
}

TEST(LoginEntry, RefusesAnUnusablePropertyList) {
    const fixtures::TemporaryFolder folder;
    const Array program = {"/bin/true"};
    for (const Dictionary& value :
         {Dictionary{{"ProgramArguments", program}},
          Dictionary{{"Label", "../up"}, {"ProgramArguments", program}},
          Dictionary{{"Label", ""}, {"ProgramArguments", program}},
          Dictionary{{"Label", true}, {"ProgramArguments", program}}, Dictionary{{"Label", "a"}},
          Dictionary{{"Label", "a"}, {"ProgramArguments", Array{}}},
          Dictionary{{"Label", "a"}, {"ProgramArguments", Array{"/a=b/c"}}},
          Dictionary{{"Label", "a"}, {"ProgramArguments", Array{true}}}}) {
        folder.write(kFile, serialisePropertyList(value));
        EXPECT_FALSE(readLaunchAgent(folder.path() / kFile)) << serialisePropertyList(value);
    }
}

}  // namespace teravolant::platform
