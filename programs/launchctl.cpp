// launchctl load|unload PATH: makes or removes the login entry of a launch agent's property list.
// launchctl start|stop LABEL: starts or ends the job of a loaded one.
//
// Status 0: done. 1: the property list or the entry can't be used. 3: there is no loaded job of
// that name. 64: the call's words are off.

#include <sysexits.h>

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

/// The processes of the job: its program, with just its arguments.
std::vector<RunningProcess> processesOf(const LaunchAgent& agent) {
    std::error_code missing;
    const fs::path program = fs::canonical(agent.programArguments.front(), missing);
    std::vector<RunningProcess> processes;
    if (!missing) {
        processes = processesRunning(program);
        std::erase_if(processes, [&agent](const RunningProcess& process) {
            return !std::equal(process.arguments.begin() + (process.arguments.empty() ? 0 : 1),
                               process.arguments.end(), agent.programArguments.begin() + 1,
                               agent.programArguments.end());
        });
    }
    return processes;
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
    for (const RunningProcess& process : processesOf(agent)) {
        kill(process.processIdentifier, SIGTERM);
    }
    return EXIT_SUCCESS;
}

int startOrStop(const std::string& label, int (*action)(const LaunchAgent&)) {
    if (label.find('/') != label.npos) {
        return fail(label, "a job is named by its label, not by a path", kNoSuchJob);
    }
    if (!fileExists(loginEntryPath(label))) {
        return fail(label, "no job of that label is loaded", kNoSuchJob);
    }
    const auto agent = agentOfLoginEntry(label);
    return agent ? action(*agent) : fail(label, agent.error().localizedDescription);
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 1 && words[0] == "--help") {
        std::cout << kUsage;
        return EXIT_SUCCESS;
    }
    if (words.size() == 2) {
        if (words[0] == "load") {
            return load(words[1]);
        }
        if (words[0] == "unload") {
            return unload(words[1]);
        }
        if (words[0] == "start") {
            return startOrStop(words[1], start);
        }
        if (words[0] == "stop") {
            return startOrStop(words[1], stop);
        }
    }
    std::cerr << kUsage;
    return EX_USAGE;
}
