// unpack LAUNCHER: unpacks the archive on standard input into the empty folder of descriptor 3, for
// the launcher with that process id (see unpack_main.h).

#include "programs/confined_main.h"
#include "programs/unpack_main.h"

int main(int argc, char** argv) {
    const auto launcher = teravolant::launcherIn(argc, argv);
    if (!launcher) {
        return 2;
    }
    teravolant::unpackConfined(*launcher);
}
