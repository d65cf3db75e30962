#include "platform/archives/archives.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <sstream>

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include "platform/archives/unpacked_tree.h"
#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/files/files.h"
#include "platform/system/process.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

struct ArchiveEntry {
    std::string name;
    mode_t mode = S_IFREG | 0644;
    std::string contents = {};  ///< The target of a link or the bytes of a file.
    bool isHardLink = false;
};

/// Returns the entry of a folder NAME/, a link NAME>TARGET, a hard link NAME=ORIGINAL, a pipe
/// NAME|, a set-user-id program NAME! or a file NAME.
ArchiveEntry entryOf(const std::string& item) {
    const std::size_t mark = item.find_first_of(">=|!");
    if (mark == item.npos) {
        return {item, item.ends_with('/') ? S_IFDIR | 0755U : S_IFREG | 0644U, "text"};
    }
    const std::map<char, mode_t> modes = {{'>', S_IFLNK | 0777},
                                          {'=', S_IFREG | 0644},
                                          {'|', S_IFIFO | 0644},
                                          {'!', S_IFREG | 04755}};
    return {item.substr(0, mark), modes.at(item[mark]), item.substr(mark + 1), item[mark] == '='};
}

struct Format {
    const char* name;
    int format;
    int filter;
};

constexpr Format kPlainTar = {"tar", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_NONE};
constexpr Format kZip = {"zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE};
constexpr Format kFormats[] = {
    kPlainTar,
    kZip,
    {"tar.gz", ARCHIVE_FORMAT_TAR_GNUTAR, ARCHIVE_FILTER_GZIP},
    {"tar.xz", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_XZ},
    {"tar.zst", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_ZSTD},
    {"tar.bz2", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_BZIP2},
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
        archive_entry_set_mtime(entry, 1234567890, 0);
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

    void expectLastRefused(std::vector<ArchiveEntry> entries, const Format& format,
                           const UnpackLimits& limits, const std::string& reason) const {
        writeArchive(archive, format, entries);
        emptyTarget();
        const std::string before = treeOf(root.path());
        const auto error = unpackArchive(archive, target, limits);
        emptyTarget();
        EXPECT_EQ(treeOf(root.path()), before);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, reason.starts_with("more") ? NSFileReadTooLargeError
                                                          : NSFileReadCorruptFileError);
        EXPECT_NE(error->localizedDescription.find(reason), std::string::npos)
            << error->localizedDescription;
        entries.pop_back();
        writeArchive(archive, format, entries);
        EXPECT_TRUE(entries.empty() || !unpackArchive(archive, target, limits)) << "an earlier one";
    }

    fixtures::TemporaryFolder root;
    fs::path target = root.path() / "target";
    fs::path outside = root.path() / "outside";
    fs::path archive = root.path() / "archive";
};

TEST_F(Archives, AreRefusedForAHostileLastEntry) {
    const std::tuple<std::string, std::vector<const char*>, UnpackLimits> table[] = {
        {"“..” component", {"../outside/new", "d/ d/../../outside/new"}, {}},
        {"absolute", {"/tmp/new", "l>/etc/passwd"}, {}},
        {"out of the folder", {"l>../outside/secret", "d/up>.. d/out>up/../outside"}, {}},
        {"malformed target", {"l>", "l>\xFF"}, {}},
        {"hard link that leads out", {"h=../outside/secret"}, {}},
        {"hard link whose target is not", {"h=f", "l>f f h=l", "d/f l>d h=l/f"}, {}},
        {"is not a file, a folder", {"p|"}, {}},
        {"set-user-id", {"s!"}, {}},
        {"twice", {"f ./f", "l>new l", "d/f d/ d/", "d/ d", "f f/", "f f>x", "f g g=f"}, {}},
        {"below a file or a link", {"d/ l>d l/new", "f f/new"}, {}},
        {"not UTF-8", {"\xFF\xFE"}, {}},
        {"folder itself", {"."}, {}},
        {"too long", {"name"}, {.pathLength = 3}},
        {"too deep", {"d/d/d/d"}, {.pathDepth = 3}},
        {"more than 2 items", {"1 2 3", "f h=f g", "d/ f l>d", "f g h=f", "1/2/3"}, {.items = 2}},
        {"more than 7", {"f g"}, {.bytes = 7}},
    };
    for (const auto& [reason, lists, limits] : table) {
        for (const std::string list : lists) {
            std::istringstream items(list);
            std::vector<ArchiveEntry> entries;
            for (std::string item; items >> item;) {
                entries.push_back(entryOf(item));
            }
            // Zip has neither hard links nor special files.
            const bool isTarOnly = list.find_first_of("=|") != list.npos;
            for (const Format& format : {kPlainTar, isTarOnly ? kPlainTar : kZip}) {
                SCOPED_TRACE(list + " as " + format.name);
                expectLastRefused(entries, format, limits, reason);
            }
        }
    }
}

