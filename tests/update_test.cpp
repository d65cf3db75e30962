// A whole update, as the user of an installed bundle and the publisher of the next one see it.

#include <gtest/gtest.h>

#include "tests/sandbox.h"

namespace teravolant::fixtures {
namespace {

/// Installs the bundle at /Applications with a publisher's key, publishes version 9.9.9.9 of it
/// with a client that has one more file, and has the launcher look there.
constexpr const char* kPublish = R"sh(
    export PATH=/tools:$PATH SSL_CERT_FILE=$HOME/feed/authority.pem
    installed=/Applications/Teravolant.app
    launcher=$installed/Contents/MacOS/Teravolant; plist=Contents/Info.plist
    feed=$HOME/feed/teravolant/release
    mkdir -p $feed ~/next ~/client
    teravolant-release keygen --private-key ~/key > ~/public
    cp -r /opt/Teravolant.app $installed
    sed -i "s#<array></array>#<array><string>$(cat ~/public)</string></array>#" $installed/$plist
    cp -r $installed ~/next/Teravolant.app
    sed -i 's#<string>[0-9.]*</string>#<string>9.9.9.9</string>#' ~/next/Teravolant.app/$plist
    tar xzf $installed/Contents/Resources/client.tar.gz -C ~/client
    touch ~/client/teravolant.app/Contents/news
    tar czf ~/next/Teravolant.app/Contents/Resources/client.tar.gz -C ~/client teravolant.app
    teravolant-release pack ~/next/Teravolant.app --output $feed/update.tar.zst
    teravolant-release feed $feed/update.tar.zst --bundle ~/next/Teravolant.app \
        --private-key ~/key --output $feed/release.mac
    serve() {
        rm -f ~/feed/url; feed_server ~/feed $scheme $1 & server=$!; await test -s ~/feed/url
        url=$(cat ~/feed/url)
        prefer $own updateserver "<dict><key>scheme</key><string>${url%%:*}</string>
            <key>host</key><string>${url#*//}</string>
            <key>path</key><string>/teravolant/release/release.mac</string></dict>"
    }
    version() { sed -n '/ShortVersion/{n;s/[^0-9.]//gp}' $installed/$plist; }
    ended() { test "$(grep -c 'applicationWillTerminate' "$log")" = $1; }
    count() { grep -c ": $1" "$log"; }
)sh";

class Update : public ::testing::TestWithParam<const char*> {
  protected:
    void expectOutput(const std::string& script, const std::string& end) {
        const std::string output =
            sandbox.run("scheme=" + std::string(GetParam()) + "\n" + kPublish + script);
        EXPECT_TRUE(output.ends_with("\nbegin\n" + end)) << output;
    }

    Sandbox sandbox{Sandbox::User::ordinary,
                    "--ro-bind '" TERAVOLANT_RELEASE_TOOL
                    "' /tools/teravolant-release "
                    "--ro-bind '" TERAVOLANT_FEED_SERVER "' /tools/feed_server"};
};

// The client that is told to restart starts the launcher again, so that one start by a person shows
// both versions.
TEST_P(Update, GoesFromACheckToTheNextStartOfTheNewVersionWithItsNewClient) {
    const std::string words =
        "-unpackapp /Applications/Teravolant.app/Contents/MacOS/teravolant --launchstartup on\n";
    expectOutput(R"sh(serve
        $launcher; version=$(version); await ended 2
        echo; echo begin; echo "$version"; client_words; clients | wc -l
        count '.*wait CheckUpdate result 3$'; count 'Teravolant.*: Version 9.9.9.9$'
        count 'Error.* Code=1 "version=9.9.9.9 is not older than 9.9.9.9"'
        ls -A ~/.teravolant/teravolant.app/Contents/news /Applications
        ls -A ~/.cache/com.zelto.teravolant.updater)sh",
                 "9.9.9.9\n" + words + "--needrestart ApplyReleasesWaiting --minimized\n" + words +
                     "1\n1\n1\n1\n/home/user/.teravolant/teravolant.app/Contents/news\n\n"
                     "/Applications:\nTeravolant.app\nupdate.lock\n");
}

TEST_P(Update, EndsWithinASecondOfASignalDuringTheDownloadAndGoesOnFromThereAtTheNextStart) {
    expectOutput(R"sh(serve stall
        part=~/.cache/com.zelto.teravolant.updater/archive.part
        half=$(($(stat -c %s $feed/update.tar.zst) / 2))
        reached() { test "$(stat -c %s $part)" = $half; }
        $launcher 2> /dev/null & await reached; echo; echo begin
        begin=$(date +%s%N); kill -TERM $!; wait $!; echo "status=$?"
        test $(($(date +%s%N) - begin)) -lt 1000000000 && echo "ended in time"
        reached && echo "left half"
        grep sendTeravolantCommand "$log" || echo "no command to the client"
        kill $server; serve
        $launcher 2> /dev/null; echo "version=$(version)")sh",
                 "status=0\nended in time\nleft half\nno command to the client\nversion=9.9.9.9\n");
}

INSTANTIATE_TEST_SUITE_P(Over, Update, ::testing::Values("https", "http"),
                         [](const auto& scheme) { return std::string(scheme.param); });

}  // namespace
}  // namespace teravolant::fixtures
