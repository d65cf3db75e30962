#include <cstdlib>

#include "launcher/teravolant_app.h"
#include "update_framework/first_starts.h"

int main(int argc, char* argv[]) {
    // `selfcheck` starts the launcher to see that it can: every argument has a meaning already.
    if (std::getenv("TERAVOLANT_SELFCHECK") != nullptr) {
        return EXIT_SUCCESS;
    }
    teravolant::platform::beginStart(argv);
    teravolant::TeravolantApp app;
    const int status = app.run(argc, argv);
    teravolant::platform::endStart();
    return status;
}
