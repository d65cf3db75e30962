#include "examples/client/instance.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <ctime>
#include <thread>

#include "platform/core/file_error.h"
#include "platform/core/local_time.h"
#include "platform/core/text.h"
#include "platform/files/files.h"

// How it works: the lock decides which process is the instance; the pipe carries messages to it. A
// message is at most PIPE_BUF bytes, so concurrent senders never interleave. The sender polls once
// per millisecond, because the running instance is unreachable at two moments: between taking the
// lock and opening the pipe, and between its last read and its end. The sender succeeds when the
// pipe is empty after its write. When the lock is free and its message was not read, it becomes the
// instance itself, or, if it only sends a command, waits for an instance and then fails. The
// instance opens the pipe for reading and writing: it then always has a writer, and a read blocks
// instead of returning end-of-file.
//
// A process that only sends a command takes the lock too, for an instant, to learn whether an
// instance runs. A start that finds the lock taken in that instant finds no reader of the pipe, and
// tries again.
//
// An instance waits for a sender to end before it acts on the message. Otherwise the launcher,
// which the instance may become, would still find the sender and count it as a running client.
namespace teravolant::client {
namespace {

namespace fs = std::filesystem;
using platform::FileDescriptor;
using platform::FileLock;
using platform::quoted;

constexpr const char* kLockName = "instance.lock";
constexpr std::chrono::milliseconds kPause(1);
constexpr int kAttempts = 5000;

/// Returns a message: the sender's process id, a blank, the length of the payload (both in
/// decimal), a line feed, and the payload: each argument followed by a NUL.
std::string encode(const Arguments& arguments) {
    std::string payload;
    for (const std::string& argument : arguments) {
        payload += argument + '\0';
    }
    return std::to_string(getpid()) + " " + std::to_string(payload.size()) + "\n" + payload;
}

struct Message {
    pid_t sender = 0;
    Arguments arguments;
};

/// Removes the first complete message from the received bytes and returns it. Discards all bytes if
/// the header is malformed.
std::optional<Message> takeMessage(std::string& received) {
    const std::size_t header = received.find('\n') + 1;
    if (header == 0) {
        return std::nullopt;
    }
    Message message;
    std::size_t length = 0;
    const char* const end = received.data() + header - 1;
    const auto sender = std::from_chars(received.data(), end, message.sender);
    const auto size = std::from_chars(std::min(sender.ptr + 1, end), end, length);
    if (sender.ec != std::errc() || size.ec != std::errc() || length > PIPE_BUF) {
        received.clear();
        return std::nullopt;
    }
    if (received.size() < header + length) {
        return std::nullopt;
    }
    for (std::size_t begin = header; begin < header + length;
         begin += message.arguments.back().size() + 1) {
        message.arguments.emplace_back(received.c_str() + begin);
    }
    received.erase(0, header + length);
    return message;
}

/// Blocks until the process has ended, for at most 5 s.
void awaitEnd(pid_t process) {
    const FileDescriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    pollfd ended{.fd = descriptor.get(), .events = POLLIN, .revents = 0};
    if (descriptor) {
        poll(&ended, 1, 5000);
    }
}

platform::Status failure(int number, std::string_view attempt) {
    return platform::errorFromErrno(number, platform::FileAccess::Write, attempt);
}

/// A regular file at the pipe's path would accept the message, but no process would read it.
bool isPipe(const FileDescriptor& descriptor) {
    struct stat status {};
    return fstat(descriptor.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

bool isEmpty(const FileDescriptor& pipe) {
    int count = 0;
    return ioctl(pipe.get(), FIONREAD, &count) == 0 && count == 0;
}

/// Removes messages that an earlier instance did not read; one of them may be from this process.
void discardContents(const fs::path& pipe) {
    const FileDescriptor end(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, PIPE_BUF> chunk{};
    while (read(end.get(), chunk.data(), chunk.size()) > 0) {
    }
}

/// Writes the message to the pipe. Returns the open pipe, or an empty descriptor if no instance
/// reads it now. Fails if the path is not a pipe.
platform::Result<FileDescriptor> send(const std::string& message, const fs::path& pipe) {
    FileDescriptor end(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (end && !isPipe(end)) {
        return failure(EINVAL, quoted(pipe) + " is not a pipe");
    }
    const auto size = static_cast<ssize_t>(message.size());
    if (!end || write(end.get(), message.data(), message.size()) != size) {
        return FileDescriptor();
    }
    return end;
}

/// The delivery of a message to the instance that holds the lock.
class Delivery {
  public:
    Delivery(const fs::path& folder, const Arguments& arguments)
        : _pipe(folder / "commands"), _message(encode(arguments)) {
        mkfifo(_pipe.c_str(), 0600);
    }

    [[nodiscard]] const fs::path& pipe() const { return _pipe; }
    [[nodiscard]] bool isRead() const { return _sent && isEmpty(_sent); }

    /// Writes the message unless it is in the pipe or no process reads the pipe now.
    platform::Status trySend() {
        if (_message.size() > PIPE_BUF) {
            return failure(E2BIG, "The arguments could not be sent to the running instance");
        }
        if (!_sent) {
            auto end = send(_message, _pipe);
            if (!end) {
                return end.error();
            }
            _sent = *std::move(end);
        }
        return std::nullopt;
    }

    /// Closes the pipe. The instance that did not read it has ended, so the kernel discards the
    /// message.
    void withdraw() { _sent.reset(); }

  private:
    fs::path _pipe;
    std::string _message;
    FileDescriptor _sent;
};

std::string shellQuoted(const std::string& argument) {
    if (!argument.empty() && argument.find_first_of(" \t\n'\"\\") == argument.npos) {
        return argument;
    }
    std::string text = "'";
    for (const char character : argument) {
        text += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return text + "'";
}

}  // namespace

platform::Result<Instance> Instance::start(FileLock lock, const fs::path& pipe) {
    FileDescriptor end(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
    if (!end) {
        return failure(errno, quoted(pipe) + " could not be opened");
    }
    if (!isPipe(end)) {
        return failure(EINVAL, quoted(pipe) + " is not a pipe");
    }
    discardContents(pipe);
    return Instance(std::move(lock), std::move(end));
}

platform::Result<std::optional<Instance>> Instance::join(const fs::path& folder,
                                                         const Arguments& arguments) {
    Delivery delivery(folder, arguments);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        auto lock = FileLock::tryAcquire(folder / kLockName);
        if (!lock) {
            return lock.error();
        }
        // Check this even if the lock is free: the instance may have read the message and ended.
        if (delivery.isRead()) {
            return std::optional<Instance>();
        }
        if (*lock) {
            auto instance = start(**std::move(lock), delivery.pipe());
            if (!instance) {
                return instance.error();
            }
            return std::optional(*std::move(instance));
        }
        if (auto error = delivery.trySend()) {
            return error;
        }
        std::this_thread::sleep_for(kPause);
    }
    return failure(ETIMEDOUT, "The running instance does not read its pipe");
}

platform::Result<bool> Instance::command(const fs::path& folder, const Arguments& arguments,
                                         std::chrono::milliseconds patience) {
    Delivery delivery(folder, arguments);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        auto lock = FileLock::tryAcquire(folder / kLockName);
        if (!lock) {
            return lock.error();
        }
        if (delivery.isRead()) {
            return true;
        }
        if (*lock) {
            lock->reset();
            delivery.withdraw();
            if (attempt * kPause >= patience) {
                return false;
            }
        } else if (auto error = delivery.trySend()) {
            return error;
        }
        std::this_thread::sleep_for(kPause);
    }
    return failure(ETIMEDOUT, "The running instance does not read its pipe");
}

std::optional<Arguments> Instance::waitForArguments() {
    while (true) {
        if (auto message = takeMessage(_received)) {
            awaitEnd(message->sender);
            return std::move(message->arguments);
        }
        std::array<char, PIPE_BUF> chunk{};
        const ssize_t count = read(_pipe.get(), chunk.data(), chunk.size());
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return std::nullopt;
        }
        _received.append(chunk.data(), static_cast<std::size_t>(count > 0 ? count : 0));
    }
}

void CommandLog::append(const Arguments& arguments) const {
    std::string entry(platform::localTimeText(std::time(nullptr)));
    entry += ": [" + std::to_string(getpid()) + "]";
    for (const std::string& argument : arguments) {
        entry += " " + shellQuoted(argument);
    }
    (void)platform::appendToFile(_file, entry + "\n");
}

}  // namespace teravolant::client
