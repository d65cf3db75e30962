#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace teravolant {

enum class LaunchAgentKind { agent = 0, autorun = 1 };

/// The launcher: all state that the run sequence and the update agent share, and their steps.
///
/// One object per process, on `main`'s stack. Everything runs on the main thread: `run` before the
/// application loop starts, the other operations from it or from the delegate's callbacks inside
/// the loop. Each text buffer is null until `run` makes it; a text that is longer than its buffer
/// is cut.
class TeravolantApp {
  public:
    /// Makes the update agent the delegate of the shared application object.
    TeravolantApp();
    virtual ~TeravolantApp();

    TeravolantApp(const TeravolantApp&) = delete;
    TeravolantApp& operator=(const TeravolantApp&) = delete;

    /// The run sequence; to be called once. Answers the process's exit status where the start ends
    /// before the application loop, which otherwise ends the process itself.
    int run(int argc, char* argv[]);

    [[nodiscard]] bool getNoUpdate() const { return noUpdate; }
    void setLaunchedAtLogin(bool value) { launchedAtLogin = value; }
    void setInitParamsUpdated(bool value) { initParamsUpdated = value; }

    /// Unpacks the client unless it runs from its folder already, and opens it. Adds to the
    /// client's arguments, so a second call would add them twice.
    void launchTeravolant();

    /// Runs the client's executable with the shell words of the command (null for none) and waits
    /// until that process ends, so that a client that already runs receives them.
    void sendTeravolantCommand(const char* command);

    /// Installs or refreshes one of the user's launch agents and has it loaded. With
    /// `reloadOnError` an agent is loaded again even when it could not be replaced.
    static void storeLaunchAgent(LaunchAgentKind kind, bool reloadOnError);

  private:
    static constexpr std::size_t kPathSize = 1024;
    static constexpr std::size_t kCommandSize = 1024;
    static constexpr std::size_t kClientArgsSize = 512;
    // A path that was cut must never get into a command: it fills its buffer, and so is too long.
    static_assert(kPathSize >= kCommandSize);

    void buildClientPaths();
    void joinClientArguments(int argc, const char* const* argv);
    void appendClientArgument(const std::string& text);

    /// Finds out whether the client folder exists and whether a client from it runs.
    void detectClientState();

    /// Kills an instance without a folder, removes a folder without an instance, commands an
    /// instance with its folder. False when the start is to end here.
    bool resolveClientState(bool checkAndUpdateOnly);
    bool killFirstInstance();

    /// Prints a command into the command buffer. One that does not fit is logged, and the answer is
    /// false: cut short it would be another command.
    [[gnu::format(printf, 2, 3)]] bool formatCommand(const char* format, ...);
    bool formatCommandFrom(const char* format, std::va_list arguments);

    /// Formats, logs and runs a command and waits for its end; its exit status is not looked at.
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
    unsigned char clientState = 0;  ///< Sum of 1 (an instance runs) and 2 (the folder exists).
};

}  // namespace teravolant
