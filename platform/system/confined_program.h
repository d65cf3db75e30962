#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/file_descriptor.h"
#include "platform/core/frames.h"
#include "platform/core/result.h"

namespace teravolant::platform {

inline constexpr std::string_view kProgramErrorDomain = "TeravolantProgramErrorDomain";

/// The codes of `kProgramErrorDomain`: how a confined program failed without an error of its own.
namespace ProgramError {
enum Code : std::int64_t {
    ended = 1,          ///< It exited without a result.
    crashed = 2,        ///< The kernel killed it for its own fault, for example with SIGSEGV.
    killed = 3,         ///< Another signal killed it.
    hung = 4,           ///< It neither read nor wrote in time.
    invalidOutput = 5,  ///< It wrote what it must not write.
};
}  // namespace ProgramError

/// A program that handles untrusted bytes, with one socket to the caller as its standard input and
/// output. By default it is in the main bundle's Helpers folder.
///
/// Runs in its own session, with /dev/null as its standard error, only the named environment
/// variables, and no other inherited descriptor. It confines itself before it reads a byte; started
/// by root, it becomes an unprivileged user. The caller does not trust its output. Destroying the
/// object kills the program. Used by one thread, which must outlive the program: the kernel kills
/// the program when the thread that started it ends.
class ConfinedProgram {
  public:
    struct Settings {
        std::string name;
        std::vector<std::string> environment = {};  ///< Names of variables to pass on.
        std::filesystem::path folder = {};          ///< Open as its descriptor 3, unless empty.
        std::string_view errorDomain = {};          ///< Of the program's own errors.
        /// For each call of `send` and `receive`. Then the program counts as hung.
        std::chrono::milliseconds patience = std::chrono::seconds(60);
        /// Instead of the program `name` of the Helpers folder, unless empty.
        std::filesystem::path executable = {};
        /// Before the last argument, which is the process id of the caller.
        std::vector<std::string> arguments = {};
    };

    struct Received {
        FrameKind kind;
        std::string_view payload;  ///< Valid until the next call.
    };

    /// Fails if the folder cannot be opened or the program cannot be executed. For root, the folder
    /// must be closed to all other users (see `lendFolder`).
    static Result<ConfinedProgram> start(const Settings& settings);

    ConfinedProgram(ConfinedProgram&& other) noexcept;
    ConfinedProgram& operator=(ConfinedProgram&&) = delete;
    ~ConfinedProgram();

    /// Sends bytes. Also succeeds if the program has closed its end: `receive` returns why.
    [[nodiscard]] Status send(std::string_view bytes);

    /// Ends the program's input.
    void endInput();

    /// Returns the next frame other than `Confinement`. Fails with an error of
    /// `kProgramErrorDomain`, or with the program's own error if the frame is `Failure`. After the
    /// frame `End`, everything in the folder belongs to the caller's user.
    Result<Received> receive();

    /// Returns an error for output that the program must not write.
    [[nodiscard]] Status invalidOutput() const;

    /// Whether a program of this process has reported a kernel that lacks a part of its
    /// confinement. May be called from any thread.
    [[nodiscard]] static bool anyRanUnconfined();

  private:
    ConfinedProgram(Settings settings, std::filesystem::path lent, FileDescriptor socket,
                    int child);

    using Time = std::chrono::steady_clock::time_point;

    Status readExactly(char* bytes, std::size_t size, Time end);
    Status waitUntilReady(short events, Time end);
    Result<Received> receiveFrame(Time end);
    Status endWithoutResult();
    Status takeFolderBack();
    [[nodiscard]] Status error(ProgramError::Code code, const std::string& what) const;

    Settings _settings;
    std::filesystem::path _lent;  ///< The folder in which the program may create a tree.
    FileDescriptor _socket;
    int _child = -1;  ///< The process id. -1 after its end.
    std::vector<char> _payload;
};

}  // namespace teravolant::platform
