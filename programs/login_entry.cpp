#include "programs/login_entry.h"

#include <algorithm>
#include <iterator>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/values/property_list.h"

// How it works: the login entry of a loaded job is the only record of it. `loginEntryText` writes
// the program and its arguments into the entry's Exec line, quoted for the session, and the path of
// the property list into a key of our own. `agentOfLoginEntry` reads only that key, then the
// property list, so that no code has to parse an Exec line.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPropertyListKey = "\nX-Teravolant-PropertyList=";

Status unusable(std::string description) {
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = NSFileReadCorruptFileError,
                 .localizedDescription = std::move(description)};
}

/// Whether the label is a file name that is not hidden and has no line feed.
bool isUsableLabel(std::string_view label) {
    return !label.empty() && label.front() != '.' && label.find('/') == label.npos &&
           label.find('\n') == label.npos;
}

struct Escape {
    char plain;
    char letter;  ///< Stands after a backslash.
};
constexpr Escape kEscapes[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}, {'\t', 't'}};

/// Escapes a value of the type "string": line ends, tabs and backslashes.
std::string escapedString(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        const auto* const escape = std::ranges::find(kEscapes, character, &Escape::plain);
        if (escape == std::end(kEscapes)) {
            escaped += character;
        } else {
            escaped += {'\\', escape->letter};
        }
    }
    return escaped;
}

std::string unescapedString(std::string_view text) {
    std::string plain;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '\\' || index + 1 == text.size()) {
            plain += text[index];
            continue;
        }
        const auto* const escape = std::ranges::find(kEscapes, text[++index], &Escape::letter);
        plain += escape == std::end(kEscapes) ? text[index] : escape->plain;
    }
    return plain;
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

Result<LaunchAgent> readLaunchAgent(const fs::path& propertyList) {
    auto dictionary = dictionaryInFile(propertyList);
    if (!dictionary) {
        return dictionary.error();
    }
    const Value job = *std::move(dictionary);
    const Value* const label = job.find("Label");
    if (label == nullptr || label->text() == nullptr || !isUsableLabel(*label->text())) {
        return unusable("The property list has no usable Label.");
    }
    const Value* const arguments = job.find("ProgramArguments");
    if (arguments == nullptr || arguments->array() == nullptr || arguments->array()->empty()) {
        return unusable("The property list has no ProgramArguments.");
    }
    LaunchAgent agent{.label = *label->text(), .programArguments = {}};
    for (const Value& argument : *arguments->array()) {
        if (argument.text() == nullptr) {
            return unusable("The property list has ProgramArguments that are not strings.");
        }
        agent.programArguments.push_back(*argument.text());
    }
    if (agent.programArguments.front().find('=') != std::string::npos) {
        return unusable(
            "The program in the property list has “=” in its path, which a login entry can't "
            "start.");
    }
    return agent;
}

fs::path loginEntryPath(std::string_view label) {
    return configurationDirectory() / "autostart" / std::string(label).append(".desktop");
}

std::string loginEntryText(const LaunchAgent& agent, const fs::path& propertyList) {
    std::string command = "env " + quotedArgument("DESKTOP_AUTOSTART_ID=" + agent.label);
    for (const std::string& argument : agent.programArguments) {
        command += " " + quotedArgument(argument);
    }
    return "[Desktop Entry]\nType=Application\nVersion=1.5\nName=" + escapedString(agent.label) +
           "\nTryExec=" + escapedString(agent.programArguments.front()) +
           "\nExec=" + escapedString(command) + std::string(kPropertyListKey) +
           escapedString(propertyList.string()) + "\nNoDisplay=true\n";
}

Result<LaunchAgent> agentOfLoginEntry(std::string_view label) {
    const auto entry = isUsableLabel(label) ? contentsOfFile(loginEntryPath(label))
                                            : unusable("The label is not usable.");
    if (!entry) {
        return entry.error();
    }
    const std::string& text = *entry;
    const std::size_t key = text.find(kPropertyListKey);
    if (key == text.npos) {
        return unusable("The login entry does not name its property list.");
    }
    const std::size_t begin = key + kPropertyListKey.size();
    return readLaunchAgent(unescapedString(text.substr(begin, text.find('\n', begin) - begin)));
}

}  // namespace teravolant::platform
