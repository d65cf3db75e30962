// The caller's end of a confined program.
//
// Both ends of one Unix-domain socket carry all data. The caller's end does not block: each send
// and each read waits with poll for at most the patience. A program that ends closes its end, which
// the caller sees as the end of the input. Only then, or after SIGKILL, the caller waits for the
// process, so that a program which closes its end but continues to run cannot block the caller.
#include "platform/system/confined_program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/system/bundle.h"
#include "platform/system/lent_folder.h"
#include "platform/system/process.h"
#include "platform/system/spawn.h"

namespace teravolant::platform {
namespace {

constexpr int kFolderDescriptor = 3;
constexpr std::chrono::seconds kPatienceAfterEnd(1);

std::atomic<bool> ranUnconfined = false;

/// Returns those variables of the caller's environment that are set.
std::vector<std::string> environmentWith(const std::vector<std::string>& names) {
    std::vector<std::string> environment;
    for (const std::string& name : names) {
        if (const char* value = std::getenv(name.c_str())) {
            // The program has another working directory.
            const bool isRelativeFile = name == "SSL_CERT_FILE" && *value != '\0' && *value != '/';
            environment.push_back(
                name + "=" + (isRelativeFile ? std::filesystem::absolute(value).string() : value));
        }
    }
    return environment;
}

Result<pid_t> spawn(const ConfinedProgram::Settings& settings, const std::filesystem::path& lent,
                    int socket) {
    const bool hasFolder = !lent.empty();
    const FileDescriptor folder(
        hasFolder ? open(lent.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1);
    if (hasFolder && !folder) {
        return writeError(errno, lent.native());
    }
    SpawnSettings spawnSettings;
    auto* const actions = &spawnSettings.actions;
    posix_spawn_file_actions_adddup2(actions, socket, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(actions, socket, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (hasFolder) {
        posix_spawn_file_actions_adddup2(actions, folder.get(), kFolderDescriptor);
    }
    posix_spawn_file_actions_addclosefrom_np(actions, kFolderDescriptor + (hasFolder ? 1 : 0));
    posix_spawn_file_actions_addchdir_np(actions, "/");
    spawnSettings.detach();

    auto environment = environmentWith(settings.environment);
    std::vector<char*> pointers;
    pointers.reserve(environment.size() + 1);
    for (std::string& variable : environment) {
        pointers.push_back(variable.data());
    }
    pointers.push_back(nullptr);
    auto arguments = settings.arguments;
    // The program compares this number with its parent's, in case the parent is already gone.
    arguments.push_back(std::to_string(getpid()));
    return spawnProgram(settings.executable.empty()
                            ? Bundle::mainBundle().helpersPath() / settings.name
                            : settings.executable,
                        arguments, spawnSettings, pointers.data());
}

}  // namespace

Result<ConfinedProgram> ConfinedProgram::start(const Settings& settings) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return errorFromErrno(errno, FileAccess::Write, "A socket could not be created");
    }
    FileDescriptor own(ends[0]);
    const FileDescriptor theirs(ends[1]);
    fcntl(own.get(), F_SETFL, O_NONBLOCK);
    auto lent = settings.folder.empty() ? settings.folder : lendFolder(settings.folder);
    if (!lent) {
        return lent.error();
    }
    const auto child = spawn(settings, *lent, theirs.get());
    if (!child) {
        return child.error();
    }
    return ConfinedProgram(settings, *std::move(lent), std::move(own), *child);
}

ConfinedProgram::ConfinedProgram(Settings settings, std::filesystem::path lent,
                                 FileDescriptor socket, int child)
    : _settings(std::move(settings)),
      _lent(std::move(lent)),
      _socket(std::move(socket)),
      _child(child) {}

ConfinedProgram::ConfinedProgram(ConfinedProgram&& other) noexcept
    : _settings(std::move(other._settings)),
      _lent(std::move(other._lent)),
      _socket(std::move(other._socket)),
      _child(std::exchange(other._child, -1)),
      _payload(std::move(other._payload)) {}

ConfinedProgram::~ConfinedProgram() {
    if (_child > 0) {
        kill(_child, SIGKILL);
        (void)waitForEnd(_child, kPatienceAfterEnd);
    }
}

/// Called after the last frame. Kills the program first: it must not change the tree any more.
Status ConfinedProgram::takeFolderBack() {
    if (_lent == _settings.folder) {
        return std::nullopt;
    }
    kill(_child, SIGKILL);
    if (!waitForEnd(_child, kPatienceAfterEnd)) {
        return error(ProgramError::hung, "did not end");
    }
    _child = -1;
    return platform::takeFolderBack(_lent, _settings.folder);
}

Status ConfinedProgram::waitUntilReady(short events, Time end) {
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd socket{.fd = _socket.get(), .events = events, .revents = 0};
        const int ready = poll(&socket, 1, static_cast<int>(std::max(left.count(), 0L)));
        if (ready > 0) {
            return std::nullopt;
        }
        if (ready == 0) {
            return error(ProgramError::hung, "did not respond within " +
                                                 std::to_string(_settings.patience.count() / 1000) +
                                                 " seconds");
        }
        if (errno != EINTR) {
            return errorFromErrno(errno, FileAccess::Read, "A socket could not be read");
        }
    }
}

Status ConfinedProgram::send(std::string_view bytes) {
    const Time end = std::chrono::steady_clock::now() + _settings.patience;
    while (!bytes.empty()) {
        const ssize_t sent = ::send(_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN) {
            if (auto error = waitUntilReady(POLLOUT, end)) {
                return error;
            }
        } else if (errno == EPIPE || errno == ECONNRESET) {
            return std::nullopt;
        } else if (errno != EINTR) {
            return errorFromErrno(errno, FileAccess::Write, "A socket could not be written");
        }
    }
    return std::nullopt;
}

void ConfinedProgram::endInput() { shutdown(_socket.get(), SHUT_WR); }

Status ConfinedProgram::readExactly(char* bytes, std::size_t size, Time end) {
    while (size > 0) {
        const ssize_t count = read(_socket.get(), bytes, size);
        if (count > 0) {
            bytes += count;
            size -= static_cast<std::size_t>(count);
        } else if (count < 0 && errno == EAGAIN) {
            if (auto error = waitUntilReady(POLLIN, end)) {
                return error;
            }
        } else if (count == 0 || errno != EINTR) {
            return endWithoutResult();
        }
    }
    return std::nullopt;
}

Result<ConfinedProgram::Received> ConfinedProgram::receiveFrame(Time end) {
    std::array<char, kFrameHeaderSize> header{};
    if (auto error = readExactly(header.data(), header.size(), end)) {
        return error;
    }
    const auto frame = frameIn({header.data(), header.size()});
    if (!frame) {
        return invalidOutput();
    }
    const auto& [kind, size] = *frame;
    if (_payload.size() < size) {
        _payload.resize(size);
    }
    if (auto error = readExactly(_payload.data(), size, end)) {
        return error;
    }
    return Received{.kind = kind, .payload = {_payload.data(), size}};
}

Result<ConfinedProgram::Received> ConfinedProgram::receive() {
    const Time end = std::chrono::steady_clock::now() + _settings.patience;
    auto received = receiveFrame(end);
    if (received && received->kind == FrameKind::Confinement) {
        ranUnconfined = ranUnconfined || received->payload != kFullConfinement;
        received = receiveFrame(end);
    }
    if (received && received->kind == FrameKind::End) {
        if (auto error = takeFolderBack()) {
            return error;
        }
    }
    if (!received || received->kind != FrameKind::Failure) {
        return received;
    }
    const auto ownError = decodedError(received->payload);
    return ownError && ownError->domain == _settings.errorDomain
               ? Result<Received>(*ownError)
               : Result<Received>(invalidOutput());
}

/// Returns the error of a program that has closed its end. Waits up to a second for it to exit, so
/// that its status is known.
Status ConfinedProgram::endWithoutResult() {
    const auto status = waitForEnd(_child, kPatienceAfterEnd);
    if (!status) {
        return error(ProgramError::ended, "closed its output without a result");
    }
    _child = -1;
    if (!WIFSIGNALED(*status)) {
        const int code = WEXITSTATUS(*status);
        return error(
            ProgramError::ended,
            "exited with status " + std::to_string(code) + " without a result" +
                (code == EX_OSERR && geteuid() == 0
                     ? ": for root it runs as the user “nobody”, which a container must have, "
                       "and root needs CAP_SETUID and CAP_SETGID"
                     : ""));
    }
    const int signal = WTERMSIG(*status);
    return error(isFaultSignal(signal) ? ProgramError::crashed : ProgramError::killed,
                 "was killed by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")");
}

Status ConfinedProgram::invalidOutput() const {
    return error(ProgramError::invalidOutput, "wrote output that it must not write");
}

Status ConfinedProgram::error(ProgramError::Code code, const std::string& what) const {
    return Error{.domain = std::string(kProgramErrorDomain),
                 .code = code,
                 .localizedDescription =
                     (_settings.executable.empty() ? "The bundle's program " : "The program ") +
                     quoted(_settings.name) + " " + what + "."};
}

bool ConfinedProgram::anyRanUnconfined() { return ranUnconfined; }

}  // namespace teravolant::platform
