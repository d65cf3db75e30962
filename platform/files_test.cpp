#include "platform/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

class Files : public ::testing::Test {
  protected:
    fs::path fileWith(const std::string& name, const std::string& contents) {
        fs::path path = _folder.path() / name;
        std::ofstream(path) << contents;
        return path;
    }

    fixtures::TemporaryFolder _folder;
};

TEST_F(Files, ACopyHasTheContentsThePermissionsAndTheTimeToTheNanosecond) {
    const fs::path source = fileWith("source", std::string(200'000, 'x'));
    const fs::path target = _folder.path() / "target";
    const timespec times[] = {{1'000'000'000, 1}, {1'234'567'890, 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, source.c_str(), times, 0), 0);
    fs::permissions(source, fs::perms(0640));

    EXPECT_FALSE(copyItem(source, target));
    EXPECT_EQ(contentsOfFile(target).value(), std::string(200'000, 'x'));
    EXPECT_EQ(fs::status(target).permissions(), fs::perms(0640));
    EXPECT_EQ(attributesOfItem(target).value().fileModificationDate.time_since_epoch(),
              std::chrono::nanoseconds(1'234'567'890'123'456'789));

    const auto again = copyItem(fileWith("other", "y"), target);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->code, NSFileWriteFileExistsError);
    EXPECT_EQ(contentsOfFile(target).value().front(), 'x');
}

TEST_F(Files, FailuresCarryTheCodeOfTheirReason) {
    const fs::path file = fileWith("file", "");
    const fs::path closed = _folder.path() / "closed";
    fs::create_directory(closed);
    fs::permissions(closed, fs::perms::none);
    const fs::path longName = _folder.path() / std::string(300, 'n');

    EXPECT_EQ(attributesOfItem(_folder.path() / "none").error().code, NSFileReadNoSuchFileError);
    EXPECT_EQ(attributesOfItem(file / "below").error().code, NSFileReadUnknownError);
    EXPECT_EQ(attributesOfItem(closed / "x").error().code, NSFileReadNoPermissionError);
    EXPECT_EQ(attributesOfItem(longName).error().code, NSFileReadInvalidFileNameError);
    EXPECT_EQ(contentsOfFile(_folder.path()).error().code, NSFileReadUnknownError);
    EXPECT_EQ(removeItem(_folder.path() / "none")->code, NSFileNoSuchFileError);
    EXPECT_EQ(copyItem(file, closed / "x")->code, NSFileWriteNoPermissionError);
    EXPECT_EQ(appendToFile(longName, "x")->code, NSFileWriteInvalidFileNameError);
    EXPECT_EQ(appendToFile("/etc/motd", "x")->code, NSFileWriteVolumeReadOnlyError);
    EXPECT_EQ(appendToFile("/dev/full", "x")->code, NSFileWriteOutOfSpaceError);
    ASSERT_EQ(mkfifo((_folder.path() / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(appendToFile(_folder.path() / "pipe", "x")->code, NSFileWriteUnknownError);
    fs::permissions(closed, fs::perms::owner_all);
}

TEST_F(Files, TheHomeIsTheRealFolderBehindItsLinks) {
    const fs::path real = _folder.path() / "real";
    fs::create_directory(real);
    fs::create_directory_symlink(real, _folder.path() / "link");
    const auto homeFor = [](const fs::path& value) {
        setenv("HOME", value.c_str(), 1);
        return homeDirectoryForCurrentUser();
    };
    EXPECT_EQ(homeFor(_folder.path() / "link"), real);
    EXPECT_EQ(homeFor(real.string() + "//"), real);
    EXPECT_EQ(homeFor("/not/there"), "/not/there");
    EXPECT_TRUE(homeFor("relative").is_absolute());
}

TEST_F(Files, ALockIsHeldByOneAtATimeAndFreeAgainAfterwards) {
    const fs::path path = _folder.path() / "lock";
    {
        const auto held = FileLock::tryAcquire(path);
        ASSERT_TRUE(held);
        EXPECT_TRUE(held.value());
        EXPECT_FALSE(FileLock::tryAcquire(path).value());
        const auto late = FileLock::acquire(path, std::chrono::milliseconds(20));
        ASSERT_FALSE(late);
        EXPECT_EQ(late.error().code, NSFileLockingError);
    }
    EXPECT_TRUE(FileLock::tryAcquire(path).value());
    fs::permissions(path, fs::perms::owner_read);
    EXPECT_TRUE(FileLock::acquire(path));
}

TEST_F(Files, AFileThatSeveralReplaceAtOnceIsAlwaysOneOfTheirsWhole) {
    constexpr int kRounds = 200;
    const fs::path path = fileWith("file", "a");
    std::vector<std::jthread> writers;
    std::atomic<int> running = 0;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        ++running;
        writers.emplace_back([&running, &path, letter] {
            for (int round = 0; round < kRounds; ++round) {
                const std::string bytes(static_cast<std::size_t>(round * (letter - '`') + 1),
                                        letter);
                const auto error = replaceFileDurably(path, bytes, 0644);
                EXPECT_FALSE(error) << error->localizedDescription;
            }
            --running;
        });
    }
    while (running > 0) {
        const std::string contents = contentsOfFile(path).value();
        const auto factor = static_cast<std::size_t>(contents.empty() ? 0 : contents[0] - '`');
        ASSERT_GT(factor, 0U);
        ASSERT_EQ(contents.find_first_not_of(contents[0]), contents.npos);
        ASSERT_EQ((contents.size() - 1) % factor, 0U);
    }
    EXPECT_FALSE(fileExists(path.string() + ".new"));
}

}  // namespace
}  // namespace teravolant::platform
