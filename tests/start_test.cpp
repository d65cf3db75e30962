// Single starts at the edges: what the client is handed, what must not be run, and bad input.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "platform/files.h"
#include "tests/sandbox.h"

namespace teravolant::fixtures {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const std::string kOpen = "Cmd: open -a '/home/user/.teravolant/teravolant.app' --args ";
const std::string kUnpackapp = " -unpackapp /opt/Teravolant.app/Contents/MacOS/teravolant";

bool contains(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

/// The output of a script must hold the text.
void expectOutput(const Sandbox::Outcome& outcome, const std::string& text) {
    EXPECT_NE(outcome.output.find(text), std::string::npos) << outcome.output;
}

/// The lines that begin with the text.
Lines linesWith(const Lines& lines, const std::string& beginning) {
    Lines found;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
                 [&beginning](const std::string& line) { return line.starts_with(beginning); });
    return found;
}

Lines joined(const std::vector<Lines>& parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

constexpr auto nameOf = [](const auto& info) { return info.param.name; };

struct ArgumentCase {
    std::string name;
    std::vector<std::size_t> wordLengths;
    std::size_t wordsTaken;
    bool unpackapp;
    bool minimized;
};

class ClientArguments : public ::testing::TestWithParam<ArgumentCase> {};

// The launcher's folder counts 34 characters here, so that its own words count 57; the words in
// front are as many letters as the table says, and each counts one more for its blank.
TEST_P(ClientArguments, TakeWholeWordsAsLongAsTheCountStaysBelow512) {
    const ArgumentCase& test = GetParam();
    std::string given;
    std::string taken;
    for (std::size_t index = 0; index < test.wordLengths.size(); ++index) {
        const std::string word(test.wordLengths[index], static_cast<char>('a' + index));
        given += word + " ";
        taken += index < test.wordsTaken ? word + " " : "";
    }
    Sandbox sandbox;
    Sandbox::writePreference(sandbox.machineConfiguration(), kAllUsersDomain, "AutoUpdateEnable",
                             "NO");
    sandbox.run("DESKTOP_AUTOSTART_ID= $launcher " + given);
    EXPECT_EQ(linesWith(sandbox.log(), kOpen),
              Lines{kOpen + taken + (test.unpackapp ? kUnpackapp : "") +
                    (test.minimized ? " --minimized" : "")});
}

INSTANTIATE_TEST_SUITE_P(
    Edges, ClientArguments,
    ::testing::Values(ArgumentCase{"None", {}, 0, true, true},
                      ArgumentCase{"OneOf509Counts510", {509}, 1, false, false},
                      ArgumentCase{"OneOf510Counts511", {510}, 1, false, false},
                      ArgumentCase{"OneOf511Counts512", {511}, 0, false, false},
                      ArgumentCase{"ARefusedWordStillCounts", {1, 600, 1}, 1, false, false},
                      ArgumentCase{"TheLauncherWordsFillItUp", {453}, 1, true, false},
                      ArgumentCase{"AShorterPieceFitsBehindOneThatDoesNot", {454}, 1, false, true}),
    nameOf);

TEST(ClientLaunch, TellsAnInstalledVersionsFirstStartAndOnlyThat) {
    Sandbox sandbox;
    sandbox.run(R"sh(cp -r /opt/Teravolant.app /Applications/
        launcher=/Applications/Teravolant.app/Contents/MacOS/teravolant
        plist=/Applications/Teravolant.app/Contents/Info.plist
        $launcher --notupdate; $launcher --notupdate
        sed -i 's/<string>[0-9.]*</<string>0.9.0.1</' $plist
        $launcher --notupdate)sh");
    const std::string words =
        "--notupdate  -unpackapp "
        "/Applications/Teravolant.app/Contents/MacOS/teravolant";
    EXPECT_EQ(linesWith(sandbox.log(), kOpen),
              (Lines{kOpen + words + " --launchstartup on", kOpen + words,
                     kOpen + words + " --launchstartup on"}));
    EXPECT_EQ(
        linesWith(sandbox.log(), "TeravolantAppDelegate::"),
        (Lines{std::string("TeravolantAppDelegate::updateInitParameters ") + TERAVOLANT_VERSION,
               "TeravolantAppDelegate::updateInitParameters 0.9.0.1"}));
}

TEST(ClientLaunch, LeavesAClientThatOutlivesTheLauncherAndKnowsNothingOfTheLogin) {
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        DESKTOP_AUTOSTART_ID=session $launcher --notupdate 2> /dev/null
        client=$(clients); await test -s "$client_log"
        ps -o sess= -p $client | tr -d ' ' | grep -qx $client && echo "has its own session"
        tr '\0' '\n' < /proc/$client/environ | grep -e DESKTOP_AUTOSTART_ID -e ^PATH=
        $launcher --notupdate 2> /dev/null
        test "$(clients)" = $client && echo "is still the one client")sh");
    expectOutput(outcome, "has its own session\nPATH=/usr/bin\n");
    expectOutput(outcome, "is still the one client\n");
    EXPECT_EQ(sandbox.clientLog(),
              (Lines{"--notupdate -unpackapp /opt/Teravolant.app/Contents/MacOS/teravolant "
                     "--minimized",
                     ""}));
}

TEST(ClientLaunch, WithoutAnUpdateCheckLoadsNoLibraryThatOnlyUpdatesNeed) {
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        LD_DEBUG=files LD_DEBUG_OUTPUT=/tmp/loaded $launcher --notupdate > /dev/null 2>&1 &
        wait $!
        grep -q libplist /tmp/loaded.$! && echo "reported"
        grep -E 'lib(curl|archive|crypto|ssl|TeravolantUpdate)' /tmp/loaded.$!)sh");
    EXPECT_EQ(outcome.output, "reported\n");
}

