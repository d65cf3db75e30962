#pragma once

#include <string>

#include "testing/temporary_folder.h"

namespace teravolant::fixtures {

/// A private machine for one test: own home, /etc/xdg, /var/log, /Applications, network and process
/// list, with the built bundle at /opt/Teravolant.app and 1 MiB of room in /small. What a script
/// started there ends with it.
class Sandbox {
  public:
    enum class User { ordinary = 1000, superuser = 0 };

    /// `setup` are further words for bubblewrap, behind its own.
    explicit Sandbox(User user = User::ordinary, std::string setup = "");

    /// Runs a script with bash and answers its standard output and error. It finds the launcher at
    /// `$launcher`, the log at `$log`, the files of the user's own preferences and of those of all
    /// users at `$own` and `$all_users`, and these functions: `await COMMAND...` repeats a command
    /// until it succeeds, `executes ID PATH` tells whether a process runs that executable, `unpack`
    /// puts the client into its folder, `start_client` does that and has one running, `clients`
    /// lists the ids of those that run, `client_words` the command lines that the client was given,
    /// and `prefer FILE KEY VALUE` makes a file of preferences with that one value.
    [[nodiscard]] std::string run(const std::string& script) const;

  private:
    User _user;
    std::string _setup;
    TemporaryFolder _root;
};

}  // namespace teravolant::fixtures
