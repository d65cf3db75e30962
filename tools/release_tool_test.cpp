#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

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
using platform::PropertyListValue;

constexpr const char* kIdentifier = "com.zelto.teravolant.updater";

struct Outcome {
    int status = 0;
    std::string output;
    std::string errors;
};

/// A publisher's working folder.
class ReleaseTool : public testing::Test {
  protected:
    ReleaseTool() {
        makeBundle("old/T.app", "1.0.0.1");
        makeBundle("new/T.app", "1.0.0.2");
    }

    [[nodiscard]] fs::path path(const std::string& name) const { return _folder.path() / name; }
    [[nodiscard]] std::string read(const std::string& name) const {
        const auto contents = platform::contentsOfFile(path(name));
        return contents ? contents.value() : "(unreadable)";
    }

    /// Runs a script of the shell in the folder, with the tool at `$tool`.
    [[nodiscard]] Outcome run(const std::string& script) const {
        const std::string line = "cd '" + _folder.path().string() + "' && tool='" + RELEASE_TOOL +
                                 "' && { " + script + "\n} > .output 2> .errors";
        const int status = std::system(line.c_str());
        return {WEXITSTATUS(status), read(".output"), read(".errors")};
    }

    void expectRefused(const std::string& words, const std::string& reason) const {
        const Outcome outcome = run("\"$tool\" " + words);
        EXPECT_EQ(outcome.status, 1) << words;
        EXPECT_TRUE(outcome.errors.starts_with("teravolant-release: ")) << outcome.errors;
        EXPECT_NE(outcome.errors.find(reason), std::string::npos) << words << outcome.errors;
        EXPECT_EQ(outcome.output, "") << words;
    }

    void makeBundle(const std::string& name, const std::string& version,
                    PropertyListValue::Array keys = {},
                    const std::string& identifier = kIdentifier) const {
        _folder.write(name + "/Contents/Info.plist",
                      serialisePropertyList(
                          PropertyListValue::Dictionary{{"CFBundleExecutable", "Run"},
                                                        {"CFBundleIdentifier", identifier},
                                                        {"CFBundleShortVersionString", version},
                                                        {"TVUpdatePublicKeys", std::move(keys)}}));
        _folder.write(name + "/Contents/MacOS/Run", "#!/bin/sh\n");
        fs::permissions(path(name + "/Contents/MacOS/Run"), fs::perms::owner_all);
    }

    /// Keys, the archive new.tar.zst, its offer in feed.json; the old bundle accepts the key.
    void publish() {
        const Outcome outcome =
            run("\"$tool\" keygen --private-key private.pem && "
                "\"$tool\" pack new/T.app --output new.tar.zst && "
                "\"$tool\" feed new.tar.zst --bundle new/T.app --private-key private.pem "
                "--output feed.json");
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        _publicKey = outcome.output.substr(0, outcome.output.find('\n'));
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
    const std::string size = std::to_string(fs::file_size(path("new.tar.zst")));
    const std::string accepted = "accepted: version 1.0.0.2, " + size + " bytes, from ";
    Outcome outcome = run("\"$tool\" check feed.json --bundle old/T.app --archive new.tar.zst");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, accepted + "new.tar.zst in the feed's own folder\n");

    // The same from the identity without the bundle, to standard output, with an address.
    const std::string url = "https://a.example/n.tar.zst";
    outcome = run("\"$tool\" feed new.tar.zst --version 1.0.0.2 --private-key private.pem --url " +
                  url + " --identifier " + kIdentifier + " > stdout.json");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    JsonValue::Object expected = feed();
    expected.erase("name");
    expected["url"] = url;
    EXPECT_EQ(*platform::parseJson(read("stdout.json")).value().object(), expected);
    outcome = run("\"$tool\" check stdout.json --bundle old/T.app");
    EXPECT_EQ(outcome.output, accepted + url + "\n") << outcome.errors;
    EXPECT_FALSE(fs::exists(platform::applicationSupportDirectory() / "Zelto"))
        << "the user's own log was written to";
}

