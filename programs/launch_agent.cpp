#include "programs/launch_agent.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/values/property_list.h"

// How it works: a registration file is the only record of a loaded job. It holds the program and
// its arguments in the syntax of the session or of the service manager, and the path of the
// property list under a key of our own. `agentOfRegistration` reads only that key, then the
// property list, so that no code has to parse a command line.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPropertyListKey = "X-Teravolant-PropertyList=";

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

/// Whether every syntax of a registration file can hold the text without escapes.
bool isUsableName(std::string_view name) {
    return !name.empty() && std::ranges::none_of(name, [](char character) {
        return (character >= 0 && character < ' ') || character == '\x7f' || character == '\\';
    });
}

struct Escape {
    char plain;
    char letter;  ///< Stands after a backslash.
};
constexpr Escape kEscapes[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}, {'\t', 't'}};

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

Status readProgram(const Value& job, std::vector<std::string>& programArguments) {
    const Value* const arguments = job.find("ProgramArguments");
    if (arguments == nullptr || arguments->array() == nullptr || arguments->array()->empty()) {
        return unusable("The property list has no ProgramArguments.");
    }
    for (const Value& argument : *arguments->array()) {
        if (argument.text() == nullptr) {
            return unusable("The property list has ProgramArguments that are not strings.");
        }
        programArguments.push_back(*argument.text());
    }
    const std::string& program = programArguments.front();
    if (!program.starts_with('/')) {
        return unusable("The program in the property list has no absolute path.");
    }
    if (program.find('=') != program.npos) {
        return unusable(
            "The program in the property list has “=” in its path, which a login entry can't "
            "start.");
    }
    return std::nullopt;
}

Status readStartInterval(const Value& job, std::optional<std::chrono::seconds>& startInterval) {
    const Value* const interval = job.find("StartInterval");
    if (interval == nullptr) {
        return std::nullopt;
    }
    const std::int64_t seconds = interval->integer() != nullptr ? *interval->integer() : 0;
    if (seconds <= 0 || seconds > std::numeric_limits<std::int32_t>::max()) {
        return unusable("The property list has no usable StartInterval.");
    }
    startInterval = std::chrono::seconds(seconds);
    return std::nullopt;
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
    LaunchAgent agent;
    std::error_code unknown;
    agent.propertyList = fs::absolute(propertyList, unknown);
    agent.label = *label->text();
    const Value* const name = job.find("TVDisplayName");
    const bool hasName = name != nullptr && name->text() != nullptr && isUsableName(*name->text());
    agent.displayName = hasName ? *name->text() : agent.label;
    auto error = readProgram(job, agent.programArguments);
    if (!error) {
        error = readStartInterval(job, agent.startInterval);
    }
    if (error) {
        return error;
    }
    return agent;
}

std::string automaticStartMark(const LaunchAgent& agent) {
    return "DESKTOP_AUTOSTART_ID=" + agent.label;
}

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

std::string propertyListLine(const LaunchAgent& agent) {
    return std::string(kPropertyListKey) + escapedString(agent.propertyList.native()) + "\n";
}

Result<LaunchAgent> agentOfRegistration(const fs::path& file) {
    const auto contents = contentsOfFile(file);
    if (!contents) {
        return contents.error();
    }
    const std::string_view text = *contents;
    const std::size_t key = text.find("\n" + std::string(kPropertyListKey));
    if (key == text.npos) {
        return unusable(quoted(file.native()) + " does not name its property list.");
    }
    const std::size_t begin = key + 1 + kPropertyListKey.size();
    return readLaunchAgent(unescapedString(text.substr(begin, text.find('\n', begin) - begin)));
}

bool isMasked(const fs::path& file) {
    std::error_code failure;
    return fs::read_symlink(file, failure) == "/dev/null" ||
           (fs::is_regular_file(file, failure) && fs::file_size(file, failure) == 0);
}

Status writeRegistration(const fs::path& file, std::string_view text) {
    if (isMasked(file)) {
        return std::nullopt;
    }
    auto error = createDirectory(file.parent_path());
    return error ? error : replaceFileDurably(file, text, 0644);
}

Status removeRegistration(const fs::path& file) {
    std::error_code failure;
    if (isMasked(file) || (!fs::remove(file, failure) && !failure)) {
        return std::nullopt;
    }
    const int errorNumber = failure ? failure.value() : flushFolderOf(file);
    return errorNumber == 0 ? std::nullopt
                            : errorFromErrno(errorNumber, FileAccess::Write,
                                             quoted(file.native()) + " could not be removed");
}

}  // namespace teravolant::platform
