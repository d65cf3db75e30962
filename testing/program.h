#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <utility>

namespace teravolant::fixtures {

/// A program that was started with a shell's command line, and its standard output.
class Program {
  public:
    explicit Program(const std::string& command)
        : _pipe(popen(("exec " + command).c_str(), "re")) {}
    ~Program() { finish(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Blocks until there is one; empty at the end of the output.
    std::string readLine() {
        std::string line;
        for (int next = std::fgetc(_pipe); next != EOF && next != '\n'; next = std::fgetc(_pipe)) {
            line += static_cast<char>(next);
        }
        return line;
    }

    /// Blocks until it has ended; -1 when it was killed.
    int finish() {
        if (_pipe != nullptr) {
            for (std::string line = readLine(); !line.empty(); line = readLine()) {
                lastLine = std::move(line);
            }
            const int status = pclose(std::exchange(_pipe, nullptr));
            _status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        return _status;
    }

    std::string lastLine;

  private:
    std::FILE* _pipe;
    int _status = -1;
};

}  // namespace teravolant::fixtures