TEST_F(ReleaseTool, ChecksAServersAnswerAsTheUpdaterGetsIt) {
    publish();
    ServerAnswer answer;
    const HttpServer server([&answer](const fixtures::ReceivedRequest&) { return answer; });
    const std::string words = "check " + server.url("/teravolant/release.mac");
    answer.body = read("feed.json");
    const Outcome outcome = run("\"$tool\" " + words + " --bundle old/T.app");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_TRUE(outcome.output.ends_with(" from " + server.url("/teravolant/new.tar.zst") + "\n"));
    EXPECT_EQ(server.requests().front().target, "/teravolant/release.mac?version=1.0.0.1");

    expectRefused(words + "?version=1.0.0.3 --bundle old/T.app",
                  "“version”: version=1.0.0.3 is not older than 1.0.0.2");
    EXPECT_EQ(server.requests().back().target, "/teravolant/release.mac?version=1.0.0.3");
    const std::pair<ServerAnswer, std::string> cases[] = {
        {{.status = 204}, "no update"},
        {{.status = 404, .body = answer.body}, "status 404"},
        {{.status = 200, .body = answer.body + std::string(std::size_t{1} << 20U, ' ')}, "large"},
    };
    for (const auto& [refused, reason] : cases) {
        answer = refused;
        expectRefused(words + " --bundle old/T.app", reason);
    }
}

TEST_F(ReleaseTool, CheckNamesTheMemberForWhichAnOfferIsRefused) {
    publish();
    const std::string anotherDigest(64, 'a');
    struct Case {
        std::string member;
        std::optional<JsonValue> value;
        std::string reason;
    };
    const Case cases[] = {
        {"version", "1.0.0.1", "“version”: version=1.0.0.1 is not older than 1.0.0.1"},
        {"version", "0.9.0.9", "“version”"},
        {"version", "2.0", "“version”: 2.0 is illegal version"},
        {"version", {}, "“version”"},
        {"version", "1.0.0.3", "\"signature\""},
        {"size", std::int64_t{1}, "\"signature\""},
        {"size", "1", "“size”"},
        {"size", {}, "\"size\""},
        {"sha256", anotherDigest, "\"signature\""},
        {"sha256", "abc", "“sha256”"},
        {"signature", platform::base64Encoded(std::string(64, 's')), "\"signature\""},
        {"signature", "-", "“signature”"},
        {"signature", {}, "\"signature\""},
        {"url", JsonValue(), "“url”"},
        {"url", "new.tar.zst", "“url”"},
        {"url", "file:///tmp/new.tar.zst", "“url”"},
        {"url", "http://a.example/new.tar.zst", "“url”"},
        {"name", {}, "“url” is missing"},
    };
    for (const Case& test : cases) {
        JsonValue::Object offer = feed();
        offer.erase(test.member);
        if (test.value) {
            offer[test.member] = *test.value;
        }
        _folder.write("tampered.json", serialiseJson(offer).value());
        expectRefused("check tampered.json --bundle old/T.app", test.reason);
    }
    _folder.write("array.json", "[]");
    _folder.write("page.json", "<html>");
    _folder.write("large.json", std::string((std::size_t{1} << 20U) + 1, ' '));
    expectRefused("check array.json --bundle old/T.app", "not one JSON object");
    expectRefused("check page.json --bundle old/T.app", "JSON");
    expectRefused("check large.json --bundle old/T.app", "1 MiB");
}

TEST_F(ReleaseTool, CheckRefusesForAnotherBundleKeyOrArchive) {
    publish();
    const auto otherKey = platform::SigningKey::generate().value().publicKey().value();
    makeBundle("keyless.app", "1.0.0.1");
    makeBundle("other-key.app", "1.0.0.1", {otherKey});
    makeBundle("other-id.app", "1.0.0.1", {_publicKey}, "com.zelto.other");
    makeBundle("short-version.app", "1.0", {_publicKey});
    _folder.write("longer", read("new.tar.zst") + "x");
    std::string changed = read("new.tar.zst");
    changed.back() ^= 1;
    _folder.write("changed", changed);
    const std::pair<std::string, std::string> cases[] = {
        {"keyless.app", "TVUpdatePublicKeys"},
        {"other-key.app", "\"signature\""},
        {"other-id.app", "\"signature\""},
        {"short-version.app", "“version”: version=1.0 is illegal version"},
        {"nowhere.app", "not a bundle"},
        {"old/T.app --archive longer", "“size”"},
        {"old/T.app --archive changed", "“sha256”"},
        {"old/T.app --archive nowhere", "nowhere"},
        {"old/T.app --archive old", "could not be read"},
    };
    for (const auto& [bundle, reason] : cases) {
        expectRefused("check feed.json --bundle " + bundle, reason);
    }
}

