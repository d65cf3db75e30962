#include "platform/files/file_lock.h"
#include "platform/files/paths.h"

#include <gtest/gtest.h>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

namespace fs = std::filesystem;

class Files : public ::testing::Test {
  protected:
    [[nodiscard]] fs::path path(const std::string& name) const { return _folder.path() / name; }

    fixtures::TemporaryFolder _folder;
};

TEST_F(Files, HomeDirectoryHasItsLinksResolved) {
    fs::create_directory_symlink(_folder.path(), path("link"));
    setenv("HOME", (path("link").string() + "//").c_str(), 1);
    EXPECT_EQ(homeDirectoryForCurrentUser(), _folder.path());
    setenv("HOME", "relative", 1);
    EXPECT_TRUE(homeDirectoryForCurrentUser().is_absolute());
}

TEST_F(Files, LocksExcludeOthersUntilReleased) {
    {
        const auto held = FileLock::tryAcquire(path("lock"));
        EXPECT_TRUE(*held);
        EXPECT_FALSE(*FileLock::tryAcquire(path("lock")));
        const auto late = FileLock::acquire(path("lock"), std::chrono::milliseconds(20));
        ASSERT_FALSE(late);
        EXPECT_EQ(late.error().code, NSFileLockingError);
    }
    fs::permissions(path("lock"), fs::perms::owner_read);
    EXPECT_TRUE(*FileLock::tryAcquire(path("lock")));
}

}  // namespace teravolant::platform
