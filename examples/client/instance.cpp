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
#include <cstdlib>
#include <ctime>
#include <thread>

#include "platform/core/error.h"
#include "platform/core/local_time.h"
#include "platform/files/files.h"

namespace teravolant::client {
namespace {

namespace fs = std::filesystem;
using platform::FileDescriptor;
using platform::FileLock;

/// A message: the sender's process id, a blank, the length of what follows, both in decimal, a line
/// feed, and each word with a NUL behind it.
std::string encode(const Words& words) {
    std::string payload;
    for (const std::string& word : words) {
        payload += word + '\0';
    }
    return std::to_string(getpid()) + " " + std::to_string(payload.size()) + "\n" + payload;
}

struct Message {
    pid_t sender = 0;
    Words words;
};

/// Takes the first whole message off the received bytes; drops what can't be one.
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
         begin += message.words.back().size() + 1) {
        message.words.emplace_back(received.c_str() + begin);
    }
    received.erase(0, header + length);
    return message;
}

/// Waits, for some seconds at most, until a process has ended.
void awaitEnd(pid_t process) {
    const FileDescriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    pollfd ended{.fd = descriptor.get(), .events = POLLIN, .revents = 0};
    if (descriptor) {
        poll(&ended, 1, 5000);
    }
}

platform::Error failure(int number, std::string_view attempt) {
    return platform::errorFromErrno(number, platform::FileAccess::Write, attempt);
}

/// A file in the pipe's place would take the words, and nobody would get them.
bool isPipe(const FileDescriptor& descriptor) {
    struct stat status {};
    return fstat(descriptor.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

bool isEmpty(const FileDescriptor& pipe) {
    int count = 0;
    return ioctl(pipe.get(), FIONREAD, &count) == 0 && count == 0;
}

/// Takes out what an earlier instance was sent and has not read, for one the words of this start.
void discardContents(const fs::path& pipe) {
    const FileDescriptor end(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, PIPE_BUF> chunk{};
    while (read(end.get(), chunk.data(), chunk.size()) > 0) {
    }
}

std::string shellWord(const std::string& word) {
    if (!word.empty() && word.find_first_of(" \t\n'\"\\") == word.npos) {
        return word;
    }
    std::string quoted = "'";
    for (const char character : word) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

}  // namespace

platform::Result<std::optional<Instance>> Instance::join(const fs::path& folder,
                                                         const Words& words) {
    const std::string message = encode(words);
    const fs::path pipe = folder / "commands";
    mkfifo(pipe.c_str(), 0600);
    FileDescriptor sent;
    // Between taking the lock and opening its pipe, or between its last read and its end, the
    // running instance can't be reached: ask again until one of the two succeeds.
    for (int attempt = 0; attempt < 5000; ++attempt) {
        auto lock = FileLock::tryAcquire(folder / "instance.lock");
        if (!lock) {
            return lock.error();
        }
        // Also with the lock at hand: the instance may have read the words and ended since.
        if (sent && isEmpty(sent)) {
            return std::optional<Instance>();
        }
        if (*lock) {
            FileDescriptor end(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
            if (!end) {
                return failure(errno, pipe.string() + " can't be opened");
            }
            if (!isPipe(end)) {
                return failure(EINVAL, pipe.string() + " is not a pipe");
            }
            discardContents(pipe);
            return std::optional(Instance(**std::move(lock), std::move(end)));
        }
        if (message.size() > PIPE_BUF) {
            return failure(E2BIG, "The words can't be handed over to the running instance");
        }
        if (!sent) {
            FileDescriptor end(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
            if (end && !isPipe(end)) {
                return failure(EINVAL, pipe.string() + " is not a pipe");
            }
            if (end && write(end.get(), message.data(), message.size()) ==
                           static_cast<ssize_t>(message.size())) {
                sent = std::move(end);
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return failure(ETIMEDOUT, "The running instance does not answer");
}

std::optional<Words> Instance::waitForWords() {
    while (true) {
        if (auto message = takeMessage(_received)) {
            // While the sender is there a second client runs, for those who look for one.
            awaitEnd(message->sender);
            return std::move(message->words);
        }
        std::array<char, PIPE_BUF> chunk{};
        const ssize_t count = read(_pipe.get(), chunk.data(), chunk.size());
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return std::nullopt;
        }
        _received.append(chunk.data(), static_cast<std::size_t>(count > 0 ? count : 0));
    }
}

void CommandLog::append(const Words& words) const {
    std::string entry(platform::localTimeText(std::time(nullptr)));
    entry += ": [" + std::to_string(getpid()) + "]";
    for (const std::string& word : words) {
        entry += " " + shellWord(word);
    }
    (void)platform::appendToFile(_file, entry + "\n");
}

}  // namespace teravolant::client
