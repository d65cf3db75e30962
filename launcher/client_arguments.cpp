#include "launcher/teravolant_app.h"

// The sole owner of `clientArgs` and its count `clientArgsLength`: no other file reads or writes
// them.
//
// The count includes the first argument that did not fit. It is then at least the buffer's size,
// so every later append fails as well: nothing may follow an incomplete argument text. As long as
// every piece fits, the count is the length of the text in the buffer.
namespace teravolant {

void TeravolantApp::joinClientArguments(int argc, const char* const* argv) {
    clientArgs = std::make_unique<char[]>(kClientArgsSize);
    clientArgsLength = 0;
    for (int index = 1; index < argc; ++index) {
        const std::string text = std::string(argv[index]) + " ";
        if (!appendClientArgument(text)) {
            clientArgsLength += static_cast<std::int32_t>(text.size());
            return;
        }
    }
}

void TeravolantApp::appendLaunchArguments() {
    appendClientArgument(std::string(" -unpackapp ") + launcherDir.get() + "/teravolant");
    if (initParamsUpdated) {
        appendClientArgument(" --launchstartup on");
    }
    if (launchedAtLogin) {
        appendClientArgument(" --minimized");
    }
}

bool TeravolantApp::appendClientArgument(const std::string& text) {
    const auto length = static_cast<std::int32_t>(text.size());
    if (clientArgsLength + length >= static_cast<std::int32_t>(kClientArgsSize)) {
        return false;
    }
    text.copy(clientArgs.get() + clientArgsLength, text.size());
    clientArgsLength += length;
    return true;
}

const char* TeravolantApp::clientArguments() const { return clientArgs.get(); }

void TeravolantApp::freeClientArguments() { clientArgs.reset(); }

}  // namespace teravolant
