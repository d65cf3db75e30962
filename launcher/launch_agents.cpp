#include <unistd.h>

#include <filesystem>
#include <string_view>

#include "launcher/start_turn.h"
#include "launcher/task_runner.h"
#include "launcher/teravolant_app.h"
#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/system/bundle.h"
#include "support/logger.h"

namespace teravolant {
namespace {

using platform::Status;
using std::filesystem::path;

std::string_view labelOf(LaunchAgentKind kind) {
    switch (kind) {
        case LaunchAgentKind::agent:
            return "com.zelto.teravolant.agent";
        case LaunchAgentKind::autorun:
            return "com.zelto.teravolant.autorun";
    }
    return {};
}

/// Stores the error of a failed step in the slot. A successful step keeps an earlier error.
void keepLatest(Status& slot, Status error) {
    if (error) {
        slot = std::move(error);
    }
}

void launchctl(const char* subcommand, const path& installed) {
    runTask("/bin/launchctl", {subcommand, installed.string()});
}

void installForTheFirstTime(const path& resource, const path& installed) {
    Status slot;
    const path folder = installed.parent_path();
    if (!platform::fileExists(folder)) {
        slot = platform::createDirectory(folder);
        reportError(slot);
    }
    keepLatest(slot, platform::copyItem(resource, installed));
    reportError(slot);
}

/// Replaces the installed file and unloads the agent. Returns whether to load it again.
bool replace(const path& resource, const path& installed, bool reloadOnError) {
    Logger::sharedInstance().logMessage("replace " + installed.string() + " with " +
                                        resource.string());
    Status slot;
    if (platform::fileExists(installed)) {
        slot = platform::removeItem(installed);
    }
    keepLatest(slot, platform::copyItem(resource, installed));
    reportError(slot);
    if (slot && !reloadOnError) {
        return false;
    }
    launchctl("stop", installed);
    launchctl("unload", installed);
    return true;
}

/// Updates the installed file if its modification date differs. Returns whether to load the agent.
bool install(const path& resource, const path& installed, bool reloadOnError) {
    const auto before = platform::attributesOfItem(installed);
    if (!before) {
        if (before.error().domain == platform::NSCocoaErrorDomain &&
            before.error().code == platform::NSFileReadNoSuchFileError) {
            installForTheFirstTime(resource, installed);
            return true;
        }
        reportError(before.error());
        return false;
    }
    const auto wanted = platform::attributesOfItem(resource);
    if (!wanted) {
        reportError(wanted.error());
        return false;
    }
    if (before->fileModificationDate == wanted->fileModificationDate) {
        Logger::sharedInstance().logMessage("No need to store " + installed.string());
        return false;
    }
    return replace(resource, installed, reloadOnError);
}

}  // namespace

void TeravolantApp::storeLaunchAgent(LaunchAgentKind kind, bool reloadOnError) {
    if (geteuid() == 0) {
        Logger::sharedInstance().logMessage("INFO: root user is not allowed to store agent!.");
        return;
    }
    takeTurn();  // Two starts that store an agent at once would report each other's files.
    const auto resource = platform::Bundle::mainBundle().pathForResource(labelOf(kind), "plist");
    if (!resource) {
        return;
    }
    const path installed =
        platform::homeDirectoryForCurrentUser() / "Library" / "LaunchAgents" / resource->filename();
    if (install(*resource, installed, reloadOnError)) {
        launchctl("load", installed);
        launchctl("start", installed);
    }
}

}  // namespace teravolant
