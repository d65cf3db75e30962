#include "platform/system/preferences.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/files/files.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

class Preferences : public ::testing::Test {
  protected:
    Preferences() { setenv("XDG_CONFIG_HOME", _folder.path().c_str(), 1); }

    static UserDefaults defaults() { return UserDefaults::forDomain("some.domain"); }

    fixtures::TemporaryFolder _folder;
    std::filesystem::path _file = _folder.path() / "Zelto/some.domain.plist";
};

TEST_F(Preferences, KeepAllKeysOfConcurrentWriters) {
    constexpr int kKeys = 50;
    std::vector<pid_t> children;
    for (const std::string prefix : {"a", "b"}) {
        children.push_back(fork());
        for (int number = 0; children.back() == 0 && number < kKeys; ++number) {
            (void)defaults().setObject("value", prefix + std::to_string(number));
        }
        if (children.back() == 0) {
            _exit(0);
        }
    }
    for (const pid_t child : children) {
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

TEST_F(Preferences, MoveEachDamagedFileToANewName) {
    int number = 0;
    for (const std::string contents : {"", "damaged", "<plist><array/></plist>"}) {
        _folder.write("Zelto/some.domain.plist", contents);
        EXPECT_FALSE(defaults().objectForKey("key"));
        const std::string aside = _file.string() + ".damaged-" + std::to_string(++number);
        EXPECT_EQ(*contentsOfFile(aside), contents);
    }
    _folder.write("Zelto/some.domain.plist", "damaged again");
    EXPECT_FALSE(defaults().setObject("new", "key"));
    EXPECT_EQ(defaults().objectForKey("key"), Value("new"));
    EXPECT_TRUE(fileExists(_file.string() + ".damaged-4"));
}

TEST_F(Preferences, NeverReplaceAnUnreadableFile) {
    using std::filesystem::perms;
    _folder.write("Zelto/some.domain.plist", "bplist00");
    EXPECT_TRUE(defaults().setObject("new", "key"));
    EXPECT_EQ(*contentsOfFile(_file), "bplist00");
    _folder.write("Zelto/some.domain.plist", "secret");
    std::filesystem::permissions(_file, perms::none);
    EXPECT_FALSE(defaults().objectForKey("key"));
    EXPECT_EQ(defaults().setObject("new", "key")->code, NSFileReadNoPermissionError);
    std::filesystem::permissions(_file, perms::owner_read);
    EXPECT_EQ(*contentsOfFile(_file), "secret");
    EXPECT_TRUE(UserDefaults::forAnyUser("some.domain").setObject("x", "key"));
}

}  // namespace teravolant::platform
