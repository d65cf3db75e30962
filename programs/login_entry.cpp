#include "programs/login_entry.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "platform/files/files.h"
#include "platform/files/paths.h"

namespace teravolant::platform {
namespace {

constexpr std::string_view kGroup = "[Desktop Entry]";

/// A key with which desktops switch off a login entry.
struct Switch {
    std::string_view key;
    std::string_view off;
};
constexpr Switch kSwitches[] = {
    {"Hidden", "true"},                      // freedesktop.org; KDE, LXQt, Xfce
    {"X-GNOME-Autostart-enabled", "false"},  // GNOME, Budgie, Cinnamon, Pantheon
    {"X-MATE-Autostart-enabled", "false"},   // MATE
};

std::string withoutBlanks(std::string text) {
    std::erase_if(text, [](char character) { return character == ' ' || character == '\t'; });
    return text;
}

bool switchesOff(const std::string& line) {
    const std::string compact = withoutBlanks(line);
    return std::ranges::any_of(kSwitches, [&](const Switch& candidate) {
        return compact == std::string(candidate.key).append("=").append(candidate.off);
    });
}

/// Returns one argument of an Exec line: quoted, with reserved characters escaped and "%" doubled,
/// so that it begins no field code.
std::string quotedArgument(std::string_view argument) {
    std::string escaped = "\"";
    for (const char character : argument) {
        if (std::string_view("\"`$\\").find(character) != std::string_view::npos) {
            escaped += '\\';
        }
        escaped += character;
        if (character == '%') {
            escaped += '%';
        }
    }
    return escaped + "\"";
}

}  // namespace

std::string loginEntryText(const LaunchAgent& agent, std::string_view switchedOff) {
    std::string command = "env " + quotedArgument(automaticStartMark(agent));
    for (const std::string& argument : agent.programArguments) {
        command += " " + quotedArgument(argument);
    }
    return std::string(kGroup) +
           "\nType=Application\nVersion=1.0\nName=" + escapedString(agent.displayName) +
           "\nTryExec=" + escapedString(agent.programArguments.front()) +
           "\nExec=" + escapedString(command) + "\n" + propertyListLine(agent) +
           std::string(switchedOff);
}

std::string switchedOffLines(std::string_view entry) {
    std::istringstream lines{std::string(entry)};
    std::string found;
    bool isInGroup = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('[')) {
            isInGroup = line.starts_with(kGroup);
        } else if (isInGroup && switchesOff(line)) {
            found += line + "\n";
        }
    }
    return found;
}

LoginEntry::LoginEntry(const std::string& label)
    : _path(configurationDirectory() / "autostart" / (label + ".desktop")) {}

bool LoginEntry::isSwitchedOff() const {
    const auto text = contentsOfFile(_path);
    return isMasked(_path) || (text && !switchedOffLines(*text).empty());
}

Status LoginEntry::write(const LaunchAgent& agent, bool isSwitchedOff) const {
    std::string off;
    if (isSwitchedOff) {
        const auto text = contentsOfFile(_path);
        off = text ? switchedOffLines(*text) : "";
        off = off.empty() ? "Hidden=true\n" : off;
    }
    return writeRegistration(_path, loginEntryText(agent, off));
}

}  // namespace teravolant::platform
