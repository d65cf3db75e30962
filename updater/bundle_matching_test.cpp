#include <gtest/gtest.h>

#include "platform/url.h"
#include "testing/log_reader.h"
#include "testing/temporary_folder.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;
using platform::PropertyListValue;
using Lines = std::vector<std::string>;

const std::string kOperation = "[ClientUpdater::updateBundleMatchingCurrentApplicationInDirectory]";
const std::string kIdentity = TEST_BUNDLE_IDENTIFIER;

class BundleMatching : public ::testing::Test {
  protected:
    /// Makes an application bundle; one with an empty identity has none.
    void addBundle(const fs::path& path, const std::string& identity) const {
        PropertyListValue::Dictionary information;
        if (!identity.empty()) {
            information.emplace("CFBundleIdentifier", identity);
        }
        folder.write(path / "Contents/Info.plist", platform::serialisePropertyList(information));
    }

    [[nodiscard]] std::string urlOf(const fs::path& item) const {
        return platform::fileUrl(folder.path() / item);
    }

    /// What the search found, relative to the folder, or the description of its error; and the log
    /// lines behind the first, which is always the same.
    std::string search() {
        const fixtures::LogReader log;
        const ClientUpdater updater{platform::URLRequest()};
        const auto signal =
            updater.updateBundleMatchingCurrentApplicationInDirectory(folder.path());
        EXPECT_EQ(log.entries(), Lines{kOperation});
        EXPECT_EQ(signal.name(),
                  "<ClientUpdater> -applicationBundleMatchingCurrentApplicationInDirectory: " +
                      platform::fileUrl(folder.path()));
        const auto found = signal.subscribe();
        lines = log.entries();
        lines.erase(lines.begin());
        if (found) {
            return found.value().bundlePath().lexically_relative(folder.path());
        }
        EXPECT_EQ(found.error().domain, platform::SQRLUpdaterErrorDomain);
        EXPECT_EQ(found.error().code, platform::SQRLUpdaterErrorMissingUpdateBundle);
        EXPECT_TRUE(found.error().userInfo.empty());
        return found.error().localizedDescription;
    }

    static std::string candidateLine(const std::string& identity) {
        return kOperation + " update id=" + identity + ", now id=" + kIdentity;
    }

    [[nodiscard]] std::string nothingFound() const {
        return "Could not locate update bundle for " + kIdentity + " within " +
               platform::fileUrl(folder.path());
    }

    const fixtures::TemporaryFolder folder;
    Lines lines;
};

TEST_F(BundleMatching, TakesTheFirstThatMatchesInTheFoldersOwnOrder) {
    for (const char* name : {"a.app", "b.app", "c.app"}) {
        addBundle(name, "other");
    }
    std::vector<fs::path> order;
    for (const auto& item : fs::directory_iterator(folder.path())) {
        order.push_back(item.path().filename());
    }
    addBundle(order[1], kIdentity);
    addBundle(order[2], kIdentity);
    EXPECT_EQ(search(), order[1]);
    EXPECT_EQ(lines, (Lines{candidateLine("other"), candidateLine(kIdentity)}));
}

TEST_F(BundleMatching, FindsABundleInOrdinaryFoldersWhateverTheCaseOfItsExtension) {
    addBundle("a/b.framework/c.application/New build.aPP", kIdentity);
    folder.write("file.app", "");
    folder.write("a/file", "");
    EXPECT_EQ(search(), "a/b.framework/c.application/New build.aPP");
    EXPECT_EQ(lines, Lines{candidateLine(kIdentity)});
}

TEST_F(BundleMatching, LeavesOutHiddenItemsPackageContentsAndLinksInSilence) {
    addBundle(".hidden.app", kIdentity);
    addBundle(".folder/a.app", kIdentity);
    addBundle("outer.app/Contents/Resources/inner.app", kIdentity);
    addBundle("outer.app", "other");
    const fixtures::TemporaryFolder outside;
    fs::create_directory(outside.path() / "a.app");
    fs::create_directory_symlink(folder.path() / ".hidden.app", folder.path() / "linked.app");
    fs::create_directory_symlink(folder.path(), folder.path() / "loop");
    fs::create_directory_symlink(outside.path(), folder.path() / "outside");
    EXPECT_EQ(search(), nothingFound());
    EXPECT_EQ(lines, Lines{candidateLine("other")});
}

TEST_F(BundleMatching, NamesWhatItCanNotReadAndGoesOn) {
    addBundle("locked/a.app", kIdentity);
    fs::permissions(folder.path() / "locked", fs::perms::none);
    fs::create_directory(folder.path() / "broken.app");
    addBundle("anonymous.app", "");
    addBundle(".outside", kIdentity);
    fs::create_directory(folder.path() / "borrowed.app");
    fs::create_directory_symlink(folder.path() / ".outside/Contents",
                                 folder.path() / "borrowed.app/Contents");
    EXPECT_EQ(search(), nothingFound());
    fs::permissions(folder.path() / "locked", fs::perms::owner_all);

    std::sort(lines.begin(), lines.end());
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "Could not open application bundle at " + urlOf("borrowed.app"));
    EXPECT_EQ(lines[1], "Could not open application bundle at " + urlOf("broken.app"));
    EXPECT_TRUE(lines[2].starts_with("Error enumerating item " + urlOf("locked") +
                                     " within directory " + platform::fileUrl(folder.path()) +
                                     ": Error Domain=NSCocoaErrorDomain Code=257 \""))
        << lines[2];
    EXPECT_EQ(lines[3], candidateLine("(null)"));
}

TEST_F(BundleMatching, EmptyOrMissingFolderHoldsNothing) {
    EXPECT_EQ(search(), nothingFound());
    EXPECT_EQ(lines, Lines());
    fs::remove(folder.path());
    EXPECT_EQ(search(), nothingFound());
    EXPECT_EQ(lines.size(), 1U);
}

}  // namespace
}  // namespace teravolant
