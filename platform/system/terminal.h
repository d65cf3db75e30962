#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Writes the prompt to the controlling terminal of the process and returns the line that the user
/// types there, without echo. Keys cannot suspend the process meanwhile.
///
/// Returns with the terminal's previous settings. A stop request restores them before
/// `request_stop` returns, and the operation then fails with `NSUserCancelledError`. Fails with
/// `NSFileReadNoSuchFileError` if the process has no terminal. Discards what was typed before.
Result<std::string> readPassphrase(const std::string& prompt, const std::stop_token& stop);

/// Returns the columns of the terminal that is the standard output. Returns 80 if it does not tell
/// its size, and nothing if the standard output is not a terminal.
[[nodiscard]] std::optional<unsigned> columnsOfOutput();

}  // namespace teravolant::platform
