#include <gtest/gtest.h>

#include <regex>

#include "platform/core/error.h"
#include "tests/fixtures/log_reader.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using Slot = ClientUpdater::ErrorSlot;
using Version = std::optional<ParsedVersion>;

/// The reference: a backtracking matcher for the same pattern.
Version matchByBacktracking(const std::string& text) {
    static const std::regex pattern(R"((\d+)\.(\d+)\.(\d+)[^\d]+(\d+)$)");
    std::smatch match;
    if (!std::regex_search(text, match, pattern)) {
        return std::nullopt;
    }
    return ParsedVersion{match[1], match[2], match[3], match[4]};
}

TEST(VersionNumbers, MatchTheReferencePattern) {
    std::vector<std::string> texts = {"version=4.30.1.17", "1.2.3 build 45", "1.2.3\n|é4",
                                      "01.02.03.0004",     "1.2.3.4\n",      "(null)"};
    constexpr std::size_t kLongest = 8;
    std::vector<std::string> ends = {""};
    for (std::size_t next = 0; ends[next].size() < kLongest; ++next) {
        for (const char character : {'1', '2', '.', 'a'}) {
            ends.push_back(character + ends[next]);
        }
    }
    texts.insert(texts.end(), ends.begin(), ends.end());
    for (const std::string& text : texts) {
        Slot error;
        const Version version = ClientUpdater::parseVersion(text, error);
        ASSERT_EQ(version, matchByBacktracking(text)) << text;
        ASSERT_EQ(error ? error->localizedDescription : "",
                  version ? "" : text + " is illegal version");
    }
}

TEST(VersionNumbers, AcceptAndLogOnlyStrictlyNewerOffer) {
    // The current and the offered version, and the error, if there is any.
    const std::tuple<std::string, std::string, std::string> table[] = {
        {"1.9.0.0", "1.10.0.0", ""},
        {"1.10.0.0", "1.9.9.9", "1.10.0.0 is not older than 1.9.9.9"},
        {"01.02.03.0004", "1.2.3.4", "01.02.03.0004 is not older than 1.2.3.4"},
        {"1.2.3.4", "1.2.3.0000000000005", ""},
        {"version=99.99.99", "99.99.99.1240", "version=99.99.99 is illegal version"},
        {"1.2.3", "1.2.4", "1.2.3 is illegal version"},
        {"1.0.0.2147483648", "1.0.0.99999999999",
         "1.0.0.2147483648 is not older than 1.0.0.99999999999"},
        {"1.0.0.2147483646", "1.0.0.99999999999", ""},
    };
    for (const auto& [current, offered, problem] : table) {
        const fixtures::LogReader log;
        Slot error;
        EXPECT_EQ(ClientUpdater::checkUpdaterVersionNewer(current, offered, error),
                  problem.empty());
        EXPECT_EQ(error ? error->localizedDescription : "", problem);
        EXPECT_EQ(log.entries().size(), error ? 0U : 1U);
    }
    const fixtures::LogReader log;
    Slot error;
    EXPECT_TRUE(ClientUpdater::checkUpdaterVersionNewer("version=01.2.3-b4", "1.2.4.0", error));
    EXPECT_EQ(log.entries().front(),
              "[ClientUpdater::checkUpdaterVersionNewer] {\n    build = 4;\n    major = 01;\n"
              "    minor = 2;\n    patch = 3;\n} -> {\n    build = 0;\n    major = 1;\n"
              "    minor = 2;\n    patch = 4;\n}");
}

}  // namespace
}  // namespace teravolant
