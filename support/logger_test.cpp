#include "support/logger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <latch>
#include <regex>
#include <thread>

#include "platform/files/file_lock.h"
#include "platform/files/files.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant {

namespace fs = std::filesystem;

class LoggerTest : public ::testing::Test {
  protected:
    LoggerTest() {
        setenv("XDG_DATA_HOME", _data.path().c_str(), 1);
        fs::create_directories(_folder);
    }

    void makeFile(const std::string& name, std::uintmax_t size) {
        std::ofstream(_folder / name) << 'x';
        fs::resize_file(_folder / name, size);
    }

    std::string contents() { return *platform::contentsOfFile(_folder / "updater.log"); }

    fixtures::TemporaryFolder _data;
    fs::path _folder = _data.path() / "Zelto" / "Teravolant App";
};

TEST_F(LoggerTest, RotatesFileAboveThreshold) {
    const std::tuple<std::uintmax_t, std::optional<std::uint64_t>, bool> table[] = {
        {10485760, std::nullopt, false},
        {10485761, std::nullopt, true},
        {100, 100, false},
        {101, 100, true},
        {0, 0, false},
        {10485760, static_cast<std::uint64_t>(-5), false}};
    for (const auto& [size, threshold, rotates] : table) {
        makeFile("updater.log", size);
        makeFile("updater.log.1", 3);
        ::testing::internal::CaptureStderr();
        Logger logger;
        if (threshold) {
            logger.setMaxFileSize(*threshold);
        }
        const std::string console = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(fs::file_size(_folder / "updater.log"), rotates ? 0 : size);
        EXPECT_EQ(fs::file_size(_folder / "updater.log.1"), rotates ? size : 3);
        EXPECT_EQ(console.ends_with("] remove " + (_folder / "updater.log.1").string() + "\n"),
                  rotates);
        EXPECT_FALSE(fs::exists(_folder / "updater.log.2"));
    }
}

constexpr std::uintmax_t kTooLarge = 10485761;

TEST_F(LoggerTest, SkipsRotationOnlyWhileAnotherStartRotates) {
    makeFile("updater.log", kTooLarge);
    {
        const auto lock = platform::FileLock::acquire(_folder / "rotation.lock");
        Logger();
        EXPECT_EQ(fs::file_size(_folder / "updater.log"), kTooLarge);
    }
    fs::remove(_folder / "rotation.lock");
    fs::create_directory(_folder / "rotation.lock");
    Logger();
    EXPECT_EQ(fs::file_size(_folder / "updater.log"), 0U);
}

TEST_F(LoggerTest, RotatesOnceForSimultaneousStarts) {
    for (int round = 0; round < 20; ++round) {
        makeFile("updater.log", kTooLarge);
        std::latch gate(4);
        std::vector<std::jthread> starts(4);
        for (std::jthread& start : starts) {
            start = std::jthread([&gate] {
                gate.arrive_and_wait();
                Logger();
            });
        }
        starts.clear();
        EXPECT_EQ(fs::file_size(_folder / "updater.log.1"), kTooLarge);
        EXPECT_EQ(fs::file_size(_folder / "updater.log"), 0U);
    }
}

TEST_F(LoggerTest, WritesMessagesUnchanged) {
    const std::string message = "100 %d %@ %s\nsecond line\r\n ä";
    ::testing::internal::CaptureStderr();
    Logger().logMessage(message);
    EXPECT_TRUE(::testing::internal::GetCapturedStderr().ends_with("] " + message + "\n"));
    const std::regex time(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d: )");
    EXPECT_TRUE(std::regex_match(contents().substr(0, 21), time));
    EXPECT_EQ(contents().substr(21), message + "\n");
}

TEST_F(LoggerTest, RecreatesDeletedFileAndSurvivesMissingFolder) {
    Logger logger;
    logger.logMessage("first");
    fs::remove(_folder / "updater.log");
    logger.logMessage("second");
    EXPECT_EQ(contents().substr(19), ": second\n");
    fs::remove_all(_folder);
    std::ofstream(_folder) << "a file";
    Logger().logMessage("third");
    EXPECT_EQ(*platform::contentsOfFile(_folder), "a file");
}

TEST_F(LoggerTest, KeepsConcurrentEntriesWhole) {
    constexpr int kEntries = 500;
    const auto writeAll = [](char name) {
        for (int number = 0; number < kEntries; ++number) {
            Logger().logMessage(std::string(300, name) + std::to_string(number));
        }
    };
    ::testing::internal::CaptureStderr();
    const pid_t child = fork();
    if (child == 0) {
        writeAll('c');
        _exit(0);
    }
    std::thread other(writeAll, 'a');
    writeAll('b');
    other.join();
    waitpid(child, nullptr, 0);
    ::testing::internal::GetCapturedStderr();
    std::istringstream lines(contents());
    std::map<char, int> next;
    for (std::string line; std::getline(lines, line);) {
        const char name = line.at(21);
        EXPECT_EQ(line.substr(21), std::string(300, name) + std::to_string(next[name]++));
    }
    EXPECT_EQ(next, (std::map<char, int>{{'a', kEntries}, {'b', kEntries}, {'c', kEntries}}));
}

}  // namespace teravolant
