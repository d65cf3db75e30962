#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace teravolant {

enum class LaunchAgentKind { agent = 0, autorun = 1 };

/// The launcher: owns the state that the run sequence and the update agent share.
///
/// One object per process, on `main`'s stack. All operations run on the main thread: `run` before
/// the application loop starts, the others from `run` or from the delegate's callbacks inside the
/// loop. Each text buffer is null until `run` allocates it. A text longer than its buffer is
/// truncated.
class TeravolantApp {
  public:
    /// Makes the update agent the delegate of the shared application object.
    TeravolantApp();
    virtual ~TeravolantApp();

    TeravolantApp(const TeravolantApp&) = delete;
    TeravolantApp& operator=(const TeravolantApp&) = delete;

    /// Runs the run sequence; called once. Returns the process's exit status if the start ends
    /// before the application loop. The loop itself ends the process and does not return.
    int run(int argc, char* argv[]);

    [[nodiscard]] bool getNoUpdate() const { return noUpdate; }
    void setLaunchedAtLogin(bool value) { launchedAtLogin = value; }
    void setInitParamsUpdated(bool value) { initParamsUpdated = value; }

    /// Unpacks the client, unless it already runs from its folder, and opens it. Appends to the
    /// client's arguments: a second call would append them twice. Does nothing for the superuser.
    void launchTeravolant();

    /// Sends a command to the running client: starts the client's executable with `command` as its
    /// arguments and blocks until that process ends. `command` is shell text; null sends an empty
    /// command. Does nothing for the superuser.
    void sendTeravolantCommand(const char* command);

    /// Installs or refreshes one of the user's launch agents and loads it. With `reloadOnError`,
    /// reloads an agent even if its file could not be replaced. Logs failures.
    static void storeLaunchAgent(LaunchAgentKind kind, bool reloadOnError);

  private:
    static constexpr std::size_t kPathSize = 1024;
    static constexpr std::size_t kCommandSize = 1024;
    static constexpr std::size_t kClientArgsSize = 512;
    // A truncated path must never reach the shell. It fills its buffer, so a command that contains
    // it does not fit into the command buffer and is refused.
    static_assert(kPathSize >= kCommandSize);

    void buildClientPaths();

    /// Copies the launcher's own arguments into the argument buffer, each followed by a blank,
    /// until an argument does not fit.
    void joinClientArguments(int argc, const char* const* argv);
    /// Appends the launcher's path and the launch flags. Skips a piece that does not fit.
    void appendLaunchArguments();
    /// Appends the whole text, or returns false if it does not fit.
    bool appendClientArgument(const std::string& text);
    /// Returns the argument text, owned by this object.
    [[nodiscard]] const char* clientArguments() const;
    void freeClientArguments();

    /// Sets `clientState`: whether the client folder exists and whether a client from it runs.
    void detectClientState();

    /// Kills an instance without a folder, removes a folder without an instance, or sends a command
    /// to an instance with its folder. Returns false if the start must end with exit status 1.
    bool resolveClientState(bool checkAndUpdateOnly);
    /// Kills one instance. Returns false only if the process list can't be read.
    bool killFirstInstance();

    /// Prints a command into the command buffer. If it does not fit, logs it and returns false: a
    /// truncated command would be a different command.
    [[gnu::format(printf, 2, 3)]] bool formatCommand(const char* format, ...);
    bool formatCommandFrom(const char* format, std::va_list arguments);

    /// Formats, logs and runs a program with shell text as its arguments. Blocks until it ends;
    /// ignores its exit status.
    [[gnu::format(printf, 2, 3)]] void runCommand(const char* format, ...);
    void logCommand() const;

    bool noUpdate = false;
    bool launchedAtLogin = false;
    bool initParamsUpdated = false;
    std::unique_ptr<char[]> clientFolder;
    std::unique_ptr<char[]> launcherDir;
    std::unique_ptr<char[]> clientAppPath;
    std::unique_ptr<char[]> clientExecPath;
    std::unique_ptr<char[]> commandBuffer;
    std::unique_ptr<char[]> clientArgs;
    std::int32_t clientArgsLength = 0;
    unsigned char clientState = 0;  ///< Bits: 1 = an instance runs, 2 = the folder exists.
};

}  // namespace teravolant
