#pragma once

#include <functional>
#include <stop_token>

#include "platform/core/result.h"

namespace CLI {
class App;
}

// The commands of teravolant-release. Everything runs on the main thread.
namespace teravolant::release {

/// Runs a command. Returns the error that it failed with; after a stop request it soon fails.
using Work = std::function<platform::Status(const std::stop_token& stop)>;

/// Each adds its command to the program. Parsing a command line that names the command sets `work`,
/// which must outlive the program.
void addKeygen(CLI::App& program, Work& work);
void addPublicKey(CLI::App& program, Work& work);
void addPack(CLI::App& program, Work& work);
void addFeed(CLI::App& program, Work& work);
void addPublish(CLI::App& program, Work& work);
void addRenew(CLI::App& program, Work& work);
void addCheck(CLI::App& program, Work& work);

/// Adds the hidden command `manual`, with which the build makes the manual page from the help.
void addManual(CLI::App& program, Work& work);

}  // namespace teravolant::release
