// unpack LAUNCHER: unpacks the archive on standard input into the empty folder of descriptor 3, for
// the launcher with that process id. Writes frames to standard output: the confinement, and the end
// or an error.
//
// The program confines itself first. Afterwards it can create items below the folder, but neither
// open a file nor use the network nor start a program.

#include <unistd.h>

#include <cerrno>
#include <new>

#include "platform/archives/archives.h"
#include "platform/archives/rules.h"
#include "platform/core/file_error.h"
#include "programs/confined_main.h"

int main(int argc, char** argv) {
    using namespace teravolant;
    constexpr int kFolder = 3;
    const auto launcher = launcherIn(argc, argv);
    if (!launcher) {
        return 2;
    }
    platform::FileDescriptor folder(kFolder);
    // The confined program can't open the files of a locale.
    const platform::Utf8Names utf8;
    reportConfinement(platform::confineUnpack(*launcher, folder));
    try {
        finish(platform::unpackArchive(STDIN_FILENO, std::move(folder)));
    } catch (const std::bad_alloc&) {
        finish(platform::errorFromErrno(ENOMEM, platform::FileAccess::Read,
                                        "The archive could not be unpacked"));
    }
}
