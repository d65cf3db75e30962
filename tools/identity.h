#pragma once

#include <filesystem>
#include <string>

#include "platform/core/result.h"
#include "platform/system/bundle.h"

namespace teravolant::release {

/// The product and the version that an update is for.
struct Identity {
    std::string identifier;
    std::string version;

    friend bool operator==(const Identity&, const Identity&) = default;
};

/// Fails if the bundle's information property list can't be read.
platform::Result<platform::Bundle> openBundle(const std::filesystem::path& path);

/// Returns the bundle's identity. Fails if it is incomplete or `refusalOf` refuses it.
platform::Result<Identity> identityOf(const platform::Bundle& bundle);

/// Returns the reason why updaters can't compare the version, or nothing.
[[nodiscard]] platform::Status refusalOf(const Identity& identity);

}  // namespace teravolant::release
