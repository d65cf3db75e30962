#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/files.h"

namespace teravolant::fixtures {

/// The entries of a log: its text cut at the times, which are left out with what the pattern
/// matches behind them.
inline std::vector<std::string> logEntries(const std::string& text,
                                           const std::string& prefix = "") {
    const std::regex start(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d: )" + prefix);
    std::vector<std::string> entries;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_search(line, match, start, std::regex_constants::match_continuous)) {
            entries.push_back(match.suffix());
        } else if (!entries.empty()) {
            entries.back() += "\n" + line;
        }
    }
    return entries;
}

/// What is written to the user's updater.log from its construction on, without the times.
class LogReader {
  public:
    [[nodiscard]] std::vector<std::string> entries() const {
        return logEntries(contents().substr(_start));
    }

  private:
    static std::string contents() {
        const auto read = platform::contentsOfFile(platform::applicationSupportDirectory() /
                                                   "Zelto/Teravolant App/updater.log");
        return read ? read.value() : std::string();
    }

    std::size_t _start = contents().size();
};

}  // namespace teravolant::fixtures
