#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>

#include "platform/archives.h"
#include "platform/digest.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/property_list.h"
#include "platform/signatures.h"
#include "testing/http_server.h"
#include "testing/temporary_folder.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;
using fixtures::HttpServer;
using fixtures::ServerAnswer;
using platform::JsonValue;

constexpr const char* kIdentifier = "com.zelto.teravolant.updater";

struct Outcome {
    int status = 0;
    std::string output;
    std::string errors;
};

/// What stands behind the tool's name, and what the refusal must name.
using Refusals = std::vector<std::pair<std::string, std::string>>;

/// A publisher's working folder.
class ReleaseTool : public testing::Test {
  protected:
    [[nodiscard]] fs::path path(const std::string& name) const { return _folder.path() / name; }
    [[nodiscard]] std::string read(const std::string& name) const {
        const auto contents = platform::contentsOfFile(path(name));
        return contents ? contents.value() : "(unreadable)";
    }

    /// Runs a script of the shell in the folder, with the tool as `tool`.
    [[nodiscard]] Outcome run(const std::string& script) const {
        const std::string line = "cd '" + _folder.path().string() + "' && tool() { '" +
                                 RELEASE_TOOL + "' \"$@\"; } && { " + script +
                                 "\n} > .output 2> .errors";
        const int status = std::system(line.c_str());
        return {WEXITSTATUS(status), read(".output"), read(".errors")};
    }

    /// The script must do well; answers its output.
    std::string outputOf(const std::string& script) const {
        const Outcome outcome = run(script);
        EXPECT_EQ(outcome.status, 0) << script << "\n" << outcome.output << outcome.errors;
        return outcome.output;
    }

    void expectRefused(const std::string& command, const Refusals& table) const {
        for (const auto& [words, reason] : table) {
            const Outcome outcome = run("tool " + command + " " + words);
            EXPECT_EQ(outcome.status, 1) << words;
            EXPECT_TRUE(outcome.errors.starts_with("teravolant-release: ")) << outcome.errors;
            EXPECT_NE(outcome.errors.find(reason), std::string::npos) << words << outcome.errors;
            EXPECT_EQ(outcome.output, "") << words;
        }
    }

    void makeBundle(const std::string& name, const std::string& version,
                    platform::PropertyListValue::Array keys = {},
                    const std::string& identifier = kIdentifier) const {
        const platform::PropertyListValue::Dictionary information{
            {"CFBundleExecutable", "Run"},
            {"CFBundleIdentifier", identifier},
            {"CFBundleShortVersionString", version},
            {"TVUpdatePublicKeys", std::move(keys)}};
        _folder.write(name + "/Contents/Info.plist", serialisePropertyList(information));
        _folder.write(name + "/Contents/MacOS/Run", "#!/bin/sh\n");
        fs::permissions(path(name + "/Contents/MacOS/Run"), fs::perms::owner_all);
    }

    /// Keys, the archive new.tar.zst, its offer in feed.json; the old bundle accepts the key.
    void publish() {
        makeBundle("new/T.app", "1.0.0.2");
        const std::string output = outputOf(
            "tool keygen --private-key private.pem && tool pack new/T.app --output new.tar.zst && "
            "tool feed new.tar.zst --bundle new/T.app --private-key private.pem --output "
            "feed.json");
        _publicKey = output.substr(0, output.find('\n'));
        makeBundle("old/T.app", "1.0.0.1", {"no key at all", _publicKey});
    }

    [[nodiscard]] JsonValue::Object feed() const {
        return *platform::parseJson(read("feed.json")).value().object();
    }

    fixtures::TemporaryFolder _folder;
    std::string _publicKey;
};

