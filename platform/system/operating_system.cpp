#include "platform/system/operating_system.h"

#include <sys/utsname.h>

#include <charconv>
#include <cstddef>
#include <string_view>

namespace teravolant::platform {
namespace {

/// Removes a number and the full stop after it from the front of the text, and returns the number.
unsigned takeNumber(std::string_view& text) {
    unsigned number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(parsed.ptr - text.data()));
    if (text.starts_with('.')) {
        text.remove_prefix(1);
    }
    return number;
}

}  // namespace

OperatingSystemVersion operatingSystemVersion() {
    utsname system{};
    if (uname(&system) != 0) {
        return {};
    }
    std::string_view release = system.release;
    const unsigned majorVersion = takeNumber(release);
    return {majorVersion, takeNumber(release)};
}

std::string userAgent(const std::string& program, const std::string& version) {
    utsname system{};
    const std::string machine = uname(&system) == 0 ? system.machine : "unknown";
    const auto [major, minor] = operatingSystemVersion();
    return program + "/" + version + " (Linux " + std::to_string(major) + "." +
           std::to_string(minor) + "; " + machine + ")";
}

}  // namespace teravolant::platform
