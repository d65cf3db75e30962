// The input is three lines: the version that runs, the version that is offered, and another one.

#include <algorithm>
#include <array>
#include <string>

#include "fuzz/require.h"
#include "updater/client_updater.h"
#include "updater/version_numbers.h"

namespace {

using namespace teravolant;
using fuzz::require;

std::optional<ParsedVersion> parsed(const std::string& text) {
    ClientUpdater::ErrorSlot error;
    auto version = ClientUpdater::parseVersion(text, error);
    require(!version == bool(error), "the result is either a version or an error");
    return version;
}

bool isNewer(const std::string& current, const std::string& offered) {
    ClientUpdater::ErrorSlot error;
    const bool newer = isVersionNewer(current, offered, error);
    require(newer == !error, "a version that is not newer has an error");
    require(!newer || (parsed(current) && parsed(offered)), "only versions are compared");
    return newer;
}

void checkParts(const std::string& text) {
    const auto version = parsed(text);
    if (!version) {
        return;
    }
    for (const std::string& number :
         {version->major, version->minor, version->patch, version->build}) {
        require(!number.empty() && number.find_first_not_of("0123456789") == number.npos,
                "a version consists of digits");
    }
    const std::string front = version->major + "." + version->minor + "." + version->patch;
    require(text.find(front) != text.npos, "the text contains the first three numbers");
    require(text.ends_with(version->build), "the text ends with the build number");
    require(parsed("9." + text) && parsed("version=" + text) == version,
            "text before the version is ignored");
    require(parsed(front + "." + version->build) == version,
            "the printed version parses to the same version");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    std::array<std::string, 3> texts;
    for (std::string& text : texts) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        text = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        checkParts(text);
        require(!isNewer(text, text), "a version is not newer than itself");
    }
    const auto& [first, second, third] = texts;
    const bool newer = isNewer(first, second);
    require(!newer || !isNewer(second, first), "of two versions at most one is newer");
    require(!newer || !isNewer(second, third) || isNewer(first, third), "the order is transitive");
    ClientUpdater::ErrorSlot error;
    require(ClientUpdater::checkUpdaterVersionNewer(first, second, error) == newer,
            "the updater compares versions in the same way");
    return 0;
}