TEST_F(ReleaseTool, MakesWhatAnInstalledBundleAccepts) {
    publish();
    const std::string accepted = "accepted: version 1.0.0.2, " +
                                 std::to_string(fs::file_size(path("new.tar.zst"))) +
                                 " bytes, from ";
    EXPECT_EQ(outputOf("tool check feed.json --bundle old/T.app --archive new.tar.zst"),
              accepted + "new.tar.zst in the feed's own folder\n");

    // The same from the identity without the bundle, to standard output, with an address.
    const std::string url = "https://a.example/n.tar.zst";
    const std::string document =
        outputOf("tool feed new.tar.zst --version 1.0.0.2 --private-key private.pem --url " + url +
                 " --identifier " + kIdentifier + " | tee stdout.json");
    JsonValue::Object expected = feed();
    expected.erase("name");
    expected["url"] = url;
    EXPECT_EQ(*platform::parseJson(document).value().object(), expected);
    EXPECT_EQ(outputOf("tool check stdout.json --bundle old/T.app"), accepted + url + "\n");
    EXPECT_FALSE(fs::exists(platform::applicationSupportDirectory() / "Zelto"))
        << "the user's own log was written to";
}

TEST_F(ReleaseTool, ChecksAServersAnswerAsTheUpdaterGetsIt) {
    publish();
    const ServerAnswer answers[] = {
        {.body = read("feed.json")}, {.status = 204}, {.status = 404, .body = read("feed.json")}};
    std::atomic<int> turn = 0;
    const HttpServer server([&](const fixtures::ReceivedRequest&) { return answers[turn]; });
    const std::string command = "check --bundle old/T.app " + server.url("/feeds/release.mac");
    EXPECT_TRUE(
        outputOf("tool " + command).ends_with(" from " + server.url("/feeds/new.tar.zst") + "\n"));
    EXPECT_EQ(server.requests().front().target, "/feeds/release.mac?version=1.0.0.1");

    expectRefused(command + "?version=1.0.0.3", {{"", "version=1.0.0.3 is not older than"}});
    EXPECT_EQ(server.requests().back().target, "/feeds/release.mac?version=1.0.0.3");
    turn = 1;
    expectRefused(command, {{"", "no update"}});
    turn = 2;
    expectRefused(command, {{"", "status 404"}});
}

TEST_F(ReleaseTool, CheckNamesTheMemberForWhichAnOfferIsRefused) {
    publish();
    const std::tuple<std::string, std::optional<JsonValue>, std::string> cases[] = {
        {"version", "1.0.0.1", "“version”: version=1.0.0.1 is not older than 1.0.0.1"},
        {"version", {}, "“version”: (null) is illegal version"},
        {"version", "1.0.0.3", "\"signature\""},
        {"size", "1", "“size”"},
        {"size", {}, "\"size\""},
        {"sha256", std::string(64, 'a'), "\"signature\""},
        {"name", {}, "“url” is missing"},
    };
    for (const auto& [member, value, reason] : cases) {
        JsonValue::Object offer = feed();
        offer.erase(member);
        if (value) {
            offer[member] = *value;
        }
        _folder.write("tampered.json", serialiseJson(offer).value());
        expectRefused("check --bundle old/T.app", {{"tampered.json", reason}});
    }
}

