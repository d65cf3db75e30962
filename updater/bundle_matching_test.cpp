#include <gtest/gtest.h>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/url.h"
#include "tests/fixtures/log_reader.h"
#include "tests/fixtures/temporary_folder.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"

namespace teravolant {

namespace fs = std::filesystem;
using platform::Value;
using Lines = std::vector<std::string>;

const std::string kOperation = "[ClientUpdater::updateBundleMatchingCurrentApplicationInDirectory]";
const std::string kIdentity = TEST_BUNDLE_IDENTIFIER;

class BundleMatching : public ::testing::Test {
  protected:
    static std::string candidateLine(const std::string& identity) {
        return kOperation + " update id=" + identity + ", now id=" + kIdentity;
    }

    /// Makes an application bundle; an empty `identity` leaves the identifier out.
    void addBundle(const fs::path& path, const std::string& identity = kIdentity) const {
        Value::Dictionary information;
        if (!identity.empty()) {
            information.emplace("CFBundleIdentifier", identity);
        }
        folder.write(path / "Contents/Info.plist", platform::serialisePropertyList(information));
    }

    /// Expects the search to find `expected` (empty: nothing) and to log `lines`, in any order,
    /// after its first line.
    void expectFound(const std::string& expected, Lines lines) const {
        const fixtures::LogReader log;
        const auto found = ClientUpdater(platform::URLRequest())
                               .updateBundleMatchingCurrentApplicationInDirectory(folder.path())
                               .subscribe();
        EXPECT_EQ(found ? found->bundlePath().string() : "", expected);
        if (!found) {
            EXPECT_EQ(found.error().code, platform::SQRLUpdaterErrorMissingUpdateBundle);
            EXPECT_EQ(found.error().localizedDescription, "Could not locate update bundle for " +
                                                              kIdentity + " within " +
                                                              platform::fileUrl(folder.path()));
        }
        Lines entries = log.entries();
        ASSERT_EQ(entries.size(), lines.size() + 1);
        EXPECT_EQ(entries[0], kOperation);
        std::sort(entries.begin() + 1, entries.end());
        for (std::size_t line = 0; line < lines.size(); ++line) {
            EXPECT_TRUE(entries[line + 1].starts_with(lines[line])) << entries[line + 1];
        }
    }

    const fixtures::TemporaryFolder folder;
};

TEST_F(BundleMatching, FindsBundleInOrdinaryFolders) {
    addBundle("a/b.framework/c.application/New build.aPP");
    folder.write("file.app", "");
    folder.write("a/file", "");
    expectFound(folder.path() / "a/b.framework/c.application/New build.aPP",
                {candidateLine(kIdentity)});
}

TEST_F(BundleMatching, SkipsHiddenItemsPackageContentsAndLinks) {
    expectFound("", {});
    addBundle(".hidden.app");
    addBundle(".folder/a.app");
    addBundle("outer.app/Contents/Resources/inner.app");
    addBundle("outer.app", "other");
    fs::create_directory_symlink(folder.path() / ".hidden.app", folder.path() / "linked.app");
    fs::create_directory_symlink(folder.path() / ".folder", folder.path() / "linked");
    fs::create_directory_symlink(folder.path(), folder.path() / "loop");
    expectFound("", {candidateLine("other")});
}

TEST_F(BundleMatching, LogsUnreadableItemsAndContinues) {
    addBundle("locked/a.app");
    fs::permissions(folder.path() / "locked", fs::perms::none);
    fs::create_directory(folder.path() / "broken.app");
    addBundle("anonymous.app", "");
    addBundle(".outside");
    fs::create_directory(folder.path() / "borrowed.app");
    fs::create_directory_symlink(folder.path() / ".outside/Contents",
                                 folder.path() / "borrowed.app/Contents");
    const std::string url = platform::fileUrl(folder.path());
    expectFound("", {"Could not open application bundle at " + url + "/borrowed.app",
                     "Could not open application bundle at " + url + "/broken.app",
                     "Error enumerating item " + url + "/locked within directory " + url +
                         ": Error Domain=NSCocoaErrorDomain Code=257 \"",
                     candidateLine("(null)")});
}

}  // namespace teravolant
