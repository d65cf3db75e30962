#include "programs/unpack_main.h"

#include <unistd.h>

#include <cerrno>
#include <new>

#include "platform/archives/archives.h"
#include "platform/archives/rules.h"
#include "platform/core/file_error.h"
#include "programs/confined_main.h"

namespace teravolant {

void unpackConfined(int parent) {
    constexpr int kFolder = 3;
    platform::FileDescriptor folder(kFolder);
    // The confined program can't open the files of a locale.
    const platform::Utf8Names utf8;
    reportConfinement(platform::confineUnpack(parent, folder));
    try {
        finish(platform::unpackArchive(STDIN_FILENO, std::move(folder)));
    } catch (const std::bad_alloc&) {
        finish(platform::errorFromErrno(ENOMEM, platform::FileAccess::Read,
                                        "The archive could not be unpacked"));
    }
}

}  // namespace teravolant
