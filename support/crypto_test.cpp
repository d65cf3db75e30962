#include "support/crypto.h"

#include <sys/stat.h>

#include <fstream>

#include <gtest/gtest.h>

#include "testing/program.h"
#include "testing/temporary_folder.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;

TEST(Crypto, DigestsAFileOfAnySizeAsMd5sumDoes) {
    const fixtures::TemporaryFolder folder;
    const fs::path file = folder.path() / "file";
    for (const std::uintmax_t size : {0U, 4095U, 4096U, 4097U, 1U << 30U}) {
        std::ofstream(file, std::ios::binary)
            << std::string(std::min<std::size_t>(size, 5), '\xFE');
        fs::resize_file(file, size);
        fixtures::Program md5sum("md5sum " + file.string());
        EXPECT_EQ(Crypto::MD5HashOfFile(file), md5sum.readLine().substr(0, 32)) << size;
    }
}

TEST(Crypto, HasNoDigestOfWhatCanNotBeReadToItsEnd) {
    const fixtures::TemporaryFolder folder;
    const fs::path pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    // The last one is a regular file whose every read fails.
    for (const fs::path& path :
         {folder.path() / "missing", folder.path(), pipe, fs::path("/proc/self/mem")}) {
        EXPECT_EQ(Crypto::MD5HashOfFile(path), std::nullopt) << path;
    }
}

}  // namespace
}  // namespace teravolant
