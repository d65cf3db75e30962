#include "programs/timer.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "platform/core/text.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_directory.h"
#include "platform/system/process.h"

// How it works: a timer that exists without its link was disabled by the user. So the link is
// created before the timer unit and removed after it: a process that is killed in between never
// leaves what looks like the user's choice. The service unit is written first and removed last,
// because it records the job.
//
// systemctl fails if the service manager does not know the units, for example if it was started
// with another XDG_CONFIG_HOME.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPatience = "10";  // seconds
constexpr int kDelayDivisor = 16;        // The random delay is this part of the interval.

bool isControl(char character) {
    return (character >= 0 && character < ' ') || character == '\x7f';
}

bool isInUnitName(char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') ||
           std::string_view(":-_.").find(character) != std::string_view::npos;
}

/// Doubles "%", so that it begins no specifier.
std::string withoutSpecifiers(std::string_view text) {
    std::string plain;
    for (const char character : text) {
        plain.append(character == '%' ? 2 : 1, character);
    }
    return plain;
}

/// Returns one argument of an ExecStart line.
std::string quotedArgument(std::string_view argument) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string escaped = "\"";
    for (const char character : argument) {
        if (isControl(character)) {
            const auto code = static_cast<unsigned char>(character);
            escaped += {'\\', 'x', kDigits[code / 16U], kDigits[code % 16U]};
            continue;
        }
        if (character == '"' || character == '\\') {
            escaped += '\\';
        } else if (character == '%' || character == '$') {
            escaped += character;
        }
        escaped += character;
    }
    return escaped + "\"";
}

std::string unitSection(const LaunchAgent& agent) {
    return "[Unit]\nDescription=" + withoutSpecifiers(agent.displayName) + "\n" +
           propertyListLine(agent);
}

}  // namespace

bool canBeTimer(const LaunchAgent& agent) {
    const std::string& program = agent.programArguments.front();
    return agent.startInterval && std::ranges::all_of(agent.label, isInUnitName) &&
           isValidUtf8(program) && isValidUtf8(agent.propertyList.native()) &&
           !program.ends_with(' ') && std::ranges::none_of(program, [](char character) {
               return isControl(character) ||
                      std::string_view("\"'\\$").find(character) != std::string_view::npos;
           });
}

std::string serviceUnitText(const LaunchAgent& agent) {
    const std::string& program = agent.programArguments.front();
    std::string command;
    for (const std::string& argument : agent.programArguments) {
        command += (command.empty() ? "" : " ") + quotedArgument(argument);
    }
    // A download may take hours, so the type is one without a time limit. A client that the program
    // opened continues when the program ends or the service is stopped.
    return unitSection(agent) + "ConditionFileIsExecutable=" + withoutSpecifiers(program) +
           "\n\n[Service]\nType=oneshot\nEnvironment=" + automaticStartMark(agent) +
           "\nExecStart=" + command + "\nSuccessExitStatus=1\nKillMode=process\n";
}

std::string timerUnitText(const LaunchAgent& agent) {
    const auto interval = agent.startInterval.value_or(std::chrono::seconds(0));
    return unitSection(agent) +
           "\n[Timer]\nOnActiveSec=10min\nOnUnitActiveSec=" + std::to_string(interval.count()) +
           "s\nRandomizedDelaySec=" + std::to_string((interval / kDelayDivisor).count()) +
           "s\n\n[Install]\nWantedBy=timers.target\n";
}

Timer::Timer(const std::string& label) {
    const fs::path folder = configurationDirectory() / "systemd" / "user";
    _service = folder / (label + ".service");
    _timer = folder / (label + ".timer");
    _link = folder / "timers.target.wants" / _timer.filename();
}

bool Timer::hasServiceManager() {
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr) {
        // A start by cron or su: the user may have a session nevertheless.
        setenv("XDG_RUNTIME_DIR", ("/run/user/" + userIdText()).c_str(), 1);
        return hasServiceManager();
    }
    return runtime[0] == '/' && fileExists(fs::path(runtime) / "systemd");
}

bool Timer::isSwitchedOff() const {
    std::error_code failure;
    return isMasked(_service) || isMasked(_timer) ||
           (fileExists(_timer) && !fs::is_symlink(_link, failure));
}

bool Timer::write(const LaunchAgent& agent, bool isSwitchedOff) {
    if (writeRegistration(_service, serviceUnitText(agent)) || (!isSwitchedOff && !createLink()) ||
        writeRegistration(_timer, timerUnitText(agent))) {
        return false;
    }
    if (isSwitchedOff) {
        return systemctl({"daemon-reload"});
    }
    return systemctl({"enable", "--now", _timer.filename()});
}

bool Timer::createLink() const {
    if (createDirectory(_link.parent_path())) {
        return false;
    }
    std::error_code failure;
    fs::create_symlink(_timer, _link, failure);
    return (!failure || failure == std::errc::file_exists) && flushFolderOf(_link) == 0;
}

void Timer::stop() {
    if (fileExists(_timer)) {
        (void)systemctl({"stop", _timer.filename()});
    }
}

Status Timer::remove() {
    if (!fileExists(_timer) && !fileExists(_service)) {
        return std::nullopt;
    }
    stop();
    for (const fs::path& file : {_timer, _link, _service}) {
        if (auto error = removeRegistration(file)) {
            return error;
        }
    }
    (void)systemctl({"daemon-reload"});
    return std::nullopt;
}

bool Timer::systemctl(std::vector<std::string> arguments) {
    if (!_isUsable || !hasServiceManager()) {
        return false;
    }
    arguments.insert(arguments.begin(), {kPatience, "systemctl", "--user", "--quiet"});
    _isUsable = runToExit("timeout", arguments) == EXIT_SUCCESS;
    return _isUsable;
}

}  // namespace teravolant::platform