TEST(ClientLaunch, IsDoneAnewByTheClientThatIsToldThatAReleaseWaits) {
    Sandbox sandbox;
    Sandbox::writePreference(sandbox.machineConfiguration(), kAllUsersDomain, "AutoUpdateEnable",
                             "NO");
    const auto outcome = sandbox.run(R"sh(
        $launcher 2> /dev/null
        first=$(clients); await test -s "$client_log"
        ~/.teravolant/teravolant.app/Contents/MacOS/teravolant --needrestart "ApplyReleasesWaiting"
        another() { test "$(clients)" -gt 0 -a "$(clients)" != $first; }
        entries() { test $(wc -l < "$client_log") = $1; }
        await another; await entries 3)sh");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(
        sandbox.clientLog(),
        (Lines{kUnpackapp.substr(1), "--needrestart ApplyReleasesWaiting", kUnpackapp.substr(1)}));
}

TEST(Commands, OneThatDoesNotFitIntoItsBufferIsNotRunAndTheLogSaysSo) {
    const std::string deep = "/home/user/" + std::string(240, 'a') + "/" + std::string(240, 'b') +
                             "/" + std::string(240, 'c') + "/" + std::string(230, 'd');
    Sandbox sandbox;
    sandbox.addSetup({"--setenv", "XDG_DATA_HOME", "/home/user/.local/share"});
    const auto outcome =
        sandbox.run("mkdir -p " + deep + "; HOME=" + deep + " $launcher --notupdate");
    const Lines refused = linesWith(sandbox.log(),
                                    "ERROR: a command longer than 1023 characters "
                                    "is not run: ");
    ASSERT_EQ(refused.size(), 3U) << outcome.output;
    EXPECT_NE(refused[0].find("not run: ps -ax -o exe= | grep"), std::string::npos);
    EXPECT_NE(refused[1].find("not run: tar xzf"), std::string::npos);
    EXPECT_NE(refused[2].find("not run: open -a"), std::string::npos);
    EXPECT_EQ(linesWith(sandbox.log(), "Cmd: "), Lines{"Cmd: mkdir '" + deep + "/.teravolant'"});
}

