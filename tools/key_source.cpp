#include "tools/key_source.h"

#include <cstdlib>
#include <optional>
#include <sstream>

#include <CLI/CLI.hpp>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/input.h"
#include "platform/system/terminal.h"

namespace teravolant::release {
namespace {

using platform::Error;
using platform::Input;
using platform::quoted;
using platform::Result;
using platform::Status;

constexpr std::string_view kStandardInput = "-";
constexpr std::string_view kVariablePrefix = "env:";
constexpr std::size_t kLargestKey = 65536;        // bytes
constexpr std::size_t kLongestPassphrase = 1024;  // bytes
constexpr unsigned kAccessOfOthers = 077;

Status refusal(std::string description) {
    return Error{.domain = std::string(platform::NSCocoaErrorDomain),
                 .code = platform::NSFileReadUnknownError,
                 .localizedDescription = std::move(description)};
}

Result<Input> openSource(const std::string& source) {
    return source == kStandardInput ? Input::standardInput() : Input::open(source);
}

Result<std::string> takeVariable(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    if (value == nullptr) {
        return refusal("The environment variable " + quoted(name) + " is not set.");
    }
    std::string text = value;
    unsetenv(name.c_str());
    return text;
}

std::string octal(unsigned mode) {
    std::ostringstream text;
    text << '0' << std::oct << mode;
    return text.str();
}

Result<std::string> pemIn(const std::string& source, const KeyOptions& options,
                          const std::stop_token& stop) {
    if (source.starts_with(kVariablePrefix)) {
        return takeVariable(source.substr(kVariablePrefix.size()));
    }
    const auto input = openSource(source);
    if (!input) {
        return input.error();
    }
    const unsigned permissions = input->filePermissions().value_or(0);
    if ((permissions & kAccessOfOthers) != 0 && !options.allowReadableKey) {
        return refusal("The private key " + quoted(source) + " has the mode " + octal(permissions) +
                       ", which gives access to other users. Change it to 0600, or confirm it with "
                       "--allow-readable-key.");
    }
    return input->readAll(kLargestKey, stop);
}

Result<std::string> firstLineOf(const std::string& source, const std::stop_token& stop) {
    const auto input = openSource(source);
    return input ? input->readLine(kLongestPassphrase, stop) : input.error();
}

/// Returns the passphrase in the file or the variable, which are read once for all keys.
Result<std::string> storedPassphrase(const KeyOptions& options, const std::stop_token& stop) {
    static std::optional<std::string> stored;
    if (stored) {
        return *stored;
    }
    auto passphrase = options.passphraseFile.empty() ? takeVariable(options.passphraseVariable)
                                                     : firstLineOf(options.passphraseFile, stop);
    if (passphrase) {
        stored = *passphrase;
    }
    return passphrase;
}

Result<std::string> passphraseFor(const std::string& source, const KeyOptions& options,
                                  const std::stop_token& stop) {
    const bool isStored = !options.passphraseFile.empty() || !options.passphraseVariable.empty();
    auto passphrase = isStored
                          ? storedPassphrase(options, stop)
                          : platform::readPassphrase(
                                "Passphrase of the private key " + quoted(source) + ": ", stop);
    if (!passphrase && passphrase.error().code == platform::NSFileReadNoSuchFileError &&
        !isStored) {
        return refusal("The private key " + quoted(source) +
                       " is encrypted and there is no terminal: give its passphrase with "
                       "--passphrase-file or --passphrase-env.");
    }
    if (passphrase && passphrase->empty()) {
        return refusal("The passphrase of the private key " + quoted(source) + " is empty.");
    }
    return passphrase;
}

}  // namespace

CLI::Option* addKeyOptions(CLI::App& command, KeyOptions& options) {
    CLI::Option* const key =
        command
            .add_option("--private-key", options.privateKey,
                        "The private key: a file or pipe, - for standard input, or env:NAME for "
                        "an environment variable that contains the PEM text")
            ->required()
            ->type_name("SOURCE");
    CLI::Option* const file =
        command
            .add_option("--passphrase-file", options.passphraseFile,
                        "The file or pipe whose first line is the passphrase of an encrypted key "
                        "(default: the terminal)")
            ->type_name("FILE");
    command
        .add_option("--passphrase-env", options.passphraseVariable,
                    "The environment variable that contains the passphrase")
        ->type_name("NAME")
        ->excludes(file);
    command.add_flag("--allow-readable-key", options.allowReadableKey,
                     "Accepts a private key file to which other users have access");
    return key;
}

void addFurtherKeys(CLI::App& command, KeyOptions& options) {
    command
        .add_option("--also-key", options.furtherKeys,
                    "A further private key that signs as well, during a change of keys. May be "
                    "repeated")
        ->type_name("SOURCE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

Result<platform::SigningKey> signingKeyFrom(const std::string& source, const KeyOptions& options,
                                            const std::stop_token& stop) {
    const auto pem = pemIn(source, options, stop);
    if (!pem) {
        return pem.error();
    }
    auto key =
        platform::SigningKey::fromPem(*pem, [&] { return passphraseFor(source, options, stop); });
    if (!key && key.error().domain == platform::kCryptoErrorDomain) {
        Error error = key.error();
        error.localizedDescription = quoted(source) + ": " + error.localizedDescription;
        return error;
    }
    return key;
}

std::vector<std::string> keyFilesOf(const KeyOptions& options) {
    std::vector<std::string> files;
    std::vector<std::string> sources = options.furtherKeys;
    sources.insert(sources.end(), {options.privateKey, options.passphraseFile});
    for (const std::string& source : sources) {
        if (!source.empty() && source != kStandardInput && !source.starts_with(kVariablePrefix)) {
            files.push_back(source);
        }
    }
    return files;
}

}  // namespace teravolant::release
