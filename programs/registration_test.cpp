#include <gtest/gtest.h>

#include "platform/files/files.h"
#include "platform/values/property_list.h"
#include "programs/login_entry.h"
#include "programs/timer.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

using Dictionary = Value::Dictionary;
using Array = Value::Array;

constexpr const char* kFile = "with\\back\nslash.plist";

Result<LaunchAgent> read(const fixtures::TemporaryFolder& folder, const Dictionary& value) {
    folder.write(kFile, serialisePropertyList(value));
    return readLaunchAgent(folder.path() / kFile);
}

TEST(Registration, QuotesArgumentsAndNamesItsPropertyList) {
    const fixtures::TemporaryFolder folder;
    const Array arguments = {"/a b%", R"(x"'`$\%u)", "", ";", "ö\n\x7f"};
    const auto agent = read(folder, {{"Label", "some.label"},
                                     {"ProgramArguments", arguments},
                                     {"StartInterval", 3600},
                                     {"TVDisplayName", "100% sure"}});
    ASSERT_TRUE(agent);
    const std::string record = "X-Teravolant-PropertyList=" + folder.path().string() +
                               R"(/with\\back\nslash.plist)"
                               "\n";
    EXPECT_EQ(loginEntryText(*agent, "Hidden=true\n"),
              "[Desktop Entry]\nType=Application\nVersion=1.0\nName=100% sure\nTryExec=/a b%\n"
              "Exec=env \"DESKTOP_AUTOSTART_ID=some.label\" \"/a b%%\" "
              R"("x\\"'\\`\\$\\\\%%u" "" ";" "ö\n)"
              "\x7f\"\n" +
                  record + "Hidden=true\n");
    ASSERT_TRUE(canBeTimer(*agent));
    EXPECT_EQ(serviceUnitText(*agent),
              "[Unit]\nDescription=100%% sure\n" + record +
                  "ConditionFileIsExecutable=/a b%%\n\n"
                  "[Service]\nType=oneshot\nEnvironment=DESKTOP_AUTOSTART_ID=some.label\n"
                  R"(ExecStart="/a b%%" "x\"'`$$\\%%u" "" ";" "ö\x0a\x7f")"
                  "\nSuccessExitStatus=1\nKillMode=process\n");
    EXPECT_EQ(timerUnitText(*agent),
              "[Unit]\nDescription=100%% sure\n" + record +
                  "\n[Timer]\nOnActiveSec=10min\nOnUnitActiveSec=3600s\nRandomizedDelaySec=225s\n\n"
                  "[Install]\nWantedBy=timers.target\n");
    for (const std::string& text : {loginEntryText(*agent, ""), timerUnitText(*agent)}) {
        folder.write("file", text);
        const auto again = agentOfRegistration(folder.path() / "file");
        ASSERT_TRUE(again) << printedForm(again.error());
        EXPECT_EQ(again->programArguments, agent->programArguments);
    }
}

TEST(Registration, RefusesAnUnusablePropertyList) {
    const fixtures::TemporaryFolder folder;
    const Dictionary usable = {{"Label", "a"}, {"ProgramArguments", Array{"/bin/true"}}};
    EXPECT_TRUE(read(folder, usable));
    for (const auto& [key, value] :
         std::initializer_list<std::pair<std::string, Value>>{{"Label", "../up"},
                                                              {"Label", ""},
                                                              {"Label", true},
                                                              {"ProgramArguments", Array{}},
                                                              {"ProgramArguments", Array{"/a=b/c"}},
                                                              {"ProgramArguments", Array{"true"}},
                                                              {"ProgramArguments", Array{true}},
                                                              {"StartInterval", 0},
                                                              {"StartInterval", "1"}}) {
        Dictionary changed = usable;
        changed.insert_or_assign(key, value);
        EXPECT_FALSE(read(folder, changed)) << serialisePropertyList(changed);
        changed.erase(key);
        EXPECT_EQ(static_cast<bool>(read(folder, changed)), key == "StartInterval") << key;
    }
}

TEST(Registration, MakesTimersOfWhatUnitsCanHold) {
    const auto canBe = [](const char* label, const char* program, const char* list = "/p") {
        return canBeTimer(LaunchAgent{.propertyList = list,
                                      .label = label,
                                      .displayName = "a",
                                      .programArguments = {program},
                                      .startInterval = std::chrono::seconds(1)});
    };
    EXPECT_TRUE(canBe("a-1.B_:", "/ö %/b"));
    EXPECT_FALSE(canBe("a", "/b", "/h\xf6/p"));
    for (const char* label : {"a b", "a@b", "ö", "a\\b"}) {
        EXPECT_FALSE(canBe(label, "/b")) << label;
    }
    for (const char* program : {"/a\\", "/'a", "/\"a", "/$a", "/a\n", "/a ", "/\xff"}) {
        EXPECT_FALSE(canBe("a", program)) << program;
    }
}

TEST(Registration, FindsWhatDesktopsSwitchedOff) {
    const std::string group = "[Desktop Entry]\n";
    for (const auto& [entry, lines] : std::initializer_list<std::pair<std::string, std::string>>{
             {group + "Hidden=false\nX-GNOME-Autostart-enabled=true\n", ""},
             {group + "A=Hidden=true\n#Hidden=true\n[Other]\nHidden=true\n", ""},
             {group + "Hidden = true\nName=a\nX-GNOME-Autostart-enabled=false\n",
              "Hidden = true\nX-GNOME-Autostart-enabled=false\n"},
             {group + "X-MATE-Autostart-enabled=false", "X-MATE-Autostart-enabled=false\n"}}) {
        EXPECT_EQ(switchedOffLines(entry), lines) << entry;
    }
}

}  // namespace teravolant::platform
