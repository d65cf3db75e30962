#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <string_view>

#include "platform/core/result.h"

// The report of `selfcheck`: one line for each check.
namespace teravolant::selfcheck {

enum class Verdict : std::uint8_t {
    Ok,
    Note,        ///< Worth knowing, but no fault of the bundle or of this computer.
    Unclear,     ///< The check was not possible, for a reason that can pass.
    FailedHere,  ///< This computer lacks something that its user can install.
    Failed,
};

/// The result of one check.
struct Outcome {
    Verdict verdict = Verdict::Ok;
    std::string text;
};

[[nodiscard]] inline Outcome ok(std::string text) { return {Verdict::Ok, std::move(text)}; }
[[nodiscard]] inline Outcome note(std::string text) { return {Verdict::Note, std::move(text)}; }
[[nodiscard]] inline Outcome unclear(std::string text) {
    return {Verdict::Unclear, std::move(text)};
}
[[nodiscard]] inline Outcome failedHere(std::string text) {
    return {Verdict::FailedHere, std::move(text)};
}
[[nodiscard]] inline Outcome failed(std::string text) { return {Verdict::Failed, std::move(text)}; }

/// Returns the description of an error as the outcome of the check of `subject`: unclear if the
/// reason can pass, else failed.
[[nodiscard]] Outcome failed(std::string_view subject, const platform::Error& error);

/// Starts the check on a thread of its own, or performs it at once if no thread can be started. The
/// thread may outlive the future, and the program does not wait for it.
std::future<Outcome> inBackground(std::function<Outcome()> check);

/// Writes the lines to standard output. A failed write is ignored: the exit status counts.
class Report {
  public:
    void add(const Outcome& outcome);
    static void addFact(std::string_view name, std::string_view text);

    /// Writes the last line. Returns the exit status.
    [[nodiscard]] int finish() const;

  private:
    Outcome _worst;  ///< The first of the most severe ones.
};

}  // namespace teravolant::selfcheck
