#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/file_descriptor.h"
#include "platform/files/file_lock.h"

namespace teravolant::client {

using Words = std::vector<std::string>;

/// The user's one running client: holds a lock for as long as it lives and reads from a named pipe
/// what later starts hand over.
class Instance {
  public:
    /// Becomes the user's one instance, or hands the words to the one that runs and answers nothing
    /// once that has read them.
    static platform::Result<std::optional<Instance>> join(const std::filesystem::path& folder,
                                                          const Words& words);

    /// Blocks until the next command line arrives; nothing when the pipe can't be read any more.
    std::optional<Words> waitForWords();

  private:
    Instance(platform::FileLock lock, platform::FileDescriptor pipe)
        : _lock(std::move(lock)), _pipe(std::move(pipe)) {}

    platform::FileLock _lock;
    platform::FileDescriptor _pipe;
    std::string _received;
};

/// The client's own log: one received command line an entry, with the local time and the id of the
/// instance that received it. Words with blanks or quotes in them stand between single quotes.
class CommandLog {
  public:
    explicit CommandLog(std::filesystem::path file) : _file(std::move(file)) {}

    void append(const Words& words) const;

  private:
    std::filesystem::path _file;
};

}  // namespace teravolant::client
