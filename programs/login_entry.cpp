#include "programs/login_entry.h"

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/values/property_list.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPropertyListKey = "\nX-Teravolant-PropertyList=";

Error unusable(std::string description) {
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = NSFileReadCorruptFileError,
                 .localizedDescription = std::move(description)};
}

/// A label names a file of its own folder and stands on one line.
bool isUsableLabel(std::string_view label) {
    return !label.empty() && label.front() != '.' && label.find('/') == label.npos &&
           label.find('\n') == label.npos;
}

const Value* valueIn(const Value::Dictionary& dictionary, std::string_view key) {
    const auto found = dictionary.find(key);
    return found == dictionary.end() ? nullptr : &found->second;
}

/// Escapes a value of the type "string": what would end the line, and the escape character.
std::string escapedString(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '\\':
                escaped += "\\\\";
                break;
            case '\n':
                escaped += "\\n";
                break;
            case '\r':
                escaped += "\\r";
                break;
            case '\t':
                escaped += "\\t";
                break;
            default:
                escaped += character;
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
        switch (text[++index]) {
            case 'n':
                plain += '\n';
                break;
            case 'r':
                plain += '\r';
                break;
            case 't':
                plain += '\t';
                break;
            default:
                plain += text[index];
        }
    }
    return plain;
}

/// One argument of an "Exec" line: quoted, with its reserved characters escaped and field codes
/// taken literally.
std::string quotedArgument(std::string_view argument) {
    std::string quoted = "\"";
    for (const char character : argument) {
        if (std::string_view("\"`$\\").find(character) != std::string_view::npos) {
            quoted += '\\';
        }
        quoted += character;
        if (character == '%') {
            quoted += '%';
        }
    }
    return quoted + "\"";
}

}  // namespace

Result<LaunchAgent> readLaunchAgent(const fs::path& propertyList) {
    const auto dictionary = dictionaryInFile(propertyList);
    if (!dictionary) {
        return dictionary.error();
    }
    const auto* label = valueIn(*dictionary, "Label");
    if (label == nullptr || label->text() == nullptr || !isUsableLabel(*label->text())) {
        return unusable("The property list has no usable Label.");
    }
    const auto* arguments = valueIn(*dictionary, "ProgramArguments");
    if (arguments == nullptr || arguments->array() == nullptr || arguments->array()->empty()) {
        return unusable("The property list has no ProgramArguments.");
    }
    LaunchAgent agent{.label = *label->text(), .programArguments = {}};
    for (const Value& argument : *arguments->array()) {
        if (argument.text() == nullptr) {
            return unusable("The property list has ProgramArguments that are not texts.");
        }
        agent.programArguments.push_back(*argument.text());
    }
    if (agent.programArguments.front().find('=') != std::string::npos) {
        return unusable(
            "The property list has a program with “=” in its path, which a login entry can't "
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
    const auto entry =
        isUsableLabel(label) ? contentsOfFile(loginEntryPath(label)) : unusable("Not a label.");
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
