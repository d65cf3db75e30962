#include "tools/output.h"

#include <cerrno>
#include <filesystem>
#include <iostream>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/paths.h"
#include "platform/values/json.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {

namespace fs = std::filesystem;
using platform::FileAccess;
using platform::quoted;
using platform::Status;

Status refused(std::string reason) {
    return platform::updaterError(platform::SQRLUpdaterErrorRefusedOffer, std::move(reason));
}

Status cancelled() {
    return platform::Error{.domain = std::string(platform::NSCocoaErrorDomain),
                           .code = platform::NSUserCancelledError,
                           .localizedDescription = "The command was cancelled."};
}

Status refusalOfOutput(const std::string& output, const std::vector<std::string>& inputs) {
    std::error_code unknown;
    const fs::file_status status = fs::status(output, unknown);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        return platform::errorFromErrno(
            EEXIST, FileAccess::Write,
            quoted(output) + " is not a regular file and is not replaced");
    }
    const fs::path target = fs::weakly_canonical(output, unknown);
    for (const std::string& input : inputs) {
        if (platform::isInside(target, fs::weakly_canonical(input, unknown))) {
            return platform::errorFromErrno(EEXIST, FileAccess::Write,
                                            "The output " + quoted(output) +
                                                " would overwrite the input " + quoted(input) +
                                                " or be inside of it");
        }
    }
    return std::nullopt;
}

Status refusalOfName(const std::string& name) {
    constexpr std::string_view kPlain =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ.-_+~";
    const bool isPlain =
        !name.empty() && name != "." && name != ".." && name.find_first_not_of(kPlain) == name.npos;
    return isPlain ? Status()
                   : refused("“name”: " + quoted(platform::escaped(name)) +
                             " can't be a part of an address. Use letters, digits and . - _ + ~ in "
                             "the name of the bundle or the archive.");
}

Status print(std::string_view text) {
    errno = 0;
    if (!(std::cout << text << std::flush)) {
        return platform::errorFromErrno(errno == 0 ? EIO : errno, FileAccess::Write,
                                        "Standard output could not be written");
    }
    return std::nullopt;
}

Status printJson(const platform::Value::Dictionary& members) {
    const auto text = platform::serialiseJson(members);
    return text ? print(*text + "\n") : Status(text.error());
}

}  // namespace teravolant::release
