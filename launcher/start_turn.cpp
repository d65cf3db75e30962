#include "launcher/start_turn.h"

#include <unistd.h>

#include <chrono>
#include <optional>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/files/file_lock.h"
#include "platform/files/paths.h"
#include "platform/system/application.h"
#include "platform/system/console_log.h"
#include "support/logger.h"

// The lock file stands beside the client folder, because starts with other XDG variables use the
// same client folder. The commands of a start do not inherit the lock.
namespace teravolant {
namespace {

using platform::FileLock;

/// Longer than the unpacking of a large client on a slow disk.
constexpr std::chrono::seconds kPatience(30);

std::optional<FileLock> turn;
bool mayWait = true;

}  // namespace

void takeTurn() {
    // A lock file of root's would keep the user's own starts from taking turns.
    if (turn || geteuid() == 0) {
        return;
    }
    auto lock = FileLock::acquire(platform::homeDirectoryForCurrentUser() / ".teravolant.lock",
                                  mayWait ? kPatience : std::chrono::seconds(0),
                                  platform::Application::terminationIsRequested);
    if (lock) {
        turn = *std::move(lock);
    } else if (mayWait && !platform::Application::terminationIsRequested()) {
        mayWait = false;
        if (lock.error().code == platform::NSFileLockingError) {
            Logger::sharedInstance().logMessage(
                "WARNING: another start of this user is still running; this one no longer waits "
                "for it.");
        } else {
            platform::logToConsole("This start takes no turn: " +
                                   lock.error().localizedDescription);
        }
    }
}

void endTurn() { turn.reset(); }

}  // namespace teravolant