struct InstanceCase {
    std::string name;
    std::string setup;
    std::size_t kills;
    std::string leftRunning;
};

class RunningInstances : public ::testing::TestWithParam<InstanceCase> {};

TEST_P(RunningInstances, AreToldFromWhatOnlyLooksLikeThem) {
    const InstanceCase& test = GetParam();
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        path=$HOME/.teravolant/teravolant.app/Contents/MacOS
        run_as() { mkdir -p "$(dirname "$1")"; cp /usr/bin/sleep "$1"; "$1" 1000 & await executes $! "$1"; }
    )sh" + test.setup + R"sh(
        rm -rf ~/.teravolant
        $launcher --checkAndUpdateOnly --notupdate > /dev/null 2>&1
        echo "left: $(pgrep -x -c "sleep|teravolant.*")")sh");
    EXPECT_EQ(linesWith(sandbox.log(), "Cmd: kill -9 ").size(), test.kills) << outcome.output;
    expectOutput(outcome, "left: " + test.leftRunning + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Lookalikes, RunningInstances,
    ::testing::Values(
        InstanceCase{"ThePathAsAnArgument", "bash -c 'exec -a sleep sleep 1000' $path/teravolant &",
                     0, "1"},
        InstanceCase{"ThePathAsTheProgramsName",
                     "(exec -a $path/teravolant sleep 1000) & await pgrep -f $path", 0, "1"},
        InstanceCase{"AnotherUsersClient",
                     "run_as /home/user/other/.teravolant/teravolant.app/Contents/MacOS/teravolant",
                     0, "1"},
        // The client that is opened afterwards is the second one running.
        InstanceCase{"TwoOfWhichTheFirstIsKilled",
                     "run_as $path/teravolant; run_as $path/teravolant2", 1, "2"}),
    nameOf);

struct LiveClientCase {
    std::string name;
    std::string setup;  ///< Before the client runs.
    std::string call = "$launcher";
};

class LiveClient : public ::testing::TestWithParam<LiveClientCase> {};

TEST_P(LiveClient, IsSeenWhateverTheLauncherIsStartedWith) {
    const LiveClientCase& test = GetParam();
    Sandbox sandbox;
    sandbox.addSetup({"--setenv", "XDG_DATA_HOME", "/home/user/.local/share"});
    const auto outcome =
        sandbox.run(test.setup + "\nstart_client; touch ~/.teravolant/mine\n" + test.call +
                    " 2> /dev/null; echo \"status=$?\"; ls ~/.teravolant");
    EXPECT_TRUE(contains(sandbox.log(), "WARNING: a teravolant instance is already running!"));
    EXPECT_TRUE(contains(sandbox.log(), "[TeravolantAppDelegate::applicationWillTerminate]"));
    expectOutput(outcome, "status=0\nmine\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, LiveClient,
    ::testing::Values(
        LiveClientCase{"HomeWithLettersBeyondAscii", "export HOME=/home/user/hö; mkdir $HOME"},
        LiveClientCase{"NarrowTerminal", "", "COLUMNS=20 $launcher"},
        LiveClientCase{"FullStandardOutput", "", "$launcher > /dev/full"},
        LiveClientCase{"StandardOutputWithoutReader",
                       "mkfifo /tmp/pipe; exec 3<> /tmp/pipe 4> /tmp/pipe 3>&-", "$launcher >&4"},
        LiveClientCase{"ChildrenIgnored", "", "env --ignore-signal=CHLD $launcher"},
        LiveClientCase{"EmptyPath", "", "PATH= $launcher"},
        LiveClientCase{"InterruptedProcessList", R"sh(mkdir /tmp/bin; cat > /tmp/bin/ps <<'PS'
#!/bin/sh
kill -INT 0; exec /usr/bin/ps "$@"
PS
chmod +x /tmp/bin/ps)sh",
                       "PATH=/tmp/bin:$PATH setsid --wait $launcher"}),
    nameOf);

