#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/property_list.h"
#include "testing/temporary_folder.h"

namespace teravolant::fixtures {

/// A private machine for one test: own home, /etc/xdg, /var/log, /Applications, network and process
/// list, with the built bundle at /opt/Teravolant.app. What a script started there ends with it.
class Sandbox {
  public:
    enum class User { ordinary = 1000, superuser = 0 };

    struct Outcome {
        int status = 0;
        std::string output;  ///< Standard output and error of the script.
    };

    explicit Sandbox(User user = User::ordinary);

    /// Runs a script with bash. It finds the launcher at `$launcher` and these functions:
    /// `await COMMAND...` repeats a command until it succeeds, `executes ID PATH` tells whether a
    /// process runs that executable, `unpack` puts the client into its
    /// folder, `start_client` does that and has one running, `clients` lists the ids of those that
    /// run.
    Outcome run(const std::string& script) const;

    /// Further words for bubblewrap, behind its own, in force from the next `run` on.
    void addSetup(std::vector<std::string> words);

    /// These folders' paths outside; inside they are /home/user and /etc/xdg.
    [[nodiscard]] std::filesystem::path home() const { return _root.path() / "home"; }
    [[nodiscard]] std::filesystem::path machineConfiguration() const {
        return _root.path() / "xdg";
    }

    /// The entries of the user's updater.log (the superuser's where that is the user), in order,
    /// without their times.
    [[nodiscard]] std::vector<std::string> log() const;

    /// The command lines in the client's own log, without times and process ids.
    [[nodiscard]] std::vector<std::string> clientLog() const;

    /// Stores or reads a value of a preference domain's file in a folder.
    static void writePreference(const std::filesystem::path& folder, const std::string& domain,
                                const std::string& key, platform::PropertyListValue value);
    static platform::PropertyListValue::Dictionary preferences(const std::filesystem::path& folder,
                                                               const std::string& domain);

  private:
    User _user;
    TemporaryFolder _root;
    std::vector<std::string> _setup;
};

inline constexpr const char* kOwnDomain = "com.zelto.teravolant.updater";
inline constexpr const char* kAllUsersDomain = "com.zelto.teravolant";

}  // namespace teravolant::fixtures
