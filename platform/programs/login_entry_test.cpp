#include "platform/programs/login_entry.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/property_list.h"
#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

using Dictionary = PropertyListValue::Dictionary;
using Array = PropertyListValue::Array;

constexpr const char* kFile = "with\\back\nslash.plist";

TEST(LoginEntry, QuotesWhatTheSessionWouldTakeForSomethingElse) {
    const LaunchAgent agent{.label = "some.label", .programArguments = {"/a b", R"(x"`$\%u)", ""}};
    EXPECT_EQ(loginEntryText(agent, "/agents/a.plist"),
              "[Desktop Entry]\nType=Application\nVersion=1.5\nName=some.label\nTryExec=/a b\n"
              "Exec=env \"DESKTOP_AUTOSTART_ID=some.label\" \"/a b\" "
              R"("x\\"\\`\\$\\\\%%u" "")"
              "\nX-Teravolant-PropertyList=/agents/a.plist\nNoDisplay=true\n");
}

TEST(LoginEntry, LeadsBackToItsPropertyList) {
    const fixtures::TemporaryFolder folder;
    setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
    folder.write(kFile, serialisePropertyList(Dictionary{
                            {"Label", "some.label"}, {"ProgramArguments", Array{"/bin/a", "b"}}}));
    const auto agent = readLaunchAgent(folder.path() / kFile);
    ASSERT_TRUE(agent);
    folder.write("autostart/some.label.desktop",
                 loginEntryText(agent.value(), folder.path() / kFile));
    const auto again = agentOfLoginEntry("some.label");
    ASSERT_TRUE(again) << again.error().localizedDescription;
    EXPECT_EQ(again.value().programArguments, (std::vector<std::string>{"/bin/a", "b"}));
}

TEST(LoginEntry, IsNotMadeFromAnUnusablePropertyList) {
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

}  // namespace
}  // namespace teravolant::platform
