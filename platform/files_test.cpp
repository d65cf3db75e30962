#include "platform/files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

class Files : public ::testing::Test {
  protected:
    [[nodiscard]] fs::path path(const std::string& name) const { return _folder.path() / name; }

    fixtures::TemporaryFolder _folder;
};

TEST_F(Files, TheHomeIsTheRealFolderBehindItsLinks) {
    fs::create_directory_symlink(_folder.path(), path("link"));
    setenv("HOME", (path("link").string() + "//").c_str(), 1);
    EXPECT_EQ(homeDirectoryForCurrentUser(), _folder.path());
    setenv("HOME", "relative", 1);
    EXPECT_TRUE(homeDirectoryForCurrentUser().is_absolute());
}

TEST_F(Files, ALockIsHeldByOneAtATimeAndFreeAgainAfterwards) {
    {
        const auto held = FileLock::tryAcquire(path("lock"));
        EXPECT_TRUE(held.value());
        EXPECT_FALSE(FileLock::tryAcquire(path("lock")).value());
        const auto late = FileLock::acquire(path("lock"), std::chrono::milliseconds(20));
        ASSERT_FALSE(late);
        EXPECT_EQ(late.error().code, NSFileLockingError);
    }
    fs::permissions(path("lock"), fs::perms::owner_read);
    EXPECT_TRUE(FileLock::tryAcquire(path("lock")).value());
}

TEST_F(Files, AFileThatSeveralReplaceAtOnceIsAlwaysOneOfTheirsWhole) {
    const fs::path file = path("file");
    _folder.write("file", "a");
    std::vector<std::jthread> writers;
    std::atomic<int> running = 4;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        writers.emplace_back([&running, &file, letter] {
            for (int round = 0; round < 200; ++round) {
                const auto size = static_cast<std::size_t>(round * (letter - '`') + 1);
                EXPECT_FALSE(replaceFileDurably(file, std::string(size, letter), 0644));
            }
            --running;
        });
    }
    while (running > 0) {
        const std::string contents = contentsOfFile(file).value();
        ASSERT_FALSE(contents.empty());
        ASSERT_EQ(contents.find_first_not_of(contents[0]), contents.npos);
        ASSERT_EQ((contents.size() - 1) % static_cast<std::size_t>(contents[0] - '`'), 0U);
    }
    EXPECT_FALSE(fileExists(path("file.new")));
}

}  // namespace
}  // namespace teravolant::platform
