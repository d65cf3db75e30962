#include <gtest/gtest.h>

#include "tests/log_reader.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using Slot = ClientUpdater::ErrorSlot;
using Version = std::optional<ParsedVersion>;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::size_t digitsAt(const std::string& text, std::size_t position) {
    std::size_t length = 0;
    while (position + length < text.size() && isDigit(text[position + length])) {
        ++length;
    }
    return length;
}

/// Matches the pieces of (\d+)\.(\d+)\.(\d+)\D+(\d+)$ from the `group`-th number on, the longest
/// run first, going back to a shorter one where the rest does not match.
bool matchFrom(const std::string& text, std::size_t position, std::vector<std::string> groups,
               Version& match) {
    for (std::size_t length = digitsAt(text, position); length > 0; --length) {
        groups.push_back(text.substr(position, length));
        const std::size_t end = position + length;
        if (groups.size() == 4) {
            if (end == text.size()) {
                match = ParsedVersion{groups[0], groups[1], groups[2], groups[3]};
                return true;
            }
        } else if (groups.size() < 3) {
            if (text.substr(end, 1) == "." && matchFrom(text, end + 1, groups, match)) {
                return true;
            }
        } else {
            std::size_t next = end;
            while (next < text.size() && !isDigit(text[next])) {
                ++next;
            }
            for (; next > end; --next) {
                if (matchFrom(text, next, groups, match)) {
                    return true;
                }
            }
        }
        groups.pop_back();
    }
    return false;
}

/// What the pattern finds: the leftmost start from which it matches up to the end.
Version matchByBacktracking(const std::string& text) {
    Version match;
    for (std::size_t start = 0; start < text.size(); ++start) {
        if (matchFrom(text, start, {}, match)) {
            break;
        }
    }
    return match;
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

TEST(VersionNumbers, HostileLengthIsNoProblem) {
    constexpr std::size_t kLength = 1 << 20;
    const std::string digits(kLength, '7');
    const std::string stops(kLength, '.');
    std::string alternating;
    while (alternating.size() < kLength) {
        alternating += "1.";
    }
    Slot error;
    const auto longest = ClientUpdater::parseVersion("1.2." + digits + stops + digits, error);
    ASSERT_TRUE(longest);
    EXPECT_EQ(longest->patch, digits);
    EXPECT_TRUE(ClientUpdater::parseVersion(alternating + "1", error));
    for (const std::string& text : {digits, stops, alternating, "1.2.3." + digits + "a"}) {
        Slot refusal;
        EXPECT_FALSE(ClientUpdater::parseVersion(text, refusal));
    }
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
    const testing::LogReader log;
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
