#include "platform/system/bundle.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "platform/files/files.h"
#include "platform/system/executable_path.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;
using Dictionary = Value::Dictionary;

Result<Dictionary> informationOf(const fs::path& bundle) {
    return dictionaryInFile(bundle / "Contents" / "Info.plist");
}

std::string localeOfMessages() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

/// From the most to the least wanted; a locale "pt_BR.UTF-8" asks for pt-BR, then for pt.
std::vector<std::string> preferredLanguages() {
    constexpr std::string_view kEnglish = "en";
    std::string locale = localeOfMessages();
    locale.resize(std::min(locale.find_first_of(".@/"), locale.size()));
    std::vector<std::string> languages;
    const std::size_t region = locale.find('_');
    if (region != locale.npos) {
        languages.push_back(locale.substr(0, region) + "-" + locale.substr(region + 1));
    }
    languages.push_back(locale.substr(0, region));
    languages.emplace_back(kEnglish);
    return languages;
}

}  // namespace

const Bundle& Bundle::mainBundle() {
    static const Bundle& bundle = *new Bundle(findMainBundle());
    return bundle;
}

Bundle Bundle::findMainBundle() {
    const fs::path& executable = executablePathOfThisProcess();
    const fs::path folder = executable.parent_path();
    const fs::path contents = folder.parent_path();
    const bool inBundle = contents.filename() == "Contents" && folder.filename() == "MacOS";
    fs::path path = inBundle ? contents.parent_path() : folder;
    auto information = informationOf(path);
    return {std::move(path), executable, information ? *std::move(information) : Dictionary()};
}

std::optional<Bundle> Bundle::bundleWithPath(const fs::path& path) {
    auto information = informationOf(path);
    if (!information) {
        return std::nullopt;
    }
    Bundle bundle(path, {}, *std::move(information));
    bundle._executablePath =
        path / "Contents" / "MacOS" /
        bundle.textForInfoDictionaryKey("CFBundleExecutable").value_or(path.stem().string());
    return bundle;
}

std::optional<std::string> Bundle::bundleIdentifier() const {
    return textForInfoDictionaryKey("CFBundleIdentifier");
}

std::optional<std::string> Bundle::shortVersion() const {
    return textForInfoDictionaryKey("CFBundleShortVersionString");
}

bool Bundle::canRun() const {
    std::error_code missing;
    const fs::path executable = fs::canonical(_executablePath, missing);
    const auto inside = executable.lexically_relative(fs::canonical(_path, missing));
    return !missing && !inside.empty() && *inside.begin() != ".." &&
           fs::is_regular_file(executable, missing) && access(executable.c_str(), X_OK) == 0;
}

fs::path Bundle::helpersPath() const { return _path / "Contents" / "Helpers"; }

const Value* Bundle::objectForInfoDictionaryKey(std::string_view key) const {
    const auto found = _information.find(key);
    return found == _information.end() ? nullptr : &found->second;
}

std::optional<std::string> Bundle::textForInfoDictionaryKey(std::string_view key) const {
    const Value* value = objectForInfoDictionaryKey(key);
    if (value == nullptr || value->text() == nullptr) {
        return std::nullopt;
    }
    return *value->text();
}

std::optional<fs::path> Bundle::pathForResource(std::string_view name,
                                                std::string_view extension) const {
    fs::path path =
        _path / "Contents" / "Resources" / std::string(name).append(".").append(extension);
    if (!fileExists(path)) {
        return std::nullopt;
    }
    return path;
}

std::string Bundle::localizedStringForKey(std::string_view key) const {
    const fs::path resources = _path / "Contents" / "Resources";
    for (const std::string& language : preferredLanguages()) {
        const auto strings =
            dictionaryInFile(resources / (language + ".lproj") / "Localizable.strings");
        if (!strings) {
            continue;
        }
        const auto found = strings->find(key);
        if (found != strings->end() && found->second.text() != nullptr) {
            return *found->second.text();
        }
    }
    return std::string(key);
}

}  // namespace teravolant::platform
