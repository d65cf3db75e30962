#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "platform/system/bundle.h"
#include "update_framework/sqrl_update.h"

namespace CLI {
class App;
}

// The commands of teravolant-release and what they share. Everything runs on the main thread.
namespace teravolant::release {

/// Does what a command was asked for; answers what kept it from that. Ends soon after a stop.
using Work = std::function<platform::Status(const std::stop_token& stop)>;

/// Each adds its command to the program. Reading a command line with that command in it sets
/// `work`, which outlives the program.
void addKeygen(CLI::App& program, Work& work);
void addPack(CLI::App& program, Work& work);
void addFeed(CLI::App& program, Work& work);
void addCheck(CLI::App& program, Work& work);

/// Whom an update is for and what it is.
struct Identity {
    std::string identifier;
    std::string version;
};

platform::Result<platform::Bundle> openBundle(const std::filesystem::path& path);

/// What the bundle says of itself; an error unless updaters can do with it.
platform::Result<Identity> identityOf(const platform::Bundle& bundle);

/// Why updaters can't tell or sign this identity, if so.
[[nodiscard]] platform::Status refusalOf(const Identity& identity);

struct ArchiveFacts {
    std::uint64_t size = 0;  ///< Bytes.
    std::string sha256;      ///< Lower-case hexadecimal digits.
};
platform::Result<ArchiveFacts> factsOf(const std::filesystem::path& archive,
                                       const std::stop_token& stop);

/// The offer in the body of a feed's answer, as an updater judges it that asked at `feedUrl` (whose
/// query holds the running version), has the identifier and accepts the keys. The error says why
/// the offer is refused and at which member.
platform::Result<platform::SQRLUpdate> acceptedOffer(const std::string& body,
                                                     const std::string& feedUrl,
                                                     const std::string& identifier,
                                                     const std::vector<std::string>& publicKeys);

/// The address of a feed at a place that is not known, asked by that version, and its folder.
inline constexpr std::string_view kUnknownFolder = "https://feed.invalid/";
[[nodiscard]] std::string unknownFeedUrl(std::string_view version);

/// The error for an output that would take the place of one of the inputs or go into one, or of
/// something that is no file: a device would be gone.
[[nodiscard]] platform::Status refusalOfOutput(const std::string& output,
                                               const std::vector<std::string>& inputs);

/// Writes the text to standard output and sees to it that it got there.
[[nodiscard]] platform::Status print(std::string_view text);

}  // namespace teravolant::release
