#include "platform/system/bundle.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/system/executable_path.h"
#include "platform/values/printed_form.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

Result<Value::Dictionary> informationOf(const fs::path& bundle) {
    return dictionaryInFile(bundle / "Contents" / "Info.plist");
}

std::optional<std::string> textIn(const Value& dictionary, std::string_view key) {
    const Value* const value = dictionary.find(key);
    return value != nullptr && value->text() != nullptr ? std::optional(*value->text())
                                                        : std::nullopt;
}

fs::path executableIn(const fs::path& bundle, const Value& information) {
    return bundle / "Contents" / "MacOS" /
           textIn(information, "CFBundleExecutable").value_or(bundle.stem().string());
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

/// Returns the languages to try, in order: for the locale "pt_BR.UTF-8" pt-BR, then pt, then en.
std::vector<std::string> preferredLanguages() {
    std::string locale = localeOfMessages();
    locale.resize(std::min(locale.find_first_of(".@/"), locale.size()));
    std::vector<std::string> languages;
    const std::size_t region = locale.find('_');
    if (region != locale.npos) {
        languages.push_back(locale.substr(0, region) + "-" + locale.substr(region + 1));
    }
    languages.push_back(locale.substr(0, region));
    languages.emplace_back("en");
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
    const bool isHelper = folder.filename() == "Helpers";
    const bool inBundle =
        contents.filename() == "Contents" && (isHelper || folder.filename() == "MacOS");
    fs::path path = inBundle ? contents.parent_path() : folder;
    auto information = informationOf(path);
    Value values = information ? *std::move(information) : Value::Dictionary();
    fs::path own = inBundle && isHelper ? executableIn(path, values) : executable;
    return {std::move(path), std::move(own), std::move(values)};
}

std::optional<Bundle> Bundle::bundleWithPath(const fs::path& path) {
    auto information = informationOf(path);
    if (!information) {
        return std::nullopt;
    }
    Value values = *std::move(information);
    fs::path executable = executableIn(path, values);
    return Bundle(path, std::move(executable), std::move(values));
}

std::optional<std::string> Bundle::bundleIdentifier() const {
    return textIn(_information, "CFBundleIdentifier");
}

std::optional<std::string> Bundle::shortVersion() const {
    const Value* const version = objectForInfoDictionaryKey("CFBundleShortVersionString");
    return version == nullptr ? std::nullopt : std::optional(printedForm(*version));
}

bool Bundle::canRun() const {
    std::error_code missing;
    const fs::path executable = fs::canonical(_executablePath, missing);
    const fs::path bundle = fs::canonical(_path, missing);
    return !missing && isInside(executable, bundle) && fs::is_regular_file(executable, missing) &&
           access(executable.c_str(), X_OK) == 0;
}

fs::path Bundle::helpersPath() const { return _path / "Contents" / "Helpers"; }

const Value* Bundle::objectForInfoDictionaryKey(std::string_view key) const {
    return _information.find(key);
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
        if (auto text = strings ? textIn(*strings, key) : std::nullopt) {
            return *std::move(text);
        }
    }
    return std::string(key);
}

}  // namespace teravolant::platform