TEST(CommandToClient, NamesAWaitingReleaseOnlyWhenSetupIsDone) {
    const std::pair<platform::PropertyListValue, std::string> table[] = {
        {"false", "--needrestart \"ApplyReleasesWaiting\""}, {false, ""}, {"true", ""}};
    for (const auto& [forceSetupInstall, words] : table) {
        Sandbox sandbox;
        Sandbox::writePreference(sandbox.home() / ".config", kOwnDomain, "forceSetupInstall",
                                 forceSetupInstall);
        // A client that would neither understand the words nor start the launcher again.
        const auto outcome = sandbox.run(R"sh(
            unpack; client=~/.teravolant/teravolant.app/Contents/MacOS/teravolant
            cp /usr/bin/sleep $client; $client 1000 & await executes $! $client
            $launcher --notupdate)sh");
        EXPECT_EQ(linesWith(sandbox.log(), "Cmd: '"),
                  Lines{"Cmd: '/home/user/.teravolant/teravolant.app/Contents/MacOS/teravolant' " +
                        words})
            << outcome.output;
    }
}

TEST(RunningInstances, APipeThatCanNotBeOpenedEndsTheStart) {
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        start_client; rm -rf ~/.teravolant; client=$(clients)
        (ulimit -n 5; exec $launcher 3>&- 4>&-); echo "status=$?"
        test "$(clients)" = $client && echo "lives on")sh");
    expectOutput(outcome, "status=1\nlives on\n");
    EXPECT_TRUE(contains(sandbox.log(), "ERROR: fail to open a pipe stream to a process!"));
}

TEST(Interrupt, OfACommandEndsTheStartInGoodOrder) {
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        unpack; mkdir /tmp/bin; printf '#!/bin/sh\nkill -INT 0\n' > /tmp/bin/rm
        chmod +x /tmp/bin/rm; PATH=/tmp/bin:$PATH setsid --wait $launcher 2> /dev/null
        echo "status=$?"; clients)sh");
    EXPECT_EQ(outcome.output, "status=0\n");
    EXPECT_FALSE(contains(sandbox.log(), "launchTeravolant"));
    EXPECT_TRUE(contains(sandbox.log(), "[TeravolantAppDelegate::applicationWillTerminate]"));
}

TEST(SampleClient, TakesThePlaceOfAnInstanceThatEndsBeforeItReadItsPipe) {
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        folder="$HOME/.local/share/Zelto/Teravolant Client"; mkdir -p "$folder"; unpack
        mkfifo "$folder/commands"; exec 4<> "$folder/commands" 5> "$folder/instance.lock"; flock 5
        ~/.teravolant/teravolant.app/Contents/MacOS/teravolant word 4>&- 5>&- &
        read -r -n 1 -u 4; printf "$REPLY" >&4   # waits until the words are in the pipe
        exec 4>&- 5>&-; await test -s "$client_log"; test "$(clients)" = $!)sh");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(sandbox.clientLog(), Lines{"word"});
}

TEST(SampleClient, RefusesWhatIsNoPipeInThePlaceOfItsPipe) {
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        folder="$HOME/.local/share/Zelto/Teravolant Client"; mkdir -p "$folder"
        echo > "$folder/commands"; unpack
        timeout 10 ~/.teravolant/teravolant.app/Contents/MacOS/teravolant; echo "status=$?")sh");
    EXPECT_TRUE(outcome.output.ends_with("status=1\n")) << outcome.output;
    expectOutput(outcome, "commands is not a pipe");
}

