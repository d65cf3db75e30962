// launchctl load|unload PATH: creates or removes the login entry of a launch-agent property list.
// launchctl start|stop LABEL: starts or terminates the job of a loaded property list.
//
// Exit status: 0 on success, 1 if the property list or the login entry cannot be used, 3 if no job
// with that label is loaded, 64 on a usage error.
//
// How it works: there is no service manager. A job is loaded if its login entry exists, and the
// desktop session starts it at login. `start` starts the program detached, unless it runs already.
// `stop` sends SIGTERM. The processes of a job are those whose executable and arguments are the
// job's, since two jobs may share one program.

#include <sysexits.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/core/error.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/system/process.h"
#include "platform/system/process_list.h"
#include "programs/login_entry.h"

namespace {

using namespace teravolant::platform;
namespace fs = std::filesystem;

constexpr int kNoSuchJob = 3;
constexpr std::string_view kUsage =
    "usage: launchctl load|unload PATH\n"
    "       launchctl start|stop LABEL\n";

int fail(const std::string& subject, const std::string& reason, int status = EXIT_FAILURE) {
    std::cerr << "launchctl: " + subject + ": " + reason + "\n";
    return status;
}

/// Returns the ids of the processes that run the program of the job with exactly its arguments.
std::vector<int> processesOf(const LaunchAgent& agent) {
    std::error_code missing;
    const fs::path program = fs::canonical(agent.programArguments.front(), missing);
    const auto processes = runningProcesses();
    std::vector<int> identifiers;
    if (missing || !processes) {
        return identifiers;
    }
    for (const RunningProcess& process : *processes) {
        const auto arguments = process.executable == program
                                   ? argumentsOf(process.processIdentifier)
                                   : std::vector<std::string>();
        if (!arguments.empty() &&
            std::equal(arguments.begin() + 1, arguments.end(), agent.programArguments.begin() + 1,
                       agent.programArguments.end())) {
            identifiers.push_back(process.processIdentifier);
        }
    }
    return identifiers;
}

int load(const std::string& path) {
    const auto agent = readLaunchAgent(path);
    if (!agent) {
        return fail(path, agent.error().localizedDescription);
    }
    std::error_code unknown;
    const fs::path absolute = fs::absolute(path, unknown);
    const fs::path entry = loginEntryPath(agent->label);
    auto error = createDirectory(entry.parent_path());
    if (!error) {
        error = replaceFileDurably(entry, loginEntryText(*agent, absolute), 0644);
    }
    return error ? fail(path, error->localizedDescription) : EXIT_SUCCESS;
}

int unload(const std::string& path) {
    const auto agent = readLaunchAgent(path);
    if (!agent) {
        return fail(path, agent.error().localizedDescription);
    }
    const fs::path entry = loginEntryPath(agent->label);
    if (!fileExists(entry)) {
        return fail(path, "the job is not loaded", kNoSuchJob);
    }
    const auto error = removeItem(entry);
    return error ? fail(path, error->localizedDescription) : EXIT_SUCCESS;
}

int start(const LaunchAgent& agent) {
    if (!processesOf(agent).empty()) {
        return EXIT_SUCCESS;
    }
    const auto error =
        launchDetached(agent.programArguments.front(),
                       {agent.programArguments.begin() + 1, agent.programArguments.end()});
    return error ? fail(agent.label, error->localizedDescription) : EXIT_SUCCESS;
}

int stop(const LaunchAgent& agent) {
    for (const int process : processesOf(agent)) {
        kill(process, SIGTERM);
    }
    return EXIT_SUCCESS;
}

int startOrStop(const std::string& label, int (*action)(const LaunchAgent&)) {
    if (label.find('/') != label.npos) {
        return fail(label, "the argument must be a label, not a path", kNoSuchJob);
    }
    if (!fileExists(loginEntryPath(label))) {
        return fail(label, "no job with this label is loaded", kNoSuchJob);
    }
    const auto agent = agentOfLoginEntry(label);
    return agent ? action(*agent) : fail(label, agent.error().localizedDescription);
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1 && arguments[0] == "--help") {
        std::cout << kUsage;
        return EXIT_SUCCESS;
    }
    if (arguments.size() == 2) {
        if (arguments[0] == "load") {
            return load(arguments[1]);
        }
        if (arguments[0] == "unload") {
            return unload(arguments[1]);
        }
        if (arguments[0] == "start") {
            return startOrStop(arguments[1], start);
        }
        if (arguments[0] == "stop") {
            return startOrStop(arguments[1], stop);
        }
    }
    std::cerr << kUsage;
    return EX_USAGE;
}
