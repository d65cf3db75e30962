#include "programs/selfcheck_report.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <memory>
#include <system_error>
#include <thread>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/system/confined_program.h"

namespace teravolant::selfcheck {
namespace {

/// The launcher reads the last line: no text may contain another one.
void writeLine(std::string_view label, std::string_view text) {
    constexpr std::size_t kColumn = 8;
    std::string line(label);
    line.resize(std::max(line.size(), kColumn), ' ');
    (void)platform::writeAll(STDOUT_FILENO, line + platform::escaped(text) + "\n");
}

}  // namespace

Outcome failed(std::string_view subject, const platform::Error& error) {
    const bool isStopped = error.domain == platform::kProgramErrorDomain &&
                           (error.code == platform::ProgramError::hung ||
                            error.code == platform::ProgramError::killed);
    // An unknown error of a system call: no memory, no descriptors, a failing disk.
    const bool isOfSystem = error.domain == platform::NSCocoaErrorDomain &&
                            (error.code == platform::NSFileReadUnknownError ||
                             error.code == platform::NSFileWriteUnknownError);
    const bool canPass = isStopped || isOfSystem;
    const std::string text = std::string(subject) + ": " + error.localizedDescription;
    return canPass ? unclear(text) : failed(text);
}

std::future<Outcome> inBackground(std::function<Outcome()> check) {
    auto task = std::make_shared<std::packaged_task<Outcome()>>([check = std::move(check)] {
        try {
            return check();
        } catch (const std::exception& exception) {
            // Too little memory or too many threads: it can pass.
            return unclear(std::string("a check was not possible: ") + exception.what());
        }
    });
    auto outcome = task->get_future();
    try {
        std::thread([task] { (*task)(); }).detach();
    } catch (const std::system_error&) {
        (*task)();
    }
    return outcome;
}

void Report::add(const Outcome& outcome) {
    constexpr std::array kLabels = {"ok", "note", "UNCLEAR", "FAILED", "FAILED"};
    writeLine(kLabels[static_cast<std::size_t>(outcome.verdict)], outcome.text);
    if (outcome.verdict > _worst.verdict) {
        _worst = outcome;
    }
}

void Report::addFact(std::string_view name, std::string_view text) {
    constexpr std::string_view kIndentation = "        ";
    writeLine(std::string(kIndentation) + std::string(name) + ": ", text);
}

int Report::finish() const {
    const bool passed = _worst.verdict <= Verdict::Note;
    const std::string verdict = passed                                  ? "passed"
                                : _worst.verdict == Verdict::Unclear    ? "unclear: "
                                : _worst.verdict == Verdict::FailedHere ? "failed here: "
                                                                        : "failed: ";
    (void)platform::writeAll(
        STDOUT_FILENO,
        "selfcheck: " + verdict + (passed ? "" : platform::escaped(_worst.text)) + "\n");
    return passed ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace teravolant::selfcheck
