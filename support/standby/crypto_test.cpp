#include "support/standby/crypto.h"

#include <sys/stat.h>

#include <fstream>
#include <numeric>

#include <gtest/gtest.h>

#include "platform/system/process.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;

TEST(Crypto, DigestsFilesLikeMd5sum) {
    const fixtures::TemporaryFolder folder;
    const fs::path file = folder.path() / "file";
    std::string bytes(4097, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    for (const std::size_t size : {0U, 4095U, 4096U, 4097U, 1U << 20U}) {
        std::ofstream(file, std::ios::binary) << bytes.substr(0, size);
        fs::resize_file(file, size);
        const auto digest = platform::runToEndOfOutput("/usr/bin/md5sum", {file}).standardOutput;
        EXPECT_EQ(Crypto::MD5HashOfFile(file), digest.substr(0, 32)) << size;
    }
}

TEST(Crypto, HasNoDigestOfUnreadableFile) {
    const fixtures::TemporaryFolder folder;
    const fs::path secret = folder.path() / "secret";
    std::ofstream(secret) << "secret";
    fs::permissions(secret, fs::perms::none);
    std::ofstream(folder.path() / "file") << "content";
    const fs::path otherName = (folder.path() / "file").string() + '\0';
    const fs::path pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    // Every read from /proc/self/mem at offset 0 fails, although it is a regular file.
    for (const fs::path& path : {folder.path() / "missing", folder.path(), secret, otherName, pipe,
                                 fs::path("/proc/self/mem")}) {
        EXPECT_EQ(Crypto::MD5HashOfFile(path), std::nullopt) << path;
    }
}

}  // namespace
}  // namespace teravolant
