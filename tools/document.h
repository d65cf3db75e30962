#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"
#include "platform/files/file_lock.h"
#include "platform/values/value.h"
#include "update_framework/offer.h"

namespace teravolant::release {

/// A feed document and its parsed offer. Nothing is verified.
struct FeedDocument {
    platform::Value::Dictionary members = {};  ///< All members of the document, also unknown ones.
    std::string text = {};                     ///< The signed text.
    platform::Offer offer = {};
    std::vector<std::string> signatures = {};
};

/// Reads the document in `body`. Fails for a malformed document or offer. `name` is for messages.
platform::Result<FeedDocument> documentIn(const std::string& body, const std::string& name);

/// Returns the file's content with a line feed at its end: `members`, with version, offer and
/// signatures from the other fields.
platform::Result<std::string> documentBody(const FeedDocument& document);

enum class SameArchive : bool { Refuse, Accept };

/// The place of a document, locked against other processes of this tool until it is destroyed.
class DocumentPlace {
  public:
    /// Fails if another process has the lock of the folder, or if a file exists at `path` that is
    /// neither empty nor a feed document.
    static platform::Result<DocumentPlace> open(const std::filesystem::path& path);

    /// The document to be replaced.
    [[nodiscard]] const std::optional<FeedDocument>& previous() const { return _previous; }

    /// Fails if installations would not take `offer` after the previous document: for another
    /// identifier or channel, and for a version that is not higher. `SameArchive::Accept` accepts
    /// the same version of the same archive.
    [[nodiscard]] platform::Status checkSuccession(const platform::Offer& offer,
                                                   SameArchive same) const;

    /// Atomically and durably replaces the file.
    [[nodiscard]] platform::Status replace(const FeedDocument& document) const;

  private:
    DocumentPlace(std::filesystem::path path, platform::FileLock lock)
        : _path(std::move(path)), _lock(std::move(lock)) {}

    std::filesystem::path _path;
    platform::FileLock _lock;
    std::optional<FeedDocument> _previous;
};

/// Returns the time to issue a document at that replaces `previous`: `now`, or a second after that
/// document if it is later by less than a minute. Fails if the clock is further behind.
platform::Result<std::chrono::sys_seconds> nextIssue(const std::optional<FeedDocument>& previous,
                                                     std::chrono::sys_seconds now);

/// Adds a signature unless the document has it already.
void addSignature(FeedDocument& document, const std::string& signature);

/// Returns the computer's clock.
[[nodiscard]] std::chrono::sys_seconds now();

}  // namespace teravolant::release
