#include "platform/files/trusted_path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/core/error.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

namespace fs = std::filesystem;

TEST(TrustedPath, NamesWhoElseCanChangeIt) {
    const fixtures::TemporaryFolder folder;
    const fs::path& root = folder.path();
    folder.write("bin/program", "");
    folder.write("open/program", "");
    folder.write("sticky/program", "");
    fs::create_symlink("../open/link", root / "bin/link");
    fs::create_symlink(root / "bin/program", root / "open/link");
    fs::create_symlink("loop", root / "bin/loop");
    chmod((root / "open").c_str(), 0777);
    chmod((root / "sticky").c_str(), 01777);
    const auto complaint = [&](const std::string& path) {
        const auto error = checkTrustedPath(root / path);
        return error ? error->localizedDescription : "";
    };
    const auto everyUserCan = [&](const char* item) {
        return "“" + (root / item).string() + "” can be changed by every user.";
    };
    for (const auto& [path, expected] : std::initializer_list<std::pair<const char*, std::string>>{
             {"bin/program", ""},
             {"bin/missing/program", ""},
             {"bin/loop", ""},
             {"bin/./../sticky/program", ""},
             {"sticky/missing", everyUserCan("sticky")},
             {"open/program", everyUserCan("open")},
             {"open/missing/program", everyUserCan("open")},
             {"open/../bin/program", everyUserCan("open")},
             {"bin/link", everyUserCan("open")}}) {
        EXPECT_EQ(complaint(path), expected) << path;
    }
    chmod((root / "bin/program").c_str(), 0602);
    EXPECT_EQ(complaint("bin/program"), everyUserCan("bin/program"));
}

}  // namespace teravolant::platform
