#include "platform/archives/archives.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include "platform/archives/rules.h"
#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/files/files.h"
#include "platform/system/process.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr time_t kSomeTime = 1234567890;

struct ArchiveEntry {
    std::string name;
    mode_t mode = S_IFREG | 0644;
    std::string contents = {};  ///< The target of a link or the bytes of a file.
    bool isHardLink = false;
};

ArchiveEntry link(std::string name, std::string target) {
    return {std::move(name), S_IFLNK | 0777, std::move(target)};
}

ArchiveEntry hardLink(std::string name, std::string target) {
    return {std::move(name), S_IFREG | 0644, std::move(target), true};
}

struct Format {
    const char* name;
    int format;
    int filter;
};

constexpr Format kPlainTar = {"tar", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_NONE};
constexpr Format kFormats[] = {
    kPlainTar,
    {"GNU", ARCHIVE_FORMAT_TAR_GNUTAR, ARCHIVE_FILTER_NONE},
    {"ustar", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_NONE},
    {"tar.zst", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_ZSTD},
};

void writeArchive(const fs::path& path, const Format& format,
                  const std::vector<ArchiveEntry>& entries) {
    archive* writer = archive_write_new();
    archive_write_set_format(writer, format.format);
    archive_write_add_filter(writer, format.filter);
    ASSERT_EQ(archive_write_open_filename(writer, path.c_str()), ARCHIVE_OK);
    for (const ArchiveEntry& described : entries) {
        const std::string& contents = described.contents;
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, described.name.c_str());
        archive_entry_set_mode(entry, described.mode);
        archive_entry_set_mtime(entry, kSomeTime, 0);
        if (described.isHardLink) {
            archive_entry_set_hardlink(entry, contents.c_str());
        } else if (S_ISLNK(described.mode)) {
            archive_entry_set_symlink(entry, contents.c_str());
        } else {
            archive_entry_set_size(entry, static_cast<la_int64_t>(contents.size()));
        }
        ASSERT_GE(archive_write_header(writer, entry), ARCHIVE_WARN) << described.name;
        archive_write_data(writer, contents.data(),
                           static_cast<std::size_t>(archive_entry_size(entry)));
        archive_entry_free(entry);
    }
    ASSERT_EQ(archive_write_free(writer), ARCHIVE_OK);
}

Status unpack(const fs::path& archive, const fs::path& folder, const UnpackLimits& limits = {}) {
    const Utf8Names utf8;
    const FileDescriptor file(open(archive.c_str(), O_RDONLY));
    return unpackArchive(file.get(), FileDescriptor(open(folder.c_str(), O_DIRECTORY)), limits);
}

/// Lists the items below the folder: name, mode, link target, size of a file, and time or "now".
std::string treeOf(const fs::path& folder) {
    const char* const list = R"(cd "$0" && find . -mindepth 1 -printf '%P %M %l ' \
        '(' -type f -printf '%s ' -o -true ')' \
        '(' -newermt 2010-01-01 -printf 'now\n' -o -printf '%Ts\n' ')' | LC_ALL=C sort)";
    return runToEndOfOutput("/bin/sh", {"-c", list, folder}).standardOutput;
}

/// A folder to unpack into, beside a file that hostile archives try to reach.
class Archives : public testing::Test {
  protected:
    Archives() {
        fs::create_directory(target);
        root.write("outside/secret", "untouched");
    }

    void emptyTarget() const {
        (void)removeTree(target);
        fs::create_directory(target);
    }

    fixtures::TemporaryFolder root;
    fs::path target = root.path() / "target";
    fs::path outside = root.path() / "outside";
    fs::path archive = root.path() / "archive";
};

struct HostileArchive {
    const char* situation;
    std::vector<ArchiveEntry> entries;
    const char* reason;
    UnpackLimits limits = {};
};

