#include "launcher/command_line.h"

#include <gtest/gtest.h>

#include <vector>

#include "launcher/task_runner.h"

namespace teravolant {
namespace {

ArgumentDictionary parsed(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "/program");
    return parseArguments(static_cast<int>(arguments.size()), arguments.data());
}

struct Example {
    const char* argument;
    const char* key;
    ArgumentValue value;
};

TEST(CommandLine, ConvertsTheValueBehindTheKey) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    for (const Example& example : std::initializer_list<Example>{
             {"AUTO_UPDATE=YES", "AUTO_UPDATE", true},
             {"-BETA_PROGRAM=no", "BETA_PROGRAM", false},
             {"--AUTO_UPDATE=yEs", "-AUTO_UPDATE", true},
             {"MAX_LOG_SIZE=1048576", "MAX_LOG_SIZE", std::int64_t{1048576}},
             {"MAX_LOG_SIZE= \t\n12kb", "MAX_LOG_SIZE", std::int64_t{12}},
             {"n=-5", "n", std::int64_t{-5}},
             {"n=+5", "n", std::int64_t{5}},
             {"n=-0", "n", std::string("-0")},
             {"n=0", "n", std::string("0")},
             {"n=+", "n", std::string("+")},
             {"n=- 5", "n", std::string("- 5")},
             {"n=0x10", "n", std::string("0x10")},
             {"n=9223372036854775807", "n", kMost},
             {"n=99999999999999999999", "n", kMost},
             {"n=-99999999999999999999", "n", kLeast},
             {"AUTO_UPDATE=true", "AUTO_UPDATE", std::string("true")},
             {"AUTO_UPDATE=", "AUTO_UPDATE", std::string()},
             {"=x", "", std::string("x")},
             {"-=x", "", std::string("x")},
             {"--notupdate", "--notupdate", std::string()},
             {"--notupdate=YES", "-notupdate", true},
             {"", "", std::string()},
             {"ä=ö", "ä", std::string("ö")}}) {
        EXPECT_EQ(parsed({example.argument}), (ArgumentDictionary{{example.key, example.value}}))
            << example.argument;
    }
}

TEST(CommandLine, SkipsAndLogsWhatHasNoFormAndLetsTheLastOfOneKeyHold) {
    ::testing::internal::CaptureStderr();
    const ArgumentDictionary dictionary =
        parsed({"key=1", "a=b=c", "==", "\xFFkey=2", "KEY=3", "key=4"});
    const std::string console = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(dictionary, (ArgumentDictionary{{"key", std::int64_t{4}}, {"KEY", std::int64_t{3}}}));
    for (const char* mark : {"a=b=c", "==", "(null)"}) {
        EXPECT_NE(console.find(std::string("] Invalid argument format: ") + mark + "\n"),
                  std::string::npos)
            << console;
    }
    EXPECT_TRUE(parsed({}).empty());
    EXPECT_TRUE(parseArguments(0, nullptr).empty());
}

TEST(CommandLine, FindsAnOptionThatIsThereExactly) {
    const char* const words[] = {"--own", nullptr, "--notupdate=YES", "--NOTUPDATE", "--notupdat"};
    EXPECT_TRUE(hasOption(5, words, "--own"));
    EXPECT_FALSE(hasOption(5, words, "--notupdate"));
    EXPECT_FALSE(hasOption(4, words, "--notupdat"));
    EXPECT_FALSE(hasOption(1, nullptr, "--own"));
}

TEST(TaskRunner, LogsTheOutputOfALaunchWhenItIsAsciiAndItsError) {
    ::testing::internal::CaptureStderr();
    runTask("/bin/echo", {"one", "two"});
    runTask("/bin/printf", {"\\303\\244"});
    runTask("/missing/tool", {});
    const std::string console = ::testing::internal::GetCapturedStderr();
    for (const char* entry : {"] Call file:///bin/echo one two. Returned:\n", "] one two\n\n",
                              "] (null)\n", "] Error code: 4\n"}) {
        EXPECT_NE(console.find(entry), std::string::npos) << console;
    }
}

}  // namespace
}  // namespace teravolant
