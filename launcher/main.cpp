#include "launcher/teravolant_app.h"

int main(int argc, char* argv[]) {
    teravolant::TeravolantApp app;
    return app.run(argc, argv);
}
