#include "launcher/command_line.h"

#include <cstdlib>
#include <exception>

#include "platform/core/text.h"
#include "support/logger.h"

namespace teravolant {
namespace {

/// Returns the decimal number at the start of the text, saturated to 64 bits, or 0 if there is
/// none.
std::int64_t integerReading(const std::string& text) {
    return std::strtoll(text.c_str(), nullptr, 10);
}

ArgumentValue convert(std::string text) {
    if (platform::equalIgnoringCase(text, "YES")) {
        return true;
    }
    if (platform::equalIgnoringCase(text, "NO")) {
        return false;
    }
    if (const std::int64_t number = integerReading(text); number != 0) {
        return number;
    }
    return text;
}

void readArgument(const std::string& argument, ArgumentDictionary& dictionary) {
    const std::size_t equals = argument.find('=');
    if (!platform::isValidUtf8(argument) || argument.find('=', equals + 1) < argument.npos) {
        Logger::sharedInstance().logMessage("Invalid argument format: " +
                                            (platform::isValidUtf8(argument)
                                                 ? argument
                                                 : std::string(platform::kMissingValueMark)));
        return;
    }
    if (equals == argument.npos) {
        dictionary.insert_or_assign(argument, std::string());
        return;
    }
    std::string key = argument.substr(0, equals);
    if (key.starts_with('-')) {
        key.erase(0, 1);
    }
    dictionary.insert_or_assign(std::move(key), convert(argument.substr(equals + 1)));
}

}  // namespace

bool hasOption(int argc, const char* const* argv, std::string_view option) {
    if (argv == nullptr) {
        return false;
    }
    for (int index = 0; index < argc; ++index) {
        if (argv[index] != nullptr && argv[index] == option) {
            return true;
        }
    }
    return false;
}

ArgumentDictionary parseArguments(int argc, const char* const* argv) {
    ArgumentDictionary dictionary;
    try {
        for (int index = 1; index < argc; ++index) {
            readArgument(argv[index], dictionary);
        }
    } catch (const std::exception& exception) {
        Logger::sharedInstance().logMessage(std::string("Error parsing arguments: ") +
                                            exception.what());
    }
    return dictionary;
}

std::string printedForm(const ArgumentValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text;
    }
    if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        return std::to_string(*integer);
    }
    return std::get<bool>(value) ? "1" : "0";
}

}  // namespace teravolant
