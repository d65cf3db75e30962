#include <memory>

#include <CLI/CLI.hpp>

#include "tools/commands.h"
#include "tools/key_source.h"
#include "tools/output.h"

namespace teravolant::release {
namespace {

using platform::Status;

Status printPublicKey(const KeyOptions& options, const std::stop_token& stop) {
    const auto key = signingKeyFrom(options.privateKey, options, stop);
    if (!key) {
        return key.error();
    }
    const auto publicKey = key->publicKey();
    return publicKey ? print(*publicKey + "\n") : publicKey.error();
}

}  // namespace

void addPublicKey(CLI::App& program, Work& work) {
    const auto options = std::make_shared<KeyOptions>();
    CLI::App* command = program.add_subcommand(
        "public-key", "Prints the public key that belongs to a private key.");
    addKeyOptions(*command, *options);
    command->callback([options, &work] {
        work = [options](const std::stop_token& stop) { return printPublicKey(*options, stop); };
    });
}

}  // namespace teravolant::release
