#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace teravolant {

/// The one log of the process: every message goes to the console and, with a time stamp, to
/// updater.log in the user's application-support folder (the machine's log folder for root).
///
/// The file is rotated by size when the logger is created and when the threshold is changed. No
/// operation fails: what can't be written to the file remains on the console. All operations may be
/// called from any thread; entries of several threads and processes stay whole.
class Logger {
  public:
    /// Created on the first call and kept until the process ends.
    static Logger& sharedInstance();

    Logger();

    void logMessage(std::string_view message);

    /// Sets the rotation threshold in bytes and applies it at once. One thread at a time.
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
