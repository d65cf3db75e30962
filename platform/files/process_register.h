#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/core/file_descriptor.h"
#include "platform/core/result.h"

namespace teravolant::platform {

/// A file in which processes register and deregister, so that a later process can count those that
/// ended without deregistering, as after a crash, SIGKILL or a power failure.
///
/// The file has a fixed size, so that neither operation needs space on the disk. A registered
/// process holds a lock on its entry, which the kernel releases when the process ends. Used by one
/// thread, except for `remove`. Other versions of this program read the file: its format must not
/// change.
class ProcessRegister {
  public:
    /// Returns the contents of a new register without processes that carries the text `note`. The
    /// caller writes the file.
    [[nodiscard]] static std::string emptyRegister(std::string_view note);

    /// Opens the register. Returns nothing if there is no file, which costs one system call. Fails
    /// if the file is not a register or is void.
    static Result<std::optional<ProcessRegister>> open(const std::filesystem::path& path);

    [[nodiscard]] const std::string& note() const { return _note; }

    /// Excludes other processes until `unlock`. Fails with `NSFileLockingError` if another process
    /// holds the lock for all of `kLockPatience` (see file_lock.h).
    [[nodiscard]] Status lock();
    void unlock();

    /// Whether the register is still at its path and not void. Call it between `lock` and `unlock`.
    [[nodiscard]] bool isValid() const;

    /// Returns how many processes ended without deregistering. Call it between `lock` and `unlock`.
    [[nodiscard]] std::size_t countLost() const;

    /// Durably registers this process, until it ends or `remove` is called. Call it between `lock`
    /// and `unlock`. Fails if all entries are taken.
    [[nodiscard]] Status add();

    /// Deregisters this process if it is registered. May be called in a signal handler.
    void remove() const;

    enum class File : std::uint8_t { Keep, Remove };

    /// Durably makes the register void, then removes the file if `file` says so. Fails if the
    /// register remains valid. Call it between `lock` and `unlock`.
    [[nodiscard]] Status makeVoid(File file);

  private:
    ProcessRegister(std::filesystem::path path, FileDescriptor file, const std::string& contents);

    std::filesystem::path _path;
    FileDescriptor _file;
    std::string _note;
    long _own = 0;  ///< The offset of this process's entry, or 0.
};

}  // namespace teravolant::platform
