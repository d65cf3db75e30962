#include <filesystem>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "platform/core/error.h"
#include "platform/crypto/signing_key.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/files/trusted_path.h"
#include "tools/commands.h"
#include "tools/output.h"

namespace teravolant::release {
namespace {

using platform::Status;

constexpr unsigned kOwnerOnly = 0600;
constexpr unsigned kReadableByAll = 0644;

struct Options {
    std::string privateKey;
    std::string publicKey;
};

Status publish(const std::string& publicKey, const Options& options) {
    if (options.publicKey.empty()) {
        return print(publicKey);
    }
    if (auto error = platform::createFileDurably(options.publicKey, publicKey, kReadableByAll)) {
        return error;
    }
    auto error = print(publicKey);
    if (error) {
        (void)platform::removeItem(options.publicKey);
    }
    return error;
}

Status makeKeyPair(const Options& options) {
    // The sticky bit of a folder protects the items in it, but not the place of a missing one.
    const auto distrust = platform::checkTrustedPath(std::filesystem::absolute(options.privateKey));
    const auto key = platform::SigningKey::generate();
    if (!key) {
        return key.error();
    }
    const auto pem = key->pem();
    const auto publicKey = key->publicKey();
    if (!pem || !publicKey) {
        return pem ? publicKey.error() : pem.error();
    }
    if (auto error = platform::createFileDurably(options.privateKey, *pem, kOwnerOnly)) {
        return error;
    }
    auto error = publish(*publicKey + "\n", options);
    if (error) {
        // A private key is useless if its public key was not written.
        (void)platform::removeItem(options.privateKey);
        return error;
    }
    if (distrust) {
        std::cerr << "teravolant-release: warning: " << distrust->localizedDescription
                  << " Make the key in a folder that only you can change.\n";
    }
    return std::nullopt;
}

}  // namespace

void addKeygen(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "keygen",
        "Makes a pair of keys. Prints the public key, for the build option "
        "TERAVOLANT_UPDATE_PUBLIC_KEYS. Keep the private key secret. Replaces no file.");
    command->add_option("--private-key", options->privateKey, "The new file for the private key")
        ->required()
        ->type_name("FILE");
    command->add_option("--public-key", options->publicKey, "A new file for the public key")
        ->type_name("FILE");
    command->callback([options, &work] {
        work = [options](const std::stop_token& /*stop*/) { return makeKeyPair(*options); };
    });
}

}  // namespace teravolant::release