TEST_F(ReleaseTool, RefusesWhatNoUpdaterWouldTakeAndWritesNothing) {
    publish();
    for (const char* name : {"nameless", "keyless.app", "program.app", "link.app", "large.app",
                             "set-user-id.app", "unreadable.app", "latin1.app"}) {
        makeBundle(name, "1.0.0.1");
    }
    const auto otherKey = platform::SigningKey::generate().value().publicKey().value();
    makeBundle("other-key.app", "1.0.0.1", {otherKey});
    makeBundle("other-id.app", "1.0.0.1", {_publicKey}, "com.zelto.other");
    makeBundle("no-id.app", "1.0.0.2", {}, "");
    makeBundle("version.app", "1.0", {_publicKey});
    outputOf(R"sh(
        chmod 400 program.app/Contents/MacOS/Run; chmod u+s set-user-id.app/Contents/MacOS/Run
        ln -s ../../outside link.app/Contents/link; truncate -s 4294967297 large.app/Contents/data
        touch empty 'a b' unreadable.app/secret latin1.app/$(printf '\377'); mkdir empty.app
        chmod 0 unreadable.app/secret; echo '[]' > array.json; echo '<html>' > page.json
        truncate -s 1048577 large.json; cp new.tar.zst longer; echo >> longer
        { head -c -1 new.tar.zst; echo; } > changed)sh");
    const std::string state = "find . ! -name '.*' -printf '%p %s %T@\n' | sort";
    const std::string before = outputOf(state);
    expectRefused("check --bundle", {{"keyless.app feed.json", "TVUpdatePublicKeys"},
                                     {"other-key.app feed.json", "\"signature\""},
                                     {"other-id.app feed.json", "\"signature\""},
                                     {"version.app feed.json", "“version”: version=1.0 is illegal"},
                                     {"nowhere.app feed.json", "not a bundle"},
                                     {"old/T.app feed.json --archive longer", "“size”"},
                                     {"old/T.app feed.json --archive changed", "“sha256”"},
                                     {"old/T.app feed.json --archive nowhere", "nowhere"},
                                     {"old/T.app array.json", "not one JSON object"},
                                     {"old/T.app page.json", "JSON"},
                                     {"old/T.app large.json", "1 MiB"}});
    expectRefused("feed --output made.json --private-key private.pem",
                  {{"new.tar.zst --bundle version.app", "“version”"},
                   {"new.tar.zst --identifier x --version 1.2.3", "“version”"},
                   {"new.tar.zst --identifier x --version '1.2.3 4'", "“version”"},
                   {"new.tar.zst --identifier 'x\ny' --version 1.2.3.4", "identifier"},
                   {"new.tar.zst --bundle new/T.app --url http://a.example/x", "“url”"},
                   {"'a b' --bundle new/T.app", "“url”"},
                   {"empty --bundle new/T.app", "“size”"},
                   {"nowhere --bundle new/T.app", "nowhere"}});
    expectRefused("feed new.tar.zst --bundle new/T.app --private-key",
                  {{"feed.json", "feed.json”: "},
                   {"nowhere", "nowhere"},
                   {"private.pem --output new.tar.zst", "“new.tar.zst”"},
                   {"private.pem --output ./new/../private.pem", "private.pem"},
                   {"private.pem --output new/T.app/feed.json", "new/T.app"},
                   {"private.pem --output nowhere/feed.json", "nowhere/feed.json"},
                   {"private.pem > /dev/full", "Standard output"}});
    expectRefused("pack", {{"new/T.app --output new/T.app/x", "new/T.app"},
                           {"new/T.app --output old", "old"},
                           {"new/T.app --output nowhere/x", "nowhere/x"},
                           {"nameless --output empty", ".app"},
                           {"version.app --output empty", "“version”"},
                           {"no-id.app --output empty", "identif"},
                           {"program.app --output empty", "executable"},
                           {"link.app --output empty", "leads out"},
                           {"large.app --output empty", "more than may be unpacked"},
                           {"empty.app --output empty", "Info.plist"},
                           {"set-user-id.app --output empty", "has a set-user-id"},
                           {"unreadable.app --output empty", "secret"},
                           {"latin1.app --output empty", "UTF-8"}});
    expectRefused("keygen --private-key", {{"private.pem", "private.pem"},
                                           {"nowhere/p", "nowhere/p"},
                                           {"p --public-key feed.json", "feed.json"},
                                           {"p --public-key p", "“p”"},
                                           {"p --public-key q > /dev/full", "Standard output"}});
    EXPECT_EQ(outputOf(state), before);
}

TEST_F(ReleaseTool, KeygenKeepsThePrivateKeyForItsOwner) {
    const std::string output = outputOf(
        "umask 0; tool keygen --private-key private.pem --public-key public; "
        "test ! -L private.pem -a $(stat -c %a private.pem) = 600 && cat public");
    const auto key = platform::SigningKey::fromPem(read("private.pem"));
    ASSERT_TRUE(key);
    const std::string line = key.value().publicKey().value() + "\n";
    EXPECT_EQ(output, line + line);
}

