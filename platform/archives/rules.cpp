#include "platform/archives/rules.h"

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

constexpr unsigned kSpecialBits = 07000;

/// Removes the first component of `path` and returns it.
std::string_view takeComponent(std::string_view& path) {
    const std::size_t end = path.find('/');
    const std::string_view component = path.substr(0, end);
    path.remove_prefix(end == path.npos ? path.size() : end + 1);
    return component;
}

Status refusal(std::string reason) {
    return archiveError(NSFileReadCorruptFileError, std::move(reason));
}

}  // namespace

Status archiveError(std::int64_t code, std::string description) {
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = code,
                 .localizedDescription = std::move(description)};
}

Result<PathComponents> componentsOfEntry(std::string_view name, const UnpackLimits& limits) {
    if (name.empty()) {
        return refusal("has no name");
    }
    if (name.size() > limits.pathLength) {
        return refusal("has a name that is too long");
    }
    if (name.starts_with('/')) {
        return refusal("has an absolute name");
    }
    PathComponents components;
    while (!name.empty()) {
        const std::string_view component = takeComponent(name);
        if (component == "..") {
            return refusal("has a name with a “..” component");
        }
        if (!component.empty() && component != ".") {
            components.emplace_back(component);
        }
    }
    if (components.size() > limits.pathDepth) {
        return refusal("is nested too deeply");
    }
    return components;
}

std::optional<std::string> refusalOfLink(std::string_view target, std::size_t depth,
                                         const UnpackLimits& limits) {
    if (target.empty() || target.size() > limits.pathLength || !isValidUtf8(target)) {
        return "is a link with a malformed target";
    }
    if (target.starts_with('/')) {
        return "is a link to an absolute path";
    }
    bool descended = false;
    while (!target.empty()) {
        const std::string_view component = takeComponent(target);
        if (component == "..") {
            if (descended || depth == 0) {
                return "is a link that leads out of the folder";
            }
            --depth;
        } else if (!component.empty() && component != ".") {
            descended = true;
        }
    }
    return std::nullopt;
}

std::optional<std::string> refusalOfMode(unsigned mode) {
    if ((mode & kSpecialBits) == 0) {
        return std::nullopt;
    }
    return "has a set-user-id, set-group-id or sticky bit";
}

Utf8Names::Utf8Names() : _locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{})) {
    if (_locale == locale_t{}) {
        _locale = newlocale(LC_CTYPE_MASK, "en_US.UTF-8", locale_t{});
    }
    _previous = uselocale(_locale);
}

Utf8Names::~Utf8Names() {
    uselocale(_previous);
    if (_locale != locale_t{}) {
        freelocale(_locale);
    }
}

}  // namespace teravolant::platform