TEST_F(ReleaseTool, FeedRefusesWhatNoUpdaterWouldTakeAndWritesNothing) {
    publish();
    makeBundle("short-version.app", "1.0");
    _folder.write("empty", "");
    _folder.write("a b", "x");
    const std::string key = " --private-key private.pem";
    const std::string bundle = " --bundle new/T.app";
    const std::pair<std::string, std::string> cases[] = {
        {"new.tar.zst --bundle short-version.app" + key, "“version”"},
        {"new.tar.zst --bundle nowhere.app" + key, "not a bundle"},
        {"new.tar.zst --identifier x --version 1.2.3" + key, "“version”"},
        {"new.tar.zst --identifier x --version '1.2.3\n4'" + key, "version"},
        {"new.tar.zst --identifier x --version '1.2.3 4'" + key, "“version”"},
        {"new.tar.zst --identifier 'x\ny' --version 1.2.3.4" + key, "identifier"},
        {"'a b'" + bundle + key, "“url”"},
        {"new.tar.zst --name a/b" + bundle + key, "“name”"},
        {"new.tar.zst --name 'a?b'" + bundle + key, "“name”"},
        {"new.tar.zst --url http://a.example/x" + bundle + key, "“url”"},
        {"new.tar.zst --url file:///x" + bundle + key, "“url”"},
        {"empty" + bundle + key, "“size”"},
        {"nowhere" + bundle + key, "nowhere"},
        {"new.tar.zst --private-key feed.json" + bundle, "feed.json”: "},
        {"new.tar.zst --private-key nowhere" + bundle, "nowhere"},
    };
    for (const auto& [words, reason] : cases) {
        expectRefused("feed " + words + " --output made.json", reason);
    }
    EXPECT_FALSE(fs::exists(path("made.json")));
    EXPECT_FALSE(fs::exists(path("made.json.new")));
}

TEST_F(ReleaseTool, NoCommandWritesOverWhatItReadsOrWhereItCannot) {
    publish();
    const std::string before = run("find . -type f ! -name '.*' | sort | xargs sha256sum").output;
    const std::string feed = "feed new.tar.zst --bundle new/T.app --private-key private.pem";
    const std::pair<std::string, std::string> cases[] = {
        {feed + " --output new.tar.zst", "“new.tar.zst”"},
        {feed + " --output ./new/../private.pem", "private.pem"},
        {feed + " --output new/T.app/feed.json", "new/T.app"},
        {feed + " --output nowhere/feed.json", "nowhere/feed.json"},
        {feed + " > /dev/full", "Standard output"},
        {"pack new/T.app --output new/T.app/x", "new/T.app"},
        {"pack new/T.app --output old", "old"},
        {"pack new/T.app --output nowhere/x", "nowhere/x"},
        {"keygen --private-key private.pem", "private.pem"},
        {"keygen --private-key nowhere/p", "nowhere/p"},
        {"keygen --private-key p --public-key feed.json", "feed.json"},
        {"keygen --private-key p --public-key p", "“p”"},
        {"keygen --private-key p --public-key q > /dev/full", "Standard output"},
    };
    for (const auto& [words, reason] : cases) {
        expectRefused(words, reason);
    }
    EXPECT_EQ(run("find . -type f ! -name '.*' | sort | xargs sha256sum").output, before);
}