TEST(RunningInstances, AProcessListThatIsNotThereOrNamesNoIdKillsNothing) {
    const std::pair<std::string, std::string> table[] = {
        {"rm /tmp/bin/ps", "INFO: brisklink can be launched!."},
        {R"sh(cat > /tmp/ps <<'PS'
#!/bin/sh
case "$*" in *pid=*) ;; *) echo /home/user/.teravolant/teravolant.app/Contents/MacOS/teravolant ;; esac
PS
chmod +x /tmp/ps; mv /tmp/ps /tmp/bin)sh",
         "WARNING: a teravolant instance is already running and will be killed!"}};
    for (const auto& [setup, line] : table) {
        Sandbox sandbox;
        const auto outcome =
            sandbox.run("mkdir /tmp/bin; for tool in /usr/bin/*; do ln -s $tool /tmp/bin; done\n" +
                        setup + "\nPATH=/tmp/bin $launcher --notupdate");
        EXPECT_TRUE(contains(sandbox.log(), line)) << outcome.output;
        EXPECT_EQ(linesWith(sandbox.log(), "Cmd: kill"), Lines()) << outcome.output;
        EXPECT_EQ(linesWith(sandbox.log(), kOpen).size(), 1U);
    }
}

struct BadInput {
    std::string name;
    std::string setup;
    std::string tellingLine;  ///< In the log, or on the console where there is no log.
    std::string consoleText;
};

class BadInputs : public ::testing::TestWithParam<BadInput> {};

TEST_P(BadInputs, AreReportedLoseNothingAndTheStartComesToItsEnd) {
    const BadInput& test = GetParam();
    Sandbox sandbox;
    sandbox.addSetup({"--size", "1048576", "--tmpfs", "/small"});
    const auto outcome = sandbox.run(R"sh(
        cp -r /opt/Teravolant.app /tmp/Teravolant.app
        contents=/tmp/Teravolant.app/Contents; mkdir ~/papers; echo mine > ~/papers/letter
    )sh" + test.setup + R"sh(
        timeout 20 /tmp/Teravolant.app/Contents/MacOS/Teravolant --notupdate; echo "status=$?"
        cat /home/user/papers/letter)sh");
    expectOutput(outcome, "status=0\n");
    expectOutput(outcome, "mine\n");
    expectOutput(outcome, "] " + test.tellingLine + "\n");
    expectOutput(outcome, test.consoleText);
    expectOutput(outcome, "] [TeravolantAppDelegate::applicationWillTerminate]\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, BadInputs,
    ::testing::Values(
        BadInput{"NoInfoPlist", "rm $contents/Info.plist", "Teravolant TeravolantApp Unpacker", ""},
        BadInput{"NoVersion", "sed -i /CFBundleShortVersionString/,+1d $contents/Info.plist",
                 "Teravolant TeravolantApp Unpacker", ""},
        BadInput{"DamagedInfoPlist",
                 "head -c 200 $contents/Info.plist > $contents/x; mv "
                 "$contents/x $contents/Info.plist",
                 "Teravolant TeravolantApp Unpacker", ""},
        BadInput{"NoClientArchive", "rm $contents/Resources/client.tar.gz",
                 "Cmd: open -a '/home/user/.teravolant/teravolant.app' --args --notupdate  "
                 "-unpackapp /tmp/Teravolant.app/Contents/MacOS/teravolant",
                 "teravolant.app: there is no such bundle"},
        BadInput{"DamagedClientArchive",
                 "head -c 100 $contents/Resources/client.tar.gz > $contents/x; mv $contents/x "
                 "$contents/Resources/client.tar.gz",
                 "launchTeravolant", "teravolant.app: there is no such bundle"},
        BadInput{"NoLaunchAgents", "rm $contents/Resources/*.plist", "Auto update: YES", ""},
        BadInput{"NoHelpers", "rm -r $contents/Helpers", "Error code: 4",
                 "“/bin/launchctl” could not be started: No such file or directory."},
        BadInput{"NoSuchHome", "export HOME=/missing",
                 "Teravolant Client folder: /missing/.teravolant",
                 "Error description: The folder “/missing/Library/LaunchAgents” could not be "
                 "created: "},
        BadInput{"HomeThatCanNotBeWritten", "export HOME=/proc",
                 "Teravolant Client folder: /proc/.teravolant", "Error description: "},
        BadInput{"HomeThatIsAFile", "export HOME=/home/user/papers/letter", "Error code: 256",
                 "Not a directory."},
        BadInput{"FullDisk",
                 "export HOME=/small; mkdir -p ~/.local/share; head -c 2M /dev/zero > ~/fill",
                 "launchTeravolant", "No space left on device"}),
    nameOf);

struct AgentCase {
    std::string name;
    std::string setup;  ///< Behind a first start; `$agent` and `$autorun` are the installed files.
    Lines expected;     ///< The second start's lines of the two agents, without folders.
};

class LaunchAgents : public ::testing::TestWithParam<AgentCase> {};

TEST_P(LaunchAgents, AreRefreshedWhenTheirTimesDiffer) {
    const AgentCase& test = GetParam();
    Sandbox sandbox;
    sandbox.run(R"sh($launcher --notupdate > /dev/null 2>&1
        agents=$HOME/Library/LaunchAgents
        agent=$agents/com.zelto.teravolant.agent.plist
        autorun=$agents/com.zelto.teravolant.autorun.plist
        rm "$HOME/.local/share/Zelto/Teravolant App/updater.log"
    )sh" + test.setup +
                "\n$launcher --notupdate > /dev/null 2>&1; chmod -R u+w ~/Library");
    Lines relevant;
    for (std::string line : sandbox.log()) {
        const auto has = [&line](const char* text) { return line.find(text) != line.npos; };
        if (has("/bin/launchctl") || has("No need") || has("replace ") || has("Error ")) {
            for (const std::string folder :
                 {"/home/user/Library/LaunchAgents/com.zelto.teravolant.",
                  "/opt/Teravolant.app/Contents/Resources/com.zelto.teravolant.",
                  "Call file:///bin/", ". Returned:", ".plist"}) {
                for (auto at = line.find(folder); at != line.npos; at = line.find(folder)) {
                    line.erase(at, folder.size());
                }
            }
            relevant.push_back(line);
        }
    }
    EXPECT_EQ(relevant, test.expected);
}