TEST_F(Archives, WithHostileEntriesAreRefused) {
    const ArchiveEntry folder{"d", S_IFDIR | 0755};
    const ArchiveEntry file{"f", S_IFREG | 0644, "text"};
    const HostileArchive table[] = {
        {"parent", {{"../outside/new"}}, "“..” component"},
        {"parent later", {folder, {"d/../../outside/new"}}, "“..” component"},
        {"absolute", {{"/tmp/new"}}, "absolute"},
        {"absolute link", {link("l", "/etc/passwd")}, "absolute"},
        {"link out", {link("l", "../outside/secret")}, "out of the folder"},
        {"link out by a link", {link("d/up", ".."), link("d/out", "up/../outside")}, "out of"},
        {"empty link", {link("l", "")}, "malformed target"},
        {"hard link out", {hardLink("h", "../outside/secret")}, "that leads out"},
        {"hard link to nothing", {hardLink("h", "f")}, "whose target is not"},
        {"pipe", {{"p", S_IFIFO | 0644}}, "is not a file, a folder"},
        {"set-user-id file", {{"s", S_IFREG | 04755}}, "set-user-id"},
        {"file twice by another name", {file, {"./f"}}, "twice"},
        {"link over a file", {file, link("f", "d")}, "twice"},
        {"link over a folder", {folder, link("d", "f")}, "twice"},
        {"folder over a link", {folder, link("l", "d"), {"l", S_IFDIR | 0755}}, "twice"},
        {"hard link over a file", {file, {"g"}, hardLink("g", "f")}, "twice"},
        {"below a link", {folder, link("l", "d"), {"l/new"}}, "below a file or a link"},
        {"below a file", {file, {"f/new"}}, "below a file or a link"},
        {"hard link to a link", {file, link("l", "f"), hardLink("h", "l")}, "whose"},
        {"hard link by one", {{"d/f"}, link("l", "d"), hardLink("h", "l/f")}, "whose target"},
        {"name that is not UTF-8", {{"\xFF\xFE"}}, "not UTF-8"},
        {"link target that is not UTF-8", {link("l", "\xFF")}, "malformed target"},
        {"the folder itself as a file", {{"."}}, "folder itself"},
        {"long name", {{"name"}}, "too long", {.pathLength = 3}},
        {"deep name", {{"d/d/d/d"}}, "too deep", {.pathDepth = 3}},
        {"too many files", {{"1"}, {"2"}, {"3"}}, "more than 2 items", {.items = 2}},
        {"too many folders above it", {{"1/2/3"}}, "more than 2 items", {.items = 2}},
        {"large together", {file, {"2", S_IFREG | 0644, "more"}}, "more than 7", {.bytes = 7}},
    };
    for (const HostileArchive& hostile : table) {
        SCOPED_TRACE(hostile.situation);
        writeArchive(archive, kPlainTar, hostile.entries);
        emptyTarget();
        const std::string before = treeOf(root.path());
        const auto error = unpack(archive, target, hostile.limits);
        emptyTarget();
        EXPECT_EQ(treeOf(root.path()), before);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, std::string_view(hostile.reason).starts_with("more")
                                   ? NSFileReadTooLargeError
                                   : NSFileReadCorruptFileError);
        EXPECT_NE(error->localizedDescription.find(hostile.reason), std::string::npos)
            << error->localizedDescription;
    }
}

TEST_F(Archives, KeepModesLinksAndTimes) {
    // Folders that their owner may not write or search precede their contents.
    // The bits to write for group and others are dropped.
    const std::vector<ArchiveEntry> entries = {{"./", S_IFDIR | 0700},
                                               {"shut", S_IFDIR | 0600},
                                               {"shut/inner", S_IFDIR | 0710},
                                               {"shut/inner/file"},
                                               {"sealed", S_IFDIR | 0555},
                                               {"sealed/run", S_IFREG | 0773, "program"},
                                               {"a/b/é e\xCC\x81", S_IFREG | 0400, ""},
                                               link("a/b/l", "../../sealed/./run"),
                                               {"a", S_IFDIR | 0710},
                                               hardLink("twin", "sealed/run")};
    for (const Format& format : kFormats) {
        SCOPED_TRACE(format.name);
        emptyTarget();
        writeArchive(archive, format, entries);
        const auto error = unpack(archive, target);
        ASSERT_FALSE(error) << error->localizedDescription;
        EXPECT_EQ(treeOf(target), std::string("a drwx--x---  1234567890\n"
                                              "a/b drwxr-xr-x  now\n"
                                              "a/b/l lrwxrwxrwx ../../sealed/./run 1234567890\n"
                                              "a/b/é e\xCC\x81 -r--------  0 1234567890\n"
                                              "sealed dr-xr-xr-x  1234567890\n"
                                              "sealed/run -rwxr-x--x  7 1234567890\n"
                                              "shut drw-------  1234567890\n"
                                              "twin -rwxr-x--x  7 1234567890\n"));
        EXPECT_EQ(*contentsOfFile(target / "a/b/l"), "program");
        fs::permissions(target / "shut", fs::perms::owner_all);
        EXPECT_EQ(fs::status(target / "shut/inner").permissions(), fs::perms(0710));
    }
}

TEST_F(Archives, AreRefusedIfCutShort) {
    for (const Format& format : kFormats) {
        writeArchive(archive, format,
                     {{"a", S_IFREG | 0644, std::string(3000, 'a')}, {"b", S_IFREG | 0644, "b"}});
        std::string whole = *contentsOfFile(archive);
        std::size_t step = std::max<std::size_t>(whole.size() / 40, 1);
        if (format.filter == ARCHIVE_FILTER_NONE) {
            whole.resize(512 + 3072 + 512 + 512 + 1);  // up to the end marker
            step = 128;                                // some cuts fall between entries
        }
        for (std::size_t length = 0; length < whole.size() - 1; length += step) {
            emptyTarget();
            root.write("archive", whole.substr(0, length));
            EXPECT_TRUE(unpack(archive, target)) << format.name << " of " << length;
        }
    }
}

}  // namespace
}  // namespace teravolant::platform
