// The whole start, from `main` to the end of the process, over everything that decides its way.

#include <gtest/gtest.h>

#include <regex>
#include <tuple>

#include "tests/sandbox.h"

namespace teravolant::fixtures {
namespace {

using Lines = std::vector<std::string>;

struct UpdateSetting {
    std::string name;
    std::string arguments;
    std::string value;  ///< Of AutoUpdateEnable, which is absent when this is empty.
    bool isOn;          ///< What the setting alone says.
};

const UpdateSetting kUpdateSettings[] = {
    {"option", "--notupdate ", "", true},      {"absent", "", "", true},
    {"YES", "", "<string>YES</string>", true}, {"yes", "", "<string>yes</string>", false},
    {"boolean", "", "<true/>", false},         {"NO", "", "<string>NO</string>", false},
};

/// The user, the setting, whether the client's folder is there and a client runs, and whether the
/// start is told to check and update only.
using Case = std::tuple<Sandbox::User, UpdateSetting, bool, bool, bool>;

class RunSequence : public ::testing::TestWithParam<Case> {};

const std::string kClient = "/home/user/.teravolant/teravolant.app";
const std::string kClientPath = kClient + "/Contents/MacOS/teravolant";

void append(Lines& lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
}

Lines firstInstallation(const std::string& agent) {
    const std::string file = "/home/user/Library/LaunchAgents/com.zelto.teravolant." + agent;
    return {"Call file:///bin/launchctl load " + file + ".plist. Returned:", "",
            "Call file:///bin/launchctl start " + file + ".plist. Returned:", ""};
}

Lines settlingLines(bool folder, bool instance, bool checkOnly) {
    if (instance && !folder) {
        return {"WARNING: a teravolant instance is already running and will be killed!",
                "Cmd: ps -ax -o pid=,exe= | grep '" + kClientPath + "' | awk '{print($1)}'",
                "Cmd: kill -9 PID"};
    }
    Lines lines;
    if (instance) {
        lines = {"WARNING: a teravolant instance is already running!"};
    }
    if (!checkOnly) {
        append(lines, instance ? Lines{"sendTeravolantCommand", "Cmd: '" + kClientPath + "' "}
                      : folder
                          ? Lines{"WARNING: the teravolant directory already exists and will be "
                                  "removed!",
                                  "Cmd: rm -rf '/home/user/.teravolant'"}
                          : Lines{"INFO: brisklink can be launched!."});
    }
    return lines;
}

Lines launchLines(bool clientStays, const std::string& arguments) {
    const std::string program = "/opt/Teravolant.app/Contents/MacOS/";
    Lines lines = {
        "TeravolantAppDelegate::checkInitParameters: not installed app: " + program + "Teravolant",
        "launchTeravolant"};
    if (!clientStays) {
        append(lines, {"Cmd: mkdir '/home/user/.teravolant'",
                       "Cmd: tar xzf '" + program +
                           "../Resources/client.tar.gz' -C '/home/user/.teravolant'"});
    }
    lines.push_back("Cmd: open -a '" + kClient + "' --args " + arguments + " -unpackapp " +
                    program + "teravolant");
    return lines;
}

Lines updateLines(bool updates) {
    if (!updates) {
        return {"Update is off, closing the app."};
    }
    return {std::string("[TeravolantAppDelegate::updateToLatestVersion] bundleVersion=") +
                TERAVOLANT_VERSION,
            "[ClientUpdater::startChecksImmediately] do CheckUpdate",
            "[ClientUpdater::startChecksImmediately] wait CheckUpdate result 0"};
}

/// What depends on the build's addresses and on the machine is left out.
Lines comparable(const Lines& log) {
    Lines lines;
    for (const std::string& line : log) {
        if (!std::regex_search(line, std::regex("updateToLatestVersion. (info|NSURL)|"
                                                "^Error checking for updates: Error Domain="))) {
            lines.push_back(std::regex_replace(line, std::regex("kill -9 \\d+$"), "kill -9 PID"));
        }
    }
    return lines;
}

TEST_P(RunSequence, RunsItsCommandsLogsThemInOrderAndLeavesWhatItShould) {
    const auto& [user, setting, folder, instance, checkOnly] = GetParam();
    const bool root = user == Sandbox::User::superuser;
    const bool stops = !root && checkOnly && !instance;
    const bool launches = !root && !stops;
    const bool clientStays = folder && instance;
    const std::string arguments = setting.arguments + (checkOnly ? "--checkAndUpdateOnly " : "");

    const Sandbox sandbox(user);
    const std::string preference = "prefer $all_users AutoUpdateEnable '" + setting.value + "'\n";
    const auto outcome = sandbox.run(
        (setting.value.empty() ? "" : preference) + (instance ? "start_client\n" : "unpack\n") +
        (folder ? "touch ~/.teravolant/stale\n" : "rm -rf ~/.teravolant\n") +
        "before=$(clients); $launcher " + arguments + R"sh(2> /dev/null; printf "\nstatus=$?"
        printf " clients=$(clients | wc -l)"; test "$(clients)" = "$before" && printf " same"
        test -e ~/.teravolant/stale && printf " stale"
        grep -qs AutoUpdateEnable $all_users && printf " AutoUpdateEnable"
        grep -qs forceSetupInstall $own && printf " forceSetupInstall")sh");

    Lines expected = {std::string("Teravolant TeravolantApp Unpacker: Version ") +
                      TERAVOLANT_VERSION};
    if (root) {
        append(expected, {"INFO: root user is not allowed to store agent!.", "Running as root"});
    } else {
        append(expected, firstInstallation("agent"));
        append(expected, {std::string("Auto update: ") + (setting.isOn ? "YES" : "NO"),
                          "Teravolant Client folder: /home/user/.teravolant"});
        append(expected, settlingLines(folder, instance, checkOnly));
    }
    if (launches) {
        append(expected, launchLines(clientStays, arguments));
        append(expected, updateLines(setting.isOn && setting.arguments.empty()));
        append(expected, {"[TeravolantAppDelegate::applicationWillTerminate]"});
        append(expected, firstInstallation("autorun"));
    }
    EXPECT_EQ(comparable(sandbox.log()), expected);
    const std::string left = std::string("\nstatus=") + (stops ? "1" : "0") +
                             " clients=" + (launches || instance ? "1" : "0") +
                             (launches && !clientStays ? "" : " same") +
                             (clientStays || (folder && !launches) ? " stale" : "") +
                             (!setting.value.empty() && !root ? " AutoUpdateEnable" : "") +
                             (launches && !clientStays ? " forceSetupInstall" : "");
    EXPECT_TRUE(outcome.output.ends_with(left)) << outcome.output << "\ninstead of" << left;
}

std::string nameOf(const ::testing::TestParamInfo<Case>& info) {
    const auto& [user, setting, folder, instance, checkOnly] = info.param;
    return (user == Sandbox::User::superuser ? "Root_" : "User_") + setting.name +
           (folder ? "_Folder" : "") + (instance ? "_Instance" : "") +
           (checkOnly ? "_CheckOnly" : "");
}

INSTANTIATE_TEST_SUITE_P(Starts, RunSequence,
                         ::testing::Combine(::testing::Values(Sandbox::User::superuser,
                                                              Sandbox::User::ordinary),
                                            ::testing::ValuesIn(kUpdateSettings), ::testing::Bool(),
                                            ::testing::Bool(), ::testing::Bool()),
                         nameOf);

}  // namespace
}  // namespace teravolant::fixtures