Lines refreshed(const std::string& agent) {
    return {"launchctl stop " + agent, "launchctl unload " + agent, "launchctl load " + agent,
            "launchctl start " + agent};
}

Lines unwritten(const std::string& agent, const std::string& code, const std::string& reason) {
    return {"Error code: " + code,
            "Error description: “" + agent + "” could not be " + reason + "."};
}

Lines uncreated(const std::string& agent) {
    return joined({{"Error code: 513",
                    "Error description: The folder “/home/user/Library/LaunchAgents” could not be "
                    "created: Permission denied."},
                   unwritten(agent, "4", "written: No such file or directory"),
                   {"launchctl load " + agent, "launchctl start " + agent}});
}

INSTANTIATE_TEST_SUITE_P(
    All, LaunchAgents,
    ::testing::Values(
        AgentCase{"Current", "", {"No need to store agent", "No need to store autorun"}},
        AgentCase{
            "NewerByOneNanosecond",
            "t=$(stat -c %.9Y $agent); touch -d \"@${t%.*}.$(printf %09d $(( (10#${t#*.} + 1) % "
            "1000000000 )))\" $agent",
            joined(
                {{"replace agent with agent"}, refreshed("agent"), {"No need to store autorun"}})},
        AgentCase{"OlderByADay", "touch -d yesterday $autorun",
                  joined({{"No need to store agent", "replace autorun with autorun"},
                          refreshed("autorun")})},
        AgentCase{"AFailedReplacementReloadsTheAgentOnly",
                  "touch -d yesterday $agent $autorun; chmod a-w $agents",
                  joined({{"replace agent with agent"},
                          unwritten("agent", "516", "written: File exists"),
                          refreshed("agent"),
                          {"replace autorun with autorun"},
                          unwritten("autorun", "516", "written: File exists")})},
        AgentCase{"AFolderThatCanNotBeCreated", "rm -r $agents; chmod a-w ~/Library",
                  joined({uncreated("agent"), uncreated("autorun")})},
        AgentCase{"AFolderThatIsAFile", "rm -r $agents; touch $agents",
                  joined({unwritten("agent", "256", "read: Not a directory"),
                          unwritten("autorun", "256", "read: Not a directory")})}),
    nameOf);

