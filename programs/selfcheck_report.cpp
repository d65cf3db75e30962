#include "programs/selfcheck_report.h"

#include <unistd.h>

#include <algorithm>
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
    switch (outcome.verdict) {
        case Verdict::Ok:
            writeLine("ok", outcome.text);
            return;
        case Verdict::Note:
            writeLine("note", outcome.text);
            return;
        case Verdict::Unclear:
            writeLine("UNCLEAR", outcome.text);
            if (_firstUnclear.empty()) {
                _firstUnclear = outcome.text;
            }
            return;
        case Verdict::Failed:
            writeLine("FAILED", outcome.text);
            if (_firstFailure.empty()) {
                _firstFailure = outcome.text;
            }
    }
}

void Report::addFact(std::string_view name, std::string_view text) {
    constexpr std::string_view kIndentation = "        ";
    writeLine(std::string(kIndentation) + std::string(name) + ": ", text);
}

int Report::finish() const {
    const bool passed = _firstFailure.empty() && _firstUnclear.empty();
    const std::string line = passed                  ? "selfcheck: passed"
                             : _firstFailure.empty() ? "selfcheck: unclear: " + _firstUnclear
                                                     : "selfcheck: failed: " + _firstFailure;
    (void)platform::writeAll(STDOUT_FILENO, platform::escaped(line) + "\n");
    return passed ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace teravolant::selfcheck
