#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace teravolant {

/// The one log of the process: writes every message to the console and, with a time stamp, to
/// updater.log in the user's application-support folder (the machine's log folder for root).
///
/// Rotates the file by size when the logger is created and when the threshold changes. No operation
/// fails: if the file can't be written, messages go to the console only. `logMessage` may be called
/// from any thread; entries of several threads and processes never mix.
class Logger {
  public:
    /// Creates the logger on the first call. It lives until the process ends.
    static Logger& sharedInstance();

    Logger();

    /// Returns where the log of this user is.
    [[nodiscard]] static std::filesystem::path filePath();

    void logMessage(std::string_view message);

    /// Sets the rotation threshold in bytes and applies it at once. Called by one thread at a time.
    void setMaxFileSize(std::uint64_t maxFileSize);

  private:
    static void logToConsole(std::string_view message);
    void logToFile(std::string_view message) const;
    void checkFileSizeAndBackupIfNeeded() const;
    void backupLogFile() const;

    std::filesystem::path _logFilePath;
    std::uint64_t _maxFileSize = 10485760;
    std::uint64_t _maxBackupFiles = 1;
};

}  // namespace teravolant
