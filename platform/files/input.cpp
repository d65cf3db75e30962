#include "platform/files/input.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

constexpr unsigned kEveryPermission = 0777;

/// Waits for an input until a stop request.
class Waiter {
  public:
    explicit Waiter(const std::stop_token& stop) : _onStop(stop, WakeUp{_wakeUp.get()}) {}

    /// Blocks until the input can be read, is at its end, or a stop is requested.
    void waitFor(int input) const {
        std::array<pollfd, 2> sources = {
            pollfd{.fd = input, .events = POLLIN, .revents = 0},
            pollfd{.fd = _wakeUp.get(), .events = POLLIN, .revents = 0}};
        (void)poll(sources.data(), sources.size(), -1);
    }

  private:
    struct WakeUp {
        int descriptor;
        void operator()() const { (void)eventfd_write(descriptor, 1); }
    };

    FileDescriptor _wakeUp{eventfd(0, EFD_CLOEXEC)};
    std::stop_callback<WakeUp> _onStop;
};

}  // namespace

Result<Input> Input::open(const std::string& path) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file) {
        return readError(errno, path);
    }
    return Input(std::move(file), path);
}

Result<Input> Input::standardInput() {
    Input input(FileDescriptor(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)), "standard input");
    if (!input._file) {
        return readError(errno, input._name);
    }
    return input;
}

std::optional<unsigned> Input::filePermissions() const {
    struct stat status {};
    if (fstat(_file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return status.st_mode & kEveryPermission;
}

Result<std::string> Input::readAll(std::size_t most, const std::stop_token& stop) const {
    return read(Until::End, most, stop);
}

Result<std::string> Input::readLine(std::size_t most, const std::stop_token& stop) const {
    auto text = read(Until::LineFeed, most, stop);
    if (text) {
        text->resize(std::min(text->find('\n'), text->size()));
    }
    return text;
}

Result<std::string> Input::read(Until until, std::size_t most, const std::stop_token& stop) const {
    const Waiter waiter(stop);
    std::string text;
    while (true) {
        waiter.waitFor(_file.get());
        if (stop.stop_requested()) {
            return Error{.domain = std::string(NSCocoaErrorDomain),
                         .code = NSUserCancelledError,
                         .localizedDescription = "Reading " + quoted(_name) + " was cancelled."};
        }
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(_file.get(), buffer.data(), buffer.size());
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            return readError(errno, _name);
        }
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        const std::size_t end = until == Until::LineFeed ? text.find('\n') : std::string::npos;
        if (std::min(end, text.size()) > most) {
            return Error{.domain = std::string(NSCocoaErrorDomain),
                         .code = NSFileReadTooLargeError,
                         .localizedDescription = quoted(_name) + " is larger than the limit of " +
                                                 std::to_string(most) + " bytes."};
        }
        if (count == 0 || end != std::string::npos) {
            return text;
        }
    }
}

}  // namespace teravolant::platform
