#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/file_descriptor.h"
#include "platform/files/file_lock.h"

namespace teravolant::client {

using Arguments = std::vector<std::string>;

/// The user's one running client. Holds a lock for its lifetime and reads the arguments of later
/// starts from a named pipe. Used by one thread.
class Instance {
  public:
    /// Becomes the user's one instance. If another instance runs, sends it the arguments, blocks
    /// until it has read them, and returns an empty optional. Fails after about 5 s if the instance
    /// does not read them.
    static platform::Result<std::optional<Instance>> join(const std::filesystem::path& folder,
                                                          const Arguments& arguments);

    /// Sends the arguments to the running instance, blocks until it has read them, and returns
    /// true. Returns false if no instance runs and none starts within `patience`. Fails after about
    /// 5 s if the instance does not read them.
    static platform::Result<bool> command(const std::filesystem::path& folder,
                                          const Arguments& arguments,
                                          std::chrono::milliseconds patience);

    /// Blocks until the arguments of the next start arrive and returns them. Returns nothing if the
    /// pipe can't be read.
    std::optional<Arguments> waitForArguments();

  private:
    Instance(platform::FileLock lock, platform::FileDescriptor pipe)
        : _lock(std::move(lock)), _pipe(std::move(pipe)) {}

    static platform::Result<Instance> start(platform::FileLock lock,
                                            const std::filesystem::path& pipe);

    platform::FileLock _lock;
    platform::FileDescriptor _pipe;
    std::string _received;
};

/// The client's own log: one entry for each received command line, with the local time and the
/// process id of the instance. Puts arguments that contain blanks or quotes between single quotes.
class CommandLog {
  public:
    explicit CommandLog(std::filesystem::path file) : _file(std::move(file)) {}

    void append(const Arguments& arguments) const;

  private:
    std::filesystem::path _file;
};

}  // namespace teravolant::client
