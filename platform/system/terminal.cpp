#include "platform/system/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/files/input.h"

namespace teravolant::platform {
namespace {

constexpr const char* kTerminal = "/dev/tty";
constexpr std::size_t kLongestLine = 4096;  ///< The kernel's limit for a line of a terminal.

/// Switches the echo of a terminal off while it lives.
class EchoOff {
  public:
    explicit EchoOff(int terminal) : _terminal(terminal) {
        if (tcgetattr(_terminal, &_previous) != 0) {
            return;
        }
        termios quiet = _previous;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        // These keys would end or suspend the process with the echo still off.
        quiet.c_cc[VQUIT] = quiet.c_cc[VSUSP] = _POSIX_VDISABLE;
        _isOff = tcsetattr(_terminal, TCSAFLUSH, &quiet) == 0;
    }
    ~EchoOff() { restore(); }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

    [[nodiscard]] bool isOff() const { return _isOff; }

    void restore() const {
        if (_isOff) {
            (void)tcsetattr(_terminal, TCSAFLUSH, &_previous);
        }
    }

  private:
    int _terminal;
    termios _previous{};
    bool _isOff = false;
};

}  // namespace

Result<std::string> readPassphrase(const std::string& prompt, const std::stop_token& stop) {
    FileDescriptor terminal(open(kTerminal, O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (!terminal) {
        return errorFromErrno(ENOENT, FileAccess::Read, "There is no terminal");
    }
    const int descriptor = terminal.get();
    const Input input(std::move(terminal), kTerminal);
    Result<std::string> line = std::string();
    {
        const EchoOff echo(descriptor);
        const std::stop_callback restore(stop, [&echo] { echo.restore(); });
        if (!echo.isOff() || writeAll(descriptor, prompt) != 0) {
            return readError(EIO, kTerminal);
        }
        line = input.readLine(kLongestLine, stop);
    }
    (void)writeAll(descriptor, "\n");
    return line;
}

std::optional<unsigned> columnsOfOutput() {
    if (isatty(STDOUT_FILENO) == 0) {
        return std::nullopt;
    }
    constexpr unsigned kUsual = 80;
    winsize size{};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : kUsual;
}

}  // namespace teravolant::platform