TEST_F(Archives, CountWrittenBytesAndHoles) {
    for (const char* name : {"written", "extended"}) {
        UnpackedTree tree(FileDescriptor(open(target.c_str(), O_RDONLY)), {.bytes = 15});
        EXPECT_FALSE(tree.createFile({name}, 0));
        EXPECT_FALSE(tree.writeToFile("text", 2));
        const auto failure =
            name[0] == 'w' ? tree.writeToFile("text", 12) : tree.finishFile(16, {.mode = 0644});
        EXPECT_TRUE(failure && failure->reason == TreeFailure::Reason::TooManyBytes) << name;
    }
}

TEST_F(Archives, KeepModesLinksAndTimes) {
    // Folders that their owner may not write or search precede their contents.
    const std::vector<ArchiveEntry> entries = {{"./", S_IFDIR | 0700},
                                               {"shut", S_IFDIR | 0600},
                                               {"shut/inner", S_IFDIR | 0710},
                                               {"shut/inner/file"},
                                               {"sealed", S_IFDIR | 0555},
                                               {"sealed/run", S_IFREG | 0751, "program"},
                                               {"a/b/é e\xCC\x81", S_IFREG | 0400, ""},
                                               entryOf("a/b/l>../../sealed/./run"),
                                               {"a", S_IFDIR | 0710}};
    for (const Format& format : kFormats) {
        SCOPED_TRACE(format.name);
        emptyTarget();
        auto written = entries;
        if (format.format != ARCHIVE_FORMAT_ZIP) {
            written.push_back(entryOf("twin=sealed/run"));
        }
        writeArchive(archive, format, written);
        const auto error = unpackArchive(archive, target);
        ASSERT_FALSE(error) << error->localizedDescription;
        EXPECT_EQ(treeOf(target),
                  std::string("a drwx--x---  1234567890\n"
                              "a/b drwxr-xr-x  now\n"
                              "a/b/l lrwxrwxrwx ../../sealed/./run 1234567890\n"
                              "a/b/é e\xCC\x81 -r--------  0 1234567890\n"
                              "sealed dr-xr-xr-x  1234567890\n"
                              "sealed/run -rwxr-x--x  7 1234567890\n"
                              "shut drw-------  1234567890\n") +
                      (written.size() > entries.size() ? "twin -rwxr-x--x  7 1234567890\n" : ""));
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
        if (format.filter == ARCHIVE_FILTER_NONE && format.format != ARCHIVE_FORMAT_ZIP) {
            whole.resize(512 + 3072 + 512 + 512 + 1);  // up to the end marker
            step = 128;                                // some cuts fall between entries
        }
        for (std::size_t length = 0; length < whole.size() - 1; length += step) {
            emptyTarget();
            root.write("archive", whole.substr(0, length));
            EXPECT_TRUE(unpackArchive(archive, target)) << format.name << " of " << length;
        }
    }
}

TEST_F(Archives, AreUnpackedOnlyIntoAnEmptyFolder) {
    writeArchive(archive, kPlainTar, {{"a"}});
    EXPECT_TRUE(unpackArchive(archive, outside));
    EXPECT_FALSE(fs::exists(outside / "a"));
    fs::create_directory_symlink(target, root.path() / "link");
    EXPECT_TRUE(unpackArchive(archive, root.path() / "link"));
    EXPECT_TRUE(fs::is_empty(target));
}

}  // namespace
}  // namespace teravolant::platform
