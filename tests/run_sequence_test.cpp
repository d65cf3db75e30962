// The whole start, from `main` to the end of the process, over everything that decides its way.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <regex>
#include <tuple>

#include "tests/sandbox.h"

namespace teravolant::fixtures {
namespace {

using platform::PropertyListValue;
using Lines = std::vector<std::string>;

enum class ClientState { nothing = 0, instance = 1, folder = 2, folderAndInstance = 3 };

struct UpdateSetting {
    std::string name;
    bool notUpdateOption = false;
    std::optional<PropertyListValue> autoUpdateEnable = {};
    bool autoUpdate = true;
};

const UpdateSetting kUpdateSettings[] = {
    {.name = "option", .notUpdateOption = true},
    {.name = "absent"},
    {.name = "YES", .autoUpdateEnable = "YES"},
    {.name = "yes", .autoUpdateEnable = "yes", .autoUpdate = false},
    {.name = "boolean", .autoUpdateEnable = true, .autoUpdate = false},
    {.name = "NO", .autoUpdateEnable = "NO", .autoUpdate = false},
};

using Case = std::tuple<Sandbox::User, UpdateSetting, ClientState, bool>;

class RunSequence : public ::testing::TestWithParam<Case> {};

const std::string kVersion = TERAVOLANT_VERSION;
const std::string kAgents = "/home/user/Library/LaunchAgents/com.zelto.teravolant.";
const std::string kOpenedWith = " -unpackapp /opt/Teravolant.app/Contents/MacOS/teravolant";

void append(Lines& lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
}

Lines firstInstallation(const std::string& agent) {
    const std::string file = kAgents + agent + ".plist. Returned:";
    return {"Call file:///bin/launchctl load " + file, "",
            "Call file:///bin/launchctl start " + file, ""};
}

Lines settlingLines(ClientState state, bool checkAndUpdateOnly) {
    switch (state) {
        case ClientState::nothing:
            return checkAndUpdateOnly ? Lines{} : Lines{"INFO: brisklink can be launched!."};
        case ClientState::instance:
            return {"WARNING: a teravolant instance is already running and will be killed!",
                    "Cmd: ps -ax -o pid=,exe= | grep '/home/user/.teravolant/teravolant.app/"
                    "Contents/MacOS/teravolant' | awk '{print($1)}'",
                    "Cmd: kill -9 PID"};
        case ClientState::folder:
            return checkAndUpdateOnly
                       ? Lines{}
                       : Lines{
                             "WARNING: the teravolant directory already exists and will be "
                             "removed!",
                             "Cmd: rm -rf '/home/user/.teravolant'"};
        case ClientState::folderAndInstance:
            break;
    }
    Lines lines = {"WARNING: a teravolant instance is already running!"};
    if (!checkAndUpdateOnly) {
        append(lines, {"sendTeravolantCommand",
                       "Cmd: '/home/user/.teravolant/teravolant.app/Contents/MacOS/teravolant' "});
    }
    return lines;
}

Lines launchLines(ClientState state, const std::string& arguments) {
    Lines lines = {
        "TeravolantAppDelegate::checkInitParameters: not installed app: "
        "/opt/Teravolant.app/Contents/MacOS/Teravolant",
        "launchTeravolant"};
    if (state != ClientState::folderAndInstance) {
        append(lines, {"Cmd: mkdir '/home/user/.teravolant'",
                       "Cmd: tar xzf '/opt/Teravolant.app/Contents/MacOS/../Resources/"
                       "client.tar.gz' -C '/home/user/.teravolant'"});
    }
    lines.push_back("Cmd: open -a '/home/user/.teravolant/teravolant.app' --args " + arguments +
                    kOpenedWith);
    return lines;
}

std::string preparation(ClientState state) {
    switch (state) {
        case ClientState::nothing:
            return "";
        case ClientState::instance:
            return "start_client before; rm -rf ~/.teravolant\n";
        case ClientState::folder:
            return "unpack; touch ~/.teravolant/stale\n";
        case ClientState::folderAndInstance:
            return "start_client before; touch ~/.teravolant/stale\n";
    }
    return "";
}

TEST_P(RunSequence, RunsItsCommandsLogsThemInOrderAndLeavesWhatItShould) {
    const auto& [user, setting, state, checkAndUpdateOnly] = GetParam();
    const bool root = user == Sandbox::User::superuser;
    const bool stops =
        checkAndUpdateOnly && (state == ClientState::nothing || state == ClientState::folder);
    const bool launches = !root && !stops;

    Sandbox sandbox(user);
    if (setting.autoUpdateEnable) {
        Sandbox::writePreference(sandbox.machineConfiguration(), kAllUsersDomain,
                                 "AutoUpdateEnable", *setting.autoUpdateEnable);
    }
    std::string arguments = setting.notUpdateOption ? "--notupdate " : "";
    arguments += checkAndUpdateOnly ? "--checkAndUpdateOnly " : "";
    const auto outcome = sandbox.run(
        preparation(state) + "before=$(clients); $launcher " + arguments +
        "2> /dev/null; status=$?; echo; echo \"before=$before after=$(clients)\"; exit $status");

    Lines expected = {"Teravolant TeravolantApp Unpacker: Version " + kVersion};
    if (root) {
        append(expected, {"INFO: root user is not allowed to store agent!.", "Running as root"});
    } else {
        append(expected, firstInstallation("agent"));
        append(expected, {std::string("Auto update: ") + (setting.autoUpdate ? "YES" : "NO"),
                          "Teravolant Client folder: /home/user/.teravolant"});
        append(expected, settlingLines(state, checkAndUpdateOnly));
    }
    if (launches) {
        append(expected, launchLines(state, arguments));
        const bool updateIsOff = setting.notUpdateOption || !setting.autoUpdate;
        append(
            expected,
            updateIsOff
                ? Lines{"Update is off, closing the app."}
                : Lines{"[TeravolantAppDelegate::updateToLatestVersion] bundleVersion=" + kVersion,
                        "[ClientUpdater::startChecksImmediately] do CheckUpdate",
                        "[ClientUpdater::startChecksImmediately] wait CheckUpdate result 0"});
        append(expected, {"[TeravolantAppDelegate::applicationWillTerminate]"});
        append(expected, firstInstallation("autorun"));
    }
    Lines actual = sandbox.log();
    for (std::string& line : actual) {
        line = std::regex_replace(line, std::regex("kill -9 [0-9]+$"), "kill -9 PID");
    }
    std::erase_if(actual, [](const std::string& line) {
        return line.starts_with("[TeravolantAppDelegate::updateToLatestVersion] info") ||
               line.starts_with("[TeravolantAppDelegate::updateToLatestVersion] NSURL") ||
               line.starts_with("Error checking for updates: Error Domain=");
    });
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(outcome.status, stops && !root ? 1 : 0) << outcome.output;

    const bool runningBefore =
        state == ClientState::instance || state == ClientState::folderAndInstance;
    const bool sameClient = runningBefore && (!launches || state == ClientState::folderAndInstance);
    std::smatch clients;
    ASSERT_TRUE(
        std::regex_search(outcome.output, clients, std::regex("before=([0-9]*) after=([0-9]*)\n")))
        << outcome.output;
    EXPECT_EQ(clients[1] == clients[2], sameClient || (!runningBefore && !launches));
    EXPECT_EQ(clients[2].length() > 0, launches || runningBefore);

    const auto ownFolder = sandbox.home() / ".config";
    const bool unpacks = launches && state != ClientState::folderAndInstance;
    EXPECT_EQ(Sandbox::preferences(ownFolder, kOwnDomain).count("forceSetupInstall"), unpacks);
    EXPECT_EQ(
        std::filesystem::exists(sandbox.home() / ".teravolant" / "stale"),
        state == ClientState::folderAndInstance || (state == ClientState::folder && !launches));
    EXPECT_EQ(Sandbox::preferences(sandbox.machineConfiguration(), kAllUsersDomain)
                  .count("AutoUpdateEnable"),
              setting.autoUpdateEnable && !root);
}

std::string nameOf(const ::testing::TestParamInfo<Case>& info) {
    const auto& [user, setting, state, checkAndUpdateOnly] = info.param;
    return std::string(user == Sandbox::User::superuser ? "Root" : "User") + "_" + setting.name +
           "_State" + std::to_string(static_cast<int>(state)) +
           (checkAndUpdateOnly ? "_CheckOnly" : "");
}

INSTANTIATE_TEST_SUITE_P(
    Starts, RunSequence,
    ::testing::Combine(::testing::Values(Sandbox::User::superuser, Sandbox::User::ordinary),
                       ::testing::ValuesIn(kUpdateSettings),
                       ::testing::Values(ClientState::nothing, ClientState::instance,
                                         ClientState::folder, ClientState::folderAndInstance),
                       ::testing::Bool()),
    nameOf);

}  // namespace
}  // namespace teravolant::fixtures
