// A whole update, as the user of an installed bundle and the publisher of the next one see it.

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/files.h"
#include "tests/sandbox.h"

namespace teravolant::fixtures {
namespace {

using Lines = std::vector<std::string>;

/// Installs the bundle at /Applications with a publisher's key, publishes version 9.9.9.9 of it
/// with a client that has one more file, and has the launcher look there.
constexpr const char* kPublish = R"sh(
    export PATH=/tools:$PATH SSL_CERT_FILE=$HOME/feed/authority.pem
    installed=/Applications/Teravolant.app
    launcher=$installed/Contents/MacOS/Teravolant
    feed=$HOME/feed/teravolant/release
    log="$HOME/.local/share/Zelto/Teravolant App/updater.log"
    mkdir -p $feed ~/next ~/client ~/.config/Zelto
    teravolant-release keygen --private-key ~/key > ~/public
    cp -r /opt/Teravolant.app $installed
    sed -i "s#<array></array>#<array><string>$(cat ~/public)</string></array>#" $installed/Contents/Info.plist
    cp -r $installed ~/next/Teravolant.app
    sed -i 's#<string>[0-9.]*</string>#<string>9.9.9.9</string>#' ~/next/Teravolant.app/Contents/Info.plist
    tar xzf $installed/Contents/Resources/client.tar.gz -C ~/client
    touch ~/client/teravolant.app/Contents/news
    tar czf ~/next/Teravolant.app/Contents/Resources/client.tar.gz -C ~/client teravolant.app
    teravolant-release pack ~/next/Teravolant.app --output $feed/update.tar.zst
    teravolant-release feed $feed/update.tar.zst --bundle ~/next/Teravolant.app \
        --private-key ~/key --output $feed/release.mac
    serve() {
        rm -f ~/feed/url; feed_server ~/feed $scheme $1 & server=$!; await test -s ~/feed/url
        url=$(cat ~/feed/url)
        cat > ~/.config/Zelto/com.zelto.teravolant.updater.plist <<END
<plist version="1.0"><dict><key>updateserver</key><dict>
<key>scheme</key><string>${url%%:*}</string><key>host</key><string>${url#*//}</string>
<key>path</key><string>/teravolant/release/release.mac</string></dict></dict></plist>
END
    }
    version() { sed -n '/ShortVersion/{n;s/[^0-9.]//gp}' $installed/Contents/Info.plist; }
    ended() { test "$(grep -c 'applicationWillTerminate' "$log")" = $1; }
)sh";

class Update : public ::testing::TestWithParam<const char*> {
  protected:
    Update() {
        sandbox.addSetup({"--ro-bind", TERAVOLANT_RELEASE_TOOL, "/tools/teravolant-release",
                          "--ro-bind", TERAVOLANT_FEED_SERVER, "/tools/feed_server", "--setenv",
                          "scheme", GetParam()});
    }

    [[nodiscard]] std::size_t count(const std::string& beginning) const {
        const Lines lines = sandbox.log();
        return static_cast<std::size_t>(std::count_if(
            lines.begin(), lines.end(),
            [&beginning](const std::string& line) { return line.starts_with(beginning); }));
    }

    Sandbox sandbox;
};

// The client that is told to restart starts the launcher again, so that one start by a person shows
// both versions.
TEST_P(Update, GoesFromACheckToTheNextStartOfTheNewVersionWithItsNewClient) {
    const auto outcome = sandbox.run(kPublish + std::string(R"sh(
        serve
        $launcher 2> ~/console
        echo "version=$(version)"
        await ended 2
        test -e ~/.teravolant/teravolant.app/Contents/news && echo "new client"
        echo "clients=$(clients | wc -l)"
        ls -A /Applications ~/.cache/com.zelto.teravolant.updater)sh"));
    EXPECT_NE(outcome.output.find("version=9.9.9.9\nnew client\nclients=1\n"), std::string::npos)
        << outcome.output << platform::contentsOfFile(sandbox.home() / "console").value();
    EXPECT_TRUE(
        outcome.output.ends_with("/Applications:\nTeravolant.app\n\n/home/user/.cache/"
                                 "com.zelto.teravolant.updater:\nupdate.lock\n"))
        << outcome.output;
    EXPECT_EQ(count("[ClientUpdater::startChecksImmediately] wait CheckUpdate result 3"), 1U);
    EXPECT_EQ(count("Teravolant TeravolantApp Unpacker: Version 9.9.9.9"), 1U);
    EXPECT_EQ(count("Error checking for updates: Error Domain=SQRLUpdaterErrorDomain Code=1 "
                    "\"version=9.9.9.9 is not older than 9.9.9.9\""),
              1U);
    EXPECT_EQ(sandbox.clientLog(),
              (Lines{"-unpackapp /Applications/Teravolant.app/Contents/MacOS/teravolant "
                     "--launchstartup on",
                     "--needrestart ApplyReleasesWaiting --minimized",
                     "-unpackapp /Applications/Teravolant.app/Contents/MacOS/teravolant "
                     "--launchstartup on"}));
}

TEST_P(Update, EndsWithinASecondOfASignalDuringTheDownloadAndGoesOnFromThereAtTheNextStart) {
    const auto outcome = sandbox.run(kPublish + std::string(R"sh(
        serve stall
        part=~/.cache/com.zelto.teravolant.updater/archive.part
        half=$(($(stat -c %s $feed/update.tar.zst) / 2))
        reached() { test "$(stat -c %s $part)" = $half; }
        $launcher 2> /dev/null & await reached
        begin=$(date +%s%N); kill -TERM $!; wait $!; echo "status=$?"
        test $(($(date +%s%N) - begin)) -lt 1000000000 && echo "ended in time"
        reached && echo "left half"
        kill $server; serve
        $launcher 2> /dev/null; echo "version=$(version)")sh"));
    EXPECT_NE(outcome.output.find("status=0\nended in time\nleft half\nversion=9.9.9.9\n"),
              std::string::npos)
        << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(Over, Update, ::testing::Values("https", "http"),
                         [](const ::testing::TestParamInfo<const char*>& scheme) {
                             return std::string(scheme.param);
                         });

}  // namespace
}  // namespace teravolant::fixtures
