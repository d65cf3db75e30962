#include "support/logger.h"

#include <unistd.h>

#include <ctime>
#include <exception>
#include <string>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/local_time.h"
#include "platform/files/file_lock.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_directory.h"
#include "platform/system/console_log.h"

namespace teravolant {
namespace {

constexpr std::string_view kFolder = "Zelto/Teravolant App";

std::filesystem::path logFolder() {
    if (geteuid() != 0) {
        return platform::applicationSupportDirectory() / kFolder;
    }
    return platform::machineLogDirectory() / kFolder;
}

/// Fails if another user could replace the superuser's log by a link or change its contents.
platform::Status checkSuperusersFolder() {
    return geteuid() == 0
               ? platform::checkPrivateDirectories(platform::machineLogDirectory(), kFolder)
               : platform::Status();
}

std::filesystem::path backupPath(const std::filesystem::path& logFile, std::uint64_t number) {
    return logFile.string() + "." + std::to_string(number);
}

}  // namespace

Logger& Logger::sharedInstance() {
    static Logger& logger = *new Logger();
    return logger;
}

std::filesystem::path Logger::filePath() { return logFolder() / "updater.log"; }

Logger::Logger() {
    try {
        if (const auto error = checkSuperusersFolder()) {
            logToConsole("WARNING: messages go to the console only: " +
                         error->localizedDescription);
            return;
        }
        _logFilePath = filePath();
        if (!platform::fileExists(_logFilePath.parent_path())) {
            // If this fails, every append fails and messages go to the console only.
            (void)platform::createDirectory(_logFilePath.parent_path());
        }
        checkFileSizeAndBackupIfNeeded();
    } catch (const std::exception& exception) {
        logToConsole(std::string("Error setting log file path: ") + exception.what());
    }
}

void Logger::logMessage(std::string_view message) {
    logToConsole(message);
    if (!_logFilePath.empty()) {
        logToFile(message);
    }
}

void Logger::setMaxFileSize(std::uint64_t maxFileSize) {
    _maxFileSize = maxFileSize;
    checkFileSizeAndBackupIfNeeded();
}

void Logger::logToConsole(std::string_view message) { platform::logToConsole(message); }

void Logger::logToFile(std::string_view message) const {
    std::string entry;
    entry.reserve(message.size() + 32);
    entry.append(platform::localTimeText(std::time(nullptr))).append(": ");
    entry.append(message).append("\n");
    const auto links = geteuid() == 0 ? platform::Links::Refuse : platform::Links::Follow;
    (void)platform::appendToFile(_logFilePath, entry, links);
}

void Logger::checkFileSizeAndBackupIfNeeded() const {
    const auto tooLarge = [this] {
        const auto attributes = platform::attributesOfItem(_logFilePath);
        return attributes && attributes->fileSize > _maxFileSize;
    };
    if (!tooLarge()) {
        return;
    }
    // Two processes may find the log too large at the same time. The second one must not rotate the
    // first one's backup away, so check the size again under the lock. The log of a start that
    // cannot have a lock file must not grow for ever, so rotate it without a lock.
    constexpr std::chrono::milliseconds kPatience(100);
    const auto lock =
        platform::FileLock::acquire(_logFilePath.parent_path() / "rotation.lock", kPatience);
    const bool isHeldElsewhere = !lock && lock.error().code == platform::NSFileLockingError;
    if (!isHeldElsewhere && tooLarge()) {
        backupLogFile();
    }
}

void Logger::backupLogFile() const {
    for (std::uint64_t number = _maxBackupFiles; number > 0; --number) {
        const auto source = backupPath(_logFilePath, number);
        const auto target = backupPath(_logFilePath, number + 1);
        if (!platform::fileExists(source)) {
            continue;
        }
        (void)platform::removeItem(target);
        if (number >= _maxBackupFiles) {
            (void)platform::removeItem(source);
            logToConsole("remove " + source.string());
        } else {
            (void)platform::moveItem(source, target);
            logToConsole("remove " + target.string() + ", move " + source.string());
        }
    }
    if (_maxBackupFiles > 0) {
        (void)platform::moveItem(_logFilePath, backupPath(_logFilePath, 1));
    }
    // Appending an empty text creates a missing file. It keeps entries that another process has
    // written since the move, and the old ones if the move failed.
    (void)platform::appendToFile(_logFilePath, "");
}

}  // namespace teravolant
