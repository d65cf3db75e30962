#include "platform/programs/login_entry.h"

#include <gtest/gtest.h>

#include <fstream>

#include "platform/files.h"
#include "platform/property_list.h"
#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

using Dictionary = PropertyListValue::Dictionary;
using Array = PropertyListValue::Array;

class LoginEntry : public ::testing::Test {
  protected:
    Result<LaunchAgent> readAgent(const PropertyListValue& value) {
        std::ofstream(_file) << serialisePropertyList(value);
        return readLaunchAgent(_file);
    }

    fixtures::TemporaryFolder _folder;
    std::filesystem::path _file = _folder.path() / "with\\back\nslash.plist";
};

TEST_F(LoginEntry, QuotesWhatTheSessionWouldTakeForSomethingElse) {
    const LaunchAgent agent{.label = "some.label", .programArguments = {"/a b", R"(x"`$\%u)", ""}};
    EXPECT_EQ(loginEntryText(agent, "/agents/a.plist"),
              "[Desktop Entry]\nType=Application\nVersion=1.5\nName=some.label\nTryExec=/a b\n"
              "Exec=env \"DESKTOP_AUTOSTART_ID=some.label\" \"/a b\" "
              R"("x\\"\\`\\$\\\\%%u" "")"
              "\nX-Teravolant-PropertyList=/agents/a.plist\nNoDisplay=true\n");
}

TEST_F(LoginEntry, LeadsBackToItsPropertyList) {
    setenv("XDG_CONFIG_HOME", _folder.path().c_str(), 1);
    const auto agent = readAgent(
        Dictionary{{"Label", "some.label"}, {"ProgramArguments", Array{"/bin/true", "word"}}});
    ASSERT_TRUE(agent);
    const auto entry = loginEntryPath("some.label");
    ASSERT_FALSE(createDirectory(entry.parent_path()));
    std::ofstream(entry) << loginEntryText(agent.value(), _file);
    const auto again = agentOfLoginEntry("some.label");
    ASSERT_TRUE(again) << again.error().localizedDescription;
    EXPECT_EQ(again.value().programArguments, (std::vector<std::string>{"/bin/true", "word"}));
}

TEST_F(LoginEntry, IsNotMadeFromAnUnusablePropertyList) {
    const Array program = {"/bin/true"};
    for (const PropertyListValue& value :
         {PropertyListValue(Array{}), PropertyListValue(Dictionary{{"ProgramArguments", program}}),
          PropertyListValue(Dictionary{{"Label", "../up"}, {"ProgramArguments", program}}),
          PropertyListValue(Dictionary{{"Label", ""}, {"ProgramArguments", program}}),
          PropertyListValue(Dictionary{{"Label", true}, {"ProgramArguments", program}}),
          PropertyListValue(Dictionary{{"Label", "a"}}),
          PropertyListValue(Dictionary{{"Label", "a"}, {"ProgramArguments", Array{}}}),
          PropertyListValue(Dictionary{{"Label", "a"}, {"ProgramArguments", Array{"/a=b/c"}}}),
          PropertyListValue(Dictionary{{"Label", "a"}, {"ProgramArguments", Array{true}}})}) {
        EXPECT_FALSE(readAgent(value)) << serialisePropertyList(value);
    }
}

}  // namespace
}  // namespace teravolant::platform
