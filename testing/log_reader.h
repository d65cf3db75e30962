#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/files.h"

namespace teravolant::fixtures {

/// What is written to the user's updater.log from its construction on.
class LogReader {
  public:
    /// Without their times.
    [[nodiscard]] std::vector<std::string> entries() const {
        static const std::regex start(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d: )");
        std::vector<std::string> entries;
        std::istringstream lines(contents().substr(_start));
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

  private:
    static std::string contents() {
        const auto read = platform::contentsOfFile(platform::applicationSupportDirectory() /
                                                   "Zelto/Teravolant App/updater.log");
        return read ? read.value() : std::string();
    }

    std::size_t _start = contents().size();
};

}  // namespace teravolant::fixtures
