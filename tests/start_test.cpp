// Single starts at the edges: what the client is handed, what must not be run, and bad input.

#include <gtest/gtest.h>

#include <vector>

#include "tests/sandbox.h"

namespace teravolant::fixtures {
namespace {

using Texts = std::vector<std::string>;

/// A script on a machine of its own, and what is seen of it; the launcher's messages are there too.
struct Scenario {
    std::string name;
    std::string script;
    Texts shown;  ///< In this order.
    Texts absent = {};
    Sandbox::User user = Sandbox::User::ordinary;
};

class Start : public ::testing::TestWithParam<Scenario> {};

TEST_P(Start, ShowsThatThisHolds) {
    const Scenario& test = GetParam();
    const std::string output = Sandbox(test.user).run(test.script);
    std::size_t place = 0;
    for (const std::string& text : test.shown) {
        const std::size_t found = output.find(text, place);
        ASSERT_NE(found, output.npos) << "“" << text << "” is not where it should be:\n" << output;
        place = found + text.size();
    }
    for (const std::string& text : test.absent) {
        EXPECT_EQ(output.find(text), output.npos) << "“" << text << "” should not be:\n" << output;
    }
}

const std::string kOpen = "] Cmd: open -a '/home/user/.teravolant/teravolant.app' --args ";
const std::string kUnpackapp = " -unpackapp /opt/Teravolant.app/Contents/MacOS/teravolant";
const std::string kUpdatesOff = "prefer $all_users AutoUpdateEnable '<string>NO</string>'\n";
const std::string kTerminated = "] [TeravolantAppDelegate::applicationWillTerminate]\n";

/// The launcher's folder counts 34 characters here, so that its own words count 57; the words in
/// front are as many letters as the row says, and each counts one more for its blank.
Scenario clientWords(const std::string& name, const std::vector<std::size_t>& lengths,
                     std::size_t taken, const std::string& ownWords) {
    std::string given;
    std::string passed = kOpen;
    for (std::size_t index = 0; index < lengths.size(); ++index) {
        const std::string word(lengths[index], static_cast<char>('a' + index));
        given += word + " ";
        passed += index < taken ? word + " " : "";
    }
    return {"ClientWords_" + name,
            kUpdatesOff + "DESKTOP_AUTOSTART_ID= $launcher " + given,
            {passed + ownWords + "\n"}};
}

const std::string kFirstStart = "] TeravolantAppDelegate::updateInitParameters ";

/// What only looks like a client, or two clients, in front of a client folder that is not there;
/// the one that is opened where one was killed is left too.
Scenario lookalike(const std::string& name, const std::string& setup, bool isKilled) {
    return {"Lookalike_" + name,
            R"sh(path=$HOME/.teravolant/teravolant.app/Contents/MacOS
                run_as() {
                    mkdir -p "${1%/*}"; cp /usr/bin/sleep "$1"; "$1" 1000 & await executes $! "$1"
                }
            )sh" +
                setup + R"sh(
                rm -rf ~/.teravolant; $launcher --checkAndUpdateOnly --notupdate
                echo "left: $(pgrep -x -c "sleep|teravolant.*")")sh",
            isKilled ? Texts{"] Cmd: kill -9 ", "left: 2\n"} : Texts{"left: 1\n"},
            isKilled ? Texts{} : Texts{"Cmd: kill"}};
}

/// A process list that a program of the name `ps` gives, or that nothing does.
Scenario otherList(const std::string& name, const std::string& setup, const std::string& line) {
    return {name,
            "mkdir /tmp/bin; ln -s /usr/bin/* /tmp/bin; rm /tmp/bin/ps; " + setup +
                "\nchmod +x /tmp/bin/ps; PATH=/tmp/bin $launcher --notupdate",
            {"] " + line + "\n", kOpen},
            {"Cmd: kill"}};
}

/// `setup` is the value of forceSetupInstall; the client would neither understand the words nor
/// start the launcher again.
Scenario commandToClient(const std::string& name, const std::string& setup,
                         const std::string& words) {
    return {name,
            "prefer $own forceSetupInstall '" + setup + R"sh('
            unpack; client=~/.teravolant/teravolant.app/Contents/MacOS/teravolant
            cp /usr/bin/sleep $client; $client 1000 & await executes $! $client
            $launcher --notupdate)sh",
            {"] Cmd: '/home/user/.teravolant/teravolant.app/Contents/MacOS/teravolant' " + words +
             "\n"}};
}

Scenario liveClient(const std::string& name, const std::string& setup, const std::string& call) {
    return {"LiveClient_" + name,
            "export XDG_DATA_HOME=/home/user/.local/share\n" + setup +
                "\nstart_client; touch ~/.teravolant/mine\n" + call +
                "; echo \"status=$?\"; ls ~/.teravolant",
            {"] WARNING: a teravolant instance is already running!\n", kTerminated,
             "status=0\nmine\n"}};
}