TEST(InstallParameters, AreWrittenByTheSuperuserForEverybodyAndClearedByTheNextCall) {
    Sandbox root(Sandbox::User::superuser);
    Sandbox::writePreference(root.machineConfiguration(), kAllUsersDomain, "DEFAULT_UI", "old");
    root.run(
        "umask 077; $launcher MAX_LOG_SIZE=2048 --notupdate AUTO_UPDATE=true BETA_PROGRAM=NO "
        "PRODUCT_USAGE_ANALYTICS=1 DEFAULT_UI=x a=b=c");
    EXPECT_EQ(
        root.log(),
        (Lines{std::string("Teravolant TeravolantApp Unpacker: Version ") + TERAVOLANT_VERSION,
               "INFO: root user is not allowed to store agent!.", "Invalid argument format: a=b=c",
               "MAX_LOG_SIZE: 2048", "Running as root", "AUTO_UPDATE: NO", "BETA_PROGRAM: NO",
               "PRODUCT_USAGE_ANALYTICS: YES"}));
    const auto stored = Sandbox::preferences(root.machineConfiguration(), kAllUsersDomain);
    EXPECT_EQ(stored, (platform::PropertyListValue::Dictionary{{"AutoUpdateEnable", "NO"},
                                                               {"BetaProgramDisable", true}}));
    const auto permissions = [&root](const char* name) {
        return fs::status(root.machineConfiguration() / "Zelto" / name).permissions();
    };
    EXPECT_EQ(permissions("com.zelto.teravolant.plist"), fs::perms(0644));
    EXPECT_EQ(permissions(""), fs::perms(0755));

    root.run("$launcher");
    EXPECT_TRUE(Sandbox::preferences(root.machineConfiguration(), kAllUsersDomain).empty());
    EXPECT_FALSE(fs::exists(root.home() / ".local"));
}

TEST(Preferences, ThatAreDamagedAreSetAsideAndTheStartGoesOnWithDefaults) {
    Sandbox sandbox;
    const auto outcome = sandbox.run(R"sh(
        mkdir -p ~/.config/Zelto /etc/xdg/Zelto
        echo damaged > ~/.config/Zelto/com.zelto.teravolant.updater.plist
        echo damaged > /etc/xdg/Zelto/com.zelto.teravolant.plist; chmod a-w /etc/xdg/Zelto
        $launcher --notupdate; chmod u+w /etc/xdg/Zelto
        cat ~/.config/Zelto/*.damaged-1 /etc/xdg/Zelto/*)sh");
    EXPECT_TRUE(contains(sandbox.log(), "Auto update: YES"));
    expectOutput(outcome,
                 "are damaged and were set aside as "
                 "“com.zelto.teravolant.updater.plist.damaged-1”");
    expectOutput(outcome, "“/etc/xdg/Zelto/com.zelto.teravolant.plist” are not used");
    EXPECT_TRUE(outcome.output.ends_with("damaged\ndamaged\n")) << outcome.output;
    EXPECT_EQ(Sandbox::preferences(sandbox.home() / ".config", kOwnDomain).size(), 1U);
}

}  // namespace
}  // namespace teravolant::fixtures
