#include "platform/preferences.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "platform/files.h"
#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

class Preferences : public ::testing::Test {
  protected:
    Preferences() { setenv("XDG_CONFIG_HOME", _folder.path().c_str(), 1); }

    [[nodiscard]] std::filesystem::path file() const {
        return _folder.path() / "Zelto" / "some.domain.plist";
    }

    static UserDefaults defaults() { return UserDefaults::forDomain("some.domain"); }

    void writeFile(const std::string& contents) {
        ASSERT_FALSE(createDirectory(file().parent_path()));
        std::ofstream(file()) << contents;
    }

    /// Runs the work in another process.
    template <typename Work>
    static pid_t start(Work work) {
        const pid_t child = fork();
        if (child == 0) {
            work();
            _exit(0);
        }
        return child;
    }

    fixtures::TemporaryFolder _folder;
};

TEST_F(Preferences, AreReadBackByAnotherObjectUntilTheyAreRemoved) {
    EXPECT_EQ(defaults().objectForKey("key"), std::nullopt);
    EXPECT_FALSE(defaults().setObject("YES", "key"));
    EXPECT_FALSE(defaults().setObject(std::int64_t{1}, "other"));
    EXPECT_EQ(defaults().objectForKey("key"), PropertyListValue("YES"));
    EXPECT_EQ(UserDefaults::forDomain("other.domain").objectForKey("key"), std::nullopt);
    EXPECT_FALSE(defaults().removeObjectForKey("key"));
    EXPECT_EQ(defaults().objectForKey("key"), std::nullopt);
    EXPECT_EQ(defaults().objectForKey("other"), PropertyListValue(std::int64_t{1}));
}

TEST_F(Preferences, LoseNoKeyWhenTwoProcessesWriteAtTheSameTime) {
    constexpr int kKeys = 50;
    const auto writer = [](const std::string& prefix) {
        return start([prefix] {
            for (int number = 0; number < kKeys; ++number) {
                (void)defaults().setObject(true, prefix + std::to_string(number));
            }
        });
    };
    const pid_t children[] = {writer("a"), writer("b")};
    for (const pid_t child : children) {
        waitpid(child, nullptr, 0);
    }
    for (int number = 0; number < kKeys; ++number) {
        EXPECT_TRUE(defaults().objectForKey("a" + std::to_string(number))) << number;
        EXPECT_TRUE(defaults().objectForKey("b" + std::to_string(number))) << number;
    }
}

TEST_F(Preferences, HoldTheOldOrTheNewValueAfterAKillInTheMiddleOfAWrite) {
    const std::string values[] = {std::string(100'000, 'a'), std::string(100'000, 'b')};
    ASSERT_FALSE(defaults().setObject(values[0], "key"));
    for (int round = 0; round < 30; ++round) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t child = start([&] {
            for (int number = 0;; ++number) {
                (void)defaults().setObject(values[number % 2], "key");
                [[maybe_unused]] const auto written = write(ready[1], "x", 1);
            }
        });
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(ready[0]);
        close(ready[1]);
        const auto value = defaults().objectForKey("key");
        ASSERT_TRUE(value == PropertyListValue(values[0]) || value == PropertyListValue(values[1]));
    }
    EXPECT_FALSE(fileExists(file().string() + ".damaged-1"));
}

TEST_F(Preferences, SetADamagedFileAsideOnceUnderANameOfItsOwn) {
    for (const std::string contents : {"", "damaged", "<plist><array/></plist>"}) {
        writeFile(contents);
        EXPECT_EQ(defaults().objectForKey("key"), std::nullopt);
        EXPECT_FALSE(fileExists(file()));
    }
    for (const auto& [number, contents] :
         std::map<int, std::string>{{1, ""}, {2, "damaged"}, {3, "<plist><array/></plist>"}}) {
        const auto aside = contentsOfFile(file().string() + ".damaged-" + std::to_string(number));
        ASSERT_TRUE(aside);
        EXPECT_EQ(aside.value(), contents);
    }
    writeFile("damaged again");
    EXPECT_FALSE(defaults().setObject("new", "key"));
    EXPECT_EQ(defaults().objectForKey("key"), PropertyListValue("new"));
    EXPECT_TRUE(fileExists(file().string() + ".damaged-4"));
}

TEST_F(Preferences, RefuseToReplaceAFileThatCanNotBeRead) {
    writeFile("secret");
    std::filesystem::permissions(file(), std::filesystem::perms::none);
    EXPECT_EQ(defaults().objectForKey("key"), std::nullopt);
    const auto error = defaults().setObject("new", "key");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, NSFileReadNoPermissionError);
    std::filesystem::permissions(file(), std::filesystem::perms::owner_read);
    EXPECT_EQ(contentsOfFile(file()).value(), "secret");
}

TEST_F(Preferences, OfAllUsersAreNotForAUserToWrite) {
    EXPECT_TRUE(UserDefaults::forAnyUser("some.domain").setObject("x", "key"));
}

}  // namespace
}  // namespace teravolant::platform
