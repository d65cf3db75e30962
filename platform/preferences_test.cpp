#include "platform/preferences.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "platform/files.h"
#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

class Preferences : public ::testing::Test {
  protected:
    Preferences() { setenv("XDG_CONFIG_HOME", _folder.path().c_str(), 1); }

    static UserDefaults defaults() { return UserDefaults::forDomain("some.domain"); }

    /// Stores one value after the other in another process; for each one, `ready` is told.
    template <typename KeyAndValue>
    static pid_t startWriter(int count, KeyAndValue keyAndValue, int ready = -1) {
        const pid_t child = fork();
        for (int number = 0; child == 0 && number < count; ++number) {
            const auto [key, value] = keyAndValue(number);
            (void)defaults().setObject(value, key);
            [[maybe_unused]] const auto written = write(ready, "x", 1);
        }
        if (child == 0) {
            _exit(0);
        }
        return child;
    }

    fixtures::TemporaryFolder _folder;
    std::filesystem::path _file = _folder.path() / "Zelto/some.domain.plist";
};

TEST_F(Preferences, LoseNoKeyWhenTwoProcessesWriteAtTheSameTime) {
    constexpr int kKeys = 50;
    const auto writer = [](const std::string& prefix) {
        return startWriter(kKeys, [prefix](int number) {
            return std::pair(prefix + std::to_string(number), "value");
        });
    };
    for (const pid_t child : {writer("a"), writer("b")}) {
        waitpid(child, nullptr, 0);
    }
    for (int number = 0; number < kKeys; ++number) {
        EXPECT_TRUE(defaults().objectForKey("a" + std::to_string(number))) << number;
        EXPECT_TRUE(defaults().objectForKey("b" + std::to_string(number))) << number;
    }
    EXPECT_FALSE(defaults().removeObjectForKey("a0"));
    EXPECT_FALSE(defaults().objectForKey("a0"));
    EXPECT_TRUE(defaults().objectForKey("b0"));
    EXPECT_FALSE(UserDefaults::forDomain("other.domain").objectForKey("b0"));
}

TEST_F(Preferences, HoldTheOldOrTheNewValueAfterAKillInTheMiddleOfAWrite) {
    const std::string values[] = {std::string(100'000, 'a'), std::string(100'000, 'b')};
    ASSERT_FALSE(defaults().setObject(values[0], "key"));
    for (int round = 0; round < 30; ++round) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t child = startWriter(
            1'000'000, [&](int number) { return std::pair("key", values[number % 2]); }, ready[1]);
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(ready[0]);
        close(ready[1]);
        const auto value = defaults().objectForKey("key");
        ASSERT_TRUE(value == PropertyListValue(values[0]) || value == PropertyListValue(values[1]));
    }
    EXPECT_FALSE(fileExists(_file.string() + ".damaged-1"));
}

TEST_F(Preferences, SetADamagedFileAsideOnceUnderANameOfItsOwn) {
    const std::string table[] = {"", "damaged", "<plist><array/></plist>"};
    for (const std::string& contents : table) {
        _folder.write("Zelto/some.domain.plist", contents);
        EXPECT_FALSE(defaults().objectForKey("key"));
        EXPECT_FALSE(fileExists(_file));
    }
    for (const std::string& contents : table) {
        const auto aside =
            contentsOfFile(_file.string() + ".damaged-" + std::to_string(&contents - table + 1));
        ASSERT_TRUE(aside);
        EXPECT_EQ(aside.value(), contents);
    }
    _folder.write("Zelto/some.domain.plist", "damaged again");
    EXPECT_FALSE(defaults().setObject("new", "key"));
    EXPECT_EQ(defaults().objectForKey("key"), PropertyListValue("new"));
    EXPECT_TRUE(fileExists(_file.string() + ".damaged-4"));
}

TEST_F(Preferences, RefuseToReplaceAFileThatCanNotBeRead) {
    using std::filesystem::perms;
    _folder.write("Zelto/some.domain.plist", "secret");
    std::filesystem::permissions(_file, perms::none);
    EXPECT_FALSE(defaults().objectForKey("key"));
    EXPECT_EQ(defaults().setObject("new", "key")->code, NSFileReadNoPermissionError);
    std::filesystem::permissions(_file, perms::owner_read);
    EXPECT_EQ(contentsOfFile(_file).value(), "secret");
    EXPECT_TRUE(UserDefaults::forAnyUser("some.domain").setObject("x", "key"));
}

}  // namespace
}  // namespace teravolant::platform
