#include "examples/client/instance.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <thread>

namespace teravolant::client {
namespace {

namespace fs = std::filesystem;
using platform::FileLock;
using platform::UniqueFd;

/// A message: the length of what follows in decimal, a line feed, and each word with a NUL behind
/// it.
std::string encode(const Words& words) {
    std::string payload;
    for (const std::string& word : words) {
        payload += word + '\0';
    }
    return std::to_string(payload.size()) + "\n" + payload;
}

/// Takes the first whole message off the received bytes.
std::optional<Words> takeMessage(std::string& received) {
    const std::size_t header = received.find('\n') + 1;
    if (header == 0) {
        return std::nullopt;
    }
    const std::size_t end = header + std::strtoul(received.c_str(), nullptr, 10);
    if (received.size() < end) {
        return std::nullopt;
    }
    Words words;
    for (std::size_t begin = header; begin < end; begin += words.back().size() + 1) {
        words.emplace_back(received.c_str() + begin);
    }
    received.erase(0, end);
    return words;
}

platform::Error failure(int number, std::string_view attempt) {
    return platform::errorFromErrno(number, platform::FileAccess::Write, attempt);
}

/// A file in the pipe's place would take the words, and nobody would get them.
bool isPipe(const UniqueFd& descriptor) {
    struct stat status {};
    return fstat(descriptor.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}

bool isEmpty(const UniqueFd& pipe) {
    int count = 0;
    return ioctl(pipe.get(), FIONREAD, &count) == 0 && count == 0;
}

/// Takes out what an earlier instance was sent and has not read, for one the words of this start.
void discardContents(const fs::path& pipe) {
    const UniqueFd end(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
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
    if (message.size() > PIPE_BUF) {
        return failure(E2BIG, "The words can't be handed over");
    }
    const fs::path pipe = folder / "commands";
    mkfifo(pipe.c_str(), 0600);
    UniqueFd sent;
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
        if (lock.value()) {
            UniqueFd end(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
            if (!end) {
                return failure(errno, pipe.string() + " can't be opened");
            }
            if (!isPipe(end)) {
                return failure(EINVAL, pipe.string() + " is not a pipe");
            }
            discardContents(pipe);
            return std::optional(Instance(*std::move(lock).value(), std::move(end)));
        }
        if (!sent) {
            UniqueFd end(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
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
        if (auto words = takeMessage(_received)) {
            return words;
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
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> time{};
    std::strftime(time.data(), time.size(), "%Y-%m-%d %H:%M:%S", &local);

    std::string entry = std::string(time.data()) + ": [" + std::to_string(getpid()) + "]";
    for (const std::string& word : words) {
        entry += " " + shellWord(word);
    }
    (void)platform::appendToFile(_file, entry + "\n");
}

}  // namespace teravolant::client
