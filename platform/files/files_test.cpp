#include "platform/files/files.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/files/durable_file.h"
#include "platform/files/file_lock.h"
#include "platform/files/paths.h"
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

// Another user who prepares the temporary file of a replacement could hold it open.
TEST_F(Files, AreCreatedWithTheirModeAndInNoPreparedFile) {
    _folder.write(".key.teravolant-new", "prepared");
    for (const unsigned mode : {0600U, 0644U}) {
        const mode_t previous = umask(mode == 0600 ? 0 : 0777);
        const auto error = createFileDurably(path("key"), "secret", mode);
        umask(previous);
        ASSERT_FALSE(error) << printedForm(*error);
        EXPECT_EQ(fs::status(path("key")).permissions(), fs::perms(mode));
        EXPECT_EQ(*contentsOfFile(path("key")), "secret");
        EXPECT_EQ(*contentsOfFile(path(".key.teravolant-new")), "prepared");
        fs::remove(path("key"));
    }
    fs::create_symlink("target", path("key"));
    EXPECT_EQ(createFileDurably(path("key"), "secret", 0600)->code, NSFileWriteFileExistsError);
    EXPECT_EQ(std::distance(fs::directory_iterator(_folder.path()), {}), 2);
}

}  // namespace teravolant::platform
