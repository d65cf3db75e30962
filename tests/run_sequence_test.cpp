// The whole start, from `main` to the end of the process, over everything that decides its way.

#include <gtest/gtest.h>

#include <tuple>

#include "tests/sandbox.h"

namespace teravolant::fixtures {
namespace {

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

const std::string kProgram = "/opt/Teravolant.app/Contents/MacOS/";
const std::string kClient = "/home/user/.teravolant/teravolant.app";

std::string firstInstallation(const std::string& agent) {
    const std::string file =
        "/home/user/Library/LaunchAgents/com.zelto.teravolant." + agent + ".plist. Returned:\n\n";
    return "Call file:///bin/launchctl load " + file + "Call file:///bin/launchctl start " + file;
}

std::string settling(bool folder, bool instance, bool checkOnly) {
    const std::string path = "'" + kClient + "/Contents/MacOS/teravolant' ";
    if (instance && !folder) {
        return "WARNING: a teravolant instance is already running and will be killed!\n"
               "Cmd: ps -ax -o pid=,exe= | grep " +
               path + "| awk '{print($1)}'\nCmd: kill -9 ID\n";
    }
    const std::string warning = "WARNING: a teravolant instance is already running!\n";
    if (checkOnly) {
        return instance ? warning : "";
    }
    return instance ? warning + "sendTeravolantCommand\nCmd: " + path + "\n"
           : folder ? "WARNING: the teravolant directory already exists and will be removed!\n"
                      "Cmd: rm -rf '/home/user/.teravolant'\n"
                    : "INFO: brisklink can be launched!.\n";
}

std::string launch(bool clientStays, const std::string& arguments) {
    return "TeravolantAppDelegate::checkInitParameters: not installed app: " + kProgram +
           "Teravolant\nlaunchTeravolant\n" +
           (clientStays ? ""
                        : "Cmd: mkdir '/home/user/.teravolant'\nCmd: tar xzf '" + kProgram +
                              "../Resources/client.tar.gz' -C '/home/user/.teravolant'\n") +
           "Cmd: open -a '" + kClient + "' --args " + arguments + " -unpackapp " + kProgram +
           "teravolant\n";
}

std::string update(bool isOn) {
    const std::string checks = "[ClientUpdater::startChecksImmediately] ";
    return (isOn
                ? "[TeravolantAppDelegate::updateToLatestVersion] bundleVersion=" TERAVOLANT_VERSION
                  "\n" +
                      checks + "do CheckUpdate\n" + checks + "wait CheckUpdate result 0\n"
                : "Update is off, closing the app.\n") +
           "[TeravolantAppDelegate::applicationWillTerminate]\n" + firstInstallation("autorun");
}

TEST_P(RunSequence, RunsItsCommandsLogsThemInOrderAndLeavesWhatItShould) {
    const auto& [user, setting, folder, instance, checkOnly] = GetParam();
    const bool root = user == Sandbox::User::superuser;
    const bool stops = !root && checkOnly && !instance;
    const bool launches = !root && !stops;
    const bool clientStays = folder && instance;
    const std::string arguments = setting.arguments + (checkOnly ? "--checkAndUpdateOnly " : "");
    const std::string preference = "prefer $all_users AutoUpdateEnable '" + setting.value + "'\n";

    // What depends on the build's addresses and on the network is taken out of the log.
    const std::string seen = Sandbox(user).run(
        (setting.value.empty() ? "" : preference) + (instance ? "start_client\n" : "unpack\n") +
        (folder ? "touch ~/.teravolant/stale\n" : "rm -rf ~/.teravolant\n") +
        "before=$(clients); $launcher " + arguments + R"sh(> /dev/null 2>&1; status=$?
        sed -E 's/^[0-9]{4}-[-0-9: ]{14}: //; s/kill -9 [0-9]+$/kill -9 ID/
            /updateToLatestVersion. NSURL/d; /^Error checking for updates: Error Domain=/d
            /infoUpdateServer = [(]null[)]/d; /infoUpdateServer = [{]/,/^[}]/d' "$log"
        printf "status=$status clients=$(clients | wc -l)"
        test "$(clients)" = "$before" && printf " same"
        test -e ~/.teravolant/stale && printf " stale"
        grep -qs AutoUpdateEnable $all_users && printf " AutoUpdateEnable"
        grep -qs forceSetupInstall $own && printf " forceSetupInstall"; echo)sh");

    const std::string ownLines =
        root ? "INFO: root user is not allowed to store agent!.\nRunning as root\n"
             : firstInstallation("agent") + "Auto update: " + (setting.isOn ? "YES" : "NO") +
                   "\nTeravolant Client folder: /home/user/.teravolant\n" +
                   settling(folder, instance, checkOnly);
    EXPECT_EQ(seen,
              "Teravolant TeravolantApp Unpacker: Version " TERAVOLANT_VERSION "\n" + ownLines +
                  (launches ? launch(clientStays, arguments) +
                                  update(setting.isOn && setting.arguments.empty())
                            : "") +
                  "status=" + (stops ? "1" : "0") + " clients=" +
                  (launches || instance ? "1" : "0") + (launches && !clientStays ? "" : " same") +
                  (clientStays || (folder && !launches) ? " stale" : "") +
                  (!setting.value.empty() && !root ? " AutoUpdateEnable" : "") +
                  (launches && !clientStays ? " forceSetupInstall" : "") + "\n");
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