/// Bad input is reported, nothing is lost, and the start comes to its end.
Scenario badInput(const std::string& name, const std::string& setup, Texts shown,
                  const std::string& end = "") {
    shown.insert(shown.end(), {kTerminated, "status=0\nmine\n" + end});
    return {"BadInput_" + name,
            R"sh(
            cp -r /opt/Teravolant.app /tmp/Teravolant.app; contents=/tmp/Teravolant.app/Contents
            cut() { head -c $1 $2 > /tmp/part; mv /tmp/part $2; }
            mkdir ~/papers; echo mine > ~/papers/letter
            )sh" +
                setup + R"sh(
            timeout 20 $contents/MacOS/Teravolant --notupdate; echo "status=$?"
            cat /home/user/papers/letter)sh",
            shown};
}

const std::string kFirstLine = "] Teravolant TeravolantApp Unpacker";
const std::string kNoClient = "teravolant.app: there is no such bundle";

/// What a second start does about the agents, in short; `$agent` and `$autorun` are the files that
/// the first one installed.
Scenario launchAgents(const std::string& name, const std::string& setup, const std::string& steps) {
    return {"Agents_" + name,
            R"sh($launcher --notupdate > /dev/null 2>&1; agents=$HOME/Library/LaunchAgents
                agent=$agents/com.zelto.teravolant.agent.plist
                autorun=$agents/com.zelto.teravolant.autorun.plist
            )sh" +
                setup +
                R"sh(
                echo "begin"; $launcher --notupdate 2>&1 | sed -n '
                    s/^[^]]*\] //; s#^Call file:///bin/launchctl##; s/\.plist//g
                    s#/[^ ]*/com\.zelto\.teravolant\.##g; s/^Error code://
                    s/\. Returned:$//p; s/^No need to store/keep/p; s/^replace /replace /p
                    s/^ [0-9]*$/&/p' | tr '\n' ','; echo "end"
                chmod -R u+w ~/Library)sh",
            {"begin\n" + steps + "end\n"}};
}

const std::string kAgentRefreshed = " stop agent, unload agent, load agent, start agent,";

