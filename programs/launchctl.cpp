// launchctl load|unload PATH: registers or removes the job of a launch-agent property list.
// launchctl start|stop LABEL: starts or terminates a registered job.
//
// Exit status: 0 on success, 1 if the property list or the registration cannot be used or another
// user can change the program, 3 if no job with that label is registered, 64 on a usage error.
//
// How it works: a job with a start interval is a timer of the user's service manager. Every other
// job, and every job where there is no such manager, is a login entry. `load` replaces one form by
// the other, and a job that the user has switched off stays off in both. It writes the new form
// before it removes the old one: an interrupted `load` leaves both, and the next one removes the
// old one. `unload` leaves the files of a job that is switched off, because they record that.
//
// `start` starts the program detached, unless it runs already. `stop` sends SIGTERM. The processes
// of a job are those whose executable and arguments are the job's, since two jobs may share one
// program.

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
#include "platform/files/files.h"
#include "platform/files/trusted_path.h"
#include "platform/system/process.h"
#include "platform/system/process_list.h"
#include "programs/launch_agent.h"
#include "programs/login_entry.h"
#include "programs/timer.h"

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

Status registerJob(const LaunchAgent& agent) {
    const LoginEntry entry(agent.label);
    Timer timer(agent.label);
    const bool isSwitchedOff = entry.isSwitchedOff() || timer.isSwitchedOff();
    if (canBeTimer(agent) && Timer::hasServiceManager() && timer.write(agent, isSwitchedOff)) {
        return removeRegistration(entry.path());
    }
    auto error = entry.write(agent, isSwitchedOff);
    return error ? error : timer.remove();
}

int load(const std::string& path) {
    const auto agent = readLaunchAgent(path);
    if (!agent) {
        return fail(path, agent.error().localizedDescription);
    }
    if (const auto error = checkTrustedPath(agent->programArguments.front())) {
        return fail(path, "The program is not trusted: " + error->localizedDescription);
    }
    const auto error = registerJob(*agent);
    return error ? fail(path, error->localizedDescription) : EXIT_SUCCESS;
}

/// Returns a file that registers the job with that label, or an empty path.
fs::path recordOf(const std::string& label) {
    std::vector<fs::path> records = Timer(label).records();
    records.push_back(LoginEntry(label).path());
    const auto record = std::ranges::find_if(
        records, [](const fs::path& file) { return fileExists(file) && !isMasked(file); });
    return record == records.end() ? fs::path() : *record;
}

int unload(const std::string& path) {
    const auto agent = readLaunchAgent(path);
    if (!agent) {
        return fail(path, agent.error().localizedDescription);
    }
    if (recordOf(agent->label).empty()) {
        return fail(path, "the job is not loaded", kNoSuchJob);
    }
    const LoginEntry entry(agent->label);
    Timer timer(agent->label);
    auto error = entry.isSwitchedOff() ? Status() : removeRegistration(entry.path());
    if (timer.isSwitchedOff()) {
        timer.stop();
    } else if (!error) {
        error = timer.remove();
    }
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
    // The launcher passes the path of a property list after each `load` and before each `unload`.
    if (label.find('/') != label.npos) {
        return kNoSuchJob;
    }
    const fs::path record = recordOf(label);
    if (record.empty()) {
        return fail(label, "no job with this label is loaded", kNoSuchJob);
    }
    const auto agent = agentOfRegistration(record);
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
