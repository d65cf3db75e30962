// The input is a list of arguments of the launcher, separated by zero bytes.

#include "launcher/command_line.h"

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/require.h"
#include "platform/core/text.h"

namespace {

using namespace teravolant;
using fuzz::require;

ArgumentDictionary parsed(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv{"/program"};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    return parseArguments(static_cast<int>(argv.size()), argv.data());
}

std::vector<std::string> split(std::string_view input) {
    std::vector<std::string> arguments;
    while (true) {
        const std::size_t end = input.find('\0');
        arguments.emplace_back(input.substr(0, end));
        if (end == input.npos) {
            return arguments;
        }
        input.remove_prefix(end + 1);
    }
}

void checkOptions(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv;
    argv.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    for (const std::string& argument : arguments) {
        for (const std::string& option : {argument, argument + "x"}) {
            require(hasOption(static_cast<int>(argv.size()), argv.data(), option) ==
                        (std::ranges::find(arguments, option) != arguments.end()),
                    "an option is found if and only if an argument equals it");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto arguments = split({reinterpret_cast<const char*>(data), size});
    checkOptions(arguments);

    ArgumentDictionary oneByOne;
    for (const std::string& argument : arguments) {
        const ArgumentDictionary one = parsed({argument});
        require(one.size() <= 1, "an argument has at most one key");
        for (const auto& [key, value] : one) {
            require(argument.find(key) != std::string::npos, "a key is part of its argument");
            require(key.find('=') == std::string::npos, "a key does not contain an equals sign");
            require(platform::isValidUtf8(key) && platform::isValidUtf8(printedForm(value)),
                    "keys and values are UTF-8");
            require(std::holds_alternative<bool>(value) ||
                        parsed({"key=" + printedForm(value)}) == ArgumentDictionary{{"key", value}},
                    "a printed value parses to the same value");
            oneByOne.insert_or_assign(key, value);
        }
    }
    require(parsed(arguments) == oneByOne,
            "arguments are independent, and the last one with a key wins");
    return 0;
}