const Scenario kScenarios[] = {
    clientWords("None", {}, 0, kUnpackapp + " --minimized"),
    clientWords("OneOf510Counts511", {510}, 1, ""),
    clientWords("OneOf511Counts512", {511}, 0, ""),
    clientWords("ARefusedWordStillCounts", {1, 600, 1}, 1, ""),
    clientWords("TheLauncherWordsFillItUp", {453}, 1, kUnpackapp),
    clientWords("AShorterPieceFitsBehindOneThatDoesNot", {454}, 1, " --minimized"),
    {"ClientLaunchTellsAnInstalledVersionsFirstStartAndOnlyThat",
     R"sh(
            cp -r /opt/Teravolant.app /Applications/; app=/Applications/Teravolant.app/Contents
            $app/MacOS/teravolant --notupdate; $app/MacOS/teravolant --notupdate
            sed -i 's/<string>[0-9.]*</<string>0.9.0.1</' $app/Info.plist
            $app/MacOS/teravolant --notupdate)sh",
     {kFirstStart + TERAVOLANT_VERSION + "\n",
      "/Teravolant.app/Contents/MacOS/teravolant --launchstartup on\n",
      "/Teravolant.app/Contents/MacOS/teravolant\n", kFirstStart + "0.9.0.1\n",
      " --launchstartup on\n"}},
    {"ClientLaunchLeavesAClientThatOutlivesTheLauncherAndKnowsNothingOfTheLogin",
     R"sh(
            DESKTOP_AUTOSTART_ID=session $launcher --notupdate
            client=$(clients); await test -s "$client_log"
            ps -o sess= -p $client | tr -d ' ' | grep -qx $client && echo "has its own session"
            tr '\0' '\n' < /proc/$client/environ | grep -e DESKTOP_AUTOSTART_ID -e ^PATH=
            $launcher --notupdate
            test "$(clients)" = $client && echo "is still the one client"; client_words)sh",
     {"has its own session\nPATH=/usr/bin\n",
      "is still the one client\n--notupdate" + kUnpackapp + " --minimized\n\n"}},
    {"ClientLaunchWithoutAnUpdateCheckLoadsNoLibraryThatOnlyUpdatesNeed",
     R"sh(
            LD_DEBUG=files LD_DEBUG_OUTPUT=/tmp/loaded $launcher --notupdate > /dev/null 2>&1 &
            wait $!; grep -q libplist /tmp/loaded.$! && echo "reported"
            grep -E 'lib(curl|archive|crypto|ssl|TeravolantUpdate)' /tmp/loaded.$! || echo none)sh",
     {"reported\nnone\n"}},
    {"ClientLaunchRunsNoCommandThatDoesNotFitIntoItsBuffer",
     R"sh(
            export HOME=$HOME/$(printf '%0240d/' 1 2 3)$(printf %0230d 4)
            mkdir -p $HOME; $launcher --notupdate)sh",
     {"longer than 1023 characters is not run: ps -ax -o exe= | grep", "] Cmd: mkdir '/home/user/",
      "longer than 1023 characters is not run: tar xzf",
      "longer than 1023 characters is not run: open -a"},
     {"Cmd: ps", "Cmd: tar", "Cmd: open"}},
    {"ClientLaunchIsNotDoneWhenACommandBeforeItWasInterrupted",
     R"sh(
            unpack; mkdir /tmp/bin; printf '#!/bin/sh\nkill -INT 0\n' > /tmp/bin/rm
            chmod +x /tmp/bin/rm; PATH=/tmp/bin:$PATH setsid --wait $launcher
            echo "status=$?"; test -z "$(clients)" && echo "no client")sh",
     {kTerminated, "status=0\nno client\n"},
     {"launchTeravolant"}},
    lookalike("NotThePathAsAnArgument", "bash -c 'exec -a sleep sleep 1000' $path/teravolant &",
              false),
    lookalike("NotThePathAsTheProgramsName",
              "(exec -a $path/teravolant sleep 1000) & await pgrep -f $path", false),
    lookalike("NotAnotherUsersClient",
              "run_as /home/user/other/.teravolant/teravolant.app/Contents/MacOS/teravolant",
              false),
    lookalike("OfTwoOnlyTheFirst", "run_as $path/teravolant; run_as $path/teravolant2", true),
    otherList("AMissingProcessListNamesNone", "", "INFO: brisklink can be launched!."),
    otherList("AProcessListWithoutIdsKillsNothing", R"sh(cat > /tmp/bin/ps <<'PS'
#!/bin/sh
case "$*" in *pid=*) exit ;; esac; echo ~/.teravolant/teravolant.app/Contents/MacOS/teravolant
PS)sh",
              "WARNING: a teravolant instance is already running and will be killed!"),
    {"APipeThatCanNotBeOpenedEndsTheStart",
     R"sh(
            start_client; rm -rf ~/.teravolant; client=$(clients)
            (ulimit -n 5; exec $launcher 3>&- 4>&-); echo "status=$?"
            test "$(clients)" = $client && echo "lives on")sh",
     {"] ERROR: fail to open a pipe stream to a process!\n", "status=1\nlives on\n"}},
    commandToClient("InstancesAreToldOfAWaitingRelease", "<string>false</string>",
                    "--needrestart \"ApplyReleasesWaiting\""),
    commandToClient("InstancesAreNotToldOfItBeforeSetupIsDone", "<string>true</string>", ""),
    commandToClient("InstancesAreNotToldOfItForAValueThatIsNoText", "<false/>", ""),
    liveClient("HomeWithLettersBeyondAscii", "export HOME=/home/user/hö; mkdir $HOME", "$launcher"),
    liveClient("NarrowTerminal", "", "COLUMNS=20 $launcher"),
    liveClient("FullStandardOutput", "", "$launcher > /dev/full"),
    liveClient("StandardOutputWithoutReader",
               "mkfifo /tmp/pipe; exec 3<> /tmp/pipe 4> /tmp/pipe 3>&-", "$launcher >&4"),
    liveClient("ChildrenIgnored", "", "env --ignore-signal=CHLD $launcher"),
    liveClient("EmptyPath", "", "PATH= $launcher"),
    liveClient("InterruptedProcessList",
               R"sh(mkdir /tmp/bin; cat > /tmp/bin/ps <<'PS'
#!/bin/sh
kill -INT 0; exec /usr/bin/ps "$@"
PS
chmod +x /tmp/bin/ps)sh",
               "PATH=/tmp/bin:$PATH setsid --wait $launcher"),
    badInput("NoInfoPlist", "rm $contents/Info.plist", {kFirstLine}),
    badInput("DamagedInfoPlist", "cut 200 $contents/Info.plist", {kFirstLine}),
    badInput("NoClientArchive", "rm $contents/Resources/client.tar.gz", {kOpen, kNoClient}),
    badInput("DamagedClientArchive", "cut 100 $contents/Resources/client.tar.gz",
             {"] launchTeravolant\n", kNoClient}),
    badInput("NoLaunchAgents", "rm $contents/Resources/*.plist", {"] Auto update: YES\n"}),
    badInput(
        "NoHelpers", "rm -r $contents/Helpers",
        {"] Error code: 4\n", "“/bin/launchctl” could not be started: No such file or directory."}),
    badInput("NoSuchHome", "export HOME=/missing",
             {"The folder “/missing/Library/LaunchAgents” could not be created: ",
              "] Teravolant Client folder: /missing/.teravolant\n"}),
    badInput("HomeThatCanNotBeWritten", "export HOME=/proc",
             {"Error description: ", "] Teravolant Client folder: /proc/.teravolant\n"}),
    badInput("HomeThatIsAFile", "export HOME=/home/user/papers/letter",
             {"] Error code: 256\n", "Not a directory."}),
    badInput("FullDisk",
             "export HOME=/small; mkdir -p ~/.local/share; head -c 2M /dev/zero > ~/fill",
             {"No space left on device"}),
    badInput("DamagedPreferences", R"sh(
            mkdir -p "${own%/*}" /etc/xdg/Zelto; echo damaged | tee $own > $all_users
            chmod a-w /etc/xdg/Zelto; trap 'cat $own.damaged-1 $all_users; grep "<key>" $own' EXIT
            )sh",
             {"“/etc/xdg/Zelto/com.zelto.teravolant.plist” are not used", "] Auto update: YES\n",
              "are damaged and were set aside as “com.zelto.teravolant.updater.plist.damaged-1”"},
             "damaged\ndamaged\n\t<key>forceSetupInstall</key>\n"),
    launchAgents("Same", "", "keep agent,keep autorun,"),
    launchAgents("NewerByOneNanosecond", R"sh(
            t=$(stat -c %.9Y $agent); t=${t%.*}.$(printf %09d $(((10#${t#*.} + 1) % 1000000000)))
            touch -d @$t $agent)sh",
                 "replace agent with agent," + kAgentRefreshed + "keep autorun,"),
    launchAgents("OlderByADay", "touch -d yesterday $autorun",
                 "keep agent,replace autorun with autorun, stop autorun, unload autorun, "
                 "load autorun, start autorun,"),
    launchAgents(
        "AFailedReplacementReloadsTheAgentOnly",
        "touch -d yesterday $agent $autorun; chmod a-w $agents",
        "replace agent with agent, 516," + kAgentRefreshed + "replace autorun with autorun, 516,"),
    launchAgents("AFolderThatCanNotBeCreated", "rm -r $agents; chmod a-w ~/Library",
                 " 513, 4, load agent, start agent, 513, 4, load autorun, start autorun,"),
    launchAgents("AFolderThatIsAFile", "rm -r $agents; touch $agents", " 256, 256,"),
    {"TheSampleClientTakesThePlaceOfOneThatEndsBeforeItReadItsPipe",
     R"sh(
            folder="$HOME/.local/share/Zelto/Teravolant Client"; mkdir -p "$folder"; unpack
            mkfifo "$folder/commands"; exec 4<> "$folder/commands" 5> "$folder/instance.lock"
            flock 5; ~/.teravolant/teravolant.app/Contents/MacOS/teravolant word 4>&- 5>&- &
            read -r -n 1 -u 4; printf "$REPLY" >&4   # waits until the words are in the pipe
            exec 4>&- 5>&-; await test -s "$client_log"
            test "$(clients)" = $! && echo "done"; client_words)sh",
     {"done\nword\n"}},
    {"InstallParametersAreWrittenForEverybodyAndClearedByTheNextCall",
     R"sh(
            prefer $all_users DEFAULT_UI '<string>old</string>'
            umask 077; $launcher MAX_LOG_SIZE=2048 --notupdate AUTO_UPDATE=true BETA_PROGRAM=NO \
                PRODUCT_USAGE_ANALYTICS=1 DEFAULT_UI=x a=b=c
            tr -d '\t\n' < $all_users; echo; stat -c %a /etc/xdg/Zelto $all_users
            $launcher; tr -d '\t\n' < $all_users; test -e ~/.local || echo "no log of its own")sh",
     {"] Invalid argument format: a=b=c\n", "] MAX_LOG_SIZE: 2048\n", "] Running as root\n",
      "] AUTO_UPDATE: NO\n", "] BETA_PROGRAM: NO\n", "] PRODUCT_USAGE_ANALYTICS: YES\n",
      ("<dict><key>AutoUpdateEnable</key><string>NO</string>"
       "<key>BetaProgramDisable</key><true/></dict></plist>\n755\n644\n"),
      "<dict/></plist>no log of its own\n"},
     {},
     Sandbox::User::superuser},
};

INSTANTIATE_TEST_SUITE_P(Of, Start, ::testing::ValuesIn(kScenarios),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace teravolant::fixtures
