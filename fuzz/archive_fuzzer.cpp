// The input is an archive. It is unpacked into a folder that has a sibling.

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <set>
#include <string>

#include "fuzz/require.h"
#include "platform/archives/archives.h"
#include "platform/archives/rules.h"
#include "platform/core/error.h"
#include "platform/files/paths.h"
#include "tests/fixtures/temporary_folder.h"

namespace {

using namespace teravolant;
using fuzz::require;
using platform::UnpackLimits;
using std::filesystem::path;

constexpr UnpackLimits kLimits{
    .items = 32, .bytes = std::uint64_t{1} << 16U, .pathLength = 128, .pathDepth = 8};

/// Corrects the checksums of tar headers, which mutations break and libarchive verifies.
void fixChecksums(std::string& archive) {
    constexpr std::size_t kBlock = 512;
    constexpr std::size_t kChecksum = 148;
    for (std::size_t block = 0; archive.size() - block >= kBlock; block += kBlock) {
        if (archive.compare(block + 257, 5, "ustar") == 0) {
            archive.replace(block + kChecksum, 8, 8, ' ');
            unsigned sum = 0;
            for (const char byte : archive.substr(block, kBlock)) {
                sum += static_cast<unsigned char>(byte);
            }
            std::array<char, 8> text{};
            std::snprintf(text.data(), text.size(), "%06o", sum);
            archive.replace(block + kChecksum, 7, text.data(), 7);
        }
    }
}

/// Whether the link is dangling, part of a loop, or leads to a path inside the folder.
bool staysInside(const path& folder, const path& link) {
    std::error_code loop;
    const path target = std::filesystem::weakly_canonical(link, loop);
    return loop || platform::isInside(target, folder);
}

/// Checks everything in the folder, and makes every folder accessible to its owner.
class Inspection {
  public:
    explicit Inspection(const path& folder) : _folder(std::filesystem::canonical(folder)) {
        inspect(_folder);
        require(_items <= kLimits.items, "no more items than the limit");
        require(_bytes <= kLimits.bytes, "no more bytes than the limit");
    }

  private:
    void inspect(const path& folder) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            ++_items;
            struct stat status {};
            require(lstat(entry.path().c_str(), &status) == 0, "an unpacked item can be inspected");
            require((status.st_mode & 07000) == 0 || S_ISLNK(status.st_mode), "no special bits");
            if (S_ISDIR(status.st_mode)) {
                chmod(entry.path().c_str(), S_IRWXU);
                inspect(entry.path());
            } else if (S_ISREG(status.st_mode)) {
                _bytes += _files.insert(status.st_ino).second
                              ? static_cast<std::uint64_t>(status.st_size)
                              : 0;
            } else {
                require(S_ISLNK(status.st_mode), "all items are folders, files or links");
                require(staysInside(_folder, entry.path()), "links stay inside");
            }
        }
    }

    path _folder;
    std::uint64_t _items = 0;
    std::uint64_t _bytes = 0;
    std::set<ino_t> _files;
};

/// The attributes that change if the item is modified.
auto traceOf(const path& item) {
    struct stat status {};
    require(lstat(item.c_str(), &status) == 0, "an item outside the folder still exists");
    return std::tuple(status.st_mode, status.st_nlink, status.st_size, status.st_mtim.tv_sec,
                      status.st_mtim.tv_nsec);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fixtures::TemporaryFolder around;
    std::string archive(reinterpret_cast<const char*>(data), size);
    fixChecksums(archive);
    around.write("archive", archive);
    around.write("sibling/file", "before");
    const path folder = around.path() / "folder";
    std::filesystem::create_directory(folder);
    const auto traces = [&] {
        return std::tuple(traceOf(around.path()), traceOf(around.path() / "archive"),
                          traceOf(around.path() / "sibling"),
                          traceOf(around.path() / "sibling/file"));
    };
    const auto before = traces();

    const platform::Utf8Names utf8;
    const platform::FileDescriptor file(open((around.path() / "archive").c_str(), O_RDONLY));
    const auto error = platform::unpackArchive(
        file.get(), platform::FileDescriptor(open(folder.c_str(), O_DIRECTORY)), kLimits);

    require(traces() == before, "nothing is written outside the folder");
    require(!error || !error->localizedDescription.empty(), "a failure has a description");
    const Inspection inspection(folder);
    return 0;
}