TEST_F(ReleaseTool, PackGivesTheFolderBackAndMakesTheSameBytesWhateverTheOrder) {
    makeBundle("new/T.app", "1.0.0.2");
    // The copy is made in the other order.
    const Outcome outcome = run(R"sh(
        for i in 1 2 3 4 5 6 7 8 Grüße $(printf %0120d 9); do echo $i > new/T.app/Contents/$i; done
        mkdir copy new/T.app/Contents/empty; touch -d @1234567890 new/T.app/Contents/1
        ln -s MacOS/Run new/T.app/Contents/run; ln -s ../Info.plist new/T.app/Contents/MacOS
        (cd new && find T.app -type d) | (cd copy && xargs mkdir -p)
        (cd new && find T.app ! -type d | sort -r) |
            while read -r file; do cp --preserve=mode,timestamps -P new/$file copy/$file; done
        tool pack new/T.app --output a && tool pack new/T.app/ --output b &&
            tool pack copy/T.app --output c && cmp a b && cmp b c)sh");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors.find("[="), std::string::npos) << "a progress bar without a terminal";
    fs::create_directory(path("unpacked"));
    ASSERT_FALSE(platform::unpackArchive(path("a"), path("unpacked")));
    outputOf(R"sh(diff -r --no-dereference new unpacked && for folder in new unpacked; do
        (cd $folder; find T.app -printf '%p %m %l\n' , -type f -printf '%p %Ts\n') |
            sort > $folder.list; done; cmp new.list unpacked.list)sh");
}

TEST_F(ReleaseTool, PackShowsItsProgressOnATerminalAndLeavesNothingWhenItIsToldToStop) {
    makeBundle("new/T.app", "1.0.0.2");
    const std::string shown =
        outputOf("script -qec '\"" RELEASE_TOOL "\" pack new/T.app --output a' /dev/null; rm a");
    EXPECT_NE(shown.find("=] 100 %"), std::string::npos) << shown;
    _folder.write("new/T.app/Contents/data", "");
    fs::resize_file(path("new/T.app/Contents/data"), std::uint64_t{4} * 1000 * 1000 * 1000);
    for (const std::string signal : {"INT", "TERM"}) {
        const Outcome outcome = run("'" RELEASE_TOOL
                                    "' pack new/T.app --output a & "
                                    "until [ -e a.new ]; do :; done; kill -" +
                                    signal + " $!; wait $!");
        EXPECT_EQ(outcome.status, 1) << outcome.errors;
        EXPECT_NE(outcome.errors.find("cancelled"), std::string::npos) << outcome.errors;
        EXPECT_FALSE(fs::exists(path("a")) || fs::exists(path("a.new")));
    }
}

TEST_F(ReleaseTool, AnswersCallsForHelpAndCallsThatAreOff) {
    for (const std::string command : {"", "keygen ", "pack ", "feed ", "check "}) {
        EXPECT_NE(
            outputOf("tool " + command + "--help").find("Usage: teravolant-release " + command),
            std::string::npos);
    }
    EXPECT_EQ(outputOf("tool --version"), TERAVOLANT_VERSION "\n");
    for (const std::string words :
         {"", "publish", "keygen", "keygen --private-key ''", "pack new/T.app",
          "feed x --private-key p", "feed x --private-key p --bundle b --identifier i --version 1",
          "feed x --private-key p --identifier i", "feed x --private-key p --version 1.2.3.4",
          "feed x --private-key p --bundle b --url u --name n", "check f", "pack a b --output c"}) {
        const Outcome outcome = run("tool " + words);
        EXPECT_EQ(outcome.status, 2) << words << outcome.errors;
        EXPECT_TRUE(outcome.errors.starts_with("teravolant-release: ")) << outcome.errors;
    }
}

}  // namespace
}  // namespace teravolant
