#pragma once

#include <cctype>
#include <fstream>
#include <string>
#include <vector>

#include "platform/files.h"

namespace teravolant::fixtures {

/// What is written to the user's updater.log from its construction on.
class LogReader {
  public:
    LogReader() : _start(contents().size()) {}

    /// The entries without their times.
    [[nodiscard]] std::vector<std::string> entries() const {
        constexpr std::size_t kTimeLength = 21;  // "2026-01-31 12:00:00: "
        std::vector<std::string> entries;
        const std::string text = contents().substr(_start);
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = text.find('\n', begin);
            const std::string line = text.substr(begin, end - begin);
            begin = end + 1;
            const bool timed = line.size() >= kTimeLength && line[4] == '-' && line[13] == ':' &&
                               std::isdigit(static_cast<unsigned char>(line[0])) != 0;
            if (timed) {
                entries.push_back(line.substr(kTimeLength));
            } else {
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

    std::size_t _start;
};

}  // namespace teravolant::fixtures