TEST_F(ReleaseTool, KeygenKeepsThePrivateKeyForItsOwner) {
    const Outcome outcome =
        run("umask 0; \"$tool\" keygen --private-key private.pem --public-key public");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(read("public"), outcome.output);
    struct stat status {};
    ASSERT_EQ(lstat(path("private.pem").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    const auto key = platform::SigningKey::fromPem(read("private.pem"));
    ASSERT_TRUE(key);
    EXPECT_EQ(key.value().publicKey().value() + "\n", outcome.output);
}

TEST_F(ReleaseTool, PackGivesTheFolderBackAndMakesTheSameBytesWhateverTheOrder) {
    // The copy is made in the other order.
    Outcome outcome =
        run("for i in 1 2 3 4 5 6 7 8 Grüße $(printf %0120d 9); do "
            "echo $i > new/T.app/Contents/$i; done; mkdir copy new/T.app/Contents/empty; "
            "touch -d @1234567890 new/T.app/Contents/1; "
            "ln -s MacOS/Run new/T.app/Contents/run; ln -s ../Info.plist new/T.app/Contents/MacOS; "
            "(cd new && find T.app -type d) | (cd copy && xargs mkdir -p); "
            "(cd new && find T.app ! -type d | sort -r) | while read -r file; do "
            "cp --preserve=mode,timestamps -P new/$file copy/$file; done; "
            "\"$tool\" pack new/T.app --output a && \"$tool\" pack new/T.app/ --output b && "
            "\"$tool\" pack copy/T.app --output c && cmp a b && cmp b c");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors.find("[="), std::string::npos) << "a progress bar without a terminal";
    fs::create_directory(path("unpacked"));
    ASSERT_FALSE(platform::unpackArchive(path("a"), path("unpacked")));
    outcome =
        run("diff -r --no-dereference new unpacked && for folder in new unpacked; do "
            "(cd $folder && find T.app -printf '%p %m %l\n' , -type f -printf '%p %Ts\n' "
            "| sort > ../$folder.list); done; "
            "cmp new.list unpacked.list");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST_F(ReleaseTool, PackShowsItsProgressOnATerminal) {
    const Outcome outcome =
        run("script -qec '\"'\"$tool\"'\" pack new/T.app --output a' /dev/null");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("=] 100 %"), std::string::npos) << outcome.output;
}

TEST_F(ReleaseTool, PackRefusesABundleThatNoUpdaterWouldFind) {
    makeBundle("nameless", "1.0.0.2");
    makeBundle("version.app", "1.0");
    makeBundle("identifier.app", "1.0.0.2", {}, "");
    makeBundle("executable.app", "1.0.0.2");
    fs::permissions(path("executable.app/Contents/MacOS/Run"), fs::perms::owner_read);
    for (const char* name : {"link", "large", "pipe", "set-user-id", "unreadable", "latin1"}) {
        makeBundle(std::string(name) + ".app", "1.0.0.2");
    }
    ASSERT_EQ(run("ln -s ../../outside link.app/Contents/link; mkfifo pipe.app/Contents/pipe; "
                  "chmod u+s set-user-id.app/Contents/MacOS/Run; "
                  "touch unreadable.app/secret latin1.app/$(printf '\\377'); "
                  "chmod 0 unreadable.app/secret")
                  .status,
              0);
    _folder.write("large.app/Contents/data", "");
    fs::resize_file(path("large.app/Contents/data"), (std::uint64_t{4} << 30U) + 1);
    fs::create_directory(path("empty.app"));
    _folder.write("archive", "as it was");
    const std::pair<std::string, std::string> cases[] = {
        {"nameless", ".app"},
        {"version.app", "“version”"},
        {"identifier.app", "identif"},
        {"executable.app", "executable"},
        {"link.app", "leads out"},
        {"large.app", "more than may be unpacked"},
        {"empty.app", "Info.plist"},
        {"pipe.app", "neither a file"},
        {"set-user-id.app", "has a set-user-id"},
        {"unreadable.app", "secret"},
        {"latin1.app", "UTF-8"},
    };
    for (const auto& [bundle, reason] : cases) {
        expectRefused("pack " + bundle + " --output archive", reason);
    }
    EXPECT_EQ(read("archive"), "as it was");
    EXPECT_FALSE(fs::exists(path("archive.new")));
}

TEST_F(ReleaseTool, LeavesNothingBehindWhenItIsToldToStop) {
    _folder.write("new/T.app/Contents/data", "");
    fs::resize_file(path("new/T.app/Contents/data"), std::uint64_t{4} * 1000 * 1000 * 1000);
    for (const std::string signal : {"INT", "TERM"}) {
        const Outcome outcome =
            run("\"$tool\" pack new/T.app --output a & until [ -e a.new ]; do :; done; "
                "kill -" +
                signal + " $!; wait $!");
        EXPECT_EQ(outcome.status, 1) << outcome.errors;
        EXPECT_NE(outcome.errors.find("cancelled"), std::string::npos) << outcome.errors;
        EXPECT_FALSE(fs::exists(path("a")));
        EXPECT_FALSE(fs::exists(path("a.new")));
    }
}

TEST_F(ReleaseTool, AnswersCallsForHelpAndCallsThatAreOff) {
    for (const std::string words :
         {"--help", "keygen --help", "pack --help", "feed --help", "check --help"}) {
        const Outcome outcome = run("\"$tool\" " + words);
        EXPECT_EQ(outcome.status, 0) << words;
        const std::string command = words.substr(0, words.find('-'));
        EXPECT_NE(outcome.output.find("Usage: teravolant-release " + command), std::string::npos)
            << outcome.output;
    }
    EXPECT_EQ(run("\"$tool\" --version").output, TERAVOLANT_VERSION "\n");
    for (const std::string words :
         {"", "publish", "keygen", "keygen --private-key ''", "pack new/T.app",
          "feed x --private-key p", "feed x --private-key p --bundle b --identifier i --version 1",
          "feed x --private-key p --identifier i", "feed x --private-key p --version 1.2.3.4",
          "feed x --private-key p --bundle b --url u --name n", "check f", "pack a b --output c"}) {
        const Outcome outcome = run("\"$tool\" " + words);
        EXPECT_EQ(outcome.status, 2) << words << outcome.errors;
        EXPECT_TRUE(outcome.errors.starts_with("teravolant-release: ")) << outcome.errors;
    }
}

}  // namespace
}  // namespace teravolant
