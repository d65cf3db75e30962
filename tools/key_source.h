#pragma once

#include <stop_token>
#include <string>
#include <vector>

#include "platform/core/result.h"
#include "platform/crypto/signing_key.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace teravolant::release {

/// Where a command gets its private key from.
struct KeyOptions {
    std::string privateKey;                     ///< A path, "-" for standard input, or "env:NAME".
    std::vector<std::string> furtherKeys = {};  ///< Sources of the same kind.
    std::string passphraseFile;
    std::string passphraseVariable;
    bool allowReadableKey = false;
};

/// Adds the options to the command and returns the required `--private-key`. Parsing sets
/// `options`, which must outlive the command.
CLI::Option* addKeyOptions(CLI::App& command, KeyOptions& options);

/// Adds the option for further keys, whose signatures the document gets as well.
void addFurtherKeys(CLI::App& command, KeyOptions& options);

/// Reads the private key of one source. Decrypts it with a passphrase from the file or the
/// environment variable, else from the terminal. Fails soon after a stop request. No error contains
/// key or passphrase.
///
/// Removes the environment variables that it reads, so that child processes do not inherit them.
platform::Result<platform::SigningKey> signingKeyFrom(const std::string& source,
                                                      const KeyOptions& options,
                                                      const std::stop_token& stop);

/// Returns the files that `signingKeyFrom` reads, which no output may replace.
[[nodiscard]] std::vector<std::string> keyFilesOf(const KeyOptions& options);

}  // namespace teravolant::release
