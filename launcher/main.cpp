#include "launcher/teravolant_app.h"
#include "update_framework/first_starts.h"

int main(int argc, char* argv[]) {
    teravolant::platform::beginStart(argv);
    teravolant::TeravolantApp app;
    const int status = app.run(argc, argv);
    teravolant::platform::endStart();
    return status;
}
