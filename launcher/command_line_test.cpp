#include "launcher/command_line.h"

#include <gtest/gtest.h>

#include <vector>

namespace teravolant {
namespace {

ArgumentDictionary parsed(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "/program");
    return parseArguments(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, ConvertsValues) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    const std::tuple<const char*, const char*, ArgumentValue> table[] = {
        {"AUTO_UPDATE=YES", "AUTO_UPDATE", true},
        {"-BETA_PROGRAM=no", "BETA_PROGRAM", false},
        {"--AUTO_UPDATE=yEs", "-AUTO_UPDATE", true},
        {"MAX_LOG_SIZE= \t\n12kb", "MAX_LOG_SIZE", std::int64_t{12}},
        {"n=-5", "n", std::int64_t{-5}},
        {"n=+5", "n", std::int64_t{5}},
        {"n=-0", "n", std::string("-0")},
        {"n=- 5", "n", std::string("- 5")},
        {"n=0x10", "n", std::string("0x10")},
        {"n=9223372036854775807", "n", kMost},
        {"n=99999999999999999999", "n", kMost},
        {"n=-99999999999999999999", "n", -kMost - 1},
        {"AUTO_UPDATE=", "AUTO_UPDATE", std::string()},
        {"-=x", "", std::string("x")},
        {"--notupdate", "--notupdate", std::string()},
        {"", "", std::string()},
        {"ä=ö", "ä", std::string("ö")},
    };
    for (const auto& [argument, key, value] : table) {
        EXPECT_EQ(parsed({argument}), (ArgumentDictionary{{key, value}})) << argument;
    }
}

TEST(CommandLine, SkipsMalformedArgumentsAndKeepsLastOfAKey) {
    ::testing::internal::CaptureStderr();
    const ArgumentDictionary dictionary =
        parsed({"key=1", "a=b=c", "==", "\xFFkey=2", "KEY=3", "key=4"});
    const std::string console = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(dictionary, (ArgumentDictionary{{"key", std::int64_t{4}}, {"KEY", std::int64_t{3}}}));
    for (const char* mark : {"a=b=c", "==", "(null)"}) {
        const std::string line = std::string("] Invalid argument format: ") + mark + "\n";
        EXPECT_NE(console.find(line), line.npos) << console;
    }
    EXPECT_TRUE(parsed({}).empty());
    EXPECT_TRUE(parseArguments(0, nullptr).empty());
}

}  // namespace
}  // namespace teravolant
