#include <gtest/gtest.h>

#include <regex>

#include "testing/log_reader.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using Slot = ClientUpdater::ErrorSlot;
using Version = std::optional<ParsedVersion>;

/// What the pattern finds, by a matcher that goes back and tries again.
Version matchByBacktracking(const std::string& text) {
    static const std::regex pattern(R"((\d+)\.(\d+)\.(\d+)[^\d]+(\d+)$)");
    std::smatch match;
    if (!std::regex_search(text, match, pattern)) {
        return std::nullopt;
    }
    return ParsedVersion{match[1], match[2], match[3], match[4]};
}

struct ParseCase {
    std::string text;
    Version version;
};

TEST(VersionNumbers, AreReadFromTheEndOfTheText) {
    const ParseCase cases[] = {
        {"version=4.30.1.17", {{"4", "30", "1", "17"}}},
        {"1.2.3.4.5", {{"2", "3", "4", "5"}}},
        {"12.3.4.5.6.7", {{"4", "5", "6", "7"}}},
        {"1.2.3-beta7", {{"1", "2", "3", "7"}}},
        {"1.2.3 build 45", {{"1", "2", "3", "45"}}},
        {"1.2.3..4", {{"1", "2", "3", "4"}}},
        {"1.2.3\n|é4", {{"1", "2", "3", "4"}}},
        {"01.02.03.0004", {{"01", "02", "03", "0004"}}},
        {"version=1.2.3-beta%207", {{"1", "2", "3", "207"}}},
        {"1.2.3", {}},
        {"99.99.99", {}},
        {"1.2.3.4a", {}},
        {"1.2.3.4 ", {}},
        {"1.2.3.4\n", {}},
        {"1..2.3.4", {}},
        {"1-2.3.4", {}},
        {"", {}},
        {"(null)", {}},
    };
    for (const ParseCase& test : cases) {
        Slot error;
        EXPECT_EQ(ClientUpdater::parseVersion(test.text, error), test.version) << test.text;
        ASSERT_EQ(error.has_value(), !test.version.has_value()) << test.text;
        if (error) {
            EXPECT_EQ(error->domain, platform::SQRLUpdaterErrorDomain);
            EXPECT_EQ(error->code, platform::SQRLUpdaterErrorMissingUpdateBundle);
            EXPECT_EQ(error->localizedDescription, test.text + " is illegal version");
            EXPECT_TRUE(error->userInfo.empty());
        }
    }
}

TEST(VersionNumbers, AreTheOnesThatThePatternFinds) {
    const std::string alphabet = "12.a";
    constexpr std::size_t kLongest = 8;
    std::string text;
    std::size_t matches = 0;
    const auto checkAllFrom = [&](const auto& self) -> void {
        Slot error;
        const Version version = ClientUpdater::parseVersion(text, error);
        matches += version ? 1 : 0;
        ASSERT_EQ(version, matchByBacktracking(text)) << text;
        if (text.size() == kLongest) {
            return;
        }
        for (const char character : alphabet) {
            text.push_back(character);
            self(self);
            text.pop_back();
        }
    };
    checkAllFrom(checkAllFrom);
    EXPECT_GT(matches, 100U);
}

struct ComparisonCase {
    std::string current;
    std::string offered;
    std::string problem;  ///< Empty when the offered one is newer.
};

TEST(VersionNumbers, OnlyAStrictlyNewerOfferIsTaken) {
    const std::string notOlder = " is not older than ";
    const std::string illegal = " is illegal version";
    const ComparisonCase cases[] = {
        {"version=4.30.1.17", "4.30.1.18", ""},
        {"version=4.30.1.17", "4.30.1.17", "version=4.30.1.17" + notOlder + "4.30.1.17"},
        {"version=4.30.1.17", "4.29.9.99", "version=4.30.1.17" + notOlder + "4.29.9.99"},
        {"version=4.30.1.17", "4.31.0.0", ""},
        {"version=4.30.1.17", "5.0.0.0", ""},
        {"1.9.0.0", "1.10.0.0", ""},
        {"1.10.0.0", "1.9.0.0", "1.10.0.0" + notOlder + "1.9.0.0"},
        {"01.02.03.0004", "1.2.3.4", "01.02.03.0004" + notOlder + "1.2.3.4"},
        {"1.2.3.4", "1.2.3.0000000000005", ""},
        {"version=99.99.99.1234", "99.99.99.1240", ""},
        {"version=99.99.99.1234", "4.31.0.5", "version=99.99.99.1234" + notOlder + "4.31.0.5"},
        {"version=99.99.99", "99.99.99.1240", "version=99.99.99" + illegal},
        {"1.2.3.4", "1.2.4", "1.2.4" + illegal},
        {"1.2.3", "1.2.4", "1.2.3" + illegal},
        {"1.0.0.2147483648", "1.0.0.99999999999",
         "1.0.0.2147483648" + notOlder + "1.0.0.99999999999"},
        {"1.0.0.2147483646", "1.0.0.99999999999", ""},
    };
    for (const ComparisonCase& test : cases) {
        Slot error;
        EXPECT_EQ(ClientUpdater::checkUpdaterVersionNewer(test.current, test.offered, error),
                  test.problem.empty());
        EXPECT_EQ(error ? error->localizedDescription : "", test.problem);
    }
}

TEST(VersionNumbers, OnlyANewerOfferIsLoggedWithBothVersions) {
    const fixtures::LogReader log;
    Slot error;
    EXPECT_TRUE(ClientUpdater::checkUpdaterVersionNewer("version=01.2.3-b4", "1.2.4.0", error));
    EXPECT_FALSE(ClientUpdater::checkUpdaterVersionNewer("1.2.4.0", "1.2.4.0", error));
    EXPECT_EQ(log.entries(), std::vector<std::string>{R"([ClientUpdater::checkUpdaterVersionNewer] {
    build = 4;
    major = 01;
    minor = 2;
    patch = 3;
} -> {
    build = 0;
    major = 1;
    minor = 2;
    patch = 4;
})"});
}

}  // namespace
}  // namespace teravolant
