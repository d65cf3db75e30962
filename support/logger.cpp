#include "support/logger.h"

#include <unistd.h>

#include <ctime>
#include <exception>
#include <string>

#include "platform/core/local_time.h"
#include "platform/files/file_lock.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/system/console_log.h"

namespace teravolant {
namespace {

std::filesystem::path logFolder() {
    if (geteuid() != 0) {
        return platform::applicationSupportDirectory() / "Zelto/Teravolant App";
    }
    return platform::machineLogDirectory() / "Zelto/Teravolant App";
}

std::filesystem::path backupPath(const std::filesystem::path& logFile, std::uint64_t number) {
    return logFile.string() + "." + std::to_string(number);
}

}  // namespace

Logger& Logger::sharedInstance() {
    static Logger& logger = *new Logger();
    return logger;
}

Logger::Logger() {
    try {
        const std::filesystem::path folder = logFolder();
        if (!platform::fileExists(folder)) {
            // Without the folder every append fails, and the console copy remains.
            (void)platform::createDirectory(folder);
        }
        _logFilePath = folder / "updater.log";
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
    (void)platform::appendToFile(_logFilePath, entry);
}

void Logger::checkFileSizeAndBackupIfNeeded() const {
    const auto tooLarge = [this] {
        const auto attributes = platform::attributesOfItem(_logFilePath);
        return attributes && attributes->fileSize > _maxFileSize;
    };
    if (!tooLarge()) {
        return;
    }
    // Of two starts that both find the log too large, the second must not rotate the first one's
    // backup away: it looks again once it is alone.
    const auto lock = platform::FileLock::acquire(_logFilePath.parent_path() / "rotation.lock");
    if (lock && tooLarge()) {
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
    // Appending nothing makes the file where it is missing and keeps what another process has
    // written there since, or what could not be moved away.
    (void)platform::appendToFile(_logFilePath, "");
}

}  // namespace teravolant
